#!/usr/bin/env bash
# Measures everything that docs/performance.md shows and writes that page with its plots: builds the benchmarks for Windows, runs
# them under Wine on the lab's drivers, each figure in turns with its alternative, and keeps what they say in build/bench. Takes
# about six minutes after building; a machine that does something else meanwhile makes the times longer and the ratios rougher.
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

# Google Benchmark's, several times in random order, so that what slows the machine down for a while meets all sides. The programs
# fix their numbers of iterations: one interruption at the start would make Google Benchmark choose far too few.
run_in_turns() {
  local results=$1 repetitions=$2
  shift 2
  "$@" "--benchmark_out=build/bench/$results.json" --benchmark_out_format=json "--benchmark_repetitions=$repetitions" \
    --benchmark_enable_random_interleaving=true --benchmark_report_aggregates_only=true >"build/bench/$results.txt" 2>&1 ||
    { tail -n 20 "build/bench/$results.txt" >&2; return 1; }
}

# In the stage folder, beside which everything is that the program loads.
on_lab() {
  (cd build/windows/stage && ../../../cmake/wine.sh "$@")
}

# All of it without debug information, which Wine would hold in memory.
measure_rest() {
  local rest=build/bench/rest
  mkdir -p "$rest"
  cp build/windows/stage/{at_rest.exe,*.dll,*.inf,*.sys} "$rest"
  x86_64-w64-mingw32-strip "$rest"/*.dll "$rest"/*.exe
  (cd "$rest" && python3 ../../../bench/measure_rest.py OstrelFilterLib.dll ../at_rest.json ../../../cmake/wine.sh at_rest.exe)
}

scripts/setup.sh
fetch_benchmark
benchmark_source=$(realpath build/third-party/benchmark-*/)
for preset in windows native; do cmake --preset "$preset" -DOSTREL_BENCHMARK_SOURCE="$benchmark_source" >/dev/null; done
echo "Building the benchmarks"
build_preset windows ostrel_benchmarks
build_preset native cache_bench
use_display
use_wine_prefix
export OSTREL_WINE_ALONE=1
mkdir -p build/bench
results=../../bench

echo "Caches"
run_in_turns caches 9 cmake/wine.sh build/windows/bench/cache_bench.exe
run_in_turns caches_native 9 build/native/bench/cache_bench
echo "Digests"
run_in_turns digests 3 cmake/wine.sh build/windows/bench/digest_bench.exe
echo "Growth"
cmake/wine.sh build/windows/bench/growth_bench.exe build/bench/growth.json
echo "Notification loop"
on_lab message_loop_bench.exe OstrelFilter.sys "$results/message_loop.json"
echo "Packet reader"
on_lab packet_reader_bench.exe OstrelNWFilter.sys "$results/packet_reader.json"
echo "Titles"
on_lab titles_bench.exe "$results/titles.json"
echo "A minute at rest"
measure_rest
python3 bench/make_page.py build/bench docs
