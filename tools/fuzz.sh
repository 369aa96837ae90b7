#!/usr/bin/env bash
# Runs each fuzz target for a fixed time: tools/fuzz.sh BUILD_DIR SECONDS TARGET...
#
# Each target starts from its committed corpus (tests/fuzz/<target>/, read
# only) and the working corpus of earlier runs (BUILD_DIR/corpus/<target>/,
# where new inputs go); with FUZZ_FRESH=1 from the committed corpus alone,
# new inputs going to BUILD_DIR/fresh-corpus/<target>/, emptied first, so that
# short runs stay short. Crashing inputs are written to
# BUILD_DIR/artifacts/<target>/; copy them into tests/fuzz/<target>/ once the
# fault is fixed, so that the test build replays them forever. The log of
# each run is BUILD_DIR/fuzz-logs/<target>.log (FUZZ_LOGS=DIR puts the logs
# elsewhere; FUZZ_RUNS=N stops a target after N executions when that comes
# before the time). Exits non-zero when any target found a crash, a sanitizer
# report, a leak or an accounting error.
set -uo pipefail
build=$1 seconds=$2
shift 2
root=$(cd "$(dirname "$0")/.." && pwd)
status=0
logs=${FUZZ_LOGS:-$build/fuzz-logs}
mkdir -p "$logs"
for target in "$@"; do
  corpus="$build/corpus/$target" artifacts="$build/artifacts/$target/"
  log="$logs/$target.log"
  if [[ "${FUZZ_FRESH:-0}" == 1 ]]; then
    corpus="$build/fresh-corpus/$target"
    rm -rf "$corpus"
  fi
  mkdir -p "$corpus" "$artifacts"
  echo "fuzzing $target for ${seconds}s (log: $log)"
  LSAN_OPTIONS="suppressions=$root/tools/lsan.supp:print_suppressions=0" \
    "$build/fuzz_$target" -max_total_time="$seconds" -rss_limit_mb=2560 -timeout=60 \
      -print_final_stats=1 ${FUZZ_RUNS:+-runs=$FUZZ_RUNS} -artifact_prefix="$artifacts" "$corpus" "$root/tests/fuzz/$target" >"$log" 2>&1
  rc=$?
  runs=$(grep -a '^stat::number_of_executed_units:' "$log" | tail -1 | tr -dc '0-9')
  cov=$(grep -ao 'cov: [0-9]*' "$log" | tail -1)
  if ((rc != 0)); then
    echo "  $target FAILED (exit $rc) after ${runs:-?} executions; the end of its log:"
    tail -n 40 "$log" | sed 's/^/    /'
    status=1
  else
    echo "  $target: ${runs:-?} executions, ${cov:-cov: ?} edges"
  fi
done
exit $status
