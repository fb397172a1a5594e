#!/usr/bin/env bash
# The whole test run, as CI does it:
#   build/       gcc, every test (unit, integration, interop)
#   build-asan/  clang, AddressSanitizer + UndefinedBehaviorSanitizer: unit and integration
#   build-tsan/  clang, ThreadSanitizer: the threaded tests and a 2-minute soak
#   build-fuzz/  clang, libFuzzer: every fuzz target for a short run
#   build-windows/  mingw-w64 cross build, its tests under Wine
# Every stage runs even when an earlier one failed; the last line sums up and
# the exit status is non-zero when anything failed. Arguments pick stages by
# their first word (gcc, asan+ubsan, tsan, fuzz, windows); none runs them all.
# A test that hangs fails after 10 minutes (5 under Wine), not ctest's 25.
set -uo pipefail
cd "$(dirname "$0")/.."

# FD_BUILD_PREFIX names the build folders (default build, build-asan, ...).
out=${FD_BUILD_PREFIX:-build}
jobs=${FD_JOBS:-$(nproc)}
fuzz_seconds=${FD_FUZZ_SECONDS:-15}
export ASAN_OPTIONS=${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}
export UBSAN_OPTIONS=${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}
export TSAN_OPTIONS=${TSAN_OPTIONS:-halt_on_error=1:second_deadlock_stack=1}

passed=()
failed=()

wanted=("$@")

