#!/usr/bin/env bash
# Records what the real ffmpeg gives the plug-in, for the replay worker of
# the Windows tests: for each input its Wave64 output and its error text, as
# the plug-in asks for them, from the start and from every "-ss" start the
# tests use. Runs on the Linux side, at test time.
set -euo pipefail
folder=$1
ffmpeg=$2
mkdir -p "$folder"
cd "$folder"

"$ffmpeg" -hide_banner -loglevel error -nostdin -y -f lavfi -i "sine=frequency=440:duration=2:sample_rate=44100" \
  -ac 2 -c:a flac sine.flac
cp sine.flac "with blank.flac"

record() {   # input [start]
  local input=$1 start=${2:-}
  local name=$input
  local seek=()
  if [[ -n $start ]]; then
    name="$input.ss$start"
    seek=(-ss "$start")
  fi
  "$ffmpeg" -nostdin "${seek[@]}" -i "$input" -f w64 - >"$name.w64" 2>"$name.err" || true
}

for input in sine.flac "with blank.flac"; do
  record "$input"
  record "$input" 0.5
done
record missing.flac
