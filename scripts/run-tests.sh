#!/usr/bin/env bash
# Builds billdata with its tests and runs them all, on the embedded engine and on a PostgreSQL
# server of their own (scripts/with-postgres.sh: a throw-away cluster, stopped whatever happens),
# natively and through ODBC (the odbc.-prefixed cases).
#   run-tests.sh             the normal build (build/)
#   run-tests.sh --sanitize  again under AddressSanitizer + UndefinedBehaviorSanitizer (build-asan/)
# To run the server cases against a server of your own instead, set BILLDATA_TEST_POSTGRES to a
# connection string of a role that may create databases, and run ctest yourself.
set -euo pipefail
cd "$(dirname "$0")/.."
if [ "${1:-}" = "--sanitize" ]; then
  bash scripts/build.sh build-asan -DBILLDATA_BUILD_TESTS=ON -DBILLDATA_SANITIZE=ON -DBILLDATA_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=Debug
  export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1
  # The database cases' run through ODBC is left out: it doubles the time under the sanitizers
  # for code the ODBC driver's own cases (tests/drivers) already cover there.
  bash scripts/with-postgres.sh ctest --test-dir build-asan --output-on-failure -j"$(nproc)" -E '^odbc\.'
else
  bash scripts/build.sh build -DBILLDATA_BUILD_TESTS=ON -DBILLDATA_BUILD_BENCH=ON -DBILLDATA_SANITIZE=OFF
  bash scripts/with-postgres.sh ctest --test-dir build --output-on-failure -j"$(nproc)"
fi
