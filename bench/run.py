#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Runs the benchmarks and writes the figures, two pages and the pictures from one run, beside the program's
build tree, or with --publish in docs/. A quick or filtered run prints its tables and writes nothing.
With --against it compares two builds of the library instead."""

import argparse
import json
import math
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

# The groups whose time is that on the clock: processor time is the main thread's alone.
ELAPSED = {"scaling"}

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


# Register widths as the peers name their kernels, and as the processor names its features.
KERNELS = {
    "Prescott": 16, "Core2": 16, "Penryn": 16, "Dunnington": 16, "Atom": 16, "Nehalem": 16, "Katmai": 16,
    "Barcelona": 16, "Bobcat": 16, "Opteron": 16, "Athlon": 16, "generic": 16, "wsm": 16, "sse3": 16,
    "sse4": 16, "Sandybridge": 32, "Bulldozer": 32, "Piledriver": 32, "Steamroller": 32, "Excavator": 32,
    "snb": 32, "Haswell": 32, "Zen": 32, "hsw": 32, "SkylakeX": 64, "Cooperlake": 64, "SapphireRapids": 64,
    "skx": 64, "clx": 64, "cpx": 64, "spr": 64, "knl": 64, "knm": 64,
}


def processor_width():
    """Bytes of the widest vector registers, 0 where the system does not tell."""
    path = Path("/proc/cpuinfo")
    if platform.machine() not in ("x86_64", "AMD64") or not path.exists():
        return 0
    flags = re.search(r"^flags\s*: (.*)$", path.read_text(), re.M)
    features = flags[1].split() if flags else []
    return 64 if "avx512f" in features else 32 if "avx" in features else 16


def kernel_width(version):
    """Of "0.3.21, kernels for Haswell, one thread" or "1.17, code for hsw"; 0 if the name is unknown."""
    named = re.search(r"(?:kernels|code) for (\w+)", version)
    return KERNELS.get(named[1], 0) if named else 0


def remarks(peers):
    """What has to be said of peers that run with narrower kernels than the processor could take."""
    width = processor_width()
    return [f"{name} ran with kernels for {kernel_width(version)}-byte registers, below the processor's {width}: "
            f"it does not know this processor, and these figures flatter zonm"
            for name, version in peers.items() if 0 < kernel_width(version) < width]


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
                b["real_time" if group in ELAPSED else "cpu_time"] / b["objects"])
    rows = [[*row, {who: [float(f"{min(t):.4g}"), float(f"{statistics.median(t):.4g}")]
                    for who, t in contestants.items()}]
            for row, contestants in sorted(samples.items())]
    return {
        "date": context["date"][:10],
        "machine": f"{machine()}, {context['num_cpus']} cores, {caches(context)}",
        **{key: context[key] for key in ("compiler", "flags")},
        "remarks": remarks({key: context[key] for key in ("OpenBLAS", "LIBXSMM") if key in context}),
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


def arguments():
    parser = argparse.ArgumentParser(prog="./dev bench", description=__doc__)
    parser.add_argument("--program", type=Path, help=argparse.SUPPRESS)  # the zonm_bench that was built
    parser.add_argument("--check-arguments", action="store_true", help=argparse.SUPPRESS)
    parser.add_argument("--quick", action="store_true", help="fewer and shorter samples")
    parser.add_argument("--publish", action="store_true", help="write to docs/, files of the repository")
    parser.add_argument("--repetitions", type=int, default=FULL["repetitions"], help="samples of a full run")
    parser.add_argument("--filter", default=".", help="regular expression on the names")
    parser.add_argument("--against", type=Path, metavar="DIRECTORY",
                        help="compare with the libzonm.so of another build, and print the ratios")
    parser.add_argument("--json", type=Path, help="also write the figures there")
    options = parser.parse_args()
    if options.publish and (options.quick or options.filter != "." or options.against):
        parser.error("only a full run is published: leave out --quick, --filter and --against")
    if options.against and not options.check_arguments and not list(options.against.glob("libzonm.so*")):
        parser.error(f"no libzonm.so in {options.against}")
    if not options.program and not options.check_arguments:
        parser.error("--program is missing: the zonm_bench that was built")
    return options


def against(program, other, pattern):
    """Prints the time of this build's library over that of the other's, in one program, turn by turn."""
    least = {}
    libraries = {"this": program.resolve().parent.parent, "other": other.resolve()}
    for _ in range(3):
        for which, folder in libraries.items():
            raw = run(program, QUICK, pattern, {"LD_LIBRARY_PATH": str(folder)})
            for b in raw["benchmarks"]:
                name = b["name"].split("/")[:6]
                if b["run_type"] == "iteration" and name[5].startswith("zonm"):
                    times = least.setdefault(tuple(name), {})
                    times[which] = min(times.get(which, math.inf), b["cpu_time"])
    operations = {}
    for (group, operation, type_, size, *_), times in sorted(least.items()):
        operations.setdefault((group, operation, type_), []).append((times["this"] / times["other"], size))
    for names, ratios in operations.items():
        mean = table.geometric_mean([ratio for ratio, _ in ratios])
        worst, size = max(ratios)
        print(f"{mean:.2f}  worst {worst:.2f} at N = {size:3}  {' '.join(names)}")
    everything = table.geometric_mean([ratio for ratios in operations.values() for ratio, _ in ratios])
    print(f"{everything:.2f}  all: this build's time over the other's")


def interpreter_with(module):
    """A Python that has the module: this one, or the system's, for which Debian's packages are."""
    for python in (sys.executable, "/usr/bin/python3"):
        if subprocess.run([python, "-c", f"import {module}"], stderr=subprocess.DEVNULL).returncode == 0:
            return python
    return None


def main():
    options = arguments()
    if options.check_arguments:
        return
    painter = interpreter_with("matplotlib")
    if options.publish and not painter:
        sys.exit("the pictures need matplotlib (apt install python3-matplotlib)")
    if options.against:
        return against(options.program, options.against, options.filter)
    settings = QUICK if options.quick else FULL | {"repetitions": options.repetitions}
    print(f"about {'three minutes' if options.quick else 'fifteen minutes'} ...", file=sys.stderr)
    command = "./dev bench --publish"
    if settings["repetitions"] != FULL["repetitions"]:
        command += f" --repetitions {settings['repetitions']}"
    if "OPENBLAS_CORETYPE" in os.environ:
        command = f"OPENBLAS_CORETYPE={os.environ['OPENBLAS_CORETYPE']} {command}"
    data = trim(run(options.program, settings, options.filter), settings, command)
    for name, version in data["peers"].items():
        print(f"{name}: {version}", file=sys.stderr)
    for remark in data["remarks"]:
        print(f"NOTE: {remark}", file=sys.stderr)
    everything = options.filter == "."
    if everything and any(row[0] == "product" for row in data["rows"]) and is_baseline(data):
        narrow = trim(run(options.program, settings, "product/zonmMul_mama/", NARROW), settings, "")
        data["rows"] += [["product_narrow", *row[1:]] for row in narrow["rows"]]
    if options.json:
        write(options.json, data)
    if options.quick or not everything:
        print(table.tables(data))
        return
    docs = Path(__file__).resolve().parent.parent / "docs"
    folder = docs if options.publish else options.program.resolve().parent.parent
    write(folder / "benchmarks.json", data)
    table.write(data, folder)
    if painter:
        pictures = Path(__file__).with_name("pictures.py")
        subprocess.run([painter, pictures, folder / "benchmarks.json", folder / "benchmarks"], check=True)
    if options.publish:
        solvers.renew(docs / "solvers.md", data)
    print(f"wrote {folder / 'benchmarks.md'} and benchmarks.json", file=sys.stderr)


if __name__ == "__main__":
    main()
