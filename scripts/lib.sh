# shellcheck shell=bash
# Shell functions that the scripts share. To be sourced from the top folder of the checkout.

# Builds a preset in build/<preset>, configuring it first: everything, or the targets named after it. The compiler's output
# appears only when it fails.
build_preset() {
  local preset=$1 output=build/$1-build.txt
  shift
  mkdir -p build
  if ! { cmake --preset "$preset" && cmake --build --preset "$preset" --target "${@:-all}"; } >"$output" 2>&1; then
    tail -n 40 "$output" >&2
    echo "Building preset $preset failed; the whole output is in $output." >&2
    return 1
  fi
}

# Gives Wine a prefix of this checkout's own and ends everything that runs in it when the script ends.
use_wine_prefix() {
  export WINEPREFIX="$PWD/build/wineprefix" WINEDEBUG=-all
  trap 'end_wine; end_display' EXIT
  trap 'exit 130' INT TERM HUP
  if [ ! -e "$WINEPREFIX/system.reg" ]; then
    echo "Preparing Wine (about ten seconds, once)"
  fi
  # Any program boots the prefix. "wineboot" would boot it twice, and of two service managers neither starts a driver.
  cmake/wine.sh cmd /c exit >/dev/null 2>&1
  # A program that came while the server is leaving would fail.
  wine_server -w >/dev/null 2>&1 || true
  # A network drive: Wine finds \\lab-server\team here.
  mkdir -p "$WINEPREFIX/dosdevices/unc/lab-server/team"
}

display_process=

# Gives Wine's windows a display of their own, which nobody sees, until the script ends. To be called before use_wine_prefix,
# which ends both.
use_display() {
  local number=build/display-number tries
  mkdir -p build
  : >"$number"
  trap end_display EXIT
  Xvfb -displayfd 3 -screen 0 640x480x24 -nolisten tcp 3>"$number" >build/display.log 2>&1 &
  display_process=$!
  # Not one of the jobs that a script ends by force: its lock file would stay.
  disown "$display_process"
  # It writes its number, as a line, when it is ready.
  for ((tries = 0; tries < 200; ++tries)); do
    if [ "$(wc -l <"$number")" -eq 1 ]; then
      DISPLAY=":$(cat "$number")"
      export DISPLAY
      return
    fi
    kill -0 "$display_process" 2>/dev/null || break
    sleep 0.1
  done
  end_display
  echo "No display for Wine's windows: Xvfb did not start. What it said is in build/display.log." >&2
  return 1
}

end_display() {
  local tries
  [ -n "$display_process" ] || return 0
  kill "$display_process" 2>/dev/null || true
  for ((tries = 0; tries < 100; ++tries)); do
    kill -0 "$display_process" 2>/dev/null || break
    sleep 0.1
  done
  display_process=
  return 0
}

wine_server() {
  local server
  for server in wineserver /usr/lib/wine/wineserver; do
    if command -v "$server" >/dev/null 2>&1; then
      "$server" "$@"
      return
    fi
  done
}

end_wine() {
  wine_server -k 2>/dev/null || true
  wine_server -w 2>/dev/null || true
}
