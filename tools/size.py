#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Builds the library in a tree of its own and prints what it costs: the text of each family and of
the whole, and for each unit the time and the memory of its compiler. Fails beyond a limit.

    tools/size.py [--tree build/size] [--text 3.5] [--seconds 250]
"""

import argparse
import collections
import json
import resource
import shutil
import subprocess
import sys
import time
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
UNIT_SECONDS, UNIT_MEGABYTES = 40, 700


def launch(log, command):
    """As the compiler's launcher: runs it and notes what it took."""
    status = subprocess.run(command).returncode
    used = resource.getrusage(resource.RUSAGE_CHILDREN)
    note = {"output": command[command.index("-o") + 1] if "-o" in command else "",
            "seconds": used.ru_utime + used.ru_stime, "megabytes": used.ru_maxrss / 1024}
    with open(log, "a") as file:
        file.write(json.dumps(note) + "\n")
    sys.exit(status)


def text_of(path):
    """Code and constants, as `size` adds them up."""
    lines = subprocess.run(["size", path], check=True, capture_output=True, text=True).stdout.splitlines()
    return int(lines[1].split()[0])


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawTextHelpFormatter)
    parser.add_argument("--tree", type=Path, default=ROOT / "build" / "size")
    parser.add_argument("--text", type=float, default=3.5, help="limit of the library's text, in MB")
    parser.add_argument("--seconds", type=float, default=250, help="limit of the processor time of a build")
    options = parser.parse_args()

    log = options.tree / "units.log"
    shutil.rmtree(options.tree, ignore_errors=True)
    subprocess.run(["cmake", "-S", ROOT, "-B", options.tree, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release",
                    f"-DCMAKE_CXX_COMPILER_LAUNCHER={sys.executable};{__file__};--launch;{log}"],
                   check=True, stdout=subprocess.DEVNULL)
    log.unlink(missing_ok=True)
    start, before = time.monotonic(), resource.getrusage(resource.RUSAGE_CHILDREN)
    subprocess.run(["cmake", "--build", options.tree, "--target", "zonm"], check=True, stdout=subprocess.DEVNULL)
    elapsed, after = time.monotonic() - start, resource.getrusage(resource.RUSAGE_CHILDREN)
    seconds = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime

    units = [json.loads(line) for line in log.read_text().splitlines()]
    families = collections.defaultdict(list)
    for unit in units:
        parts = Path(unit["output"]).parts
        unit["kind"] = parts[1].removesuffix(".dir").removeprefix("zonm_").removeprefix("families_")
        unit["text"] = text_of(options.tree / unit["output"])
        families["/".join(parts[3:]).removesuffix(".cpp.o")].append(unit)

    print(f"{'family':36}{'text, KB':>10}   units: type, KB, seconds, MB of the compiler")
    for name, members in sorted(families.items()):
        shown = "".join(f"{u['kind']:>8}{u['text'] / 1000:6.0f}{u['seconds']:6.1f}{u['megabytes']:5.0f}"
                        for u in sorted(members, key=lambda u: u["kind"]))
        print(f"{name:36}{sum(u['text'] for u in members) / 1000:10.1f}{shown}")
    text = text_of(options.tree / "libzonm.so") / 1e6
    print(f"library: {text:.3f} MB of text; build: {seconds:.1f} s of processor time, {elapsed:.1f} s elapsed")

    beyond = [f"text of {text:.3f} MB, limit {options.text}"] if text > options.text else []
    if seconds > options.seconds:
        beyond.append(f"a build of {seconds:.1f} s, limit {options.seconds:g}")
    beyond += [f"{u['output']}: {u['seconds']:.1f} s, {u['megabytes']:.0f} MB" for u in units
               if u["seconds"] > UNIT_SECONDS or u["megabytes"] > UNIT_MEGABYTES]
    if beyond:
        sys.exit("beyond the limit: " + "; ".join(beyond))


if __name__ == "__main__":
    if sys.argv[1:2] == ["--launch"]:
        launch(sys.argv[2], sys.argv[3:])
    main()
