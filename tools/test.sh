#!/usr/bin/env bash
# The whole test run on a fresh Debian 12 machine: dependencies, the dev build
# with -Werror and every test, the sanitizer build, the fuzzers briefly, and
# the house checks, the portable core built with clang and libc++, and the
# Debian package installed into this machine and removed again.
set -euo pipefail
cd "$(dirname "$0")/.."
jobs=$(nproc)

bash tools/install-deps.sh

echo "== house checks"
bash tools/house-checks.sh

echo "== macOS host: bundle class names and a parse check against declarations from Apple's documentation"
bash tools/check-macos-host.sh

echo "== dev build (-Werror) and all tests"
cmake --preset dev -G Ninja
cmake --build build/dev -j"$jobs"
# Every ctest run is logged; the last line sums them up.
logs=()
run_ctest() { local log=build/ctest-$1.log; shift; logs+=("$log"); "$@" 2>&1 | tee "$log" || true; }
run_ctest dev ctest --preset dev -j"$jobs"

echo "== portable core with clang and libc++ (the standard library Apple's toolchain uses)"
cmake --preset libcxx -G Ninja
cmake --build build/libcxx -j"$jobs"
run_ctest libcxx ctest --preset libcxx -j"$jobs"

echo "== address + undefined sanitizers"
cmake --preset asan -G Ninja
cmake --build build/asan -j"$jobs"
run_ctest asan env ASAN_OPTIONS=detect_leaks=1 LSAN_OPTIONS=suppressions=$PWD/tools/lsan.supp ctest --preset asan -j"$jobs" -L "unit|media"
# Views made and dropped while the saver runs: their lifetimes under the sanitizers.
run_ctest asan-monitors env ASAN_OPTIONS=detect_leaks=0 ctest --preset asan -R '^e2e\.saver_monitors$'

echo "== the Debian package: release build, cpack, lintian, installed and removed twice"
# Its own tree without benchmarks: only what the package holds is built.
cmake --preset release -G Ninja -B build/package -DHUSHMEADOWS_BUILD_BENCHMARKS=OFF
cmake --build build/package -j"$jobs"
rm -f build/package/hushmeadows_*.deb
(cd build/package && cpack -G DEB)
# Counted with the ctest runs below.
package_failed=0
bash tests/package/deb_install.sh build/package/hushmeadows_*.deb build/package/install-test || package_failed=1

if [ -f fuzz/build.sh ]; then
  echo "== fuzzers"
  bash fuzz/build.sh build/fuzz --run "${FUZZ_SECONDS:-20}"
fi

# ctest prints "N% tests passed, F tests failed out of T" once per run.
read -r passed failed < <(sed -n 's/.*tests passed, \([0-9]*\) tests failed out of \([0-9]*\).*/\1 \2/p' "${logs[@]}" \
  | awk '{ f += $1; t += $2 } END { print t - f, f }')
passed=$(( ${passed:-0} + 1 - package_failed )); failed=$(( ${failed:-0} + package_failed ))
echo "tests: ${passed:-0} passed, ${failed:-0} failed"
[ "${failed:-0}" = 0 ] && [ "${passed:-0}" != 0 ]
