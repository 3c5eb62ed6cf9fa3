#!/usr/bin/env bash
# build.sh [BUILD_DIR] [extra cmake args...]: configures (Ninja) and builds.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build_dir="${1:-${root}/build}"
shift || true
cmake -S "${root}" -B "${build_dir}" -G Ninja "$@" >/dev/null
cmake --build "${build_dir}" -j "$(nproc)"
