#!/usr/bin/env bash
# Makes the package, unpacks it as a user would, and uses it: the demonstration with its programs, what docs/integration.md tells a
# newcomer to type, and its other examples. Uses this checkout's Wine prefix, or the one that WINEPREFIX names.
set -euo pipefail
cd "$(dirname "$0")/../.."
source scripts/lib.sh
export WINEPREFIX=${WINEPREFIX:-$PWD/build/wineprefix} WINEDEBUG=-all
work=$PWD/build/package-test
stage=build/windows/stage
wine=$PWD/cmake/wine.sh
# Programs run side by side here.
unset OSTREL_WINE_ALONE
cross=x86_64-w64-mingw32
session_environment='HKLM\System\CurrentControlSet\Control\Session Manager\Environment'
host=
service=

use_session() {
  "$wine" reg add "$session_environment" /v OSTREL_LAB_SESSION /d "$1" /f >/dev/null
  end_wine
}

use_default_session() {
  "$wine" reg delete "$session_environment" /v OSTREL_LAB_SESSION /f >/dev/null
  end_wine
}

clean_up() {
  [ -z "$host" ] || kill -KILL "$host" 2>/dev/null || true
  if [ -n "$service" ]; then
    "$wine" sc delete "$service" >/dev/null 2>&1 || true
    use_default_session
  fi
  wait 2>/dev/null || true
}
trap clean_up EXIT

