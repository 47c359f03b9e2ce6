#!/usr/bin/env bash
# The reliability harnesses at full size, with their figures: 8 and then 16 tills saving at once
# on one database, and a till killed with SIGKILL inside its saves again and again. CI runs the
# same tests small through ctest.
#   run-reliability.sh                          8 and 16 tills x 200 calls, 200 kills
#   CALLS=500 KILLS=1000 SEED=7 run-reliability.sh
set -uo pipefail
cd "$(dirname "$0")/.."
calls="${CALLS:-200}"
kills="${KILLS:-200}"
seed="${SEED:-1}"

bash scripts/bootstrap.sh
cmake -S . -B build -G Ninja -DBILLDATA_BUILD_TESTS=ON >/dev/null
cmake --build build --target test_reliability billdata_cli -j"$(nproc)" >/dev/null || exit 1

# The figures and any failure, without the tills' progress notes.
run() {
  "$@" --gtest_brief=1 2>&1 | grep -v '^billdata batch: '
  return "${PIPESTATUS[0]}"
}
harness=build/tests/test_reliability
status=0
for tills in 8 16; do
  RELIABILITY_TILLS=$tills RELIABILITY_CALLS=$calls RELIABILITY_SEED=$seed \
    run "$harness" --gtest_filter='Tills.*' || status=1
done
RELIABILITY_KILLS=$kills RELIABILITY_SEED=$seed run "$harness" --gtest_filter='Crashes.*' || status=1
exit $status
