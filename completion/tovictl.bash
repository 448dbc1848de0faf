# Bash completion for tovictl: verbs, options, targets, statistics. The words are the program's own,
# in _tovictl_words: a kind, a word, a line about it.

_tovictl_add() { # KIND
  local line
  while IFS= read -r line; do
    [[ $line == "$1 $cur"* ]] || continue
    line=${line#"$1 "}
    words+=("${line%% *}")
    notes+=("${line#* }")
  done <<<"$_tovictl_words"
}

_tovictl() {
  local cur=${COMP_WORDS[COMP_CWORD]} words=() notes=() verb= place=0 i
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      --timeout | --sub | --nv | --paths | --every | --count | --report | --output | -o) ((i++)) ;;
      -*) ;;
      *)
        [[ -n $verb ]] && ((place++))
        verb=${verb:-${COMP_WORDS[i]}}
        ;;
    esac
  done
  case ${COMP_WORDS[COMP_CWORD - 1]} in
    --paths | --report | --output | -o) mapfile -t COMPREPLY < <(compgen -f -- "$cur") && return ;;
  esac
  if [[ $cur == -* ]]; then
    _tovictl_add "option:$verb"
    [[ -n $verb ]] && _tovictl_add option:
  else
    case $verb:$place in
      :*) _tovictl_add verb ;;
      get:0 | put:0 | rm:0) _tovictl_add target ;;
      watch:*) _tovictl_add statistic ;;
      put:1) mapfile -t words < <(compgen -f -- "$cur") ;;
      save:0 | restore:0 | diff:*) mapfile -t words < <(compgen -d -- "$cur") ;;
    esac
  fi
  COMPREPLY=("${words[@]}")
  compopt -o nosort 2>/dev/null
  # When bash only lists them, each has its line.
  [[ ${#notes[@]} -gt 1 && ($COMP_TYPE == 63 || $COMP_TYPE == 33 || $COMP_TYPE == 64) ]] || return 0
  local word width=0
  for word in "${words[@]}"; do ((${#word} > width)) && width=${#word}; done
  for i in "${!words[@]}"; do
    printf -v "COMPREPLY[i]" '%-*s  %s' "$width" "${words[i]}" "${notes[i]}"
    COMPREPLY[i]=${COMPREPLY[i]:0:${COLUMNS:-80} - 1}
  done
}

complete -F _tovictl tovictl
