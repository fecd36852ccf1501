#!/usr/bin/env bash
# Builds the benchmarks for Windows and runs them under Wine: first those of Google Benchmark, to which the arguments go, such as
# --benchmark_filter=GetEvents; then the packet reader beside a bare loop, on the lab's network driver (a minute).
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
cmake --build --preset windows --target ostrel_bench packet_reader_bench OstrelNWFilterDriver
use_wine_prefix
cmake/wine.sh build/windows/bench/ostrel_bench.exe "$@"
cmake/wine.sh build/windows/bench/packet_reader_bench.exe build/windows/stage/OstrelNWFilter.sys
