#!/usr/bin/env bash
# make_completion.sh PROGRAM OUTPUT: writes a bash completion script for
# PROGRAM (found on PATH) from its --help output, command by command. The
# script completes command names, option names and the listed choices of an
# option's value; anything else falls back to file names.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
# shellcheck source=packaging/help_tree.sh
source "${here}/help_tree.sh"
program="$1"
output="$2"
fn="_${program//[^A-Za-z0-9_]/_}"

# The tables, filled command by command (named apart from the walker's locals).
declare -A gen_commands=() gen_options=() gen_valued=()
gen_paths=() gen_choices=() gen_aliases=()

# Records one command: its option names, those taking a value and their
# choices; and, in its parent's row, its names (only commands whose own help
# answers are visited, so nothing else is listed).
collect() {
  local path="$1" help="$2" alias_names="$3" names_field flag choice_list name alias
  gen_paths+=("${path}")
  gen_commands["${path}"]=""
  gen_options["${path}"]=""
  gen_valued["${path}"]=""
  if [ "${path}" != "${program}" ]; then
    gen_commands["${path% *}"]+=" ${path##* } ${alias_names}"
    for alias in ${alias_names}; do
      gen_aliases+=("$(printf '[%q]=%q' "${path% *} ${alias}" "${path}")")
    done
  fi
  while IFS=$'\t' read -r names_field flag choice_list; do
    for name in ${names_field//,/ }; do
      gen_options["${path}"]+=" ${name}"
      if [ "${flag}" = 1 ]; then
        gen_valued["${path}"]+=" ${name}"
        if [ -n "${choice_list}" ]; then
          gen_choices+=("$(printf '[%q]=%q' "${path} ${name}" "${choice_list}")")
        fi
      fi
    done
  done < <(help_tree_options <<<"${help}")
}

help_tree_walk "${program}" collect
if [ "${#gen_paths[@]}" -eq 0 ]; then
  echo "make_completion.sh: '${program} --help' printed no usable help" >&2
  exit 1
fi

# Prints "[key]=value" for every command path of the table named $1.
rows() {
  local -n table="$1"
  local path words
  for path in "${gen_paths[@]}"; do
    read -ra words <<<"${table[${path}]}"
    printf ' [%q]=%q' "${path}" "${words[*]-}"
  done
}

{
  echo "# bash completion for ${program}, generated from its --help output at build time."
  echo "declare -gA ${fn}_commands=($(rows gen_commands))"
  echo "declare -gA ${fn}_options=($(rows gen_options))"
  echo "declare -gA ${fn}_valued=($(rows gen_valued))"
  echo "declare -gA ${fn}_choices=(${gen_choices[*]-})"
  echo "declare -gA ${fn}_aliases=(${gen_aliases[*]-})"
  cat <<SCRIPT

${fn}() {
  local cur="\${COMP_WORDS[COMP_CWORD]}" path="${program}" word i
  for (( i = 1; i < COMP_CWORD; i++ )); do
    word="\${COMP_WORDS[i]}"
    if [[ " \${${fn}_valued[\$path]} " == *" \$word "* ]]; then
      (( i++ ))
    elif [[ \$word != -* && " \${${fn}_commands[\$path]} " == *" \$word "* ]]; then
      path+=" \$word"
      path="\${${fn}_aliases[\$path]:-\$path}"
    fi
  done
  COMPREPLY=()
  local prev="\${COMP_WORDS[COMP_CWORD-1]}"
  if (( COMP_CWORD > 1 )) && [[ " \${${fn}_valued[\$path]} " == *" \$prev "* ]]; then
    local choices="\${${fn}_choices[\$path \$prev]-}"
    [[ -n \$choices ]] && mapfile -t COMPREPLY < <(compgen -W "\$choices" -- "\$cur")
  elif [[ \$cur == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W "\${${fn}_options[\$path]}" -- "\$cur")
  else
    mapfile -t COMPREPLY < <(compgen -W "\${${fn}_commands[\$path]}" -- "\$cur")
  fi
  return 0
}
complete -o default -F ${fn} ${program}
SCRIPT
} >"${output}.tmp"
mv "${output}.tmp" "${output}"
