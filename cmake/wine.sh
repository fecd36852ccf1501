#!/bin/sh
# Runs a Windows program under Wine. The caller chooses the prefix through WINEPREFIX; without one, the
# prefix of this checkout's build folder is used, so that nobody's own ~/.wine is ever touched.
here=$(cd "$(dirname "$0")/.." && pwd)
export WINEPREFIX="${WINEPREFIX:-$here/build/wineprefix}"
export WINEDEBUG="${WINEDEBUG:--all}"
# Of two libraries named wtsapi32 Wine takes its own, even when another one lies beside the program.
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=;wtsapi32=native,builtin}"
mkdir -p "$(dirname "$WINEPREFIX")"
# Linux may give a new process its heap at the address of the page that Windows shares with every process. Then the process
# cannot start: once in some thousands, with error 1359. Without random addresses the heap lies elsewhere.
fixed_addresses="setarch $(uname -m) --addr-no-randomize"
$fixed_addresses true 2>/dev/null || fixed_addresses=
# The Wine server leaves with its last program, and a program that comes at just that moment fails. A caller that runs one
# program after the other sets OSTREL_WINE_ALONE, and each waits until the server of the one before has gone.
if [ -n "${OSTREL_WINE_ALONE:-}" ]; then
  for server in wineserver /usr/lib/wine/wineserver; do
    if command -v "$server" >/dev/null 2>&1; then
      timeout 30 "$server" -w
      break
    fi
  done
fi
for wine in wine64 /usr/lib/wine/wine64 wine; do
  # shellcheck disable=SC2086  # several words, or none
  if command -v "$wine" >/dev/null 2>&1; then exec $fixed_addresses "$wine" "$@"; fi
done
echo "wine.sh: Wine is not installed; run scripts/setup.sh" >&2
exit 127
