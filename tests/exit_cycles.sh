#!/bin/bash
# exit_cycles.sh HOST [CYCLES]: starts and ends the host program HOST so often, in turn without a
# client, with an idle one, with half a line sent, with one that does not read, and forked. Run it
# under tests/support/isolated. Fails when a host hangs, ends badly or leaves its socket.
set -uo pipefail
host=$1
cycles=${2:-20}
for ((i = 0; i < cycles; ++i)); do
  timeout 60 "$host" $((i % 5)) || { echo "cycle $i ended with $?" >&2; exit 1; }
  [ ! -e /tmp/voshsock ] || { echo "cycle $i left its socket" >&2; exit 1; }
done
echo "$cycles cycles"
