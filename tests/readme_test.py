#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Compiles and runs the C programs of the documents and compares what they print.

Every ```c block is a whole program, the same as the file named behind ```c but for its license line, and
the next ```text block in front of another program is its output.

With --steps it does instead what the README's ```sh steps blocks say, word for word, one after the other
in one shell, in a home directory of its own. With --built DIRECTORY too, the lines that build are left
out, and what was built there is installed.
"""

import argparse
import json
import os
import re
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
FENCE = re.compile(r"^```([^\n]*)\n(.*?)^```$", re.MULTILINE | re.DOTALL)
LICENSE = "/* SPDX-License-Identifier: Apache-2.0 */\n"


def programs(document):
    """(file, source, output) of each program of a document."""
    blocks = [(m[1].split(), m[2]) for m in FENCE.finditer(document.read_text())]
    blocks = [(kind, text) for kind, text in blocks if kind[:1] in (["c"], ["text"])]
    for (kind, text), (next_kind, output) in zip(blocks, blocks[1:] + [([], "")]):
        if kind[0] == "c":
            if len(kind) != 2:
                sys.exit(f"{document.name}: name the file of this program behind ```c:\n{text}")
            if next_kind != ["text"]:
                sys.exit(f"{document.name}: a program has no output behind it:\n{text}")
            yield kind[1], text, output


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


def follow_steps(options):
    """What a reader types, who goes through the page from top to bottom."""
    page = (ROOT / "README.md").read_text()
    blocks = [m[2] for m in FENCE.finditer(page) if m[1].split() == ["sh", "steps"]]
    text = "".join(blocks)
    if "--install" not in text or "cc " not in text:
        sys.exit("the README has no steps")
    if options.built:
        text = re.sub(r"^cmake --(preset|build) .*\n", "", text, flags=re.MULTILINE)
        text = text.replace("build/release", str(Path(options.built).resolve()))
    with tempfile.TemporaryDirectory() as home:
        environment = {"HOME": home, "PATH": os.environ["PATH"]}
        done = subprocess.run(["sh", "-e", "-c", text], cwd=ROOT, env=environment,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        left = [str(path) for path in ROOT.glob("readme*")]
    print(text, done.stdout, sep="\n")
    name, _, expected = next(iter(programs(ROOT / "README.md")))
    if done.returncode or not done.stdout.endswith(expected):
        sys.exit(f"FAILED: the steps do not end in the output of {name}:\n{expected}")
    if left:
        sys.exit(f"FAILED: the steps leave {left} in the sources")


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--compiler", default="cc")
    parser.add_argument("--include")
    parser.add_argument("--library")
    parser.add_argument("--flags", default="", help="further flags of the compiler, in one argument")
    parser.add_argument("--steps", action="store_true")
    parser.add_argument("--built", help="a tree that is built")
    options = parser.parse_args()
    if options.steps:
        return follow_steps(options)
    failures = found = 0
    for document in [ROOT / "README.md", *sorted((ROOT / "docs").glob("*.md"))]:
        for name, source, expected in programs(document):
            found += 1
            title = f"{document.name}: {name}"
            if (ROOT / name).read_text().replace(LICENSE, "", 1) != source:
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
