#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""What a DLL is from the outside: its imports, its exports and ordinals, its loading with and without
the core library, and a consumer in C that is linked with its import library."""

import argparse
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

SYSTEM = {"KERNEL32.dll", "msvcrt.dll"}


def tables(objdump, dll):
    """The imported libraries and the exports as {name: ordinal}."""
    text = subprocess.run([objdump, "-p", dll], check=True, capture_output=True, text=True).stdout
    imports = set(re.findall(r"DLL Name: (\S+)", text))
    names = text[text.index("[Ordinal/Name Pointer] Table"):].split("\n\n")[0]
    base = int(re.search(r"Ordinal Base\s+(\d+)", text)[1])
    # Newer tools print the ordinal, older ones its distance from the base.
    exports = {name: int(plus or number) if plus else base + int(number) for number, plus, name in
               re.findall(r"\[ *(\d+)\](?: \+base\[ *(\d+)\] +[0-9a-f]+)? (\S+)$", names, re.MULTILINE)}
    return imports, exports


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    for name in ("objdump", "dll", "definitions", "core", "load", "consumer"):
        parser.add_argument(f"--{name}", required=True, type=Path)
    parser.add_argument("--emulator", default="", help="what runs a program of the platform; ; between words")
    options = parser.parse_args()
    failures = []

    imports, exports = tables(options.objdump, options.dll)
    wanted = {name: int(ordinal) for name, ordinal in
              re.findall(r"^ +(\S+) @(\d+)$", options.definitions.read_text(), re.MULTILINE)}
    if imports != SYSTEM and imports != SYSTEM - {"msvcrt.dll"}:
        failures.append(f"it needs {', '.join(sorted(imports))}")
    if exports != wanted or len(wanted) != 874:
        different = sorted(set(exports.items()) ^ set(wanted.items()))
        failures.append(f"{len(different)} exports or ordinals are not those of the list: {different[:4]}")

    emulator = [word for word in options.emulator.split(";") if word]
    with tempfile.TemporaryDirectory() as folder:
        for file in (options.dll, options.definitions, options.load, options.consumer):
            shutil.copy(file, folder)
        dll, definitions = options.dll.name, options.definitions.name

        def run(what, program, *arguments):
            result = subprocess.run([*emulator, f"./{program.name}", *arguments], cwd=folder,
                                    capture_output=True, text=True, errors="replace")
            print(f"{what}: {result.stdout.strip()}")
            # Without the right subsystem nothing is run, and that without an error.
            if result.returncode or not result.stdout.strip():
                failures.append(f"{what}: exit code {result.returncode}\n{result.stdout}{result.stderr}")

        run("without the core library", options.load, dll, definitions)
        shutil.copy(options.core, folder)
        run("beside a core library that nobody loads", options.load, dll, definitions)
        run("behind the core library", options.load, dll, definitions, options.core.name)
        run("a consumer in C", options.consumer)
    if failures:
        sys.exit("\n".join(failures))


if __name__ == "__main__":
    main()
