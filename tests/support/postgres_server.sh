#!/usr/bin/env bash
# A PostgreSQL server for the user-directory tests, private to one test run: a cluster in a fresh
# temporary folder that listens on a Unix socket in that folder only (no TCP port).
#
#   postgres_server.sh start STATE_FILE   creates and starts it; writes the folder's path to STATE_FILE
#   postgres_server.sh stop STATE_FILE    stops it and removes the folder
#
# initdb refuses to run as root: as root the server runs as the `postgres` user.
set -euo pipefail

action=${1:?start or stop}
state=${2:?state file}

bin=${HALQVANTOR_PG_BIN:-$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V | tail -n 1)}
[ -x "$bin/pg_ctl" ] || { echo "PostgreSQL server binaries not found (install the postgresql package)" >&2; exit 1; }

# The server's tools run as another user, who may not be allowed into the build folder.
case "$state" in /*) ;; *) state="$PWD/$state" ;; esac
cd /tmp

as_owner() {
  if [ "$(id -u)" -eq 0 ]; then runuser -u postgres -- "$@"; else "$@"; fi
}

stop_server() {
  [ -f "$state" ] || return 0
  local dir
  dir=$(cat "$state")
  rm -f "$state"
  case "$dir" in /tmp/halqvantor-pg.*) ;; *) echo "unexpected state: $dir" >&2; return 1 ;; esac
  as_owner "$bin/pg_ctl" -D "$dir/data" -m immediate -w stop >/dev/null 2>&1 || true
  rm -rf "$dir"
}

case "$action" in
  start)
    # A run that was cut short left its server behind: stop it first.
    stop_server
    # Under /tmp, which the postgres user can always reach (a private TMPDIR may not be).
    dir=$(mktemp -d /tmp/halqvantor-pg.XXXXXX)
    [ "$(id -u)" -eq 0 ] && chown postgres: "$dir"
    if ! as_owner "$bin/initdb" -D "$dir/data" -U postgres -A trust -E UTF8 --locale=C -N >"$dir/initdb.log" 2>&1; then
      cat "$dir/initdb.log" >&2
      rm -rf "$dir"
      exit 1
    fi
    if ! as_owner "$bin/pg_ctl" -D "$dir/data" -l "$dir/server.log" -w -t 60 \
        -o "-k $dir -c listen_addresses='' -p 5432 -c fsync=off -c full_page_writes=off -c synchronous_commit=off" \
        start >/dev/null; then
      cat "$dir/server.log" >&2 || true
      rm -rf "$dir"
      exit 1
    fi
    echo "$dir" >"$state"
    ;;
  stop) stop_server ;;
  *)
    echo "usage: postgres_server.sh {start|stop} STATE_FILE" >&2
    exit 2
    ;;
esac
