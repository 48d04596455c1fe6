#!/bin/bash
# documents_test.sh SOURCE BUILD DOCUMENT...: the commands that documents show do what they say. Each
# ```sh block runs, in the order of the document, in a folder of its own and with zelk installed; a
# ```text block right behind it is what it prints.
set -euo pipefail
export SOURCE=$1
build=$2
shift 2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export ZELK=$work/zelk
cmake --install "$build" --prefix "$ZELK" >/dev/null
export PATH="$ZELK/bin:$PATH"

for document; do
  # One script: each block's output to a file of its number, the expected texts beside them.
  folder=$work/$(basename "$document" .md)
  mkdir -p "$folder/work"
  awk -v folder="$folder" '
    /^```sh$/ { inside = "sh"; n++; print "{"; next }
    /^```text$/ && after { inside = "text"; printf "" > (folder "/" n ".expected"); next }
    /^```$/ && inside == "sh" { print "} >" folder "/" n ".out"; inside = ""; after = 1; next }
    /^```$/ { inside = ""; next }
    inside == "sh" { print; next }
    inside == "text" { print > (folder "/" n ".expected"); next }
    /[^ ]/ { after = 0 }' "$SOURCE/$document" >"$folder/script"
  [ -s "$folder/script" ] || { echo "FAILED: $document shows no commands"; exit 1; }
  (cd "$folder/work" && bash -euo pipefail ../script 2>../err) || {
    cat "$folder"/*.out "$folder/err"
    echo "FAILED: the commands of $document"
    exit 1
  }
  for expected in "$folder"/*.expected; do
    diff -u "$expected" "${expected%.expected}.out" || { echo "FAILED: $document says otherwise"; exit 1; }
  done
done
