#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Builds the library for other processors, systems, compilers and options, and compares the results of
all calls of the tests, and of zonm_digests, with those of g++ -O3 on this machine.

A platform with a processor or a system of its own gets all tests that compare digests, built for it and
run by an emulator. Of another compiler or other options only the library is built: the tests of this
machine run on it. Everything is built in build/platforms; results are kept there too.
"""

import argparse
import concurrent.futures
import datetime
import json
import os
import re
import resource
import shutil
import subprocess
import sys
import time
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
WORK = ROOT / "build" / "platforms"
REFERENCE = ROOT / "build" / "test-release"
JOBS = int(os.environ.get("ZONM_JOBS", 0)) or os.cpu_count()
PROGRAM_SECONDS = 3600  # for one program in an emulator

# The platforms ----------------------------------------------------------------------------------


@dataclass(frozen=True)
class Platform:
    name: str
    about: str
    packages: tuple = ()
    # How it is configured and run.
    options: tuple = ()  # of CMake
    compiler: str = "g++"
    level: str = "-O3"
    arch: str = ""
    flags: str = ""
    emulator: tuple = ()
    strip: str = "strip"
    # What is expected of it.
    builds_tests: bool = False  # for a target of its own
    needs: str = ""  # a feature of this machine's processor
    contracted: bool = False  # a copy of the sources that allows contraction: must differ
    threads: bool = False  # under ThreadSanitizer

    @property
    def windows(self):
        return self.name.startswith("win")


def linux(name, about, triplet, processor, qemu):
    compiler = f"{triplet}-g++-12"
    return Platform(
        name, about, (f"g++-12-{triplet}", "qemu-user", "googletest"), builds_tests=True, compiler=compiler,
        options=("-DCMAKE_SYSTEM_NAME=Linux", f"-DCMAKE_SYSTEM_PROCESSOR={processor}",
                 f"-DCMAKE_C_COMPILER={triplet}-gcc-12", f"-DCMAKE_CXX_COMPILER={compiler}",
                 f"-DCMAKE_NM=/usr/bin/{triplet}-nm"),
        emulator=(qemu, "-L", f"/usr/{triplet}"), strip=f"{triplet}-strip")


def windows(name, about, processor):
    triplet = f"{processor}-w64-mingw32"
    return Platform(
        name, about, (f"g++-mingw-w64-{processor.replace('_', '-')}-posix", "wine64", "googletest"),
        builds_tests=True, compiler=f"{triplet}-g++-posix", options=("--toolchain", f"cmake/mingw-{processor}.cmake"),
        emulator=(str(ROOT / "tests" / "wine.sh"),), strip=f"{triplet}-strip")


def native(name, about, compiler="g++", **more):
    packages = () if compiler == "g++" else (compiler.replace("++", ""),)
    return Platform(name, about, packages, compiler=compiler, **more)


# The headers of the system that a package for both widths would link to their place.
WIDTH_32 = "-m32 -isystem /usr/include/x86_64-linux-gnu -msse2 -mfpmath=sse"
UNSAFE = "-funsafe-math-optimizations -fassociative-math -freciprocal-math -ffinite-math-only -fno-signed-zeros"

PLATFORMS = [
    Platform("i386", "x86, 32 bits, Linux", ("g++-12-multilib", "googletest"), builds_tests=True, flags=WIDTH_32,
             options=("-DCMAKE_C_COMPILER=gcc-12", "-DCMAKE_CXX_COMPILER=g++-12"), compiler="g++-12"),
    windows("win32", "x86, 32 bits, Windows", "i686"),
    windows("win64", "x86-64, Windows", "x86_64"),
    linux("aarch64", "AArch64, Linux", "aarch64-linux-gnu", "aarch64", "qemu-aarch64"),
    linux("armhf", "ARMv7, Linux", "arm-linux-gnueabihf", "arm", "qemu-arm"),
    Platform("neon", "ARMv7 with NEON, Linux", ("clang-19", "g++-12-arm-linux-gnueabihf", "qemu-user", "googletest"),
             ("-DCMAKE_SYSTEM_NAME=Linux", "-DCMAKE_SYSTEM_PROCESSOR=arm", "-DCMAKE_C_COMPILER=clang-19",
              "-DCMAKE_CXX_COMPILER=clang++-19", "-DCMAKE_NM=/usr/bin/arm-linux-gnueabihf-nm"), "clang++-19", builds_tests=True,
             flags="--target=arm-linux-gnueabihf -march=armv7-a -mfpu=neon",
             emulator=("qemu-arm", "-L", "/usr/arm-linux-gnueabihf"), strip="arm-linux-gnueabihf-strip"),
    linux("riscv64", "RISC-V, 64 bits, Linux", "riscv64-linux-gnu", "riscv64", "qemu-riscv64"),
    linux("ppc64el", "POWER, 64 bits, Linux", "powerpc64le-linux-gnu", "ppc64le", "qemu-ppc64le"),
    linux("s390x", "s390x, most significant byte first, Linux", "s390x-linux-gnu", "s390x", "qemu-s390x"),
    native("clang-14", "Clang 14", "clang++-14"),
    native("clang-16", "Clang 16", "clang++-16"),
    native("clang-19", "Clang 19", "clang++-19"),
    native("clang-native", "for this machine's processor", "clang++-19", arch="native"),
    native("O1", "", level="-O1"),
    native("Os", "", level="-Os"),
    native("O2", "", level="-O2"),
    native("lto", "link-time optimisation", flags="-flto -ffat-lto-objects"),
    native("v3", "AVX2 and FMA", arch="x86-64-v3", needs="fma"),
    native("v4", "AVX-512", arch="x86-64-v4", needs="avx512f"),
    native("native", "for this machine's processor", arch="native"),
    native("unsafe", "parts of fast-math, which the library undoes", flags=UNSAFE),
    native("scalar", "no vectors", flags="-DZONM_SCALAR"),
    native("contract", "a copy that allows contraction: must differ", arch="x86-64-v3", needs="fma", contracted=True),
    Platform("tsan", "eight threads under ThreadSanitizer", ("clang-14", "libclang-rt-14-dev"), compiler="clang++-14",
             level="-O1", flags="-fsanitize=thread -g1", threads=True),
]
BY_NAME = {p.name: p for p in PLATFORMS}
GROUPS = {
    "all": list(BY_NAME),
    "targets": [p.name for p in PLATFORMS if p.builds_tests],
    "builds": [p.name for p in PLATFORMS if not p.builds_tests and not p.threads],
    "ci": ["win32", "i386", "aarch64", "s390x", "clang-19", "native", "contract", "tsan"],
}

# These call the platform's sin and cos.
ROUNDED_BY_THE_PLATFORM = {
    "zonmRotationX_m4_32f", "zonmRotationY_m4_32f", "zonmRotationZ_m4_32f", "zonmRotationAxis_v3m4_32f",
    "zonmRotationYawPitchRoll_m4_32f", "zonmPerspectiveFovLH_m4_32f", "zonmPerspectiveFovRH_m4_32f"}


class Failure(Exception):
    pass


def run(log, command, **more):
    """Its output goes to the log; the end of it is shown where it fails."""
    log.parent.mkdir(parents=True, exist_ok=True)
    with open(log, "w") as file:
        code = subprocess.run(command, stdout=file, stderr=subprocess.STDOUT, cwd=ROOT, **more).returncode
    if code:
        tail = "\n".join(log.read_text(errors="replace").splitlines()[-15:])
        raise Failure(f"{' '.join(map(str, command[:6]))} ... failed:\n{tail}")


# Programs and digests ---------------------------------------------------------------------------


def digest_programs(pattern):
    """<family>_test and <family>_*_test of every family: each has a digest for every export of it."""
    families = {e["family"] for e in json.loads((ROOT / "zonm.json").read_text())["exports"]}
    names = {p.stem for f in families for glob in (f"{f}_test.cpp", f"{f}_*_test.cpp")
             for p in (ROOT / "tests").glob(glob)}
    return sorted(n for n in names if re.search(pattern, n))


@dataclass
class Outcome:
    digests: dict
    passed: int = 0
    failures: tuple = ()


def run_programs(folder, programs, directory, suffix="", emulator=(), environment=None):
    """Runs all of them and reads their digests: {(program, export): number}."""
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)

    def one(program):
        file, log = folder / f"{program}.digest", folder / f"{program}.log"
        command = ["nice", *emulator, str(directory / (program + suffix)), "--gtest_brief=1"]
        with open(log, "w") as output:
            try:
                code = subprocess.run(command, stdout=output, stderr=subprocess.STDOUT, cwd=ROOT,
                                      env=os.environ | (environment or {}) | {"ZONM_DIGEST": str(file)},
                                      timeout=PROGRAM_SECONDS).returncode
            except subprocess.TimeoutExpired:
                code = "time is up"
        text = log.read_text(errors="replace")
        count = re.search(r"\[  PASSED  \] (\d+) tests?", text)
        lines = [line.split() for line in file.read_text().splitlines()] if file.exists() else []
        # A program that the emulator does not know may end with 0, too.
        failed = [] if code == 0 and count and lines else \
            [f"{program}: exit code {code}\n" + "\n".join(text.splitlines()[-12:])]
        return {(program, name): number for name, number in lines}, int(count[1]) if count else 0, failed

    outcome = Outcome({})
    with concurrent.futures.ThreadPoolExecutor(JOBS) as pool:
        for digests, passed, failed in pool.map(one, programs):
            outcome.digests |= digests
            outcome.passed += passed
            outcome.failures += tuple(failed)
    return outcome


def family_numbers(command, environment=None):
    """What zonm_digests prints."""
    result = subprocess.run(command, capture_output=True, text=True, env=os.environ | (environment or {}), cwd=ROOT)
    rows = re.findall(r"^([0-9a-f]{16})  (.+?)  +(.+)$", result.stdout, re.MULTILINE)
    if len(rows) < 30:
        raise Failure(f"zonm_digests printed {len(rows)} families, exit code {result.returncode}\n{result.stderr}")
    return {family: verdict.strip() == "ours" for _, family, verdict in rows if family != "sin and cos"}


# One platform -----------------------------------------------------------------------------------


def cmake_arguments(platform, source):
    compilers = () if platform.builds_tests else (
        f"-DCMAKE_C_COMPILER={platform.compiler.replace('clang++', 'clang').replace('g++', 'gcc')}",
        f"-DCMAKE_CXX_COMPILER={platform.compiler}")
    arguments = ["-S", source, "-G", "Ninja", *platform.options, *compilers, f"-DZONM_ARCH={platform.arch}",
                 "-DCMAKE_BUILD_TYPE=Release", f"-DCMAKE_C_FLAGS_RELEASE={platform.level} -DNDEBUG",
                 f"-DCMAKE_CXX_FLAGS_RELEASE={platform.level} -DNDEBUG",
                 f"-DCMAKE_C_FLAGS={platform.flags}", f"-DCMAKE_CXX_FLAGS={platform.flags}"]
    if platform.emulator:
        arguments.append(f"-DCMAKE_CROSSCOMPILING_EMULATOR={';'.join(platform.emulator)}")
    if platform.builds_tests:
        arguments += ["-DZONM_TESTS=ON", "-DZONM_GTEST_SOURCE=/usr/src/googletest"]
    return arguments


def contracted_copy():
    """The library's sources with contraction allowed."""
    copy = WORK / "contract-source"
    shutil.rmtree(copy, ignore_errors=True)
    for part in ("cmake", "src", "include", "tools"):
        shutil.copytree(ROOT / part, copy / part)
    for part in ("CMakeLists.txt", "zonm.json", "zonm.schema.json", "LICENSE"):
        shutil.copy(ROOT / part, copy / part)
    settings = copy / "cmake" / "library.cmake"
    text = settings.read_text()
    if "-ffp-contract=off" not in text:
        raise Failure("cmake/library.cmake has no -ffp-contract=off to turn")
    settings.write_text(text.replace("-ffp-contract=off", "-ffp-contract=fast"))
    return copy


