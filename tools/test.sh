#!/usr/bin/env bash
# The whole test run on a fresh Debian 12 machine: dependencies, the dev build
# with -Werror and every test, the sanitizer build, the fuzzers briefly, and
# the house checks, and the portable core built with clang and libc++.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)

bash tools/install-deps.sh

echo "== house checks"
bash tools/house-checks.sh

echo "== dev build (-Werror) and all tests"
cmake --preset dev -G Ninja
cmake --build build/dev -j"$jobs"
ctest --preset dev -j"$jobs"

echo "== portable core with clang and libc++ (the standard library Apple's toolchain uses)"
cmake --preset libcxx -G Ninja
cmake --build build/libcxx -j"$jobs"
ctest --preset libcxx -j"$jobs"

echo "== address + undefined sanitizers"
cmake --preset asan -G Ninja
cmake --build build/asan -j"$jobs"
ASAN_OPTIONS=detect_leaks=1 LSAN_OPTIONS=suppressions=$PWD/tools/lsan.supp ctest --preset asan -j"$jobs" -L "unit|media"

if [ -f fuzz/build.sh ]; then
  echo "== fuzzers"
  bash fuzz/build.sh build/fuzz --run "${FUZZ_SECONDS:-20}"
fi
