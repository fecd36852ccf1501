#!/usr/bin/env bash
# Every test: the parts that only compute under sanitizers natively, everything under Wine, once as it is shipped and once with the
# C++ library's assertions, and the static analysis. Arguments go to ctest, such as -R unit or --rerun-failed.
set -uo pipefail
cd "$(dirname "$0")/.." || exit
source scripts/lib.sh

log=build/test-log.txt

run_preset() {
  local preset=$1
  shift
  echo "== $preset: build"
  build_preset "$preset" || return 1
  echo "== $preset: test"
  ctest --preset "$preset" --verbose "$@" 2>&1 | tee -a "$log" | grep --line-buffered -E '^ *[0-9]+/[0-9]+ Test +#|^[0-9]+: \[  FAILED  \]|: Failure$|% tests passed'
  return "${PIPESTATUS[0]}"
}

# The demonstration ends its host with Ctrl+C, which nothing inside Wine can send, so it is a test as well.
run_demo() {
  echo "== demo"
  scripts/demo.sh >build/demo-output.txt 2>&1 && return
  tail -n 30 build/demo-output.txt
  return 1
}

# Finds what no test runs into.
run_analysis() {
  echo "== analysis"
  scripts/analyse.sh >build/analysis-output.txt 2>&1 && return
  tail -n 40 build/analysis-output.txt
  return 1
}

# Counts single tests, as GoogleTest reports them when a program ends; a program that ended otherwise counts as one failure.
sum_up() {
  local passed failed broken
  passed=$(sed -n 's/^[0-9]*: \[  PASSED  \] \([0-9]*\) test.*/\1/p' "$log" | awk '{sum += $1} END {print sum + 0}')
  failed=$(sed -n 's/^[0-9]*: \[  FAILED  \] \([0-9]*\) tests\{0,1\}, listed below.*/\1/p' "$log" | awk '{sum += $1} END {print sum + 0}')
  broken=$(grep -cE '\*\*\*(Timeout|Exception|Not Run|Failed  Error regular expression)' "$log")
  failed=$((failed + broken + demo_failed + analysis_failed))
  echo "$((passed + 2 - demo_failed - analysis_failed)) passed, $failed failed"
  [ "$passed" -gt 0 ] && [ "$failed" -eq 0 ]
}

scripts/setup.sh || exit 1
mkdir -p build
: >"$log"
status=0
analysis_failed=0
run_analysis || analysis_failed=1
run_preset native-asan "$@" || status=1
run_preset native-tsan "$@" || status=1
use_display || exit 1
use_wine_prefix
run_preset windows "$@" || status=1
run_preset windows-debug "$@" || status=1
# The demonstration brings its own display, and what runs in the prefix still has this one.
end_wine
demo_failed=0
run_demo || demo_failed=1
echo "The whole output is in $log."
sum_up || status=1
exit "$status"
