#!/usr/bin/env bash
# make_man.sh PROGRAM VERSION SUMMARY OUTPUT: writes PROGRAM's manual page,
# gzip-compressed, with help2man from its --help output, plus a COMMANDS
# section holding the help of every command. PROGRAM must be on PATH.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
# shellcheck source=packaging/help_tree.sh
source "${here}/help_tree.sh"
program="$1"
version="$2"
summary="$3"
output="$4"
work="$(mktemp -d)"
trap 'rm -rf "${work}"' EXIT

# Appends one command's help, verbatim, as a roff subsection.
section() {
  local path="$1" help="$2" aliases="$3"
  [ "${path}" = "${program}" ] && return 0
  {
    printf '.SS "%s"\n' "${path}"
    [ -n "${aliases}" ] && printf 'Also: %s\n.PP\n' "${aliases}"
    echo ".nf"
    # Escape backslashes and keep lines starting with . or ' from reading as requests.
    sed -e 's/\\/\\e/g' -e "s/^\\([.']\\)/\\\\\\&\\1/" <<<"${help}"
    echo ".fi"
  } >>"${work}/commands.h2m"
}

echo "[COMMANDS]" >"${work}/commands.h2m"
help_tree_walk "${program}" section
help2man --no-info --no-discard-stderr --section=1 --version-string="${version}" \
  --name="${summary}" --include="${work}/commands.h2m" --output="${work}/page.1" "${program}"
gzip -9n <"${work}/page.1" >"${output}.tmp"
mv "${output}.tmp" "${output}"
