# Completion for zelk-host and bash.
_zelk_host() {
  local word=${COMP_WORDS[COMP_CWORD]}
  if [[ $word == -* ]]; then
    mapfile -t COMPREPLY < <(compgen -W '--until-stopped --summary --quiet --help --version' -- "$word")
  else
    compopt -o filenames
    mapfile -t COMPREPLY < <(compgen -d -- "$word"; compgen -f -X '!*.vosh' -- "$word")
  fi
}
complete -F _zelk_host zelk-host