def stripped_size(platform, tree):
    library = tree / "bin" / "zonm.dll" if platform.windows else (tree / "libzonm.so").resolve()
    copy = tree / "stripped"
    subprocess.run([platform.strip, "-o", copy, library], check=True)
    return copy.stat().st_size


def build(platform, programs):
    tree = WORK / platform.name
    source = contracted_copy() if platform.contracted else ROOT
    log = WORK / "log"
    run(log / f"{platform.name}.configure", ["cmake", "-B", tree, *cmake_arguments(platform, source)])
    targets = ["zonm", "zonm_digests"]
    if platform.threads:
        targets = ["zonm_static"]
    if platform.builds_tests:
        targets += [*programs, "frame_test", "attach_test", "support_test", "zonm_stand_in_core"]
        targets += ["dll_load", "dll_consumer"] if platform.windows else []
        targets += ["stack_alignment"] if platform.name in ("i386", "win32") else []
    run(log / f"{platform.name}.build", ["nice", "cmake", "--build", tree, f"-j{JOBS}", "--target", *targets])
    warnings = (log / f"{platform.name}.build").read_text(errors="replace").count("warning:")
    return tree, warnings


def check_threads(platform, tree):
    """Sound calls are clean; a race that is there is reported."""
    program = tree / "threads"
    run(WORK / "log" / "tsan.link",
        [platform.compiler, "-std=c++20", "-O1", *platform.flags.split(), "-DZONM_STATIC", "-I", ROOT / "include",
         ROOT / "tests" / "support" / "threads.cpp", tree / "libzonm.a", "-lm", "-o", program])
    run(WORK / "log" / "tsan.run", ["nice", program])
    race = subprocess.run([program, "race"], capture_output=True, text=True)
    if race.returncode == 0 or "data race" not in race.stderr:
        raise Failure("a race that is there is not reported")
    return 2


