#!/usr/bin/env bash
# scripts/soak.sh [--minutes N] [--threads N] [--report-seconds S]
# Builds the cycles test in Release (build-soak/, or $FD_BUILD_PREFIX-soak)
# and runs it: N decoders (default 8) for N minutes (default 30) against the
# built plug-in, reporting descriptors, threads, children and resident memory
# every minute. The exit status is the soak's: 0 when it passed.
set -euo pipefail
cd "$(dirname "$0")/.."

minutes=30
threads=8
report=60
while [[ $# -gt 0 ]]; do
  case $1 in
    --minutes) minutes=$2; shift 2 ;;
    --threads) threads=$2; shift 2 ;;
    --report-seconds) report=$2; shift 2 ;;
    *) echo "usage: scripts/soak.sh [--minutes N] [--threads N] [--report-seconds S]" >&2; exit 2 ;;
  esac
done

dir=${FD_BUILD_PREFIX:-build}-soak
cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release -DFD_BUILD_TESTS=ON >/dev/null
cmake --build "$dir" -j "${FD_JOBS:-2}" --target integration_cycles_test ffmpeg_decoder fdhost
FD_CYCLES_MINUTES=$minutes FD_CYCLES_THREADS=$threads FD_CYCLES_REPORT_SECONDS=$report \
  exec "$dir/tests/integration/integration_cycles_test" --gtest_filter=Concurrency.ManyCyclesLeaveNothingBehind
