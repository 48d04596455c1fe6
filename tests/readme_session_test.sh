#!/bin/bash
# readme_session_test.sh SOURCE BUILD: types the README's live session, line by line as it stands
# there, at a real host, and expects the replies that it shows.
set -um
source=$1 build=$2
work=$(mktemp -d)
host=
trap '[ -z "$host" ] || kill -9 "$host" 2>/dev/null; rm -rf "$work"' EXIT
ln -s "$build" "$work/build"
mkdir "$work/demo-out"  # the demo's
cd "$work" || exit

fail() {
  echo "FAILED: $*" >&2
  [ ! -e zelk-host.log ] || tail -n 20 zelk-host.log >&2
  exit 1
}

session() {
  awk '/^## / { in_section = /live session/ } /^```/ { in_block = in_section && !in_block; next }
    in_block' "$source/README.md"
}

# A full screen wants a terminal, and a person who presses q when he has seen it.
type_top() {
  : >top.screen
  for ((tries = 0; tries < 300; tries++)); do
    grep -q gain_0 top.screen && break
    sleep 0.1
  done | cat - <(printf q) | script -qec "$1" /dev/null >top.screen || fail "$1 ended with $?"
  grep -q gain_0 top.screen || fail "$1 shows no gain_0: $(cat -v top.screen)"
}

# Carries out `command`, whose reply is `expected`.
typed() {
  local reply
  case $command in
    '') return ;;
    'vosh top'*) type_top "${command%%#*}"; return ;;
    export* | cd*) eval "$command"; return ;;
    *'&') eval "$command"
      host=$!
      for ((tries = 0; tries < 300; tries++)); do vosh status &>/dev/null && break; sleep 0.1; done
      return ;;
    kill*) eval "$command" && wait "$host" || fail "the host ended with $?"
      host=
      return ;;
  esac
  reply=$(eval "$command" 2>&1) || fail "$command: $reply"
  [ "$reply" = "$expected" ] || fail "$command: the README has '$expected', the host '$reply'"
}

command -v script >/dev/null || type_top() { vosh top -n 1 | grep -q gain_0; }
command= expected= count=0
while IFS= read -r line; do
  if [[ $line == '$ '* ]]; then
    typed
    command=${line#'$ '} expected= count=$((count + 1))
  else
    expected+=${expected:+$'\n'}$line
  fi
done < <(session)
typed
[ "$count" -ge 15 ] || fail "the README shows a session of $count commands"

[ -z "$host" ] || fail "the README leaves its host behind"
[ "$(head -c 4 voice.wav)" = RIFF ] && [ "$(wc -c <voice.wav)" -gt 1000 ] || fail "no voice.wav"
grep -q '<svg' session.svg && grep -q filesink_0 session.svg || fail "session.svg draws no graph"
