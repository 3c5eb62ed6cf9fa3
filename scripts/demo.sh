#!/usr/bin/env bash
# demo.sh: installs the dependencies, builds, and runs the demo.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
"${root}/scripts/install-deps.sh"
"${root}/scripts/build.sh" "${root}/build"
"${root}/build/examples/setvault_example_objects"
