#!/bin/bash
# validate_stock_test.sh VALIDATE FILE: one block of this tree passes every check, with each kind of
# words and links that it takes. A new block gets a line here.
set -uo pipefail
validate=$1 file=$2 block=$(basename "$2" .so)
work=$(mktemp -d)
servers=()
trap '[ ${#servers[@]} = 0 ] || kill "${servers[@]}"; rm -rf "$work"' EXIT
failed=0

# A busy machine is no fault, and a hang still is one.
check() {
  "$validate" --time=20000 "$@" || { echo "FAILED: zelk-validate $*"; failed=1; }
}

# A second of zeros in 16 bit: 48 kHz, stereo.
silence() {
  printf 'RIFF\x24\xee\x02\x00WAVEfmt \x10\0\0\0\x01\0\x02\0\x80\xbb\0\0\0\xee\x02\0\x04\0\x10\0data\0\xee\x02\0'
  head -c 192000 /dev/zero
}

# JACK servers without a sound card.
jack_servers() {
  command -v jackd >/dev/null || { echo "skipped: no jackd"; exit 77; }
  export JACK_NO_AUDIO_RESERVATION=1
  local name
  for name in "$@"; do
    jackd -n "$name" -r -S -d dummy -r 48000 -p 512 >/dev/null 2>&1 &
    servers+=($!)
  done
  for name in "$@"; do
    jack_wait -s "$name" -w -t 20 >/dev/null || { echo "skipped: jackd does not start"; exit 77; }
  done
}

# On a busy machine a client was seen, rarely, not to close again; why is not known. What fails twice,
# on servers of its own, counts.
jack_check() {
  check "$1" "$file" "$2" "zelk-$$-$2"
  [ $failed = 0 ] && return
  echo "once more:"
  failed=0
  jack_servers "zelk-$$-$2-again"
  check "$1" "$file" "$2" "zelk-$$-$2-again"
  kill "${servers[-1]}"
  unset "servers[-1]"
}

# For PortAudio: no device but one that takes and gives silence as fast as it is asked to. Without a
# JACK server it does not look for that one's clients either. The device's buffer is of gigabytes that
# nobody touches, if the address sanitizer does not mark them.
no_sound_card() {
  [ "$(uname)" = Linux ] || { echo "skipped: no ALSA"; exit 77; }
  printf 'pcm.%s { type null }\n' standin default >"$work/asound.conf"  # PortAudio insists on the latter
  export ALSA_CONFIG_PATH=$work/asound.conf JACK_NO_START_SERVER=1 JACK_DEFAULT_SERVER=none-$$
  export ASAN_OPTIONS=${ASAN_OPTIONS:-}:poison_heap=0
}

case $block in
  audio)
    no_sound_card
    check --first "$file" standin; check --last "$file" standin 20 ;;
  convert) check "$file"; check "$file" dither ;;
  fifosink) check --bind-fifo "$file" drop ;;
  fifosrc) check --bind-fifo "$file" pad ;;
  filesink) check "$file" "$work/out.wav"; check --once "$file" "$work/out.flac" ;;
  filesrc) silence >"$work/in.wav"; check "$file" "$work/in.wav" ;;
  gain) check "$file"; check --link=44100:S24_3BE:5:441 "$file" -6 ;;
  invert) check "$file" ;;
  jack)
    # Clients wait for their server most of the time: both at once. Each has a server for itself,
    # since a server waits for every client when another comes or goes.
    jack_servers "zelk-$$-source" "zelk-$$-sink"
    (jack_check --first source; exit $failed) & source=$!
    jack_check --last sink
    wait $source || failed=1 ;;
  ladspa)
    [ -e /usr/lib/ladspa/amp.so ] || { echo "skipped: no LADSPA plug-in"; exit 77; }
    check "$file" amp amp_stereo ;;
  lv2)
    [ -d /usr/lib/lv2/mda.lv2 ] || { echo "skipped: no LV2 plug-in"; exit 77; }
    LV2_PATH=/usr/lib/lv2 check "$file" http://drobilla.net/plugins/mda/Delay ;;
  meter) check "$file" ;;
  mixer) check "$file" ;;
  pace) check --link=192000:FLOAT_LE:2:48 "$file" ;;
  resample) check "$file" ;;
  siggen) check "$file" noise; check --link=8000:S16_LE:1:80 "$file" sine 440 -20 0.1 ;;
  tee) check "$file" ;;
  *) echo "FAILED: nothing is known about $block"; exit 1 ;;
esac
exit $failed
