#!/usr/bin/env bash
# test.sh: installs the dependencies, then builds and runs the whole test suite
# twice: in a normal build and under AddressSanitizer + UBSan. After the normal
# build, the Debian package is built, installed and tried (package-test.sh).
# The sanitizer build also carries gcov counters, so that its run ends with the
# line and branch coverage of src/; last comes the size of the tests against
# the code.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"${root}/scripts/install-deps.sh"

# run_suite BUILD_DIR [cmake args...] [-- ctest args...]
run_suite() {
  local build_dir="$1"
  shift
  local cmake_args=() ctest_args=()
  while [ "$#" -gt 0 ] && [ "$1" != "--" ]; do cmake_args+=("$1"); shift; done
  [ "$#" -gt 0 ] && shift
  ctest_args=("$@")
  "${root}/scripts/build.sh" "${build_dir}" "${cmake_args[@]}"
  ctest --test-dir "${build_dir}" --output-on-failure -j "$(nproc)" "${ctest_args[@]}"
}

echo "== normal build =="
run_suite "${root}/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo
echo "== Debian package =="
"${root}/scripts/package-test.sh" "${root}/build"
echo "== sanitizer build (ASan + UBSan, counting coverage) =="
# Counters of an earlier run would add up with this one's. The install test
# ran in the normal build; here it would rightly refuse the gcov runtime's
# exported symbols.
find "${root}/build-sanitize" -name '*.gcda' -delete 2>/dev/null || true
ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1 \
  run_suite "${root}/build-sanitize" -DCMAKE_BUILD_TYPE=Debug -DSETVAULT_SANITIZE=ON \
  -DSETVAULT_COVERAGE=ON -DSETVAULT_BUILD_BENCHMARKS=OFF -- -E '^install\.'
echo "== coverage of src/ (sanitizer build's run) =="
"${root}/scripts/coverage.sh" --report "${root}/build-sanitize"
"${root}/scripts/test-share.sh"
