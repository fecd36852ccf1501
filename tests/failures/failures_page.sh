#!/usr/bin/env bash
# failures_page.sh OBJDUMP LIBRARY CHECKOUT PAGE ROWS...
#
# Makes the page of failures out of the rows that the tests left, and fails when it is not the one in docs/, or when an
# import of the library that its sources call has neither a row nor a reason.
set -euo pipefail
export LC_ALL=C
objdump=$1 library=$2 checkout=$3 page=$4
shift 4
reasons=$checkout/tests/failures/calls_without_failure.txt

# The compiler's and C's runtime import more, which the sources do not name.
called_imports() {
  "$objdump" -p "$library" |
    awk '/DLL Name:/ { dll = tolower($3) } /^\t[0-9a-f]+\t *[0-9]+ / && dll != "msvcrt.dll" { print $3 }' | sort -u |
    comm -12 - <(grep -rhow '[A-Za-z0-9]*' "$checkout/src" --include='*.cpp' --include='*.h' | sort -u)
}

calls_in_rows() { sed -n 's/^| `\([^`]*\)` .*/\1/p' "$@" | sort -u; }
calls_with_reason() { sed -n 's/^\([A-Za-z0-9]*\): .*/\1/p' "$reasons" | sort; }

wrong=0
complain() {
  [ -z "$1" ] && return
  printf '%s:\n%s\n' "$2" "$1" >&2
  wrong=1
}

imports=$(called_imports)
[ "$(wc -l <<<"$imports")" -gt 50 ] || complain "$library" "Hardly any import was found"
calls=$(calls_in_rows "$@")
complain "$(comm -23 <(echo "$imports") <(sort -u <(echo "$calls") <(calls_with_reason)))" \
  "No test makes these fail, and calls_without_failure.txt gives no reason"
complain "$(comm -12 <(echo "$calls") <(calls_with_reason))" "A test makes these fail; calls_without_failure.txt need not say why not"
complain "$(comm -13 <(echo "$imports") <(calls_with_reason))" "In calls_without_failure.txt, but the library does not call them"

{
  cat <<'TEXT'
# Failures

What comes of every call of Windows that fails, and of other things that go wrong, as the tests find it. The tests make this
page: `scripts/failures.sh` renews it, and the test command fails when it is out of date.

A failure is an error code, an `HRESULT` or a status. The log column has the lines that the failure brings about, each with its
level: those up to the next call and, of errors and notable lines, those up to the result, but no notable line or detail that is
also written where nothing fails. "none" means that nothing is logged but such lines. Where more than one answer to a failure
would be right, "Chosen" says which one the library gives. The tests are those that the row comes from, at most three of them;
one that ends in `/` and a name is one of several that differ in their input.

| Call | Failure | Log (level) | Result | Test |
|---|---|---|---|---|
TEXT
  sort -u "$@"
  cat <<'TEXT'

## Calls that no test makes fail

| Call | Why |
|---|---|
TEXT
  sed -n 's/^\([A-Za-z0-9]*\): \(.*\)/| `\1` | \2 |/p' "$reasons"
} >"$page"

complain "$(diff -N "$checkout/docs/failures.md" "$page")" "docs/failures.md is not what the tests found; scripts/failures.sh renews it"
exit "$wrong"
