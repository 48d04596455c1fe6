#!/bin/bash
# demo.bash BUILD OUT [FILE...]: what scripts/demo shows, from a tree that is built. Each file goes
# through a route of its own, file to gain (-6 dB) to file, and all of them through one more: to one
# rate, into a room, mixed, measured, and written twice. Without FILE, the voices of alsa-utils; in
# the mix they then speak one after another, each from its place. Leaves in OUT the sound, the graph
# as a picture, the spectrum of the mix as another, and demo.vosh, which zelk-host can run again.
set -euo pipefail
export LC_ALL=C
build=$(cd "$1" && pwd)
bin=$build/bin blocks=$build/lib/zelk
mkdir -p "$2"
out=$(cd "$2" && pwd -P)
shown=${out#"$PWD/"}
shift 2
gain=-6
mix=RouteA
status= host=

fail() {
  echo "demo: $*" >&2
  exit 1
}

# A word of the console for a path: it holds no blanks.
url() {
  local i char number
  printf file:
  for ((i = 0; i < ${#1}; i++)); do
    char=${1:i:1}
    case $char in
      [a-zA-Z0-9/._~-]) printf %s "$char" ;;
      *) printf -v number %d "'$char" && printf '%%%02X' $((number & 255)) ;;
    esac
  done
}

# The voices, the second at which each begins in the mix, and its share of left and right and of the
# room.
choose_voices() {
  local folder=/usr/share/sounds/alsa voice
  for voice in $folder/*.wav; do
    [ -e "$voice" ] || fail "no voices in $folder (Debian: alsa-utils); name sound files of your own"
    files+=("$voice")
  done
  staged=(Front_Left:0:1:0.15:0.2 Front_Center:1.6:0.7:0.7:0.2 Front_Right:3.2:0.15:1:0.2
    Rear_Right:4.8:0.3:0.8:0.8 Rear_Left:6.4:0.8:0.3:0.8)
  master=3
  command -v sox >/dev/null || return 0
  mkdir -p "$out/parts"
  local name begin rest
  for voice in "${staged[@]}"; do
    IFS=: read -r name begin rest <<<"$voice"
    sox "$folder/$name.wav" "$out/parts/$name.wav" pad "$begin" 0.8
    mixed+=("$out/parts/$name.wav") places+=("$rest")
  done
}

# Looks at every file, and gives the output of each a name of its own.
look() {
  local file name try taken=' mix '
  for file in "${files[@]}"; do
    about+=("$("$bin/demo-files" describe "$file")") || exit 1
    name=$(basename "$file")
    name=${name%.*} try=2
    while [[ $taken == *" ${name// /_} "* ]]; do name=${name%-[0-9]*}-$((try++)); done
    taken+="${name// /_} "
    outs+=("$out/$name.wav")
    [ "$(dirname "$(readlink -f "$file")")" != "$out" ] ||
      fail "$file lies in $shown, where the results go; move it elsewhere first"
  done
}

# The name of the reverb if it is there: without it the mix stays dry.
room() {
  local folder
  [ -e "$blocks/lv2.so" ] || return 0
  for folder in $(tr : " " <<<"${LV2_PATH:-}") /usr/lib/lv2 /usr/lib/*/lv2 /usr/lib64/lv2 /usr/local/lib/lv2; do
    [ ! -e "$folder/mda.lv2" ] || echo http://drobilla.net/plugins/mda/Ambience
  done | head -n 1
}

# This reverb forgets its echoes where its input is zero: the convert in front of it adds dither, and
# the voices have been given some silence at their ends.
mix_commands() {
  local i rate channels rest left right wet reverb
  reverb=$(room)
  echo "newroute $mix"
  for i in "${!mixed[@]}"; do
    read -r rate channels rest < <("$bin/demo-files" describe "${mixed[i]}")
    IFS=: read -r left right wet <<<"${places[i]:-::0.3}"
    echo "newblock $mix filesrc.so true false $(url "$(readlink -f "${mixed[i]}")")"
    echo "newblock $mix resample.so false false"
    echo "newblock $mix convert.so false false dither"
    [ -z "$reverb" ] || echo "newblock $mix lv2.so false false $reverb size=0.8 hf_damp=0.5 mix=$wet"
    echo "newlink $mix $rate FLOAT_LE $channels $(frame "$rate") filesrc_$i 0 resample_$i 0"
    echo "newlink $mix 44100 FLOAT_LE $channels 441 resample_$i 0 convert_$i 0"
    to=convert_$i
    [ -z "$reverb" ] || { to=lv2_$i && echo "newlink $mix 44100 S16_LE 2 441 convert_$i 0 $to 0"; }
    [ -z "$left" ] || echo "setparam $mix convert_$i 1 $left $right"
    [ "$i" != 0 ] || echo "newblock $mix mixer.so false false $master"
    echo "newlink $mix 44100 FLOAT_LE 2 441 $to 0 mixer_0 $i"
  done
  cat <<END
newblock $mix meter.so false false
newblock $mix tee.so false false
newblock $mix filesink.so false true $(url "$out/mix.wav")
newblock $mix filesink.so false true $(url "$out/mix.flac")
newlink $mix 44100 FLOAT_LE 2 441 mixer_0 0 meter_0 0
newlink $mix 44100 FLOAT_LE 2 441 meter_0 0 tee_0 0
newlink $mix 44100 S16_LE 2 441 tee_0 0 filesink_0 0
newlink $mix 44100 S16_LE 2 441 tee_0 1 filesink_1 0
END
}

frame() {
  echo $(($1 < 100 ? 1 : $1 / 100))
}

# The routes of single files; their letters follow the mix's.
file_commands() {
  local i rate channels samples bits route link
  for i in "${!files[@]}"; do
    read -r rate channels samples bits <<<"${about[i]}"
    route=Route$(printf "\\x$(printf %x $((66 + i)))")
    link="newlink $route $rate FLOAT_LE $channels $(frame "$rate")"
    echo "newroute $route"
    echo "newblock $route filesrc.so true false $(url "$(readlink -f "${files[i]}")")"
    echo "newblock $route gain.so false false $gain"
    echo "newblock $route filesink.so false true $(url "${outs[i]}") wav$bits"
    echo "$link filesrc_0 0 gain_0 0"
    echo "$link gain_0 0 filesink_0 0"
    starts+="start $route"$'\n'
  done
}

# The whole script; the mix is drawn while it is the only route.
write_script() {
  local drawing=
  ! command -v dot >/dev/null || drawing='graph -o graph.svg'
  echo '# By the demo. Again, in this folder: zelk-host --until-stopped --summary demo.vosh'
  echo 'loglevel 4'
  starts=
  if [ -n "$mixing" ]; then
    mix_commands
    [ -z "$drawing" ] || echo "$drawing"
    starts="start $mix"$'\n'
  fi
  file_commands
  [ -n "$mixing" ] || [ -z "$drawing" ] || echo "$drawing"
  printf %s "$starts"
  if [ -n "$mixing" ]; then
    echo "wait $mix"
    echo "getparam $mix meter_0 3"
    echo "getparam $mix meter_0 4"
    echo "getparam $mix meter_0 5"
  fi
}

# Hundredths of a second in all inputs, which is how many frames there are to run.
frames_in_all() {
  {
    printf '%s\n' "${about[@]}"
    [ -z "$mixing" ] || "$bin/demo-files" describe "${mixed[@]}" | sort -k3n | tail -n 1
  } | awk '{ sum += $3 / $1 } END { printf "%d\n", 100 * sum + 1 }'
}

# Tells how far the routes are while the host runs.
watch() {
  local all ran now
  all=$(frames_in_all)
  while kill -0 "$host" 2>/dev/null; do
    sleep 0.1
    [ -t 1 ] || continue
    ran=$("$bin/vosh" --timeout 5 status 2>/dev/null |
      awk '/ processed OK, / { sum += $4 } END { print sum + 0 }') || continue
    now=$((100 * ran / all))
    printf '\r%3d %% ' $((now > 100 ? 100 : now))
  done
  [ ! -t 1 ] || printf '\r      \r'
}

run() {
  rm -f "$out/graph.svg" "$out/mix.png"
  trap '[ -z "$host" ] || { kill "$host" && wait "$host"; exit 130; }' INT TERM
  (cd "$out" && exec "$bin/zelk-host" --until-stopped --summary demo.vosh) \
    >"$out/demo.replies" 2>"$out/demo.log" &
  host=$!
  watch
  status=0
  wait "$host" || status=$?
  host=
  trap - INT TERM
  case $status in
    0 | 3) ;;
    2) fail "another process serves the console (/tmp/voshsock), and a machine has only one of \
these. See with 'vosh status' what it runs; end it, then try again" ;;
    *)
      grep -v ' [IDV] ' "$out/demo.log" >&2 || true
      fail "the routes did not run; details in $shown/demo.log"
      ;;
  esac
}

