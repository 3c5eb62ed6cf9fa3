#!/usr/bin/env bash
# coverage.sh [BUILD_DIR]: builds the suite with gcov instrumentation (Debug),
# runs it, and prints line and branch coverage of the library's sources (src/)
# with gcovr. The full per-file table is left in BUILD_DIR/coverage.txt.
# coverage.sh --report BUILD_DIR: only prints the figures of a run already made
# in an instrumented build (scripts/test.sh's sanitizer build is one).
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

report() {
  gcovr --root "${root}" --filter "${root}/src/" --object-directory "$1" \
    --exclude-unreachable-branches --exclude-throw-branches \
    --txt "$1/coverage.txt" --print-summary | grep -E '^(lines|branches):'
}

if [ "${1:-}" = "--report" ]; then
  report "$2"
  exit 0
fi
build_dir="${1:-${root}/build-coverage}"
"${root}/scripts/install-deps.sh" >/dev/null

# Counters of an earlier run would add up with this one's.
find "${build_dir}" -name '*.gcda' -delete 2>/dev/null || true
"${root}/scripts/build.sh" "${build_dir}" -DCMAKE_BUILD_TYPE=Debug -DSETVAULT_COVERAGE=ON \
  -DSETVAULT_BUILD_BENCHMARKS=OFF
# Failing tests still leave their counters; the report is printed either way.
# The install test is left out: the instrumented library exports the gcov
# runtime's symbols, which that test rightly refuses.
status=0
ctest --test-dir "${build_dir}" -j "$(nproc)" -E '^install\.' --output-on-failure >"${build_dir}/ctest.log" 2>&1 ||
  status=$?
if [ "${status}" -ne 0 ]; then
  tail -n 30 "${build_dir}/ctest.log"
  echo "coverage.sh: some tests failed (log: ${build_dir}/ctest.log)" >&2
fi
report "${build_dir}"
exit "${status}"
