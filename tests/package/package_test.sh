#!/usr/bin/env bash
# Packs what cmake --install gives, unpacks it as a user would, builds the first host of docs/integration.md from it alone, and
# watches it report a detection on the lab. The argument is the build folder; its emulator's Wine prefix is used.
set -euo pipefail
build=$(realpath -- "$1")
top=$(cd "$(dirname "$0")/../.." && pwd)
work=$build/package-test
stage=$build/stage
wine=$top/cmake/wine.sh
host=
host_input=

clean_up() {
  [ -z "$host_input" ] || exec {host_input}>&- || true
  [ -z "$host" ] || kill -KILL "$host" 2>/dev/null || true
  wait 2>/dev/null || true
}
trap clean_up EXIT

fail() {
  echo "package_test: $1" >&2
  [ ! -s "$work/host.err" ] || tail -n 20 "$work/host.err" >&2
  exit 1
}

# wait_for SECONDS COMMAND... fails when the command has not succeeded in time.
wait_for() {
  local tries=$(($1 * 10))
  shift
  while ((tries-- > 0)); do
    "$@" && return
    sleep 0.1
  done
  return 1
}

rm -rf "$work"
mkdir -p "$work"
cmake --install "$build" --prefix "$work/packed/OstrelFilterLib" --strip >/dev/null
(cd "$work/packed" && cmake -E tar cf ../package.zip --format=zip OstrelFilterLib)
mkdir "$work/unpacked"
(cd "$work/unpacked" && cmake -E tar xf ../package.zip)
package=$work/unpacked/OstrelFilterLib

cp -r "$package/share/doc/OstrelFilterLib/docs/examples/first_host" "$work/first_host"
build_first_host() {
  cmake -S "$work/first_host" -B "$work/build" -G Ninja -DCMAKE_BUILD_TYPE=Release \
    -DCMAKE_TOOLCHAIN_FILE="$top/cmake/mingw-w64.cmake" -DCMAKE_PREFIX_PATH="$package" &&
    cmake --build "$work/build"
}
build_first_host >"$work/build.txt" 2>&1 || { tail -n 20 "$work/build.txt" >&2; fail "the first host was not built"; }

# The drivers and the system libraries, which the lab stands in for, have to lie beside a host.
for file in "$stage"/*.sys "$stage"/*.inf "$stage"/*.dll; do
  [ "$(basename "$file")" = OstrelFilterLib.dll ] || cp "$file" "$work/build/"
done

mkfifo "$work/input"
"$wine" "$work/build/first_host.exe" <"$work/input" >"$work/host.out" 2>"$work/host.err" &
host=$!
exec {host_input}>"$work/input"
wait_for 60 grep -q '^Watching' "$work/host.out" || fail "the first host is not watching"
"$wine" "$stage/OstrelLab.exe" play "$top/tests/package/one_upload.json" || fail "the scenario could not be played"
wait_for 30 grep -q '^Upload of .*first\.pdf by ' "$work/host.out" || fail "the upload was not reported"

echo >&"$host_input"
code=0
wait "$host" || code=$?
host=
[ "$code" -eq 0 ] || fail "the first host ended with code $code"