stage() {
  local name=$1
  shift
  if [[ $name != dependencies && ${#wanted[@]} -gt 0 && " ${wanted[*]} " != *" ${name%% *} "* ]]; then
    return 0
  fi
  echo
  echo "=============== $name"
  local started=$SECONDS
  if "$@"; then
    passed+=("$name")
    echo "=============== $name: passed ($((SECONDS - started)) s)"
  else
    failed+=("$name")
    echo "=============== $name: FAILED ($((SECONDS - started)) s)"
  fi
}

configure() {
  local dir=$1 cc=$2 cxx=$3
  shift 3
  CC=$cc CXX=$cxx cmake -S . -B "$dir" -G Ninja "$@"
}

gcc_stage() {
  configure "$out" gcc g++ -DCMAKE_BUILD_TYPE=Release -DFD_BUILD_TESTS=ON -DFD_BUILD_BENCH=ON &&
    cmake --build "$out" -j "$jobs" &&
    ctest --test-dir "$out" --output-on-failure --timeout 600 -j2 --no-tests=error
}

asan_stage() {
  configure "$out-asan" clang clang++ -DCMAKE_BUILD_TYPE=Debug -DFD_BUILD_TESTS=ON \
    -DFD_BUILD_BENCH=OFF -DFD_SANITIZE=address,undefined &&
    cmake --build "$out-asan" -j "$jobs" &&
    ctest --test-dir "$out-asan" --output-on-failure --timeout 600 -j2 -L 'unit|integration' --no-tests=ignore
}

# The threaded tests, then the 2-minute soak: 8 decoders under TSan.
tsan_stage() {
  configure "$out-tsan" clang clang++ -DCMAKE_BUILD_TYPE=Debug -DFD_BUILD_TESTS=ON \
    -DFD_BUILD_BENCH=OFF -DFD_SANITIZE=thread -DFD_SOAK_TESTS=ON &&
    cmake --build "$out-tsan" -j "$jobs" &&
    ctest --test-dir "$out-tsan" --output-on-failure --timeout 600 -j2 -L threaded --no-tests=ignore &&
    ctest --test-dir "$out-tsan" --output-on-failure --timeout 600 -L soak --no-tests=error
}

run_fuzzer() {
  local fuzzer=$1
  local name corpus
  name=$(basename "$fuzzer")
  corpus=$(mktemp -d)
  local seeds=()
  [[ -d fuzz/corpus/$name ]] && seeds+=("fuzz/corpus/$name")
  [[ -d fuzz/hostile/$name ]] && seeds+=("fuzz/hostile/$name")
  # Every input a long campaign ever crashed on runs once before the fuzzing.
  local regressions=()
  [[ -d fuzz/regressions/$name ]] && mapfile -t regressions < <(find "fuzz/regressions/$name" -type f)
  if [[ ${#regressions[@]} -gt 0 ]]; then
    echo "--- $name: ${#regressions[@]} regression inputs"
    "$fuzzer" -rss_limit_mb=2048 "${regressions[@]}" >/dev/null 2>&1 ||
      { "$fuzzer" -rss_limit_mb=2048 "${regressions[@]}" 2>&1 | tail -n 30; rm -rf "$corpus"; return 1; }
  fi
  echo "--- $name (${fuzz_seconds} s)"
  mkdir -p "$out-fuzz/artifacts"
  "$fuzzer" -max_total_time="$fuzz_seconds" -rss_limit_mb=2048 -malloc_limit_mb=64 -print_final_stats=1 \
    -artifact_prefix="$out-fuzz/artifacts/" "$corpus" "${seeds[@]}" 2>&1 | tail -n 15
  local status=${PIPESTATUS[0]}
  rm -rf "$corpus"
  return "$status"
}

fuzz_stage() {
  if [[ ! -f fuzz/CMakeLists.txt ]]; then
    echo "no fuzz targets yet: skipped"
    return 0
  fi
  # Only the fuzz targets are built here; fuzz/CMakeLists.txt instruments the
  # libraries they link.
  configure "$out-fuzz" clang clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFD_BUILD_TESTS=OFF \
    -DFD_BUILD_BENCH=OFF -DFD_BUILD_FUZZ=ON &&
    cmake --build "$out-fuzz" -j "$jobs" --target fuzz_targets || return 1
  local fuzzers=()
  mapfile -t fuzzers < <(find "$out-fuzz/fuzz" -maxdepth 1 -type f -executable 2>/dev/null | sort)
  if [[ ${#fuzzers[@]} -eq 0 ]]; then
    echo "no fuzz targets yet: skipped"
    return 0
  fi
  local status=0
  for fuzzer in "${fuzzers[@]}"; do
    run_fuzzer "$fuzzer" || status=1
  done
  return "$status"
}

# The Windows build: the DLL, fdhost.exe and the portable tests, run under
# Wine in a prefix inside the build folder. One wineserver serves the whole
# run, so Wine starts once; its services are started before ctest, whose
# output pipes they would otherwise hold open.
windows_stage() {
  bash scripts/setup-deps.sh windows || return 1
  local dir="$out-windows"
  cmake -S . -B "$dir" -G Ninja -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-mingw64.cmake \
    -DCMAKE_BUILD_TYPE=Release -DFD_BUILD_TESTS=ON -DFD_BUILD_BENCH=OFF &&
    cmake --build "$dir" -j "$jobs" || return 1
  (
    export WINEPREFIX="$PWD/$dir/wineprefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
    # Wine's ANSI code page follows the locale: C maps to Windows-1252, as on
    # Linux; UTF-8 lets Wine name files beyond ASCII (C.UTF-8 always exists).
    export LANG=C.UTF-8
    unset LC_ALL
    wineserver -p
    wine cmd /c exit </dev/null >/dev/null 2>&1
    # A worker left behind by a test that timed out keeps ctest's output pipe
    # open under Wine, so ctest itself gets a limit too.
    timeout 600 ctest --test-dir "$dir" --output-on-failure --timeout 300 -j2 --no-tests=error
    status=$?
    wineserver -k
    exit "$status"
  )
}

stage "dependencies" bash scripts/setup-deps.sh
if [[ ${#failed[@]} -ne 0 ]]; then
  echo "test.sh: FAILED: the tools could not be installed"
  exit 1
fi
stage "gcc build and all tests" gcc_stage
stage "asan+ubsan unit and integration" asan_stage
stage "tsan threaded" tsan_stage
stage "fuzz" fuzz_stage
stage "windows build, tests under wine" windows_stage

echo
if [[ ${#failed[@]} -eq 0 ]]; then
  echo "test.sh: PASSED: all ${#passed[@]} stages in $SECONDS s"
  exit 0
fi
list=$(printf '%s, ' "${failed[@]}")
echo "test.sh: FAILED: ${list%, } (${#failed[@]} of $(( ${#passed[@]} + ${#failed[@]} )) stages) in $SECONDS s"
exit 1
