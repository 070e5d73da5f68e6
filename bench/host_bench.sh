#!/usr/bin/env bash
# Requests per second through webharbour against a bare CivetWeb server answering the same bytes,
# over plain HTTP and over HTTPS.
#
#   bench/host_bench.sh [build-dir]        (default: build; run by hand, not in CI)
#   BEFORE=<tree> bench/host_bench.sh      also measures another webharbour (a tree holding
#                                          bin/webharbour and lib/, e.g. a copy of an older
#                                          build) in the same rounds, for a before/after figure
#
# webharbour serves /t/bench from the test handler module: the library's gate with a live
# session (Web_SessionInit with the session check) and the success envelope. bench-bin/
# bare_civetweb, from a tree of its own, serves the same module with the same worker threads and
# the smallest record the handler needs, and writes the answer with the head lines webharbour
# gave, the same way: the ratio is the cost of what webharbour adds around the handler. Every server is driven by wrk on loopback
# (2 threads, 32 connections) in alternating rounds - ROUNDS (2) rounds of WRK_SECONDS (5) s each
# per server - so that a change in the machine's load weighs on all alike; the rates are total
# requests over total time. The HTTPS round repeats this with a certificate made here (kept-alive
# connections: the handshakes are few). Prints the rates and ratios; the target is a ratio of at
# least 0.95. Exit status 0 whatever the ratios (1 only when something could not be run).
#
# webharbour refuses to run as root: run as root, the servers run as WH_TEST_USER (or nobody).
set -euo pipefail
cd "$(dirname "$0")/.."
build="${1:-build}"
threads="${WRK_THREADS:-2}" conns="${WRK_CONNS:-32}" seconds="${WRK_SECONDS:-5}"
rounds="${ROUNDS:-2}"

cmake --build "$build" --target webharbour wh_test_module bare_civetweb websession >/dev/null
build="$(cd "$build" && pwd)"
tmp="$(mktemp -d "${TMPDIR:-/tmp}/host_bench.XXXXXX")"
chmod 755 "$tmp"
pids=()
cleanup() {
  for p in "${pids[@]}"; do
    if kill -0 "$p" 2>/dev/null; then kill -TERM "$p"; wait "$p" || true; fi
  done
  rm -rf "$tmp"
}
trap cleanup EXIT
run=()
if [ "$(id -u)" = 0 ]; then
  user="${WH_TEST_USER:-nobody}"
  run=(setpriv --reuid="$user" --regid="$(id -g "$user")" --clear-groups)
fi

# A private installation tree: the binary and libraries copied (the library finds its tree from
# the binary), the staged configuration, the writable folders the serving user's.
make_tree() {  # <dir> <server binary> <lib dir...> ; then middle.ini lines on stdin
  local dir="$1" exe="$2"; shift 2
  mkdir -p "$dir"/{bin,lib,webharbour/hdoc/tmp,middle/Conf,middle/log,middle/data,middle/lang,tls}
  cp "$exe" "$dir/bin/"
  for d in "$@"; do cp "$d"/*.so "$dir/lib/"; done
  cp host/tree/middle/Conf/*.ini "$dir/middle/Conf/"
  cat >"$dir/webharbour/middle.ini"
  if [ ${#run[@]} -gt 0 ]; then chown -R "$user" "$dir/webharbour/hdoc/tmp" "$dir/middle"; fi
}

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

openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 -subj /CN=localhost \
  -keyout "$tmp/key.pem" -out "$tmp/cert.pem" 2>/dev/null
cat "$tmp/cert.pem" "$tmp/key.pem" >"$tmp/both.pem"
chmod 644 "$tmp"/*.pem

# Starts the server of a tree (webharbour, or bare_civetweb with its arguments); sets $port and
# $sid (a live session), and leaves its answer in $tmp/body and $tmp/head.
start_wh() {  # <tree> <scheme> [bare_civetweb arguments...]
  local dir="$1" scheme="$2" out="$1/wh.out"; shift 2
  if [ $# -gt 0 ]; then
    "${run[@]}" "$dir/bin/bare_civetweb" --port 0 --module "$dir/lib/libwh_test_module.so" "$@" \
      >"$out" 2>"$dir/wh.err" & pids+=($!)
    port="$(wait_port "$out" "bare_civetweb:")"
    sleep 1.5  # the library in it loads its sessions a second after start
  else
    "${run[@]}" "$dir/bin/webharbour" --port 0 >"$out" 2>"$dir/wh.err" & pids+=($!)
    port="$(wait_port "$out" "webharbour:")"
  fi
  set -- "$dir" "$scheme"
  # Sessions made before the library has loaded its own would be lost.
  for _ in $(seq 50); do grep -q "Session End InitData" "$out" && break; sleep 0.1; done
  sid="$(curl -sk -D - "$2://127.0.0.1:$port/t/login" | tr -d '\r' |
         sed -n 's/^Set-Cookie: qvsessionid=\([^;]*\).*/\1/p')"
  [ -n "$sid" ] || { echo "log-in gave no session" >&2; exit 1; }
  curl -sk -o "$tmp/body" -D "$tmp/head" -H "Cookie: qvsessionid=$sid" "$2://127.0.0.1:$port/t/bench"
  grep -q '"status" : "success"' "$tmp/body" || { echo "gate refused: $(cat "$tmp/body")" >&2; exit 1; }
}

