#!/usr/bin/env bash
# Builds billdata with its tests and runs them all.
#   run-tests.sh             the normal build (build/)
#   run-tests.sh --sanitize  again under AddressSanitizer + UndefinedBehaviorSanitizer (build-asan/)
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "${1:-}" = "--sanitize" ]; then
  bash scripts/build.sh build-asan -DBILLDATA_BUILD_TESTS=ON -DBILLDATA_SANITIZE=ON -DBILLDATA_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=Debug
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1
  ctest --test-dir build-asan --output-on-failure -j"$(nproc)"
else
  bash scripts/build.sh build -DBILLDATA_BUILD_TESTS=ON -DBILLDATA_BUILD_BENCH=ON -DBILLDATA_SANITIZE=OFF
  ctest --test-dir build --output-on-failure -j"$(nproc)"
fi
