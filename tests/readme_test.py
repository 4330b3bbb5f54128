#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compiles and runs the C programs of the documents and compares what they print.

Every ```c block is a whole program, and the next ```text block in front of another program is its
output. A file named behind ```c is the same program, but for its license line.
"""

import argparse
import re
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
FENCE = re.compile(r"^```([^\n]*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
LICENSE = "/* SPDX-License-Identifier: Apache-2.0 */\n"


def programs(document):
    """(file or "", source, output) of each program of a document."""
    blocks = [(m[1].split(), m[2]) for m in FENCE.finditer(document.read_text())]
    blocks = [(kind, text) for kind, text in blocks if kind[:1] in (["c"], ["text"])]
    for (kind, text), (next_kind, output) in zip(blocks, blocks[1:] + [([], "")]):
        if kind[0] == "c":
            if next_kind != ["text"]:
                sys.exit(f"{document.name}: a program has no output behind it:\n{text}")
            yield "".join(kind[1:]), text, output


def output_of(source, options, folder):
    """What the program prints, compiled as strictly as C99 allows."""
    file, binary = folder / "program.c", folder / "program"
    file.write_text(source)
    library = Path(options.library).resolve()
    compile_command = [
        options.compiler, "-std=c99", "-pedantic", "-Wall", "-Wextra", "-Werror", *options.flags.split(),
        f"-I{options.include}", str(file), "-o", str(binary), str(library),
        f"-Wl,-rpath,{library.parent}", "-lm",
    ]
    subprocess.run(compile_command, check=True)
    return subprocess.run([str(binary)], check=True, stdout=subprocess.PIPE, text=True).stdout


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--compiler", required=True)
    parser.add_argument("--include", required=True)
    parser.add_argument("--library", required=True)
    parser.add_argument("--flags", default="", help="further flags of the compiler, in one argument")
    options = parser.parse_args()
    failures = found = 0
    for document in [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]:
        for name, source, expected in programs(document):
            found += 1
            title = f"{document.name}: {name or 'program'}"
            if name and (ROOT / name).read_text().replace(LICENSE, "", 1) != source:
                failures += 1
                print(f"FAILED {title}: differs from the file")
                continue
            with tempfile.TemporaryDirectory() as folder:
                printed = output_of(source, options, Path(folder))
            if printed != expected:
                failures += 1
                print(f"FAILED {title}\nexpected:\n{expected}\nprinted:\n{printed}")
            else:
                print(f"passed {title}")
    if not found:
        sys.exit("the documents have no program")
    sys.exit(failures != 0)


if __name__ == "__main__":
    main()
