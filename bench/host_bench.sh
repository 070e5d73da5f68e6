#!/usr/bin/env bash
# Requests per second through webharbour against a bare CivetWeb server answering the same bytes.
#
#   bench/host_bench.sh [build-dir]        (default: build; run by hand, not in CI)
#
# webharbour serves /t/bench from the test handler module: the library's gate with a live
# session (Web_SessionInit with the session check) and the success envelope. bench-bin/bare_civetweb
# answers every request with the body webharbour gave, written the same way. Both are driven by
# wrk on loopback (2 threads, 32 connections) in alternating rounds - ROUNDS (2) rounds of
# WRK_SECONDS (5) s each, so 10 s per server - so that a change in the machine's load during the
# run weighs on both alike; the rates are total requests over total time. Prints both rates and
# their ratio; the target is a ratio of at least 0.75. The exit status is 0 whatever the ratio
# (1 only when something could not be run).
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build}"
threads="${WRK_THREADS:-2}" conns="${WRK_CONNS:-32}" seconds="${WRK_SECONDS:-5}"
rounds="${ROUNDS:-2}"

cmake --build "$build" --target webharbour wh_test_module bare_civetweb websession >/dev/null
build="$(cd "$build" && pwd)"
tmp="$(mktemp -d "${TMPDIR:-/tmp}/host_bench.XXXXXX")"
pid="" bpid=""
cleanup() {
  for p in $pid $bpid; do
    if kill -0 "$p" 2>/dev/null; then kill -TERM "$p"; wait "$p" || true; fi
  done
  rm -rf "$tmp"
}
trap cleanup EXIT

# A private installation tree: the binary copied (the library finds its tree from it), links to
# the libraries, the staged configuration.
mkdir -p "$tmp"/{bin,lib,webharbour/hdoc/tmp,middle/Conf,middle/log,middle/data,middle/lang}
cp "$build/tree/bin/webharbour" "$tmp/bin/"
for so in "$build"/tree/lib/*.so "$build/test-bin/libwh_test_module.so"; do ln -s "$so" "$tmp/lib/"; done
cp host/tree/middle/Conf/*.ini "$tmp/middle/Conf/"
printf '[main]\nListenPort=0\n[modules]\ntest=libwh_test_module.so /t\n' >"$tmp/webharbour/middle.ini"

wait_port() {  # <stdout file> <prefix> -> port
  for _ in $(seq 100); do
    if grep -q "$2 listening on port" "$1" 2>/dev/null; then
      grep -o "listening on port [0-9]*" "$1" | awk '{print $4}'; return 0
    fi
    sleep 0.1
  done
  echo "no listening line in $1" >&2; return 1
}

count() {  # <url> [header] -> "requests seconds" of one wrk run
  local out
  out="$(wrk -t"$threads" -c"$conns" -d"${seconds}s" ${2:+-H "$2"} "$1")"
  echo "$out" | grep -E "Latency|Requests/sec" >&2
  if echo "$out" | grep -q "Non-2xx"; then echo "non-2xx answers during the run" >&2; return 1; fi
  echo "$out" | awk '/requests in/ {sub(/s,$/, "", $4); print $1, $4}'
}

"$tmp/bin/webharbour" --port 0 >"$tmp/wh.out" 2>"$tmp/wh.err" & pid=$!
port="$(wait_port "$tmp/wh.out" "webharbour:")"
sid="$(curl -s -D - "http://127.0.0.1:$port/t/login" | tr -d '\r' |
       sed -n 's/^Set-Cookie: qvsessionid=\([^;]*\).*/\1/p')"
[ -n "$sid" ] || { echo "log-in gave no session" >&2; exit 1; }
cookie="Cookie: qvsessionid=$sid"
# The first gate call waits until the library has loaded its sessions.
curl -s -o "$tmp/body" -D "$tmp/head" -H "$cookie" "http://127.0.0.1:$port/t/bench"
grep -q '"status" : "success"' "$tmp/body" || { echo "gate refused: $(cat "$tmp/body")" >&2; exit 1; }
type="$(tr -d '\r' <"$tmp/head" | sed -n 's/^Content-Type: //p')"
echo "webharbour answer ($(wc -c <"$tmp/body") bytes, $type):"; cat "$tmp/body"

"$build/bench-bin/bare_civetweb" --port 0 --body "$tmp/body" --type "$type" >"$tmp/bare.out" & bpid=$!
bport="$(wait_port "$tmp/bare.out" "bare_civetweb:")"
curl -s -o "$tmp/bare.body" "http://127.0.0.1:$bport/t/bench"
cmp -s "$tmp/body" "$tmp/bare.body" || { echo "the bare server's body differs" >&2; exit 1; }

wh_n=0 wh_s=0 bare_n=0 bare_s=0
for round in $(seq "$rounds"); do
  echo "== round $round: webharbour, gate with a live session and the success envelope" >&2
  read -r n t < <(count "http://127.0.0.1:$port/t/bench" "$cookie") && [ -n "$n" ] || exit 1
  wh_n=$((wh_n + n)); wh_s="$(awk -v a="$wh_s" -v b="$t" 'BEGIN {print a + b}')"
  echo "== round $round: bare CivetWeb, the same bytes from a fixed buffer" >&2
  read -r n t < <(count "http://127.0.0.1:$bport/t/bench" "$cookie") && [ -n "$n" ] || exit 1
  bare_n=$((bare_n + n)); bare_s="$(awk -v a="$bare_s" -v b="$t" 'BEGIN {print a + b}')"
done

wh_rate="$(awk -v n="$wh_n" -v s="$wh_s" 'BEGIN {printf "%.0f", n / s}')"
bare_rate="$(awk -v n="$bare_n" -v s="$bare_s" 'BEGIN {printf "%.0f", n / s}')"
ratio="$(awk -v a="$wh_rate" -v b="$bare_rate" 'BEGIN {printf "%.3f", a / b}')"
verdict="$(awk -v r="$ratio" 'BEGIN {print (r >= 0.75) ? "meets" : "misses"}')"
echo
echo "webharbour:     $wh_rate requests/s ($wh_n in ${wh_s} s)"
echo "bare CivetWeb:  $bare_rate requests/s ($bare_n in ${bare_s} s)"
echo "ratio:          $ratio ($verdict the target of 0.75)"
