#!/usr/bin/env bash
# Renews docs/failures.md, the page of everything that the tests make fail and what comes of it.
set -uo pipefail
cd "$(dirname "$0")/.." || exit
source scripts/lib.sh

scripts/setup.sh || exit 1
build_preset windows failure_tests platform_tests unit_pure || exit 1
use_display || exit 1
use_wine_prefix
page=build/windows/tests/failures/failures.md
rm -f "$page"
# It runs the tests that leave the rows too, and fails now when the page is out of date.
ctest --preset windows -R '^failures_page$' >build/failures-output.txt 2>&1
if [ ! -e "$page" ]; then
  tail -n 30 build/failures-output.txt >&2
  exit 1
fi
cp "$page" docs/failures.md
# And now for what the new page does not mend.
ctest --preset windows -R '^failures_page$' --fixture-exclude-any . --output-on-failure
