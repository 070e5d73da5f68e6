#!/usr/bin/env bash
# cmake --install into a temporary prefix, then a handler module built against the installed
# headers with nothing but pkg-config's flags, loaded by the installed webharbour and answering
# over loopback. As root, webharbour runs as an unprivileged user (WH_TEST_USER, else nobody).
#
#   tests/host/install_test.sh <build dir> <module source> [extra compiler flags...]
set -euo pipefail
build="$1" source="$2"; shift 2
work="$(mktemp -d "${TMPDIR:-/tmp}/install_test.XXXXXX")"
pid=""
cleanup() {
  if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; then kill -TERM "$pid"; wait "$pid" || true; fi
  rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "install_test: $*" >&2; exit 1; }

prefix="$work/prefix"
cmake --install "$build" --prefix "$prefix" >"$work/install.log" || fail "cmake --install failed"
for f in bin/webharbour lib/libwebsession.so lib/libbsapi.so lib/pkgconfig/libwebsession.pc \
         include/websession/host/WhModule.h share/systemd/webharbour.service; do
  [ -e "$prefix/$f" ] || fail "$f was not installed"
done
grep -q "^ExecStart=$prefix/bin/webharbour\$" "$prefix/share/systemd/webharbour.service" ||
  fail "the unit does not name the prefix"
if readelf -d "$prefix/bin/webharbour" | grep -q "$build"; then fail "an installed program points into the build tree"; fi

export PKG_CONFIG_PATH="$prefix/lib/pkgconfig"
# shellcheck disable=SC2046
"${CXX:-c++}" -shared -fPIC "$@" -o "$prefix/lib/libhello.so" "$source" \
  $(pkg-config --cflags --libs libwebsession) || fail "the module does not build against the tree"

cat >>"$prefix/webharbour/middle.ini" <<'INI'
hello=libhello.so /x
INI
run=()
if [ "$(id -u)" = 0 ]; then
  user="${WH_TEST_USER:-nobody}"
  chmod 755 "$work"
  mkdir -p "$prefix/middle/log" "$prefix/middle/data" "$prefix/webharbour/hdoc/tmp"
  chown "$user" "$prefix/middle/log" "$prefix/middle/data" "$prefix/webharbour/hdoc/tmp"
  run=(setpriv --reuid="$user" --regid="$(id -g "$user")" --clear-groups)
fi
"${run[@]}" "$prefix/bin/webharbour" --port 0 >"$work/out" 2>"$work/err" & pid=$!
port=""
for _ in $(seq 100); do
  port="$(sed -n 's/^webharbour: listening on port \([0-9]*\).*/\1/p' "$work/out")"
  [ -n "$port" ] && break
  kill -0 "$pid" 2>/dev/null || break
  sleep 0.1
done
[ -n "$port" ] || fail "webharbour did not start: $(cat "$work/err")"
body="$(curl -s "http://127.0.0.1:$port/x/hello?name=tree")"
[ "$body" = "installed module: hello tree" ] || fail "the module answered \"$body\""
page="$(curl -s "http://127.0.0.1:$port/console/login.html")"
case "$page" in *"login-form"*) ;; *) fail "the installed pages are not served" ;; esac
kill -TERM "$pid"; wait "$pid" || fail "webharbour did not stop cleanly"
pid=""
echo "install_test: passed"
