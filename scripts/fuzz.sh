#!/usr/bin/env bash
# fuzz.sh [SECONDS]: builds the libFuzzer targets with clang and runs each for
# SECONDS (default 60) on a copy of its seed corpus.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
seconds="${1:-60}"
"${root}/scripts/install-deps.sh"
"${root}/scripts/build.sh" "${root}/build-fuzz" -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang \
  -DSETVAULT_BUILD_FUZZERS=ON -DSETVAULT_SANITIZE=ON -DSETVAULT_BUILD_TESTS=OFF \
  -DSETVAULT_BUILD_BENCHMARKS=OFF -DSETVAULT_BUILD_TOOLS=OFF
for pair in json_document:json schema_definition:definition import_document:import filter:filter drift:drift; do
  target="${pair%%:*}"
  corpus="$(mktemp -d)"
  cp "${root}/fuzz/corpus/${pair##*:}"/* "${corpus}/"
  (cd "${corpus}" && "${root}/build-fuzz/fuzz/${target}_fuzz" -max_total_time="${seconds}" \
    -max_len=4096 -artifact_prefix="${corpus}/" "${corpus}")
done
