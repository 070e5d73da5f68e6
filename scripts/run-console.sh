#!/usr/bin/env bash
# Sets up the machine, builds into build/, seeds a demo database on the embedded engine when it
# is empty, and runs webharbour in the foreground serving the console at
# http://127.0.0.1:8121/ (stop it with Ctrl-C).
#
# webharbour never runs as root. Run by an ordinary user, the script serves the build's tree
# (build/tree) as that user. Run as root, it installs the build into CONSOLE_PREFIX (default
# /var/lib/webharbour-console; the build tree may lie where other users cannot reach, e.g. below
# /root) and serves it as the dedicated user CONSOLE_USER (default webharbour, created when
# missing), who owns the folders webharbour writes; the demo data lives in that tree.
#
# Environment: JOBS (build parallelism, default nproc); BUILD_DIR (default build); CONSOLE_PORT
# (default: ListenPort of the tree's webharbour/middle.ini, 8121); CONSOLE_DEMO_PASSWORD (the demo
# administrator's password, default below; used only when the demo user is first created);
# CONSOLE_USER and CONSOLE_PREFIX (root only, see above).
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
build="${BUILD_DIR:-build}"
cmake -S . -B "$build" -G Ninja >/dev/null
cmake --build "$build" -j "${JOBS:-$(nproc)}" --target webharbour bsctl console

tree="$(cd "$build" && pwd)/tree"
as_user=()
if [ "$(id -u)" = 0 ]; then
  user="${CONSOLE_USER:-webharbour}"
  if ! getent passwd "$user" >/dev/null; then
    useradd --system --user-group --home-dir /nonexistent --no-create-home \
      --shell /usr/sbin/nologin "$user"
    echo "run-console: created the user '$user' to serve the console"
  fi
  tree="${CONSOLE_PREFIX:-/var/lib/webharbour-console}"
  cmake --install "$build" --prefix "$tree" >/dev/null
  chmod 755 "$tree"
  mkdir -p "$tree/webharbour/hdoc/tmp" "$tree/middle/log" "$tree/middle/data"
  chown -R "$user:" "$tree/webharbour/hdoc/tmp" "$tree/middle/log" "$tree/middle/data"
  chmod 700 "$tree/webharbour/hdoc/tmp"
  chmod 750 "$tree/middle/log" "$tree/middle/data"
  as_user=(setpriv --reuid="$user" --regid="$(id -g "$user")" --init-groups)
  echo "run-console: serving $tree as user '$user'"
fi
# Every program of the tree runs as the serving user, so the files it makes are that user's.
run() { "${as_user[@]}" "$tree/bin/$@"; }
bsctl() { run bsctl "$@" 2>/dev/null; }
# A seeding step: quiet when it works, its own words and a stop when it does not.
seed() {
  local out
  if ! out="$(run "$@" 2>&1)"; then
    echo "run-console: seeding failed: $*" >&2
    echo "$out" >&2
    exit 1
  fi
}
password="${CONSOLE_DEMO_PASSWORD:-harbour-demo-8121}"

# Each part of the demo is seeded only while it is missing, so data entered through the console
# survives a restart and nothing is seeded twice.
if [ -z "$(bsctl code list)" ]; then
  # The library loads the codes at start-up and hands them out at random, one per log-in form.
  seed bsctl code seed 3kx7 m9qa 7fh2 pw4d x8ne c2rv t6bz 5jmu h4yc q7sg
  echo "run-console: seeded 10 verification codes"
fi
if [ -z "$(bsctl company list)" ]; then
  seed bsctl company add demo qv_companytype:int32=1 region=east contact=ops@demo.example
  seed bsctl ccu add demo ccu-01 --label "demo rack 1" --connectstat 1 --useddev 12 --usedmon 30
  echo "run-console: seeded the company 'demo' with the CCU 'ccu-01'"
fi
if ! bsctl login show admin >/dev/null; then
  seed bsctl login add admin demo
  echo "run-console: seeded the login name 'admin' of company 'demo'"
fi
demo_password_set=0
if ! run consoleuser check admin "$password" >/dev/null 2>&1; then
  if [ -z "$(bsctl tree show saas consoleuser admin)" ]; then
    seed consoleuser set admin "$password"
    demo_password_set=1
  fi
fi

port="${CONSOLE_PORT:-$(sed -n 's/^ListenPort=\([0-9]*\).*/\1/p' "$tree/webharbour/middle.ini" | head -1)}"
port="${port:-8121}"
echo
echo "  Console:   http://127.0.0.1:$port/"
if [ "$demo_password_set" = 1 ] || run consoleuser check admin "$password" >/dev/null 2>&1; then
  echo "  Log in as: admin / $password"
else
  echo "  Log in as: admin (its password was changed from the demo one)"
fi
echo "  Events:    ${as_user[*]:+${as_user[*]} }$tree/bin/eventgen --message 'disk almost full' --severity critical"
echo "  Stop:      Ctrl-C"
echo
exec "${as_user[@]}" "$tree/bin/webharbour" --port "$port"
