#!/usr/bin/env bash
# Builds the benchmarks optimised (-O2: GCC 12 at -O3 reports a false -Wrestrict in
# std::string code) and runs them all, each printing its table.
# BENCH_SCALE=0.05 bash scripts/run-bench.sh makes the data sets smaller for a quick try.
set -euo pipefail
cd "$(dirname "$0")/.."
bash scripts/build.sh build-bench -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBILLDATA_BUILD_TESTS=OFF -DBILLDATA_BUILD_BENCH=ON
for b in build-bench/bench/bench_*; do
  [ -x "$b" ] || continue
  echo "== $(basename "$b")"
  case "$(basename "$b")" in
    bench_speed) "$b" ;;  # a plain program: medians of its own runs, one table
    *) "$b" --benchmark_repetitions=5 --benchmark_report_aggregates_only=true "$@" ;;
  esac
done
