#!/usr/bin/env bash
# package.sh [BUILD_DIR]: installs the build dependencies, then builds the Debian
# package (setvault_<version>_<arch>.deb) into BUILD_DIR/package and prints its
# path. BUILD_DIR (default build/) is configured without tests and benchmarks
# if it is not configured yet, and brought up to date otherwise.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="$(realpath -m "${1:-${root}/build}")"
"${root}/scripts/install-deps.sh" >&2

if [ ! -f "${build_dir}/CMakeCache.txt" ]; then
  "${root}/scripts/build.sh" "${build_dir}" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
    -DSETVAULT_BUILD_TESTS=OFF -DSETVAULT_BUILD_BENCHMARKS=OFF >&2
else
  cmake --build "${build_dir}" -j "$(nproc)" >&2
fi
rm -rf "${build_dir}/package"
cpack --config "${build_dir}/CPackConfig.cmake" -B "${build_dir}/package" >&2
deb="$(find "${build_dir}/package" -maxdepth 1 -name 'setvault_*.deb' | head -n 1)"
test -n "${deb}" || { echo "package.sh: cpack wrote no .deb" >&2; exit 1; }
echo "${deb}"
