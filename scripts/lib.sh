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
  trap end_wine EXIT
  trap 'exit 130' INT TERM HUP
  if [ ! -e "$WINEPREFIX/system.reg" ]; then
    echo "Preparing Wine (about ten seconds, once)"
  fi
  # Any program boots the prefix. "wineboot" would boot it twice, and of two service managers neither starts a driver.
  cmake/wine.sh cmd /c exit >/dev/null 2>&1
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
  wine_server -k 2>/dev/null
  wine_server -w 2>/dev/null
  return 0
}
