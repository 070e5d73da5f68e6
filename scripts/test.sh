#!/usr/bin/env bash
# Sets up the machine, builds and runs every test.
#
#   scripts/test.sh                     plain build: every test, then the thread-sanitizer run of
#                                       the tests labelled "threads"
#   scripts/test.sh --sanitize address  address + undefined-behaviour sanitizers (clang): every
#                                       test, and the fuzz targets' corpora replayed (fuzz/)
#   scripts/test.sh --sanitize thread   thread sanitizer: the tests labelled "threads"
#
# Build trees: build/ (plain), build-address/, build-thread/. Set JOBS to change parallelism.
set -euo pipefail
cd "$(dirname "$0")/.."

sanitize=""
while (($#)); do
  case "$1" in
    --sanitize) sanitize="$2"; shift 2 ;;
    *) echo "usage: $0 [--sanitize address|thread]" >&2; exit 2 ;;
  esac
done

scripts/setup.sh
jobs="${JOBS:-$(nproc)}"

run_suite() {  # <sanitizer> <build dir> [ctest args...]
  local san="$1" dir="$2"; shift 2
  local cc=() bench=ON fuzz=OFF
  # The sanitizer builds use clang; the address build also builds the fuzz targets (libFuzzer
  # is clang's) and replays their corpora as tests.
  if [ -n "$san" ]; then
    cc=(-DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++)
    bench=OFF
  fi
  if [ "$san" = address ]; then fuzz=ON; fi
  cmake -S . -B "$dir" -G Ninja -DWS_SANITIZE="$san" -DWS_BUILD_BENCH="$bench" \
    -DWS_BUILD_FUZZ="$fuzz" "${cc[@]}" >/dev/null
  cmake --build "$dir" -j "$jobs"
  local env=()
  if [ "$san" = address ]; then
    env=(ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1)
  elif [ "$san" = thread ]; then
    env=(TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1)
  fi
  (cd "$dir" && env "${env[@]}" ctest --output-on-failure -j "$jobs" "$@")
}

case "$sanitize" in
  "")
    run_suite "" build
    run_suite thread build-thread -L threads
    ;;
  address) run_suite address build-address ;;
  thread) run_suite thread build-thread -L threads ;;
  *) echo "unknown sanitizer: $sanitize" >&2; exit 2 ;;
esac
