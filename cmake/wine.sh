#!/bin/sh
# Runs a Windows program under Wine. The caller chooses the prefix through WINEPREFIX; without one, the
# prefix of this checkout's build folder is used, so that nobody's own ~/.wine is ever touched.
here=$(cd "$(dirname "$0")/.." && pwd)
export WINEPREFIX="${WINEPREFIX:-$here/build/wineprefix}"
export WINEDEBUG="${WINEDEBUG:--all}"
# Of the lab's system DLLs, this is the one whose place Wine's own does not give up unasked.
export WINEDLLOVERRIDES="${WINEDLLOVERRIDES:-mscoree,mshtml=;wtsapi32=n,b}"
mkdir -p "$(dirname "$WINEPREFIX")"
for wine in wine64 /usr/lib/wine/wine64 wine; do
  if command -v "$wine" >/dev/null 2>&1; then exec "$wine" "$@"; fi
done
echo "wine.sh: Wine is not installed; run scripts/setup.sh" >&2
exit 127
