#!/usr/bin/env bash
# Static analysis of products and lab as they are compiled for Windows: clang-tidy with the checks of .clang-tidy, and cppcheck.
# Prints nothing but findings, and fails when there are any. Arguments narrow clang-tidy down to the source files named.
set -euo pipefail
cd "$(dirname "$0")/.."

database=build/windows/compile_commands.json

# Each source file once: the helper compiles two of the library's as well.
sources() {
  sed -n "s|^ *\"file\": \"$PWD/\(.*\)\",*$|\1|p" "$database" | grep -E '^(src|helper|host|lab)/.*\.cpp$' | sort -u
}

# Clang reads the compiler's own C++ headers and the Windows ones, as the cross compiler does.
cross_headers() {
  x86_64-w64-mingw32-g++-posix -E -x c++ -v /dev/null 2>&1 | sed -n '/^#include <...>/,/^End of search/s/^ //p' |
    grep -E '/c\+\+|x86_64-w64-mingw32/include$'
}

# tidy CHECKS FILE...: CHECKS are added to those of .clang-tidy.
tidy() {
  local checks=$1 folder arguments
  shift
  [ $# -gt 0 ] || return 0
  arguments=(--quiet -p build/windows "--checks=$checks" --extra-arg=--target=x86_64-w64-mingw32)
  while read -r folder; do arguments+=("--extra-arg=-isystem$folder"); done < <(cross_headers)
  printf '%s\n' "$@" | xargs -P "$(nproc)" -n 1 clang-tidy "${arguments[@]}" 2>&1 |
    { grep --line-buffered -vE '^[0-9]+ warnings?( and [0-9]+ errors?)? generated\.$' || true; }
  return "${PIPESTATUS[1]}"
}

# For the command line's and JSON's header-only libraries the path-sensitive analyzer takes ten times as long as for everything
# else, and finds nothing but in them; cppcheck goes along the paths of these sources as well.
run_tidy() {
  local heavy light result=0
  mapfile -t heavy < <(grep -lE '<(CLI|nlohmann)/' "$@")
  mapfile -t light < <(grep -LE '<(CLI|nlohmann)/' "$@")
  tidy '-clang-analyzer-*' "${heavy[@]}" || result=1
  tidy '' "${light[@]}" || result=1
  return "$result"
}

# passedByValue: the exported signatures are fixed. accessMoved: it takes one move for two; clang-tidy looks for these as well.
run_cppcheck() {
  cppcheck --quiet --error-exitcode=1 -j "$(nproc)" --enable=warning,performance,portability --inline-suppr \
    --suppress=passedByValue --suppress=accessMoved \
    --std=c++20 --platform=win64 -I src -I lab/wire src helper host lab
}

scripts/setup.sh
cmake --preset windows >/dev/null
[ $# -gt 0 ] || mapfile -t files < <(sources)
[ $# -eq 0 ] || files=("$@")
if [ ${#files[@]} -eq 0 ]; then
  echo "analyse.sh: $database names no source file." >&2
  exit 1
fi
status=0
run_cppcheck || status=1
run_tidy "${files[@]}" || status=1
exit "$status"
