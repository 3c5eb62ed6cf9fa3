#!/usr/bin/env bash
# test-share.sh: prints the size of the tests (tests/ and fuzz/) against the
# code they test (src/, include/ and tools/), counting the non-blank lines of
# .cc and .h files that are not // comments.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "${root}"

# Counts lines in the given folders; tracked files when this is a git checkout.
code_lines() {
  local files
  if git rev-parse --is-inside-work-tree >/dev/null 2>&1; then
    files="$(for d in "$@"; do git ls-files -- "${d}/*.cc" "${d}/*.h"; done)"
  else
    files="$(find "$@" -type f \( -name '*.cc' -o -name '*.h' \) 2>/dev/null)"
  fi
  [ -n "${files}" ] || { echo 0; return; }
  # shellcheck disable=SC2086
  cat ${files} | grep -c -v -E '^\s*$|^\s*//' || true
}

tests="$(code_lines tests fuzz)"
code="$(code_lines src include tools)"
echo "test share: tests/ + fuzz/ ${tests} lines, src/ + include/ + tools/ ${code} lines:" \
  "$(( (tests * 100 + code / 2) / code ))%"
