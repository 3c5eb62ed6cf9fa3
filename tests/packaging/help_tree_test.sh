#!/usr/bin/env bash
# help_tree_test.sh PACKAGING_DIR: the completion and manual page generators
# follow a program's commands through help text in CLI11's layout, including
# command groups, aliases, option choices and a free-form footer whose
# indented lines are not commands.
set -euo pipefail
packaging="$1"
work="$(mktemp -d)"
trap 'rm -rf "${work}"' EXIT

# A stand-in program whose help has the shapes the generators must read.
cat >"${work}/demo" <<'PROGRAM'
#!/usr/bin/env bash
case "$*" in
  "--help") cat <<'HELP' ;;
demo: a test program
Usage: demo [OPTIONS] SUBCOMMAND

Options:
  -h,--help                   Print this help message and exit
  -f,--format TEXT:{json,text}
                              Output format
  --quiet                     Say less

Objects:
  get, show                   Print an object
  boot                        Boot commands

Example:
  demo get a b c
HELP
  "get --help" | "show --help") printf 'Print an object\nUsage: demo get [OPTIONS] key\n\nPositionals:\n  key TEXT REQUIRED\n\nOptions:\n  -h,--help                   Print this help message and exit\n  --effective                 Fill in defaults\n' ;;
  "boot --help") printf 'Boot commands\nUsage: demo boot [OPTIONS] SUBCOMMAND\n\nSubcommands:\n  status                      Show the boot status\n' ;;
  "boot status --help") printf 'Show the boot status\nUsage: demo boot status [OPTIONS]\n\nOptions:\n  --partial TEXT              Partial status\n' ;;
  *" --help") printf 'Print an object\nUsage: demo [OPTIONS] SUBCOMMAND\n' ;;
  *) exit 2 ;;
esac
PROGRAM
chmod +x "${work}/demo"
export PATH="${work}:${PATH}"
bash "${packaging}/make_completion.sh" demo "${work}/demo.bash"

failures=0
# Each case: the words typed, the last one being completed ("_" for an empty
# word) | what completion offers.
while IFS='|' read -r typed expected; do
  read -ra words <<<"${typed}"
  [ "${words[-1]}" = _ ] && words[-1]=""
  got="$(bash -c 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _demo
                  echo "${COMPREPLY[*]}"' _ "${work}/demo.bash" "${words[@]}")"
  if [ "${got}" != "${expected}" ]; then
    echo "FAIL: '${typed}' offers '${got}', expected '${expected}'"
    failures=$((failures + 1))
  fi
done <<'CASES'
demo _|get show boot
demo --format _|json text
demo -f json --quiet _|get show boot
demo get _|
demo boot _|status
demo --quiet boot status _|
demo get --|--help --effective
demo show --e|--effective
demo --|--help --format --quiet
demo boot status --|--partial
CASES

bash "${packaging}/make_man.sh" demo 1.0 "a test program" "${work}/demo.1.gz"
sections="$(zcat "${work}/demo.1.gz" | grep '^\.SS "demo' | tr '\n' ' ')"
if [ "${sections}" != '.SS "demo get" .SS "demo boot" .SS "demo boot status" ' ]; then
  echo "FAIL: manual page command sections are '${sections}'"
  failures=$((failures + 1))
fi
[ "${failures}" -eq 0 ] && echo "help tree generators passed"
