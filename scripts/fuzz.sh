#!/usr/bin/env bash
# Looks for inputs that break a reader of foreign bytes: each reader for as many minutes as the first argument says (one, unless
# given), all of them or those named after it. They start from what earlier runs kept in build/fuzzing/corpus and from what is
# checked in under tests/fuzz/corpus.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/lib.sh

usage() {
  cat <<END
Usage: scripts/fuzz.sh [MINUTES [READER...]]

Readers: $(all_readers | tr '\n' ' ')

An input that breaks a promise is kept in build/fuzzing/found/READER. Mend the reader, then add the input to
tests/fuzz/corpus/READER, where every native test run reads it again.
END
}

all_readers() {
  local file
  for file in tests/fuzz/*_fuzzer.cpp; do basename "$file" _fuzzer.cpp; done
}

# The fuzzers need clang, which nothing else does.
require_clang() {
  command -v clang++ >/dev/null 2>&1 && return
  echo "fuzz.sh: clang++ is missing. As root run: apt-get install --no-install-recommends clang" >&2
  exit 1
}

fuzz() {
  local reader=$1 seconds=$2
  local found=build/fuzzing/found/$reader kept=build/fuzzing/corpus/$reader output=build/fuzzing/$reader.txt
  mkdir -p "$found" "$kept"
  echo "== $reader"
  if ! "build/native-fuzz/tests/fuzz/fuzz_$reader" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="$found/" "$kept" "tests/fuzz/corpus/$reader" >"$output" 2>&1; then
    tail -n 30 "$output"
    echo "$reader broke; the input is in $found, the whole output in $output." >&2
    return 1
  fi
  sed -n 's/^stat::number_of_executed_units: */inputs: /p' "$output"
}

case ${1-} in
  -h | --help) usage; exit ;;
esac
minutes=${1:-1}
if ! [[ $minutes =~ ^[1-9][0-9]{0,4}$ ]]; then
  usage >&2
  exit 2
fi
[ $# -eq 0 ] || shift
[ $# -gt 0 ] || mapfile -t readers < <(all_readers)
[ $# -eq 0 ] || readers=("$@")
for reader in "${readers[@]}"; do
  if [ ! -f "tests/fuzz/${reader}_fuzzer.cpp" ]; then
    echo "fuzz.sh: no reader is named $reader." >&2
    usage >&2
    exit 2
  fi
done

scripts/setup.sh
require_clang
build_preset native-fuzz "${readers[@]/#/fuzz_}"
status=0
for reader in "${readers[@]}"; do fuzz "$reader" $((minutes * 60)) || status=1; done
exit "$status"
