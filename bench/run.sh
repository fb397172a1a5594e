#!/bin/sh
# Builds the benchmarks in their own optimised tree and prints the figures.
# Usage: bench/run.sh [--runs N] [--minutes M]   (options go to decode_bench: N
# interleaved rounds, 11 by default; an M-minute file, 10 by default)
set -e
source_dir=$(cd "$(dirname "$0")/.." && pwd)
build_dir=${FD_BENCH_BUILD_DIR:-$source_dir/build-bench}
cmake -S "$source_dir" -B "$build_dir" -G Ninja -DCMAKE_BUILD_TYPE=Release \
  -DFD_BUILD_BENCH=ON -DFD_BUILD_TESTS=OFF >/dev/null
cmake --build "$build_dir" --target decode_bench tag_write_bench id3v2_bench stderr_reader_bench matroska_bench quit_bench fdhost ffmpeg_decoder
echo "== decode run"
"$build_dir/bench/decode_bench" "$@"
echo "== tag writing"
"$build_dir/bench/tag_write_bench"
echo "== ID3v2 tags"
"$build_dir/bench/id3v2_bench"
echo "== error-text reader"
"$build_dir/bench/stderr_reader_bench"
echo "== Matroska tags"
"$build_dir/bench/matroska_bench"
echo "== quit latency"
"$build_dir/bench/quit_bench"
