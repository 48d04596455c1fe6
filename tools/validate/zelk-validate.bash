# Completion for zelk-validate and bash.
_zelk_validate() {
  local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD-1]}
  case $previous in
    -o | --only)
      mapfile -t COMPREPLY < <(compgen -W "$("${COMP_WORDS[0]}" --checks 2>/dev/null | cut -d' ' -f1)" -- "$word")
      return ;;
  esac
  if [[ $word == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W '--link --first --last --bind-fifo --once --time --only --checks
      --verbose --help --version' -- "$word")
  else
    compopt -o filenames
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
  fi
}
complete -F _zelk_validate zelk-validate
