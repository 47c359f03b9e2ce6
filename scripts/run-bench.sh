#!/usr/bin/env bash
# Builds the benchmarks in release mode and runs them all, each printing its table.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh build-bench -DCMAKE_BUILD_TYPE=Release -DBILLDATA_BUILD_TESTS=OFF -DBILLDATA_BUILD_BENCH=ON
for b in build-bench/bench/bench_*; do
  [ -x "$b" ] || continue
  echo "== $(basename "$b")"
  "$b" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true "$@"
done
