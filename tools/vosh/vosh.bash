# Completion for vosh and bash: the words come from vosh itself, which asks the host.
_vosh() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}
  local i=1
  while ((i < COMP_CWORD)) && [[ ${COMP_WORDS[i]} == -* ]]; do
    case ${COMP_WORDS[i]} in
      -f | --file | -t | --timeout) ((i += 2)) ;;
      *) ((i += 1)) ;;
    esac
  done
  case $previous in
    -f | --file) mapfile -t COMPREPLY < <(compgen -f -- "$word"); return ;;
  esac
  if ((i == COMP_CWORD)) && [[ $word == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W '--file --json --timeout --help --version' -- "$word")
    return
  fi
  ((i > COMP_CWORD)) && return
  mapfile -t COMPREPLY < <("${COMP_WORDS[0]}" --complete "${COMP_WORDS[*]:i:COMP_CWORD-i+1}" 2>/dev/null)
  [[ ${#COMPREPLY[@]} == 1 && ${COMPREPLY[0]} == */ ]] && compopt -o nospace
}
complete -F _vosh vosh
