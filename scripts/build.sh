#!/usr/bin/env bash
# build.sh [BUILD_DIR] [extra cmake args...]: configures (Ninja) and builds,
# through ccache when it is installed.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${1:-${root}/build}"
shift || true
launcher=()
if command -v ccache >/dev/null; then
  launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache -DCMAKE_C_COMPILER_LAUNCHER=ccache)
fi
cmake -S "${root}" -B "${build_dir}" -G Ninja "${launcher[@]}" "$@" >/dev/null
cmake --build "${build_dir}" -j "$(nproc)"
