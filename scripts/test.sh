#!/usr/bin/env bash
# Every test: the parts that only compute under sanitizers natively, everything under Wine, once as it is shipped and once with the
# C++ library's assertions, and the static analysis. Arguments go to ctest, such as -R unit or --rerun-failed.
set -uo pipefail
cd "$(dirname "$0")/.." || exit
source scripts/lib.sh

log=build/test-log.txt

build() {
  echo "== $1: build"
  build_preset "$1"
}

run_tests() {
  local preset=$1
  shift
  echo "== $preset: test"
  ctest --preset "$preset" --verbose "$@" 2>&1 | tee -a "$log" | grep --line-buffered -E '^ *[0-9]+/[0-9]+ Test +#|^[0-9]+: \[  FAILED  \]|: Failure$|% tests passed'
  return "${PIPESTATUS[0]}"
}

# The analysis, which finds what no test runs into, and the build of the preset that is tested last. What runs under Wine mostly
# waits, so they go on beside it, giving way to it.
beside=

start_beside() {
  echo "== analysis, beside the tests"
  # shellcheck disable=SC2016
  setsid nice -n 19 bash -c 'source scripts/lib.sh
    scripts/analyse.sh >build/analysis-output.txt 2>&1
    result=$?
    build_preset windows-debug >/dev/null 2>&1
    exit $result' &
  beside=$!
}

# shellcheck disable=SC2317  # the trap calls it
end_beside() {
  [ -z "$beside" ] || kill -- -"$beside" 2>/dev/null || true
}

# Fails when the analysis did.
wait_for_beside() {
  local result=0
  wait "$beside" || result=$?
  beside=
  [ "$result" -eq 0 ] || tail -n 40 build/analysis-output.txt
  return "$result"
}

# The demonstration ends its host with Ctrl+C, which nothing inside Wine can send, so it is a test as well.
run_demo() {
  echo "== demo"
  scripts/demo.sh >build/demo-output.txt 2>&1 && return
  tail -n 30 build/demo-output.txt
  return 1
}

# What each failed test printed, cut where it goes on for long.
show_failures() {
  awk '/^[0-9]+: \[ RUN / { text = ""; lines = 0 }
       /^[0-9]+: / { if (lines++ < 60) text = text substr($0, 1, 300) "\n" }
       /^[0-9]+: \[  FAILED  \] .* \([0-9]+ ms\)$/ { printf "== failed\n%s", text }' "$log"
  broken_programs | sed 's/^/== ended otherwise: /'
}

# The last line of each program that failed without naming a failed test: it did not start, crashed or took too long.
broken_programs() {
  awk '/^[0-9]+: / { last[$1 + 0] = $0 }
       /^[0-9]+: \[  FAILED  \] [0-9]+ tests?, listed below/ { named[$1 + 0] = 1 }
       /^ *[0-9]+\/[0-9]+ Test +#/ { match($0, /#[0-9]+/); test = substr($0, RSTART + 1, RLENGTH - 1) + 0
                                    if (/\*\*\*/ && !named[test]) print last[test]
                                    delete named[test]; delete last[test] }' "$log"
}

# Counts single tests, as GoogleTest reports them when a program ends; a program that ended otherwise counts as one failure.
sum_up() {
  local passed failed broken
  passed=$(sed -n 's/^[0-9]*: \[  PASSED  \] \([0-9]*\) test.*/\1/p' "$log" | awk '{sum += $1} END {print sum + 0}')
  failed=$(sed -n 's/^[0-9]*: \[  FAILED  \] \([0-9]*\) tests\{0,1\}, listed below.*/\1/p' "$log" | awk '{sum += $1} END {print sum + 0}')
  broken=$(broken_programs | wc -l)
  failed=$((failed + broken + demo_failed + analysis_failed))
  echo "$((passed + 2 - demo_failed - analysis_failed)) passed, $failed failed"
  [ "$passed" -gt 0 ] && [ "$failed" -eq 0 ]
}

scripts/setup.sh || exit 1
mkdir -p build
: >"$log"
status=0
for preset in native-asan native-tsan; do
  { build "$preset" && run_tests "$preset" "$@"; } || status=1
done
build windows || exit 1
use_display || exit 1
use_wine_prefix
# One test after the other, each in a Wine of its own.
export OSTREL_WINE_ALONE=1
trap 'end_beside; end_wine; end_display' EXIT

start_beside
run_tests windows "$@" || status=1
analysis_failed=0
wait_for_beside || analysis_failed=1
{ build windows-debug && run_tests windows-debug "$@"; } || status=1

# The demonstration runs programs side by side. It brings its own display, and what runs in the prefix still has this one.
end_wine
unset OSTREL_WINE_ALONE
demo_failed=0
run_demo || demo_failed=1
show_failures
echo "The whole output is in $log."
sum_up || status=1
exit "$status"
