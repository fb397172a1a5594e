#!/usr/bin/env bash
# Peak resident memory of each fuzz target's entry point over its kept corpus,
# the hand-made hostile inputs and the regression inputs, in a plain Release
# build (no sanitizer shadow memory). Usage: bench/corpus-rss.sh [BUILD_DIR]
set -euo pipefail
cd "$(dirname "$0")/.."
build=${1:-build}
cmake --build "$build" >/dev/null
worst=0
for replay in "$build"/bench/*_replay; do
  name=$(basename "$replay" _replay)
  inputs=()
  for dir in fuzz/corpus/$name fuzz/hostile/$name fuzz/regressions/$name; do
    [[ -d $dir ]] && inputs+=("$dir")
  done
  [[ ${#inputs[@]} -eq 0 ]] && continue
  line=$("$replay" "${inputs[@]}")
  printf '%-22s %s\n' "$name" "$line"
  mb=$(sed -n 's/.*peak RSS \([0-9.]*\) MB.*/\1/p' <<<"$line")
  worst=$(awk -v a="$worst" -v b="$mb" 'BEGIN { print (b > a) ? b : a }')
done
echo "worst peak RSS: $worst MB (limit 64 MB)"
awk -v w="$worst" 'BEGIN { exit !(w < 64) }'