def other_tests(platform, tree):
    """What tests tell of the library's file and of the harness, as CTest has them."""
    command = ["ctest", "--test-dir", tree, "--output-on-failure", "--no-tests=error",
               "-R", r"^(frame|attach\..*|support|dll|stack_alignment)$"]
    log = WORK / "log" / f"{platform.name}.ctest"
    library_path = {} if platform.windows else {"LD_LIBRARY_PATH": str(tree)}
    run(log, command, env=os.environ | library_path)
    return int(re.search(r"tests passed, 0 tests failed out of (\d+)", log.read_text())[1])


def examine(platform, programs, reference):
    """Builds and runs it: a row of the table."""
    features = Path("/proc/cpuinfo").read_text()
    if platform.needs and not re.search(rf"\b{platform.needs}\b", features):
        print(f"   this processor has no {platform.needs}: not compared")
        return None
    before = processor_seconds()
    tree, warnings = build(platform, programs)
    # Of all the runs that it took.
    spent = tree / "build-seconds"
    seconds = processor_seconds() - before + (float(spent.read_text()) if spent.exists() else 0)
    spent.write_text(f"{seconds:.1f}")
    built = time.monotonic()
    row = {"name": platform.name, "about": platform.about, "compiler": version_of(platform.compiler),
           "warnings": warnings, "allPrograms": len(digest_programs("")), "options": " ".join(filter(None, [platform.level, platform.arch and
                                                     f"-march={platform.arch}"])), "programs": len(programs), "tests": 0}
    failures = []
    if platform.threads:
        row |= {"tests": check_threads(platform, tree), "bytes": 0}
    else:
        suffix = ".exe" if platform.windows else ""
        directory = tree / "bin" if platform.windows else tree / "tests"
        own = {} if platform.windows else {"LD_LIBRARY_PATH": str(tree)}
        if not platform.builds_tests:
            directory = REFERENCE / "tests"
        # qemu gives its own variables to the program that it runs.
        numbers = tree / ("bin" if platform.windows else "tools/digests") / ("zonm_digests" + suffix)
        families = family_numbers([*platform.emulator, numbers], own)
        foreign = [family for family, ours in families.items() if not ours]
        row |= {"families": len(families), "ours": len(families) - len(foreign),
                "bytes": stripped_size(platform, tree)}
        different = []
        if programs:
            outcome = run_programs(WORK / "out" / platform.name, programs, directory, suffix, platform.emulator,
                                   own)
            compared = {key for key in reference if key[1] not in ROUNDED_BY_THE_PLATFORM}
            different = sorted(key for key in compared if outcome.digests.get(key) != reference[key])
            row |= {"digests": len(compared), "equal": len(compared) - len(different), "tests": outcome.passed}
        if platform.contracted:
            if not foreign or (programs and not different):
                failures.append("contraction changes nothing: the comparison has no teeth")
        else:
            if foreign:
                failures.append(f"zonm_digests: not ours: {', '.join(foreign)}")
            if different:
                failures.append(f"{len(different)} digests differ: " + ", ".join(f"{p} {e}" for p, e in different[:8]))
            if programs:
                failures += outcome.failures
            if platform.builds_tests:
                row["tests"] += other_tests(platform, tree)
        if warnings:
            failures.append(f"{warnings} warnings of the compiler: build/platforms/log/{platform.name}.build")
    row |= {"build": round(seconds), "run": round(time.monotonic() - built), "failures": failures,
            "contracted": platform.contracted}
    return row


