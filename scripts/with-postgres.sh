#!/usr/bin/env bash
# Runs a command with a PostgreSQL server of its own: a new cluster in a temporary directory,
# listening only on a Unix socket in that directory, stopped and removed whatever the command's
# outcome. The command finds the server in BILLDATA_TEST_POSTGRES (a connection string to its
# maintenance database; tests create their own databases beside it).
#   with-postgres.sh <command> [args…]
# BILLDATA_PG_DURABLE=1: the server's default durability instead of fsync off (see below).
# As root the cluster runs as the unprivileged user `nobody` (the server refuses to run as root).
set -euo pipefail
bin=${BILLDATA_PG_BIN:-$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V | tail -n1)}
if [ -z "$bin" ] || [ ! -x "$bin/initdb" ]; then
  echo "with-postgres: PostgreSQL server programs not found (install the postgresql package)" >&2
  exit 2
fi
port=${BILLDATA_PG_PORT:-5439}
dir=$(mktemp -d /tmp/billdata-pg.XXXXXX)
as_server=()
if [ "$(id -u)" = 0 ]; then
  chown nobody "$dir"
  chmod 700 "$dir"
  as_server=(runuser -u nobody --)
fi
stop() {
  "${as_server[@]}" "$bin/pg_ctl" -D "$dir/data" -m immediate -w stop >/dev/null 2>&1 || true
  rm -rf "$dir"
}
trap stop EXIT
trap 'exit 130' INT TERM
"${as_server[@]}" "$bin/initdb" -D "$dir/data" -A trust -U postgres -E UTF8 --locale=C.UTF-8 \
  >"$dir/initdb.log" 2>&1 || { cat "$dir/initdb.log" >&2; exit 2; }
# Many test programs run at once, each with its own databases: room for their connections; no
# durability needed for a throw-away cluster. BILLDATA_PG_DURABLE=1 keeps the server's default
# durability (fsync, synchronous commit, full page writes), for measurements that a shop's
# server would see.
durability="-c fsync=off -c synchronous_commit=off -c full_page_writes=off"
if [ "${BILLDATA_PG_DURABLE:-0}" = 1 ]; then
  durability=""
fi
"${as_server[@]}" "$bin/pg_ctl" -D "$dir/data" -l "$dir/server.log" -w -t 60 \
  -o "-k $dir -p $port -c listen_addresses='' -c max_connections=300 $durability" \
  start >/dev/null || { cat "$dir/server.log" >&2; exit 2; }
export BILLDATA_TEST_POSTGRES="Provider=PostgreSQL;Host=$dir;Port=$port;Database=postgres;User ID=postgres"
export BILLDATA_PG_DIR="$dir" BILLDATA_PG_BIN="$bin"
set +e
"$@"
status=$?
set -e
exit $status
