# Bash completion for tovi: modules, commands, subscriptions and EFS files, with a line about each.
# The words are those of the program's own help, in _tovi_help and _tovi_efs_files.

# Adds a word that fits what is typed so far, and a line about it.
_tovi_word() {
  [[ $1 == "$cur"* ]] || return
  words+=("$1")
  notes+=("$2")
}

# The text in a help line's comment, which may not be closed.
_tovi_comment() {
  local comment=${1#*/\*}
  comment=${comment%%\*/*}
  comment=${comment#"${comment%%[! ]*}"}
  echo "${comment%"${comment##*[! ]}"}"
}

_tovi_modules() {
  local line
  while IFS= read -r line; do
    [[ $line =~ ^([0-9]+):\ (.*[^ :]) ]] && _tovi_word "${BASH_REMATCH[1]}" "${BASH_REMATCH[2]}"
  done <<<"$_tovi_help"
}

# A command whose own line has no comment has it in the next one.
_tovi_commands() {
  local line command= last=
  while IFS= read -r line; do
    if [[ $line =~ ^\ +tovi\ $1\ ([0-9]+)(\ |$) && ${BASH_REMATCH[1]} != "$last" ]]; then
      command=${BASH_REMATCH[1]}
    fi
    if [[ -n $command && $line == *'/*'* ]]; then
      _tovi_word "$command" "$(_tovi_comment "$line")"
      last=$command command=
    fi
  done <<<"$_tovi_help"
}

# The values that an argument of a command may have, by the name that the help gives it.
_tovi_argument() {
  local line names=()
  while IFS= read -r line; do
    [[ $line =~ ^\ +tovi\ $1\ $2\ ([^/]*) ]] && break
  done <<<"$_tovi_help"
  read -ra names <<<"${BASH_REMATCH[1]-}"
  case ${names[$3]-} in
    sub)
      _tovi_word 0 'subscription 0'
      _tovi_word 1 'subscription 1'
      ;;
    sub_mask)
      _tovi_word 1 'subscription 0'
      _tovi_word 2 'subscription 1'
      _tovi_word 3 'both subscriptions'
      ;;
    efs_path)
      while IFS= read -r line; do
        [[ -n $line ]] && _tovi_word "${line%% *}" "${line#* }"
      done <<<"$_tovi_efs_files"
      ;;
  esac
}

_tovi() {
  local cur=${COMP_WORDS[COMP_CWORD]} words=() notes=()
  case $COMP_CWORD in
    1) _tovi_modules ;;
    2) _tovi_commands "${COMP_WORDS[1]}" ;;
    *) _tovi_argument "${COMP_WORDS[1]}" "${COMP_WORDS[2]}" $((COMP_CWORD - 3)) ;;
  esac
  COMPREPLY=("${words[@]}")
  compopt -o nosort 2>/dev/null
  # When bash only lists them, each has its line.
  [[ ${#words[@]} -gt 1 && ($COMP_TYPE == 63 || $COMP_TYPE == 33 || $COMP_TYPE == 64) ]] || return 0
  local i word width=0
  for word in "${words[@]}"; do ((${#word} > width)) && width=${#word}; done
  for i in "${!words[@]}"; do
    printf -v "COMPREPLY[i]" '%-*s  %s' "$width" "${words[i]}" "${notes[i]}"
    COMPREPLY[i]=${COMPREPLY[i]:0:${COLUMNS:-80} - 1}
  done
}

complete -F _tovi tovi