def processor_seconds():
    usage = resource.getrusage(resource.RUSAGE_CHILDREN)
    return usage.ru_utime + usage.ru_stime


def version_of(compiler):
    first = subprocess.run([compiler, "--version"], capture_output=True, text=True).stdout.splitlines()[0]
    return ("Clang " if "clang" in compiler else "GCC ") + re.search(r"(\d+\.\d+\.\d+|\d+-win32|\d+-posix)", first)[1]


# The table --------------------------------------------------------------------------------------

HEAD = ["platform", "", "compiler", "options", "size, KB", "families ours", "programs run", "digests equal", "tests passed",
        "build, CPU s", "run, s", "compared"]


def cells(row):
    def of(part, whole):
        return f"{row[part]} / {row[whole]}" if whole in row else ""
    return [row["name"], row["about"], row["compiler"], row["options"],
            f"{row['bytes'] // 1000}" if row["bytes"] else "", of("ours", "families"),
            of("programs", "allPrograms") if "families" in row else "", of("equal", "digests"),
            "differs, as it must" if row["contracted"] else f"{row['tests'] or ''}", f"{row['build'] or ''}", str(row["run"]),
            f"{row['date']}, {row['revision']}"]


def table(rows):
    order = list(BY_NAME)
    rows = [cells(r) for r in sorted(rows, key=lambda r: order.index(r["name"]))]
    widths = [max(len(r[i]) for r in [HEAD, *rows]) for i in range(len(HEAD))]
    line = "| " + " | ".join("{:" + str(w) + "}" for w in widths) + " |"
    return "\n".join([line.format(*HEAD), "|" + "|".join("-" * (w + 2) for w in widths) + "|",
                      *(line.format(*r) for r in rows)])


