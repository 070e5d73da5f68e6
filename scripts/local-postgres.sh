#!/usr/bin/env bash
# A local PostgreSQL for development, kept under the build folder (<build>/postgres): its data
# directory, its Unix socket and its log. Nothing listens on TCP.
#
#   scripts/local-postgres.sh start [BUILD_DIR]   create the cluster once, start the server when it
#                                                  is not running, and print the lines
#                                                    export BSAPI_ENGINE=postgres
#                                                    export BSAPI_PG_DSN='host=... port=...'
#                                                  for eval "$(scripts/local-postgres.sh start)"
#   scripts/local-postgres.sh stop [BUILD_DIR]
#
# BUILD_DIR defaults to $BUILD_DIR, else build. PG_PORT (default 55432) names the socket; PG_BIN
# the server's programs (default /usr/lib/postgresql/15/bin). The server refuses to run as root:
# as root it runs as Debian's `postgres` user, which then owns <build>/postgres.
set -euo pipefail
cd "$(dirname "$0")/.."

cmd="${1:-}"
build="${2:-${BUILD_DIR:-build}}"
bin="${PG_BIN:-/usr/lib/postgresql/15/bin}"
port="${PG_PORT:-55432}"
mkdir -p "$build"
dir="$(cd "$build" && pwd)/postgres"

as_server() {
  if [ "$(id -u)" = 0 ]; then
    runuser -u postgres -- "$@"
  else
    "$@"
  fi
}
user="$(if [ "$(id -u)" = 0 ]; then echo postgres; else id -un; fi)"

case "$cmd" in
  start)
    if [ ! -f "$dir/data/PG_VERSION" ]; then
      mkdir -p "$dir"
      chmod 755 "$dir"
      if [ "$(id -u)" = 0 ]; then chown postgres: "$dir"; fi
      as_server "$bin/initdb" -D "$dir/data" -A trust -U "$user" -E UTF8 --locale=C >"$dir/initdb.log" 2>&1 ||
        { echo "local-postgres: initdb failed, see $dir/initdb.log" >&2; exit 1; }
    fi
    if ! as_server "$bin/pg_ctl" -D "$dir/data" status >/dev/null 2>&1; then
      as_server "$bin/pg_ctl" -D "$dir/data" -l "$dir/server.log" -w -t 60 \
        -o "-k $dir -p $port -c listen_addresses= -c shared_buffers=32MB" start >/dev/null ||
        { echo "local-postgres: the server did not start, see $dir/server.log" >&2; exit 1; }
    fi
    echo "export BSAPI_ENGINE=postgres"
    echo "export BSAPI_PG_DSN='host=$dir port=$port dbname=postgres user=$user'"
    ;;
  stop)
    if [ -f "$dir/data/PG_VERSION" ]; then
      as_server "$bin/pg_ctl" -D "$dir/data" -m fast -w stop >/dev/null 2>&1 || true
    fi
    ;;
  *)
    echo "usage: $0 start|stop [BUILD_DIR]" >&2
    exit 2
    ;;
esac
