#!/usr/bin/env bash
# Makes the archive that a user downloads: library, import libraries, headers, helper, host, documentation. Prints its path; what
# is in it lies beside it, in the folder of the same name.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/lib.sh

scripts/setup.sh
echo "Building (the first time takes a few minutes)" >&2
build_preset windows OstrelFilterLib OstrelHost OstrelUserHelper OstrelFilterLibMicrosoftImportLibrary
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:[A-Z]*=//p' build/windows/CMakeCache.txt)
name=OstrelFilterLib-$version-windows-x64
rm -rf "build/package/$name" "build/package/$name.zip"
cmake --install build/windows --prefix "build/package/$name" --strip >/dev/null
(cd build/package && cmake -E tar cf "$name.zip" --format=zip "$name")
echo "build/package/$name.zip"
