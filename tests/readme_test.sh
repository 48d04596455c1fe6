#!/bin/bash
# readme_test.sh SOURCE: what the documents show is what the tests build. Below a link to a file, a
# ```cpp or ```cmake block is that file, whole; every link to a file leads somewhere.
set -uo pipefail
cd "$1" || exit
failed=0
shown=0
block=$(mktemp)
trap 'rm -f "$block"' EXIT

for document in *.md docs/*.md docs/*/*.md; do
  [ -e "$document" ] || continue
  folder=$(dirname "$document")
  for link in $(grep -o '](\([^)#]*\)' "$document" | sed 's/^](//' | grep -v '^[a-z]*:'); do
    [ -e "$folder/$link" ] || { echo "$document: no $link"; failed=1; }
  done
  file= inside=
  while IFS= read -r line; do
    if [ -n "$inside" ] && [ "$line" = '```' ]; then
      cmp "$folder/$file" "$block" || { echo "$document: shows another $file"; failed=1; }
      shown=$((shown + 1)) inside= file=
    elif [ -n "$inside" ]; then
      printf '%s\n' "$line" >>"$block"
    elif [[ $line == '#'* ]]; then
      file=
    elif [[ $line =~ ^'```'(cpp|cmake)$ && -n $file ]]; then
      inside=1
      : >"$block"
    elif [[ $line =~ \]\(((\.\./)*examples/[^\)]*\.(cpp|txt))\) ]]; then
      file=${BASH_REMATCH[1]}
    fi
  done <"$document"
done
[ "$shown" -ge 2 ] || { echo "the README shows no host and no block"; failed=1; }
exit $failed
