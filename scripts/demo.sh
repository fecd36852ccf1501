#!/usr/bin/env bash
# Runs OstrelHost.exe with the library on the lab's stand-in drivers under Wine, plays a scenario to it (the default one, or
# the file named as argument), shows each detection as it arrives, and compares them with what the scenario expects.
set -euo pipefail

usage() {
  cat <<'END'
Usage: scripts/demo.sh [--products FOLDER] [SCENARIO]

Builds everything, runs OstrelHost.exe on the lab's stand-in drivers under Wine, plays SCENARIO (a JSON file as docs/lab.md
describes it; by default lab/scenarios/default.json) and compares what was reported with what the scenario expects.

  --products FOLDER            run host, library and helper from there, such as the bin folder of a package, and build the
                               lab only

  build/demo/detections.jsonl  what the host reported, as docs/host.md describes it
  build/demo/host.log          the host's log, at its finest level

Ends with 0 when both agree.
END
}

products=
while [ $# -gt 0 ]; do
  case $1 in
    -h | --help) usage; exit ;;
    --products) [ $# -gt 1 ] || { usage >&2; exit 2; }; products=$(realpath -- "$2"); shift 2 ;;
    -*) usage >&2; exit 2 ;;
    *) break ;;
  esac
done
if [ $# -gt 1 ]; then
  usage >&2
  exit 2
fi
[ $# -eq 0 ] || set -- "$(realpath -- "$1")"
cd "$(dirname "$0")/.."
source scripts/lib.sh

scenario=${1:-lab/scenarios/default.json}
stage=build/windows/stage
lab_targets=(OstrelLab OstrelLabPortLibrary OstrelLabFilteringPlatform OstrelLabPropertyLibrary OstrelLabSessionLibrary
  OstrelFilterDriver OstrelNWFilterDriver)
product_files=(OstrelFilterLib.dll OstrelHost.exe OstrelUserHelper.exe)
found=build/demo/detections.jsonl
host_log=build/demo/host.log
host=

# A host that is just starting must be gone before its Wine server is, or it would start another one.
clean_up() {
  local children
  mapfile -t children < <(jobs -p)
  [ ${#children[@]} -eq 0 ] || kill -KILL "${children[@]}" 2>/dev/null || true
  wait 2>/dev/null || true
  end_wine
  end_display
}

fail() {
  echo "$1 The end of $host_log:" >&2
  tail -n 15 "$host_log" >&2
  exit 1
}

fail_to_start() {
  echo "What the host's self-check finds (docs/host.md explains the lines):" >&2
  cmake/wine.sh "$stage/OstrelHost.exe" --self-check >&2 || true
  fail "$1"
}

lab() {
  cmake/wine.sh "$stage/OstrelLab.exe" "$@"
}

# The scenario itself says which programs the host has to watch.
host_arguments() {
  local answer
  answer=$(lab validate "$scenario") || return
  sed -n 's/^host arguments: //p' <<<"$answer" | tr -d '\r'
}

start_host() {
  local line arguments
  line=$(host_arguments)
  read -ra arguments <<<"$line"
  arguments+=(--log-level 7)
  echo "Starting OstrelHost.exe ${arguments[*]} (its log: $host_log)"
  cmake/wine.sh "$stage/OstrelHost.exe" "${arguments[@]}" >"$found" 2>"$host_log" &
  host=$!
}

wait_for_host() {
  local tries
  for ((tries = 0; tries < 600; ++tries)); do
    ! grep -q 'OstrelHost: watching' "$host_log" || return 0
    kill -0 "$host" 2>/dev/null || fail_to_start "OstrelHost.exe ended by itself."
    sleep 0.1
  done
  fail_to_start "OstrelHost.exe was not ready within 60 seconds."
}

# As Ctrl+C does; the host unloads the drivers and ends.
end_host() {
  local tries code=0
  kill -INT "$host" 2>/dev/null || true
  for ((tries = 0; tries < 200; ++tries)); do
    kill -0 "$host" 2>/dev/null || break
    sleep 0.1
  done
  ((tries < 200)) || fail "OstrelHost.exe did not end within 20 seconds."
  wait "$host" || code=$?
  ((code == 0)) || fail "OstrelHost.exe ended with code $code."
}

# Products and lab find each other only in one folder.
assemble_stage() {
  local file lab_stage=$stage
  for file in "${product_files[@]}"; do
    [ -f "$products/$file" ] || { echo "demo.sh: there is no $file in $products." >&2; exit 2; }
  done
  stage=build/demo/stage
  rm -rf "$stage"
  mkdir -p "$stage"
  cp "$lab_stage"/OstrelLab*.exe "$lab_stage"/*.{dll,sys,inf} "$stage"
  cp "${product_files[@]/#/$products/}" "$stage"
}

scripts/setup.sh
echo "Building (the first time takes a few minutes)"
mkdir -p build/demo
if [ -z "$products" ]; then
  build_preset windows OstrelHost OstrelUserHelper "${lab_targets[@]}"
else
  build_preset windows "${lab_targets[@]}"
  assemble_stage
fi
use_display
use_wine_prefix
trap clean_up EXIT
: >"$found"

start_host
wait_for_host
tail -n +1 -f "$found" &
echo "Playing $scenario"
lab play "$scenario" || fail "The scenario could not be played."
echo "Detections, as OstrelHost.exe prints them:"
lab check --wait 20 "$scenario" "$found" >/dev/null || true
# Nothing besides may come: that shows only by looking a little longer than the library takes for a pass.
sleep 2
end_host

echo
code=0
lab check "$scenario" "$found" || code=$?
if ((code != 0)); then
  echo "That is not what the scenario expects. $host_log tells why; docs/lab.md explains how to read it." >&2
  exit "$code"
fi
echo
echo "What you have seen: the host installed and loaded the drivers, was sent the scenario's events, reported exactly what it"
echo "should, and unloaded. The detections are in $found, the log is in $host_log."
