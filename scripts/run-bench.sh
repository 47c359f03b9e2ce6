#!/usr/bin/env bash
# Builds the benchmarks optimised (Release, -O3) into build-bench/ and runs them all; each prints
# rows of one table, every comparison measured side by side in the same run as medians of
# several runs. Data sets that take long to make are kept in build-bench/bench-data/.
# BENCH_SCALE=0.05 bash scripts/run-bench.sh shrinks the data and the runs for a quick try.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh build-bench -DCMAKE_BUILD_TYPE=Release -DBILLDATA_BUILD_TESTS=OFF \
  -DBILLDATA_BUILD_BENCH=ON >&2
rows=$(mktemp)
trap 'rm -f "$rows"' EXIT
for b in bench_translate bench_speed bench_pos_save bench_cli bench_cacusptjd; do
  echo "== $b" >&2
  "build-bench/bench/$b" | tee -a "$rows" >&2
done
# The server engine on a throw-away server of its own, with the server's default durability.
echo "== bench_postgresql" >&2
BILLDATA_PG_DURABLE=1 bash scripts/with-postgres.sh build-bench/bench/bench_postgresql |
  tee -a "$rows" >&2
cpu=$(sed -n 's/^model name[[:space:]]*: //p' /proc/cpuinfo | head -1)
echo
sqlite=$(grep -m1 '#define SQLITE_VERSION ' /usr/include/sqlite3.h | cut -d'"' -f2)
mem=$(awk '/MemTotal/ {printf "%.0f GB", $2/1048576}' /proc/meminfo)
pg=$(ls -d /usr/lib/postgresql/*/bin 2>/dev/null | sort -V | tail -n1)
pg=$("$pg/postgres" --version 2>/dev/null | awk '{print $3}')
echo "Machine: $(nproc) cores, ${cpu:-unknown CPU}, $mem memory, Debian $(cat /etc/debian_version), SQLite $sqlite, PostgreSQL ${pg:-?}"
echo
echo "| measurement | billdata | reference | ratio | target |"
echo "|---|---|---|---|---|"
cat "$rows"