# Runs the rounds over the servers "name url cookie" given; prints rates and ratios to the last.
measure() {  # <label> <name=url=cookie>...
  local label="$1"; shift
  declare -A n s
  for round in $(seq "$rounds"); do
    for entry in "$@"; do
      IFS='=' read -r name url cookie <<<"$entry"
      echo "== $label round $round: $name" >&2
      read -r k t < <(count "$url" "$cookie") && [ -n "$k" ] || exit 1
      n[$name]=$(( ${n[$name]:-0} + k )); s[$name]="$(awk -v a="${s[$name]:-0}" -v b="$t" 'BEGIN {print a + b}')"
    done
  done
  local ref="${*: -1}"; ref="${ref%%=*}"
  local refrate; refrate="$(awk -v n="${n[$ref]}" -v s="${s[$ref]}" 'BEGIN {printf "%.0f", n / s}')"
  echo
  for entry in "$@"; do
    name="${entry%%=*}"
    rate="$(awk -v n="${n[$name]}" -v s="${s[$name]}" 'BEGIN {printf "%.0f", n / s}')"
    ratio="$(awk -v a="$rate" -v b="$refrate" 'BEGIN {printf "%.3f", a / b}')"
    printf '%-8s %-22s %8s requests/s  ratio %s\n' "$label" "$name" "$rate" "$ratio"
  done
  echo
}

ini_plain=$'[main]\nListenPort=0\n[modules]\ntest=libwh_test_module.so /t\n'
make_tree "$tmp/now" "$build/tree/bin/webharbour" "$build/tree/lib" "$build/test-bin" <<<"$ini_plain"
start_wh "$tmp/now" http; now_port=$port now_sid=$sid
cp "$tmp/head" "$tmp/head.now"; cp "$tmp/body" "$tmp/body.now"
servers=("webharbour=http://127.0.0.1:$now_port/t/bench=Cookie: qvsessionid=$now_sid")
if [ -n "${BEFORE:-}" ]; then
  make_tree "$tmp/before" "$BEFORE/bin/webharbour" "$BEFORE/lib" <<<"$ini_plain"
  start_wh "$tmp/before" http
  servers+=("webharbour-before=http://127.0.0.1:$port/t/bench=Cookie: qvsessionid=$sid")
fi
# The bare server sends the same head lines as webharbour (all but the status line, Date,
# Content-Type, Content-Length and Connection, which it writes itself).
head_lines() {  # <head file> <out>
  tr -d '\r' <"$1" | sed -n '2,$p' |
    { grep -v -E '^(Date|Content-Type|Content-Length|Connection):|^$' || true; } >"$2"
}
cp "$tmp/head.now" "$tmp/head"; cp "$tmp/body.now" "$tmp/body"
head_lines "$tmp/head" "$tmp/head.lines"
type="$(tr -d '\r' <"$tmp/head" | sed -n 's/^Content-Type: //p')"
echo "webharbour answer ($(wc -c <"$tmp/body") bytes, $type, $(wc -l <"$tmp/head.lines") more head lines):"
cat "$tmp/body"
make_tree "$tmp/bare" "$build/bench-bin/bare_civetweb" "$build/tree/lib" "$build/test-bin" </dev/null
start_wh "$tmp/bare" http --head "$tmp/head.lines"
cmp -s "$tmp/body" "$tmp/body.now" || { echo "the bare server's body differs" >&2; exit 1; }
servers+=("bare-civetweb=http://127.0.0.1:$port/t/bench=Cookie: qvsessionid=$sid")
measure http "${servers[@]}"

# HTTPS: webharbour with [ssl] against bare CivetWeb with the same certificate.
make_tree "$tmp/tls" "$build/tree/bin/webharbour" "$build/tree/lib" "$build/test-bin" \
  <<<"$ini_plain"$'[ssl]\nCertificateFile='"$tmp/cert.pem"$'\nKeyFile='"$tmp/key.pem"$'\n'
start_wh "$tmp/tls" https
tls_server="webharbour=https://127.0.0.1:$port/t/bench=Cookie: qvsessionid=$sid"
head_lines "$tmp/head" "$tmp/head.tls"
make_tree "$tmp/bare-tls" "$build/bench-bin/bare_civetweb" "$build/tree/lib" "$build/test-bin" </dev/null
start_wh "$tmp/bare-tls" https --head "$tmp/head.tls" --tls "$tmp/both.pem" --glue "$tmp/bare-tls/lib"
measure https "$tls_server" "bare-civetweb=https://127.0.0.1:$port/t/bench=Cookie: qvsessionid=$sid"
