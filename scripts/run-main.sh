#!/usr/bin/env bash
# The main job: tools, a Release build in build/, and a look at what the
# plug-in offers through fdhost.
set -euo pipefail
cd "$(dirname "$0")/.."

bash scripts/setup-deps.sh

# build/ is shared with scripts/test.sh, which configures it the same way.
# FD_BUILD_PREFIX names another folder.
out=${FD_BUILD_PREFIX:-build}
CC=gcc CXX=g++ cmake -S . -B "$out" -G Ninja -DCMAKE_BUILD_TYPE=Release -DFD_BUILD_TESTS=ON -DFD_BUILD_BENCH=ON
cmake --build "$out" --target fdhost ffmpeg_decoder

echo
echo "== fdhost caps"
"$out/fdhost" caps

# ---------------------------------------------------------------------------
# Sample decode: generate a short file with ffmpeg, decode it through fdhost
# and show its format and tags. (To be added with the decode commands.)
# ---------------------------------------------------------------------------
