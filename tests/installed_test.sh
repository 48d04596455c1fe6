#!/bin/bash
# installed_test.sh SOURCE BUILD COMPILER [FLAGS]: the installed tree, moved to another place, is all
# that the examples need to be built and run.
set -euo pipefail
source=$1 build=$2 compiler=$3 flags=${4:-}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# Writes 16-bit numbers as a sound file: 48 kHz, mono.
sound() {
  local bytes
  bytes=$(printf '%s\n' "$@" | wc -l)
  bytes=$((2 * bytes))
  le() { local i; for ((i = 0; i < $2; i++)); do printf "\\x$(printf %02x $((($1 >> 8 * i) & 255)))"; done; }
  printf RIFF; le $((36 + bytes)) 4; printf 'WAVEfmt '; le 16 4; le 1 2; le 1 2
  le 48000 4; le 96000 4; le 2 2; le 16 2; printf data; le $bytes 4
  local number
  for number in "$@"; do le "$number" 2; done
}

# The last `count` 16-bit numbers of a file.
numbers() {
  tail -c $((2 * $2)) "$1" | od -An -v -t d2 -w2 | tr -s ' \n' ' ' | sed 's/^ //; s/ $//'
}

cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/prefix"
cmake -S "$source/examples" -B "$work/build" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" \
  -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_BUILD_TYPE=Debug >"$work/log" 2>&1 &&
  cmake --build "$work/build" >>"$work/log" 2>&1 || { cat "$work/log"; fail "the examples do not build"; }
grep -q "$work/prefix" "$work/build/CMakeCache.txt" || fail "another zelk was found"

# 1,000 numbers: two whole frames and a piece, a slope whose ends are easy to name.
input=()
for ((i = 0; i < 1000; i++)); do input+=($((20 * i - 10000))); done
sound "${input[@]}" >"$work/in.wav"
host=$(find "$work/build" -name first-host -type f)

# A stock block is found by its bare name next to the moved library.
"$host" "$work/in.wav" "$work/gained.wav" gain.so -6.0206 || fail "gain did not run"
[ "$(numbers "$work/gained.wav" 3)" = "4970 4980 4990" ] || fail "gain: $(numbers "$work/gained.wav" 3)"
[ "$(numbers "$work/gained.wav" 1000 | cut -d' ' -f1-2)" = "-5000 -4990" ] || fail "gain lost the start"

invert=$(find "$work/build" -name invert.so)
"$host" "$work/in.wav" "$work/inverted.wav" "$invert" || fail "the own block did not run"
[ "$(numbers "$work/inverted.wav" 3)" = "-9940 -9960 -9980" ] || fail "invert: $(numbers "$work/inverted.wav" 3)"
[ "$(numbers "$work/inverted.wav" 1000 | cut -d' ' -f1-2)" = "10000 9980" ] || fail "invert lost the start"

# The own block's tests, with the installed validator, in a project of its own.
cmake -S "$source/examples/own-block" -B "$work/own" -G Ninja -DCMAKE_PREFIX_PATH="$work/prefix" \
  -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_BUILD_TYPE=Debug >"$work/log" 2>&1 &&
  cmake --build "$work/own" >>"$work/log" 2>&1 &&
  (cd "$work/own" && ctest --output-on-failure) >>"$work/log" 2>&1 || { cat "$work/log"; fail "own-block"; }
grep -q "100% tests passed, 0 tests failed out of 2" "$work/log" || fail "not both tests of own-block ran"

# Each program has a manual page that is no other's, and completes its options in bash.
for program in vosh zelk-host zelk-validate; do
  "$work/prefix/bin/$program" --version | grep -q "^$program [0-9]" || fail "$program does not run"
  grep -qi "^\.TH $program 1" "$work/prefix/share/man/man1/$program.1" || fail "no page of $program"
  (
    source "$work/prefix/share/bash-completion/completions/$program"
    COMP_WORDS=("$program" --vers) COMP_CWORD=1 COMPREPLY=()
    "_${program//-/_}" 2>/dev/null
    [ "${COMPREPLY[*]}" = --version ]
  ) || fail "$program completes nothing"
done

# A host finds out about what cannot work.
if "$host" "$work/absent.wav" "$work/x.wav" gain.so 2>/dev/null >&2; then fail "an absent file ran"; fi

"$(find "$work/build" -name fifo -type f)" >"$work/log" || { cat "$work/log"; fail "the FIFO example"; }

if command -v pkg-config >/dev/null; then
  export PKG_CONFIG_PATH=$work/prefix/lib/pkgconfig
  [ -e "$PKG_CONFIG_PATH" ] || PKG_CONFIG_PATH=$(dirname "$(find "$work/prefix" -name zelk.pc)")
  "$compiler" $flags -std=c++20 "$source/examples/first-host.cpp" -o "$work/by-pc" -pthread \
    $(pkg-config --cflags --libs zelk) -Wl,-rpath,"$(pkg-config --variable=libdir zelk)"
  "$work/by-pc" "$work/in.wav" "$work/by-pc.wav" gain.so -6.0206 || fail "the pkg-config host did not run"
  cmp "$work/gained.wav" "$work/by-pc.wav"
  "$compiler" $flags -std=c++20 -shared -fPIC -fvisibility=hidden \
    "$source/examples/own-block/invert.cpp" -o "$work/mine.so" $(pkg-config --cflags --libs zelk)
  "$work/by-pc" "$work/in.wav" "$work/mine.wav" "$work/mine.so" || fail "the pkg-config block did not run"
  cmp "$work/inverted.wav" "$work/mine.wav"
fi
