#!/usr/bin/env bash
# Builds the benchmarks for Windows and runs them under Wine. Arguments go to Google Benchmark, such as
# --benchmark_filter=GetEvents.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/lib.sh

# Google Benchmark's source package, fetched with a copy of the machine's own source list; nothing is installed.
fetch_benchmark() {
  local home=build/third-party
  compgen -G "$home/benchmark-*/CMakeLists.txt" >/dev/null && return
  mkdir -p "$home/parts" "$home/state/lists/partial" "$home/cache/archives/partial"
  sed 's/^Types: deb$/Types: deb-src/' /etc/apt/sources.list.d/debian.sources >"$home/parts/source.sources"
  local apt=(apt-get -qq -o Dir::Etc::SourceList=/dev/null -o "Dir::Etc::SourceParts=$PWD/$home/parts"
    -o "Dir::State::Lists=$PWD/$home/state/lists" -o "Dir::Cache=$PWD/$home/cache" -o APT::Sandbox::User=)
  "${apt[@]}" update
  (cd "$home" && "${apt[@]}" source --download-only benchmark && tar -xzf benchmark_*.orig.tar.gz)
}

scripts/setup.sh
fetch_benchmark
cmake --preset windows -DOSTREL_BENCHMARK_SOURCE="$(realpath build/third-party/benchmark-*/)" >/dev/null
cmake --build --preset windows --target ostrel_bench
use_wine_prefix
cmake/wine.sh build/windows/bench/ostrel_bench.exe "$@"
