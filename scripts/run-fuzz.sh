#!/usr/bin/env bash
# Builds the libFuzzer targets (build-fuzz/, clang with AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs each for the given time, starting from its checked-in seed
# corpus fuzz/corpus/<target>/. Inputs the fuzzer finds on the way go to build-fuzz/corpus/, so the
# checked-in seeds stay as they are. Exits 1 when a target crashed; its reproducer is then in
# build-fuzz/crashes/<target>/ (replay: build-fuzz/fuzz/fuzz_<target> <file>).
#   run-fuzz.sh [seconds-per-target] [target...]   default 60 s, every target
#   FUZZ_MAX_LEN=<bytes>   caps the input size (libFuzzer -max_len)
set -euo pipefail
cd "$(dirname "$0")/.."
root="$PWD"  # the targets run in scratch folders of their own: absolute paths only
seconds="${1:-60}"
shift || true
targets=("$@")
if ((${#targets[@]} == 0)); then targets=(dialect json_call connection_string); fi

bash scripts/bootstrap.sh --fuzz
CC=clang CXX=clang++ cmake -S . -B build-fuzz -G Ninja -DBILLDATA_BUILD_FUZZ=ON \
  -DBILLDATA_BUILD_TESTS=OFF -DBILLDATA_BUILD_BENCH=OFF -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
ninja -C build-fuzz "${targets[@]/#/fuzz_}"

export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1
export LSAN_OPTIONS="suppressions=$root/fuzz/lsan.supp:print_suppressions=0"
failed=()
for t in "${targets[@]}"; do
  corpus="$root/build-fuzz/corpus/$t"
  crashes="$root/build-fuzz/crashes/$t"
  mkdir -p "$corpus" "$crashes"
  log="$root/build-fuzz/fuzz-$t.log"
  options=(-max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$crashes/"
           -timeout=10 -rss_limit_mb=4096)
  if [ -n "${FUZZ_MAX_LEN:-}" ]; then options+=(-max_len="$FUZZ_MAX_LEN"); fi
  status=0
  "$root/build-fuzz/fuzz/fuzz_$t" "${options[@]}" "$corpus" "$root/fuzz/corpus/$t" >"$log" 2>&1 ||
    status=$?
  runs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  if ((status != 0)); then
    failed+=("$t")
    echo "fuzz $t: FAILED after ${runs:-?} runs (exit $status); reproducer: $(ls -t "$crashes" | head -1)"
    grep -m1 -E "ERROR: |runtime error|deadly signal" "$log" || true
    echo "  log: $log"
  else
    echo "fuzz $t: ${runs:-?} runs in ${seconds} s, no crash (corpus: $(ls "$corpus" | wc -l) inputs)"
  fi
done
((${#failed[@]} == 0)) || { echo "fuzz: crashes in ${failed[*]}"; exit 1; }
