#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# ./dev refuses what it does not know, changes nothing then, and says what is missing.
set -uo pipefail
cd "$(dirname "$0")/.."
failures=0

# expect CODE WORDS COMMAND... : the exit code, and words in what is printed.
expect() {
  local code=$1 words=$2 output status
  shift 2
  output=$("$@" 2>&1)
  status=$?
  if [ "$status" -ne "$code" ] || [[ "$output" != *"$words"* ]]; then
    printf 'FAILED: %s\n  exit code %s, not %s, or no "%s" in:\n%s\n' "$*" "$status" "$code" "$words" "$output"
    failures=1
  fi
}

before=$(find . -path ./build -prune -o -path ./.git -prune -o -type f -newer "$0" -print | sort)
for command in demo run test bench bits platforms size fresh generate format; do
  expect 0 "usage: ./dev $command" ./dev "$command" --help
  expect 0 "usage: ./dev $command" ./dev help "$command"
  expect 0 "  $command " ./dev
done
expect 2 "no command 'tset'" ./dev tset
expect 2 "no command 'tset'" ./dev help tset
expect 2 "not '--chek'" ./dev format --chek
expect 2 "demo takes no arguments" ./dev demo --quick
expect 2 "generate takes no arguments" ./dev generate --check
expect 2 "no preset 'relase'" ./dev test relase
expect 2 "no build 'g++-O4'" ./dev bits g++-O4
expect 2 "test takes one preset" ./dev test release debug
expect 2 "needs a C file" ./dev run
expect 2 "unrecognized arguments: --quikc" ./dev bench --quikc
expect 2 "no platform 'vax'" ./dev platforms vax
expect 0 "ci           = win32" ./dev platforms --list
expect 2 "only a full run is published" ./dev bench --publish --quick
expect 2 "only a full run is published" ./dev bench --publish --against clang

# A peer that does not know the processor is marked.
expect 0 "OpenBLAS ran with kernels for 16-byte registers, below the processor's 32" python3 -B -c '
import sys
sys.path.insert(0, "bench")
import run
run.processor_width = lambda: 32
assert not run.remarks({"OpenBLAS": "0.3.21, kernels for Haswell, one thread", "LIBXSMM": "1.17, code for cpx"})
print(*run.remarks({"OpenBLAS": "0.3.21, kernels for Prescott, one thread"}))'
expect 1 "there is no file 'examples/none.c'" ./dev run examples/none.c
[ "$before" = "$(find . -path ./build -prune -o -path ./.git -prune -o -type f -newer "$0" -print | sort)" ] ||
  { echo "FAILED: files were changed"; failures=1; }

# Where tools are missing: nothing but the shell's own on the path.
tools=$(mktemp -d)
trap 'rm -rf "$tools"' EXIT
for tool in bash dirname id find grep; do ln -s "$(command -v "$tool")" "$tools/"; done
expect 1 "there is no apt-get; as Debian packages: g++ cmake ninja-build" env -i PATH="$tools" ./dev demo
ln -s "$(command -v true)" "$tools/apt-get"
expect 1 "ZONM_NO_INSTALL is set; as Debian packages: g++ cmake" env -i PATH="$tools" ZONM_NO_INSTALL=1 ./dev demo

exit $failures