check() {
  local pairs=() i
  for i in "${!files[@]}"; do pairs+=("${files[i]}" "${outs[i]#"$PWD/"}"); done
  "$bin/demo-files" compare "$gain" "${pairs[@]}" || bad=1
  [ -n "$mixing" ] || return 0
  echo "  and the mix, in FLAC what is in WAV:"
  "$bin/demo-files" compare 0 "$shown/mix.wav" "$shown/mix.flac" || bad=1
}

# From the first start to the last stop, by the host's log.
seconds_run() {
  awk '{ split($2, t, ":"); now = t[1] * 3600 + t[2] * 60 + t[3] }
    / I Route[A-Z]: Started$/ && !from { from = now }
    / I Route[A-Z]: Stopped$/ { to = now }
    END { print (to - from + 86400) % 86400 }' "$out/demo.log"
}

report() {
  local written=${#files[@]}
  [ -z "$mixing" ] || written=$((written + 2))
  echo
  awk -v files="$written" -v took="$(seconds_run)" -v gain="$gain" -v inputs="${#files[@]}" '
    FNR == NR { for (i = 1; i < NF; ++i) {
        if ($(i + 1) == "s") seconds += $i
        if ($i == "peak" && (peak == "" || $(i + 1) > peak)) peak = $(i + 1)
      }
      right += /every sample right/; next }
    / processed OK, / { ok += $4; errors += $8 }
    END {
      printf "%d files written, %.2f s of audio in %.3f s: %.0f times real time\n",
        files, seconds, took, seconds / (took > 0 ? took : 1e-6)
      printf "%d frames OK, %d error frames, peak level %.1f dBFS\n", ok, errors, peak
    }' "$out/demo.checks" "$out/demo.replies"
  [ "$status" = 0 ] || bad=1
  [ -z "$mixing" ] || loudness
}

loudness() {
  awk -v name="$shown/mix.wav" -v mix="$mix" '
    $0 ~ "^" mix " has stopped" { at = NR }
    at && NR > at && NR <= at + 3 { value[NR - at] = $1 }
    END {
      printf "loudness of %s: %.1f LUFS, range %.1f LU, true peak %.1f dBTP%s\n", name, value[1],
        value[2], value[3], (value[3] > 0 ? ": CLIPPED" : "")
    }' "$out/demo.replies"
}

pictures() {
  [ -n "$mixing" ] && command -v sox >/dev/null &&
    sox "$out/mix.wav" -n spectrogram -x 900 -y 257 -z 90 -t "mix: spectrum over time" -c ' ' \
      -o "$out/mix.png" 2>/dev/null || rm -f "$out/mix.png"
  [ ! -e "$out/graph.svg" ] || echo "the graph, drawn: $shown/graph.svg"
  [ ! -e "$out/mix.png" ] || echo "the mix, drawn:   $shown/mix.png"
}

files=("$@") mixed=() places=() about=() outs=() master= mixing=1 bad=
[ ${#files[@]} -le 25 ] || fail "25 files at most"
for block in resample convert mixer meter tee; do
  [ -e "$blocks/$block.so" ] || { mixing= && echo "demo: no mix, the block $block was left out"; }
done
[ ${#files[@]} -gt 0 ] || choose_voices
look
if [ ${#mixed[@]} = 0 ]; then
  mixed=("${files[@]}")
  master=$(awk -v n=${#files[@]} 'BEGIN { printf "%.1f\n", -6 - 10 * log(n) / log(10) }')
fi
write_script >"$out/demo.vosh"
echo "demo: one route per file, ${#files[@]} in all${mixing:+, and one that mixes ${#mixed[@]}}"
run
check | tee "$out/demo.checks"
report
pictures
grep -q WRONG "$out/demo.checks" && bad=1
[ -z "$bad" ] || fail "not as it should be, see above and $shown/demo.log"
