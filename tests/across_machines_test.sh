#!/bin/bash
# across_machines_test.sh NETWORK_HOST: two machines, here two network namespaces, each with a JACK
# server and a route, netjack2 between them. What one route plays, the other records.
#
# Exits with 77 (skipped) where namespaces, JACK or its network driver are missing.
set -u

skip() { echo "skipped: $*" >&2; exit 77; }

for tool in jackd jack_wait jack_load ip unshare; do
  command -v "$tool" >/dev/null || skip "no $tool here"
done
if [ "${1-}" != --inside ]; then
  if [ "$(id -u)" = 0 ]; then unshare -mn true 2>/dev/null && exec unshare -mn "$0" --inside "$@"; fi
  unshare -rmn true 2>/dev/null && exec unshare -rmn "$0" --inside "$@"
  skip "no namespaces here"
fi
shift
host=$1

# Names of namespaces live in /run, and one console socket per machine in /tmp: both end with this.
work=$(mktemp -d /var/tmp/zelk-machines-XXXXXX) || exit 1
mount -t tmpfs zelk /run || skip "nothing may be mounted here"
jobs=()
finish() {
  for pid in "${jobs[@]}"; do kill "$pid" 2>/dev/null; done
  wait
  rm -rf "$work"
}
trap finish EXIT

studio="ip netns exec studio"
stage="ip netns exec stage"
wire() {
  ip netns add studio && ip netns add stage &&
    ip link add eth0 netns studio type veth peer name eth0 netns stage || return
  local address=1 machine
  for machine in studio stage; do
    ip -n $machine link set lo up &&
      ip -n $machine addr add 10.77.0.$address/24 dev eth0 &&
      ip -n $machine link set eth0 up &&
      ip -n $machine route add 224.0.0.0/4 dev eth0 || return
    address=$((address + 1))
  done
}
wire 2>/dev/null || skip "no network between namespaces here"

here=zelk-studio-$$
there=zelk-stage-$$
$studio jackd -n "$here" -r -S -d dummy -r 48000 -p 2048 >"$work/studio.log" 2>&1 & jobs+=($!)
jack_wait -s "$here" -w -t 20 >/dev/null 2>&1 || skip "no JACK server runs here"
$studio jack_load -s "$here" netmanager >"$work/netmanager.log" 2>&1 || skip "JACK has no netmanager"
$stage jackd -n "$there" -r -S -d net -n stage -C 1 -P 1 >"$work/stage.log" 2>&1 & jobs+=($!)
jack_wait -s "$there" -w -t 20 >/dev/null 2>&1 || skip "JACK has no network driver: $(cat "$work/stage.log")"

run="unshare -m sh -c 'mount -t tmpfs zelk /tmp && exec \"\$@\"' sh $host"
mkfifo "$work/until"
"$host" make "$work/sent.wav" 3
eval "$stage $run record $work/arrived.wav $there system:capture_1" <"$work/until" >"$work/record.log" 2>&1 &
recorder=$!
exec 3>"$work/until"
for _ in $(seq 100); do
  jack_lsp -s "$there" -c 2>/dev/null | grep -q record:in_1 && break
  sleep 0.1
done
eval "$studio $run play $work/sent.wav $here stage:to_slave_1" >"$work/play.log" 2>&1
played=$?
sleep 1 # what is still on its way
exec 3>&-
wait $recorder
recorded=$?
"$host" compare "$work/sent.wav" "$work/arrived.wav"
same=$?
if [ $played$recorded$same != 000 ]; then
  tail -n 20 "$work"/*.log
  exit 1
fi
grep -h lost "$work"/*.log
