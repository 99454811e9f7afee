#!/usr/bin/env bash
# Loads the bash completion of vrxfwul into a fresh bash and checks that it
# is registered and that a few words complete as an administrator expects.
set -u
script=$1
fail=0
source "$script" || { echo "cannot load $script"; exit 1; }
registered=$(complete -p vrxfwul 2>&1)
[[ $registered == "complete -F _vrxfwul vrxfwul" ]] || { echo "complete -p: $registered"; fail=1; }

# complete_line LINE: the candidates for the end of LINE, "|"-separated.
complete_line() {
  COMP_LINE="vrxfwul $1"
  COMP_POINT=${#COMP_LINE}
  read -ra COMP_WORDS <<<"$COMP_LINE"
  [[ $COMP_LINE == *" " ]] && COMP_WORDS+=("")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  COMPREPLY=()
  _vrxfwul
  local IFS="|"
  echo "${COMPREPLY[*]}"
}
expect() {  # expect LINE WANTED
  local got
  got=$(complete_line "$1")
  if [[ $got != "$2" ]]; then
    echo "vrxfwul $1<TAB>: got '$got', want '$2'"
    fail=1
  fi
}

expect "-adv" "-advhelp"
expect "-l" "-l=|-log="
expect "-f" "-f|-force|-fml"
expect "-e=" "0 (BMC Firmware)|1 (BIOS Firmware)|2 (FCB)|3 (PDB)|4 (SDR)|5 (Customer Def)"
expect "-e=4" "4"
expect "-L=" "lan|lanplus"
expect "-L=lanp" "lanplus"
expect "-R=" ""
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
touch "$work/firmimg.k9" "$work/other.bin"
cd "$work"
expect "-i=firm" "firmimg.k9"
expect "-e=0 -l=oth" "other.bin"
# Without "=" among the word breaks bash replaces the whole word.
COMP_WORDBREAKS=${COMP_WORDBREAKS//=/}
expect "-i=firm" "-i=firmimg.k9"
expect "-L=lanp" "-L=lanplus"
[[ $fail -eq 0 ]] && echo "completion: all checks passed"
exit $fail