fail() {
  echo "package_test: $1" >&2
  [ $# -lt 2 ] || tail -n 20 "$2" >&2
  exit 1
}

# wait_for SECONDS COMMAND... fails when the command has not succeeded in time.
wait_for() {
  local tries=$(($1 * 10))
  shift
  while ((tries-- > 0)); do
    ! "$@" || return 0
    sleep 0.1
  done
  return 1
}

# The page's Nth block of commands.
commands() {
  awk -v wanted="$1" '/^```$/ { on = 0 } on && number == wanted { print } /^```sh$/ { on = 1; ++number }' docs/integration.md
}

unpack() {
  zip=$(scripts/package.sh 2>/dev/null) || fail "the package was not made" build/windows-build.txt
  mkdir -p "$work/unpacked"
  (cd "$work/unpacked" && cmake -E tar xf "$OLDPWD/$zip")
  package=$work/unpacked/$(basename "$zip" .zip)
}

# Exactly what is delivered, and all documents.
test_content() {
  local listed found
  listed=$(sed 's/^/.\//' tests/package/content.txt)
  found=$(cd "$package" && find . -type f ! -path './docs/*' | sort)
  diff <(sort <<<"$listed") <(sort <<<"$found") >&2 || fail "another content than tests/package/content.txt lists"
  diff <(cd docs && find . -type f | sort) <(cd "$package/docs" && find . -type f | sort) >&2 || fail "documents are missing"
}

test_no_debug_information() {
  local program
  for program in "$package"/bin/*.exe "$package"/bin/*.dll "$package"/bin/nlib/*.exe; do
    ! "$cross-objdump" --section-headers "$program" | grep -q '\.debug' || fail "$program holds debug information"
  done
}

test_demonstration() {
  # It brings its own display, and what runs in the prefix has another one.
  end_wine
  scripts/demo.sh --products "$package/bin" >"$work/demo.txt" 2>&1 || fail "the demonstration failed" "$work/demo.txt"
}

run_page() {
  eval "$(commands 2)" >"$work/build.txt" 2>&1 || fail "the page's first host was not built" "$work/build.txt"
  : >"$work/host.out"
  eval "exec $(commands 3)" >"$work/host.out" 2>"$work/host.err" &
  host=$!
  wait_for 60 grep -q '^Watching' "$work/host.out" || fail "the first host is not watching" "$work/host.err"
  eval "$(commands 4)" || fail "the scenario could not be played"
  wait_for 30 grep -q '^Upload of .*first\.pdf by ' "$work/host.out" || fail "the first host reported no upload" "$work/host.err"
}

test_page() {
  local code=0
  rm -rf build/my_host
  run_page
  kill -INT "$host"
  wait "$host" || code=$?
  host=
  [ "$code" -eq 0 ] || fail "the first host ended with code $code" "$work/host.err"
}

# build_example NAME [OPTION...]: in $work/NAME/build, with every warning an error.
build_example() {
  mkdir -p "$work/$1"
  cp "$package/docs/examples/$1"/* "$work/$1"
  if ! { cmake -S "$work/$1" -B "$work/$1/build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64.cmake" \
    -DCMAKE_PREFIX_PATH="$package" -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Wconversion -Wshadow -Werror" "${@:2}" &&
    cmake --build "$work/$1/build"; } >"$work/$1/build.txt" 2>&1; then
    fail "$1 was not built" "$work/$1/build.txt"
  fi
}

test_loaded_host() {
  local output=$work/loaded_host/output.txt
  build_example loaded_host
  cp "$stage/propsys.dll" "$work/loaded_host/build"
  ! "$cross-objdump" -p "$work/loaded_host/build/loaded_host.exe" | grep -q 'DLL Name: OstrelFilterLib' ||
    fail "the loaded host is linked to the library"
  "$wine" "$work/loaded_host/build/loaded_host.exe" "Z:$package/bin/OstrelFilterLib.dll" >"$output" 2>&1 ||
    fail "the loaded host failed" "$output"
  grep -qi "\\\\$(id -un)" "$output" || fail "the loaded host does not know who is logged on" "$output"
}

service_is() {
  "$wine" sc query "$service" 2>/dev/null | grep -q "STATE *: *[0-9] *$1"
}

# The service's whole life.
watch_with_service() {
  local program=$1 output=$2
  "$wine" sc create "$service" binPath= "Z:$program" >/dev/null || fail "the service was not registered"
  "$wine" sc start "$service" >/dev/null || fail "the service was not started"
  wait_for 60 service_is RUNNING || fail "the service is not running" "$output"
  "$wine" "$stage/OstrelLab.exe" play docs/examples/one_upload.json || fail "the scenario could not be played to the service"
  wait_for 30 grep -q 'Upload of .*first\.pdf by ' "$output" || fail "the service reported no upload" "$output"
  "$wine" sc stop "$service" >/dev/null || fail "the service was not stopped"
  wait_for 30 service_is STOPPED || fail "the service has not stopped" "$output"
  "$wine" sc delete "$service" >/dev/null || fail "the service was not removed"
}

test_service_host() {
  local folder=$work/service_host/build keeper
  build_example service_host
  cp "$stage"/{OstrelFilter,OstrelNWFilter}.{sys,inf} "$stage"/{fltlib,fwpuclnt,propsys,wtsapi32}.dll "$folder"
  : >"$folder/detections.txt"
  service=FirstService
  # A service finds its variables in the registry, and Wine ends all services when the last program has ended.
  use_session service
  exec {keeper}> >("$wine" cmd >/dev/null 2>&1)
  watch_with_service "$folder/service_host.exe" "$folder/detections.txt"
  exec {keeper}>&-
  service=
  use_default_session
  # The helper was found in nlib: it only says that there is no window.
  ! grep OstrelFilterDriver "$folder/detections.txt" | grep -qv "Couldn't get tab titles. Error code: 4" ||
    fail "the service failed" "$folder/detections.txt"
}

# What a host gets that is built with Microsoft's compiler, linked by the compiler that is here. No driver lies beside the host: it
# must come to life, and be told so by the library.
test_microsoft_import_library() {
  local folder=$work/first_host/build code=0
  build_example first_host -DMSVC=ON
  grep -q 'lib/OstrelFilterLib\.lib' "$folder/build.ninja" || fail "OstrelFilterLib.lib is not what is linked"
  "$wine" "$folder/first_host.exe" >"$folder/output.txt" 2>&1 || code=$?
  [ "$code" -eq 1 ] || fail "the host linked with OstrelFilterLib.lib ended with code $code" "$folder/output.txt"
  grep -q 'Could not install OstrelFilter driver' "$folder/output.txt" || fail "no library answered" "$folder/output.txt"
}

rm -rf "$work"
mkdir -p "$work"
unpack
test_content
test_no_debug_information
test_demonstration
test_page
test_loaded_host
test_service_host
test_microsoft_import_library
