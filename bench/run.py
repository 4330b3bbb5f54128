#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the benchmarks and writes docs/benchmarks.json and docs/benchmarks.md from one run.

A quick or filtered run prints its tables and leaves docs/ alone."""

import argparse
import json
import os
import platform
import re
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

import solvers
import table

FULL = {"repetitions": 9, "min_time": 0.01}
QUICK = {"repetitions": 3, "min_time": 0.004}

# Holds the binary peers to the 16-byte registers of the x86-64 baseline.
NARROW = {"OPENBLAS_CORETYPE": "Nehalem", "LIBXSMM_TARGET": "wsm"}


def machine():
    """Processor, cores and caches as the system names them."""
    name = "unknown processor"
    if Path("/proc/cpuinfo").exists():
        fields = dict(re.findall(r"^([^\t\n]+?)\s*: (.*)$", Path("/proc/cpuinfo").read_text(), re.M))
        name = fields.get("model name", name)
        if "cpu family" in fields:
            name += f" (family {fields['cpu family']}, model {fields['model']})"
    return name


def caches(context):
    level = {}
    for cache in context["caches"]:
        if cache["type"] != "Instruction":
            level[cache["level"]] = f"L{cache['level']} {cache['size'] // 1024} KiB"
    return ", ".join(level[k] for k in sorted(level))


def run(program, settings, pattern, environment={}):
    with tempfile.TemporaryDirectory() as folder:
        output = os.path.join(folder, "out.json")
        done = subprocess.run(
            [program, f"--benchmark_out={output}", "--benchmark_out_format=json",
             f"--benchmark_filter={pattern}",
             "--benchmark_enable_random_interleaving=true",
             f"--benchmark_repetitions={settings['repetitions']}",
             f"--benchmark_min_time={settings['min_time']}",
             "--benchmark_display_aggregates_only=true"],
            env=os.environ | environment,
            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        if done.returncode:
            sys.exit(done.stderr)
        with open(output) as file:
            return json.load(file)


def trim(raw, settings, command):
    """What the tables need: per contestant the least and the median ns per object."""
    context = raw["context"]
    samples = {}
    for b in raw["benchmarks"]:
        if b["run_type"] == "iteration":
            group, operation, type_, size, count, contestant = b["name"].split("/")[:6]
            row = (group, operation, type_, int(size), int(count))
            samples.setdefault(row, {}).setdefault(contestant, []).append(
                b["cpu_time"] / b["objects"])
    rows = [[*row, {who: [float(f"{min(t):.4g}"), float(f"{statistics.median(t):.4g}")]
                    for who, t in contestants.items()}]
            for row, contestants in sorted(samples.items())]
    return {
        "date": context["date"][:10],
        "machine": f"{machine()}, {context['num_cpus']} cores, {caches(context)}",
        **{key: context[key] for key in ("compiler", "flags")},
        "peers": {key: context[key] for key in ("Eigen", "OpenBLAS", "LIBXSMM") if key in context},
        "command": command,
        "repetitions": settings["repetitions"],
        "unit": "ns of processor time per object: least, median of the repetitions",
        "rows": rows,
    }


def is_baseline(data):
    return platform.machine() in ("x86_64", "AMD64") and "-march" not in data["flags"]


def write(path, data):
    head = {key: value for key, value in data.items() if key != "rows"}
    lines = json.dumps(head, indent=2)[:-2]
    rows = ",\n".join("    " + json.dumps(row) for row in data["rows"])
    path.write_text(f'{lines},\n  "rows": [\n{rows}\n  ]\n}}\n')


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", required=True, help="the zonm_bench that was built")
    parser.add_argument("--quick", action="store_true", help="fewer and shorter samples")
    parser.add_argument("--filter", default=".", help="regular expression on the names")
    parser.add_argument("--json", type=Path, help="also write the figures there")
    options = parser.parse_args()

    settings = QUICK if options.quick else FULL
    print(f"about {'one minute' if options.quick else 'five minutes'} ...", file=sys.stderr)
    data = trim(run(options.program, settings, options.filter), settings, "./dev bench")
    everything = options.filter == "."
    if everything and any(row[0] == "product" for row in data["rows"]) and is_baseline(data):
        narrow = trim(run(options.program, settings, "product/zonmMul_mama/", NARROW), settings, "")
        data["rows"] += [["product_narrow", *row[1:]] for row in narrow["rows"]]
    if options.json:
        write(options.json, data)
    if options.quick or not everything:
        print(table.markdown(data))
        return
    docs = Path(__file__).resolve().parent.parent / "docs"
    docs.mkdir(exist_ok=True)
    write(docs / "benchmarks.json", data)
    (docs / "benchmarks.md").write_text(table.markdown(data))
    solvers.renew(docs / "solvers.md", data)
    print(f"wrote {docs / 'benchmarks.md'} and benchmarks.json", file=sys.stderr)


if __name__ == "__main__":
    main()
