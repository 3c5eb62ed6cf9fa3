# shellcheck shell=bash
# help_tree.sh: sourced by the man page and completion generators. Walks the
# command tree of a CLI11 program through its --help output, so that the
# generated files follow whatever commands the program has.
#
#   help_tree_walk PROGRAM VISIT
#
# runs `PROGRAM --help`, then `PROGRAM CMD --help` for every command listed,
# recursively, and calls `VISIT PATH HELP ALIASES` for each, parents first.
# PATH is the command path ("setvault", "setvault schema", ...), HELP the help
# text, ALIASES the command's other names (space-separated, may be empty).
# PROGRAM is run by name, so its directory must be on PATH (the help then shows
# the installed name, not the build path).

# Prints "NAME[,ALIAS...]" for each entry listed under a heading other than
# "Positionals:": entries sit at an indent of exactly two spaces, and options
# (leading "-") are left out. Lines of a free-form footer are weeded out by the
# walk, as their own help does not name them.
help_tree_entries() {
  awk '
    /^[^ ].*:$/ { section = $0; next }
    /^$/ { next }
    section != "" && section != "Positionals:" && /^  [^ -]/ {
      entry = substr($0, 3)
      gsub(/, /, ",", entry)
      sub(/ .*$/, "", entry)
      print entry
    }'
}

# Prints one line per option listed in HELP (on stdin): its names separated by
# commas, a tab, then "1" if it takes a value or "0", a tab, and its choices
# (space-separated) when the help lists them as "TYPE:{a,b}".
help_tree_options() {
  awk '
    /^[^ ].*:$/ { section = $0; next }
    section != "Positionals:" && /^  -/ {
      entry = substr($0, 3)
      sub(/  .*$/, "", entry)
      n = split(entry, words, " ")
      valued = (n > 1 && words[2] ~ /^[A-Z][A-Z0-9_]*([:=].*)?$/) ? 1 : 0
      choices = ""
      if (valued && match(words[2], /:\{[^{}]*\}$/)) {
        choices = substr(words[2], RSTART + 2, RLENGTH - 3)
        gsub(/,/, " ", choices)
      }
      printf "%s\t%d\t%s\n", words[1], valued, choices
    }'
}

help_tree_walk() {
  _help_tree_visit "$2" "$1" ""
}

# Visits the command PATH (whose other names are ALIASES), then its commands.
_help_tree_visit() {
  local visit="$1" path="$2" aliases="$3"
  local help usage entry name
  # shellcheck disable=SC2086  # the path is a list of words
  help="$(${path} --help 2>/dev/null)" || return 0
  usage="$(grep -m1 '^Usage:' <<<"${help}" || true)"
  # A real command's help names its own path after the program name.
  case "${usage#Usage: }" in
    "${path}" | "${path} "*) ;;
    *) return 0 ;;
  esac
  "${visit}" "${path}" "${help}" "${aliases}"
  while IFS= read -r entry; do
    name="${entry%%,*}"
    [ "${name}" = "${entry}" ] && aliases="" || aliases="${entry#*,}"
    _help_tree_visit "${visit}" "${path} ${name}" "${aliases//,/ }"
  done < <(help_tree_entries <<<"${help}")
}
