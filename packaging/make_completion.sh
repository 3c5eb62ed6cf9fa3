#!/usr/bin/env bash
# make_completion.sh PROGRAM OUTPUT: writes a bash completion script for
# PROGRAM (found on PATH) from its --help output, command by command. The
# script completes command names, option names and the listed choices of an
# option's value; anything else falls back to file names.
set -euo pipefail
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
# shellcheck source=help_tree.sh
source "${here}/help_tree.sh"
program="$1"
output="$2"
fn="_${program//[^A-Za-z0-9_]/_}"

commands=() options=() valued=() choices=() aliases=()

# Collects one command's table rows as bash array assignments.
collect() {
  local path="$1" help="$2" alias_names="$3" entry names=() option_names=() takes_value=()
  local names_field flag choice_list name alias
  while IFS= read -r entry; do
    names+=("${entry//,/ }")
  done < <(help_tree_entries <<<"${help}")
  while IFS=$'\t' read -r names_field flag choice_list; do
    for name in ${names_field//,/ }; do
      option_names+=("${name}")
      if [ "${flag}" = 1 ]; then
        takes_value+=("${name}")
        [ -n "${choice_list}" ] && choices+=("$(printf '[%q]=%q' "${path} ${name}" "${choice_list}")")
      fi
    done
  done < <(help_tree_options <<<"${help}")
  commands+=("$(printf '[%q]=%q' "${path}" "${names[*]-}")")
  options+=("$(printf '[%q]=%q' "${path}" "${option_names[*]-}")")
  valued+=("$(printf '[%q]=%q' "${path}" "${takes_value[*]-}")")
  for alias in ${alias_names}; do
    aliases+=("$(printf '[%q]=%q' "${path% *} ${alias}" "${path}")")
  done
}

help_tree_walk "${program}" collect
if [ "${#commands[@]}" -eq 0 ]; then
  echo "make_completion.sh: '${program} --help' printed no usable help" >&2
  exit 1
fi

{
  echo "# bash completion for ${program}, generated from its --help output at build time."
  echo "declare -gA ${fn}_commands=(${commands[*]})"
  echo "declare -gA ${fn}_options=(${options[*]})"
  echo "declare -gA ${fn}_valued=(${valued[*]})"
  echo "declare -gA ${fn}_choices=(${choices[*]-})"
  echo "declare -gA ${fn}_aliases=(${aliases[*]-})"
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
