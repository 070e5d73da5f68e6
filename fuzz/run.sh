#!/usr/bin/env bash
# Fuzzes one target of fuzz/ from the address build, e.g. for an hour:
#
#   fuzz/run.sh url -max_total_time=3600
#
# usage: fuzz/run.sh <target> [libFuzzer flags...]
#   BUILD    build directory (default build-address, configured by scripts/test.sh --sanitize address)
#   WORK     scratch directory (default /tmp/ws-fuzz/<target>): work/corpus collects what the run
#            finds, crash-*, leak-* and timeout-* files land in work/
#
# The run starts from the checked-in corpus fuzz/corpus/<target>/ and never writes into it; to
# keep an input as a regression check, copy it there (see fuzz/README.md). It runs under nice,
# closes the target's standard output (the filter prints callback names) and trims the address
# sanitizer's bookkeeping that long runs do not need (allocation stacks of two frames, no fill of
# new memory). Anything found is rerun with full reports by running the target on the file.
set -euo pipefail
cd "$(dirname "$0")/.."

if (($# < 1)); then
  echo "usage: $0 <target> [libFuzzer flags...]" >&2
  exit 2
fi
target="$1"
shift
build="${BUILD:-build-address}"
bin="$build/fuzz-bin/fuzz_$target"
if [ ! -x "$bin" ]; then
  echo "$bin not built: run scripts/test.sh --sanitize address (or build fuzz_$target there)" >&2
  exit 2
fi
bin="$(realpath "$bin")"
seeds="$(realpath "fuzz/corpus/$target")"
work="${WORK:-/tmp/ws-fuzz/$target}"
mkdir -p "$work/corpus"

export ASAN_OPTIONS="${ASAN_OPTIONS:-malloc_context_size=2:max_malloc_fill_size=0:quarantine_size_mb=16:detect_leaks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
cd "$work"
exec nice -n 19 "$bin" -close_fd_mask=1 -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
  "$@" corpus "$seeds"
