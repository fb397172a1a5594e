#!/usr/bin/env bash
# A long fuzzing run: scripts/fuzz-campaign.sh TARGET... [--minutes N] [--runs N]
#
# Each target runs with ASan+UBSan until N minutes have passed or N executions
# are done (whichever comes first; default 10 minutes). What it finds new is
# merged into fuzz/corpus/<target>/ with -merge=1, so the kept corpus stays
# small. A crash, leak, time-out or memory blow-up is kept as a regression
# input in fuzz/regressions/<target>/, which the fuzz stage of scripts/test.sh
# replays on every run. The hand-made inputs in fuzz/hostile/<target>/ (sizes
# of gigabytes declared in small files) seed every run; no single allocation
# may pass 64 MB. `all` names every target.
#
# The targets run one after another on one core each time (FD_FUZZ_JOBS runs
# that many targets side by side; FD_FUZZ_FLAGS adds libFuzzer flags, such as
# -entropic=0). The last lines sum up executions, coverage and findings per
# target.
set -uo pipefail
cd "$(dirname "$0")/.."

minutes=10
runs=0
targets=()
while [[ $# -gt 0 ]]; do
  case $1 in
    --minutes) minutes=$2; shift 2 ;;
    --runs) runs=$2; shift 2 ;;
    -h|--help) sed -n '2,14p' "$0"; exit 0 ;;
    *) targets+=("$1"); shift ;;
  esac
done
if [[ ${#targets[@]} -eq 0 ]]; then
  echo "usage: scripts/fuzz-campaign.sh TARGET... [--minutes N] [--runs N]" >&2
  exit 2
fi

build=${FD_BUILD_PREFIX:-build}-fuzz
jobs=${FD_FUZZ_JOBS:-1}
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}

CC=clang CXX=clang++ cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DFD_BUILD_TESTS=OFF -DFD_BUILD_BENCH=OFF -DFD_BUILD_FUZZ=ON >/dev/null &&
  cmake --build "$build" --target fuzz_targets >/dev/null || { echo "fuzz build failed" >&2; exit 1; }

if [[ ${targets[*]} == all ]]; then
  mapfile -t targets < <(find "$build/fuzz" -maxdepth 1 -type f -executable -printf '%f\n' | sort)
fi

logs=$build/campaign
mkdir -p "$logs"

# Runs one target, merges its finds into the kept corpus and writes one
# summary line to $logs/<target>.summary.
campaign() {
  local name=$1
  local fuzzer=$build/fuzz/$name
  [[ -x $fuzzer ]] || { echo "$name: no such fuzz target" >&2; return 1; }
  local kept=fuzz/corpus/$name regressions=fuzz/regressions/$name
  local work log
  work=$(mktemp -d)
  log=$logs/$name.log
  mkdir -p "$kept" "$regressions"
  local limit=(-max_total_time=$((minutes * 60)))
  [[ $runs -gt 0 ]] && limit+=(-runs="$runs")
  local before
  before=$(find "$regressions" -type f | wc -l)

  local seeds=("$kept")
  [[ -d fuzz/hostile/$name ]] && seeds+=("fuzz/hostile/$name")
  "$fuzzer" "${limit[@]}" -rss_limit_mb=2048 -malloc_limit_mb=64 -timeout=10 -print_final_stats=1 \
    ${FD_FUZZ_FLAGS:-} -artifact_prefix="$regressions/" "$work" "${seeds[@]}" >"$log" 2>&1
  local status=$?

  # Keep only what adds coverage: the old corpus first, then the new finds.
  local merged
  merged=$(mktemp -d)
  "$fuzzer" -merge=1 "$merged" "$kept" "$work" >>"$log" 2>&1 &&
    rm -rf "$kept" && mv "$merged" "$kept"
  rm -rf "$work" "$merged"

  local execs cov ft findings
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  cov=$(grep -o 'cov: [0-9]*' "$log" | tail -n 1 | cut -d' ' -f2)
  ft=$(grep -o 'ft: [0-9]*' "$log" | tail -n 1 | cut -d' ' -f2)
  findings=$(( $(find "$regressions" -type f | wc -l) - before ))
  printf '%-22s %12s execs  cov %6s  ft %7s  corpus %5s  findings %s%s\n' \
    "$name" "${execs:-?}" "${cov:-?}" "${ft:-?}" "$(find "$kept" -type f | wc -l)" "$findings" \
    "$([[ $status -ne 0 ]] && echo "  (stopped: see $log)")" >"$logs/$name.summary"
  cat "$logs/$name.summary"
}

running=0
for name in "${targets[@]}"; do
  campaign "$name" &
  running=$((running + 1))
  if [[ $running -ge $jobs ]]; then
    wait -n
    running=$((running - 1))
  fi
done
wait

echo
echo "=== campaign: at most ${minutes} min$([[ $runs -gt 0 ]] && echo " and $runs executions") per target"
status=0
for name in "${targets[@]}"; do
  cat "$logs/$name.summary" 2>/dev/null || status=1
  grep -q 'findings 0$' "$logs/$name.summary" 2>/dev/null || status=1
done
exit "$status"
