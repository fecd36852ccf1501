#!/usr/bin/env bash
# Installs what building, running and testing need on Debian 12, if anything is missing. Asks nothing, changes nothing that
# is there already, and needs neither root nor sudo once everything is installed.
set -euo pipefail

packages=(
  cmake ninja-build g++                # builds; the native compiler runs the sanitizers
  g++-mingw-w64-x86-64-posix           # compiles for Windows
  llvm                                 # makes the import library for Microsoft's linker
  wine64                               # runs it
  python3                              # turns what the benchmarks say into a page
  xvfb                                 # a display for the windows whose titles are sought
  clang-tidy cppcheck                  # look for defects in the sources
  googletest                           # test framework, as source, so that it is built for Windows too
  nlohmann-json3-dev libcli11-dev      # host and lab only; the library itself uses neither
)

missing=()
for package in "${packages[@]}"; do
  if [ "$(dpkg-query --show --showformat='${db:Status-Status}' "$package" 2>/dev/null)" != installed ]; then
    missing+=("$package")
  fi
done
[ ${#missing[@]} -eq 0 ] && exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null 2>&1; then
    echo "setup.sh: these packages are missing, and you are neither root nor is there sudo. As root run:" >&2
    echo "  apt-get update && apt-get install --no-install-recommends ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi

echo "Installing ${missing[*]} (a minute or two)" >&2
# A package may become available with newer lists only; a list that cannot be renewed need not matter.
"${as_root[@]}" apt-get update --quiet=2 || echo "setup.sh: some package lists could not be renewed; going on" >&2
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install --yes --quiet=2 --no-install-recommends "${missing[@]}" >&2
