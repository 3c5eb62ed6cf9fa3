#!/usr/bin/env bash
# mutants.sh [--seed N] [--count N] [--limit N] [--only PREFIX] [--list] [--build-dir DIR] [--timeout S]:
# applies a fixed, seeded sample of small mutations to src/ one at a time,
# rebuilds and runs the touched subsystem's tests, and reports how many mutants
# the suite kills (see scripts/mutants.py). Not part of CI: the default sample
# of 80 takes about an hour on 2 cores.
set -euo pipefail
exec python3 "$(dirname "${BASH_SOURCE[0]}")/mutants.py" "$@"
