#!/usr/bin/env bash
# The long run of hard use: 200,000 file events and as many packet records through the lab, or as many as it takes to fill the
# minutes given; then the library loaded and unloaded 300 times with everything under way. Shows a line of progress per round, and
# the books at the end.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/lib.sh

minutes=${1:-0}
if [[ $# -gt 1 || ! $minutes =~ ^[0-9]+$ ]]; then
  echo "usage: scripts/soak.sh [minutes]" >&2
  exit 2
fi

scripts/setup.sh
build_preset windows soak_tests torture_tests
use_display
use_wine_prefix
export OSTREL_WINE_ALONE=1
OSTREL_SOAK_EVENTS=200000 OSTREL_SOAK_MINUTES=$minutes cmake/wine.sh build/windows/stage/soak_tests.exe
cmake/wine.sh build/windows/stage/torture_tests.exe
