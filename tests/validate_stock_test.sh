#!/bin/bash
# validate_stock_test.sh VALIDATE FILE: one block of this tree passes every check, with each kind of
# words and links that it takes. A new block gets a line here.
set -uo pipefail
validate=$1 file=$2 block=$(basename "$2" .so)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

check() {
  "$validate" "$@" || { echo "FAILED: zelk-validate $*"; failed=1; }
}

# A second of zeros in 16 bit: 48 kHz, stereo.
silence() {
  printf 'RIFF\x24\xee\x02\x00WAVEfmt \x10\0\0\0\x01\0\x02\0\x80\xbb\0\0\0\xee\x02\0\x04\0\x10\0data\0\xee\x02\0'
  head -c 192000 /dev/zero
}

case $block in
  convert) check "$file"; check "$file" dither ;;
  fifosink) check --bind-fifo "$file" drop ;;
  fifosrc) check --bind-fifo "$file" pad ;;
  filesink) check "$file" "$work/out.wav"; check --once "$file" "$work/out.flac" ;;
  filesrc) silence >"$work/in.wav"; check "$file" "$work/in.wav" ;;
  gain) check "$file"; check --link=44100:S24_3BE:5:441 "$file" -6 ;;
  invert) check "$file" ;;
  meter) check "$file" ;;
  mixer) check "$file" ;;
  pace) check --link=192000:FLOAT_LE:2:48 "$file" ;;
  resample) check "$file" ;;
  siggen) check "$file" noise; check --link=8000:S16_LE:1:80 "$file" sine 440 -20 0.1 ;;
  tee) check "$file" ;;
  audio | jack | ladspa | lv2) echo "skipped: needs a device, a server or a plug-in of others"; exit 77 ;;
  *) echo "FAILED: nothing is known about $block"; exit 1 ;;
esac
exit $failed
