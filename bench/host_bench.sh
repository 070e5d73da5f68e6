#!/usr/bin/env bash
# Requests per second through webharbour against a bare CivetWeb server answering the same bytes.
#
#   bench/host_bench.sh [build-dir]        (default: build; run by hand, not in CI)
#
# webharbour serves /t/bench from the test handler module: the library's gate with a live
# session (Web_SessionInit with the session check) and the success envelope. bench-bin/bare_civetweb
# answers every request with the body webharbour gave, written the same way. Both are driven by
# wrk on loopback (2 threads, 32 connections, 10 s each; override with WRK_THREADS, WRK_CONNS,
# WRK_SECONDS). Prints both rates and their ratio; the target is a ratio of at least 0.75. The
# exit status is 0 whatever the ratio (1 only when something could not be run).
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build}"
threads="${WRK_THREADS:-2}" conns="${WRK_CONNS:-32}" seconds="${WRK_SECONDS:-10}"

cmake --build "$build" --target webharbour wh_test_module bare_civetweb websession >/dev/null
build="$(cd "$build" && pwd)"
tmp="$(mktemp -d "${TMPDIR:-/tmp}/host_bench.XXXXXX")"
pid=""
cleanup() {
  if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; then kill -TERM "$pid"; wait "$pid" || true; fi
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

rate() {  # <url> [header] -> requests per second
  local out
  out="$(wrk -t"$threads" -c"$conns" -d"${seconds}s" ${2:+-H "$2"} "$1")"
  echo "$out" >&2
  if echo "$out" | grep -q "Non-2xx"; then echo "non-2xx answers during the run" >&2; return 1; fi
  echo "$out" | awk '/^Requests\/sec:/ {print $2}'
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

echo "== webharbour: gate with a live session and the success envelope"
wh_rate="$(rate "http://127.0.0.1:$port/t/bench" "$cookie")"
kill -TERM "$pid"; wait "$pid" || true; pid=""

"$build/bench-bin/bare_civetweb" --port 0 --body "$tmp/body" --type "$type" >"$tmp/bare.out" & pid=$!
bport="$(wait_port "$tmp/bare.out" "bare_civetweb:")"
curl -s -o "$tmp/bare.body" "http://127.0.0.1:$bport/t/bench"
cmp -s "$tmp/body" "$tmp/bare.body" || { echo "the bare server's body differs" >&2; exit 1; }
echo "== bare CivetWeb: the same bytes from a fixed buffer"
bare_rate="$(rate "http://127.0.0.1:$bport/t/bench" "$cookie")"
kill -TERM "$pid"; wait "$pid" || true; pid=""

ratio="$(awk -v a="$wh_rate" -v b="$bare_rate" 'BEGIN {printf "%.3f", a / b}')"
verdict="$(awk -v r="$ratio" 'BEGIN {print (r >= 0.75) ? "meets" : "misses"}')"
echo
echo "webharbour:     $wh_rate requests/s"
echo "bare CivetWeb:  $bare_rate requests/s"
echo "ratio:          $ratio ($verdict the target of 0.75)"
