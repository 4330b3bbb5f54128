#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The same bits from every build: the tests that compare with references run once per build of the
# library, and the digests of all their results are compared.
set -euo pipefail
cd "$(dirname "$0")/.."

cmake --preset release -DZONM_TESTS=ON >/dev/null
cmake --build --preset release
programs=()
for program in build/release/tests/{matrix,lu}_*_test; do
  [ ! -x "$program" ] || programs+=("$program")
done

# name, compiler, build type, ZONM_ARCH
builds=(
  "g++-O3 g++ Release"
  "g++-O0 g++ Debug"
  "clang-O3 clang++ Release"
  "clang-O0 clang++ Debug"
)
if grep -qw avx2 /proc/cpuinfo && grep -qw fma /proc/cpuinfo; then
  builds+=("g++-v3 g++ Release x86-64-v3" "clang-v3 clang++ Release x86-64-v3")
fi

rm -rf build/bits/*.digest
for build in "${builds[@]}"; do
  read -r name compiler type arch <<<"$build"
  cmake -S . -B "build/bits/$name" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_BUILD_TYPE="$type" -DZONM_ARCH="${arch:-}" >/dev/null
  cmake --build "build/bits/$name" --target zonm >/dev/null
  for program in "${programs[@]}"; do
    LD_LIBRARY_PATH="$PWD/build/bits/$name" ZONM_DIGEST="$PWD/build/bits/$name.digest" \
      "$program" --gtest_brief=1
  done
  if cmp "build/bits/g++-O3.digest" "build/bits/$name.digest"; then
    echo "$name: $(wc -l <"build/bits/$name.digest") digests, all the same"
  else
    diff "build/bits/g++-O3.digest" "build/bits/$name.digest" | head -20
    exit 1
  fi
done