def page(rows):
    programs = len(digest_programs(""))
    return f"""<!-- SPDX-License-Identifier: Apache-2.0 -->
<!-- Written by ./dev platforms --publish from docs/platforms.json. -->
# Platforms

Where the promise of [exactness.md](exactness.md) was put to the test. Each platform's results are compared
with those of g++ -O3 on x86-64, to the last bit:

- **families**: the numbers of `zonm_digests`, which is installed with the library and calls every export.
- **digests**: one number per export and test program over all results of its calls. There are {programs} such
  programs, which compare the same results with references as well, on the platform itself; where time was
  short, some of them were run.

Processors and systems have all programs built for them, run by qemu or wine; other compilers and options
build the library, and the programs of x86-64 run on it. The seven exports that call `sin` and `cos` are left out. Sizes
are those of the stripped library. Builds are told in seconds of one processor, with the test programs that were
built; runs in seconds that passed.

{table(rows)}

`./dev platforms NAME` repeats a row; `./dev platforms --list` names them.
"""


def main():
    parser = argparse.ArgumentParser(prog="./dev platforms", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("names", nargs="*", metavar="NAME", help="platforms or groups of them; all, if none is named")
    parser.add_argument("--list", action="store_true", help="print the names and groups")
    parser.add_argument("--packages", action="store_true", help="print the Debian packages that they need")
    parser.add_argument("--programs", default="", metavar="REGEX", help="only the test programs that match")
    parser.add_argument("--quick", action="store_true", help="no test programs: zonm_digests, and the library's files")
    parser.add_argument("--publish", action="store_true", help="write the table to docs/platforms.md")
    options = parser.parse_args()
    if options.list:
        for p in PLATFORMS:
            print(f"{p.name:13}{p.about or p.level}")
        for group, members in GROUPS.items():
            print(f"{group:13}= {' '.join(members) if group != 'all' else 'all of them'}")
        return
    names = [n for given in options.names or ["all"] for n in GROUPS.get(given, [given])]
    unknown = [n for n in names if n not in BY_NAME]
    if unknown:
        parser.error(f"no platform '{unknown[0]}'; --list names them")
    chosen = [BY_NAME[n] for n in dict.fromkeys(names)]
    if options.packages:
        print(*sorted({package for p in chosen for package in p.packages}))
        return

    programs, reference = [] if options.quick else digest_programs(options.programs), {}
    if programs:
        print("== reference: g++ -O3", flush=True)
        run(WORK / "log" / "reference.configure", ["cmake", "--preset", "release", "-B", REFERENCE, "-DZONM_TESTS=ON"])
        run(WORK / "log" / "reference.build",
            ["nice", "cmake", "--build", REFERENCE, f"-j{JOBS}", "--target", "zonm", *programs])
        outcome = run_programs(WORK / "out" / "reference", programs, REFERENCE / "tests")
        if outcome.failures:
            sys.exit("\n".join(outcome.failures))
        reference = outcome.digests

    git = ["git", "-c", f"safe.directory={ROOT}", "describe", "--always", "--dirty", "--exclude=*"]
    revision = subprocess.run(git, cwd=ROOT, capture_output=True, text=True).stdout.strip() or "unknown"
    rows, failures = {}, []
    for platform in chosen:
        print(f"== {platform.name}", flush=True)
        try:
            row = examine(platform, programs, reference)
        except (Failure, OSError, subprocess.SubprocessError) as failure:
            failures.append(f"{platform.name}: {failure}")
            print(f"   FAILED: {failure}", flush=True)
            continue
        if row:
            rows[platform.name] = row | {"revision": revision, "date": datetime.date.today().isoformat()}
            print(table([rows[platform.name]]).splitlines()[-1], flush=True)
            for failure in row["failures"]:
                failures.append(f"{platform.name}: {failure}")
                print(f"   FAILED: {failure}", flush=True)
    print("\n" + table(rows.values()))
    if failures:
        sys.exit(f"\n{len(failures)} failures")
    if options.publish:
        file = ROOT / "docs" / "platforms.json"
        known = {r["name"]: r for r in json.loads(file.read_text())} if file.exists() else {}
        merged = [r for name, r in (known | rows).items() if name in BY_NAME]
        merged.sort(key=lambda r: list(BY_NAME).index(r["name"]))
        file.write_text(json.dumps(merged, indent=1) + "\n")
        (ROOT / "docs" / "platforms.md").write_text(page(merged))
        print("written: docs/platforms.md and docs/platforms.json")


if __name__ == "__main__":
    main()
