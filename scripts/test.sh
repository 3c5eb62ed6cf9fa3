#!/usr/bin/env bash
# test.sh: installs the dependencies, then builds and runs the whole test suite
# twice: in a normal build and under AddressSanitizer + UBSan. After the normal
# build, the Debian package is built, installed and tried (package-test.sh).
# At the end, it prints the size of the tests against the code; with
# SETVAULT_COVERAGE=1 it also prints the line and branch coverage of src/ (a
# third, instrumented build: scripts/coverage.sh, about 10 more minutes on 2 cores).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"${root}/scripts/install-deps.sh"

run_suite() {
  local build_dir="$1"
  shift
  "${root}/scripts/build.sh" "${build_dir}" "$@"
  ctest --test-dir "${build_dir}" --output-on-failure -j "$(nproc)"
}

echo "== normal build =="
run_suite "${root}/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo
echo "== Debian package =="
"${root}/scripts/package-test.sh" "${root}/build"
echo "== sanitizer build (ASan + UBSan) =="
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  run_suite "${root}/build-sanitize" -DCMAKE_BUILD_TYPE=Debug -DSETVAULT_SANITIZE=ON \
  -DSETVAULT_BUILD_BENCHMARKS=OFF
if [ "${SETVAULT_COVERAGE:-0}" = 1 ]; then
  echo "== coverage of src/ =="
  "${root}/scripts/coverage.sh" "${root}/build-coverage"
fi
"${root}/scripts/test-share.sh"
