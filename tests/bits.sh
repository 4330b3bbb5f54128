#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The same bits from every build: the tests that compare with references run once per build of the
# library, and the digests of all their results are compared. Arguments name the builds that are
# compared with that of g++ -O3; without any all are.
set -euo pipefail
cd "$(dirname "$0")/.."

only_check=
[ "${1:-}" != --check ] || { only_check=1; shift; }

# name, where it is built, compiler, build type, ZONM_ARCH. The trees of ./dev test serve if they are there.
builds=(
  "g++-O3 build/test-release g++ Release"
  "clang-O3 build/test-clang clang++ Release"
  "g++-O0 build/bits/g++-O0 g++ Debug"
  "clang-O0 build/bits/clang-O0 clang++ Debug"
)
if grep -qw avx2 /proc/cpuinfo && grep -qw fma /proc/cpuinfo; then
  builds+=("g++-v3 build/bits/g++-v3 g++ Release x86-64-v3")
else
  echo "this processor has no AVX2 and FMA: the build for wider registers is not compared"
fi
for name in "$@"; do
  [[ " ${builds[*]%% *} g++-v3 " == *" $name "* ]] || { echo "no build '$name'; there are ${builds[*]%% *}" >&2; exit 2; }
done
[ -z "$only_check" ] || exit 0

cmake --preset release -B build/test-release -DZONM_TESTS=ON >/dev/null
cmake --build build/test-release
# <family>_test and <family>_*_test of every family; each program demands a digest for each export.
programs=$(python3 -c '
import glob, json
families = sorted({e["family"] for e in json.load(open("zonm.json"))["exports"]})
found = {p for f in families for p in glob.glob(f"build/test-release/tests/{f}_test") +
         glob.glob(f"build/test-release/tests/{f}_*_test")}
print(*sorted(found), sep="\n")')
exports=$(sed -n 's/^ZONM_EXPORT(\(.*\))$/\1/p' tests/generated/exports.inc | sort)

mkdir -p build/bits
rm -f build/bits/*.digest
for build in "${builds[@]}"; do
  read -r name tree compiler type arch <<<"$build"
  [ $# -eq 0 ] || [[ " g++-O3 $* " == *" $name "* ]] || continue
  [ -f "$tree/CMakeCache.txt" ] ||
    cmake -S . -B "$tree" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
      -DCMAKE_BUILD_TYPE="$type" -DZONM_ARCH="${arch:-}" >/dev/null
  cmake --build "$tree" --target zonm >/dev/null
  export LD_LIBRARY_PATH="$PWD/$tree"
  # shellcheck disable=SC2016
  xargs -P "$(nproc)" -I{} bash -c \
    'ZONM_DIGEST="$1.$(basename "$2").digest" "$2" --gtest_brief=1 >"$1.$(basename "$2").log" ||
       { cat "$1.$(basename "$2").log"; exit 255; }' \
    _ "$PWD/build/bits/$name" {} <<<"$programs"
  cat "build/bits/$name".*.digest | sort >"build/bits/$name.digest"
  missing=$(comm -23 <(echo "$exports") <(cut -d' ' -f1 "build/bits/$name.digest" | sort -u))
  [ -z "$missing" ] || { echo "no test has a result of:" $missing >&2; exit 1; }
  diff "build/bits/g++-O3.digest" "build/bits/$name.digest" | head -20
  cmp "build/bits/g++-O3.digest" "build/bits/$name.digest"
  echo "$name: $(wc -l <"build/bits/$name.digest") digests of results, all the same"
done
