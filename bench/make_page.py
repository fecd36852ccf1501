#!/usr/bin/env python3
"""Turns the benchmarks' JSON files into docs/performance.md and its plots.

    make_page.py RESULTS-FOLDER DOCS-FOLDER

Every figure stands beside its alternative from the same run. A goal that is missed is said to be, with the reason from
REASONS; without one there the page says that it is unknown."""

import json
import math
import platform
import subprocess
import sys
from pathlib import Path

# Found by profiling; shown only while the goal is missed.
REASONS = json.loads((Path(__file__).parent / "reasons.json").read_text())

NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def read_google_benchmark(file):
    """Medians in nanoseconds by name."""
    return {
        run["run_name"].split("/iterations:")[0].removesuffix("/real_time"): run["real_time"] * NANOSECONDS[run["time_unit"]]
        for run in json.loads(file.read_text())["benchmarks"]
        if run.get("aggregate_name") == "median" and not run.get("error_occurred")
    }


def in_best_unit(nanoseconds):
    for unit, factor in (("s", 1e9), ("ms", 1e6), ("µs", 1e3)):
        if nanoseconds >= factor:
            return f"{nanoseconds / factor:.3g} {unit}"
    return f"{nanoseconds:.3g} ns"


def amount(value, unit):
    return in_best_unit(value * NANOSECONDS[unit]) if unit in NANOSECONDS else f"{value:.3g} {unit}"


class Row:
    def __init__(self, key, what, figure, alternative, value, is_met, goal, natively=""):
        self.key, self.what, self.figure, self.alternative = key, what, figure, alternative
        self.value, self.is_met, self.goal, self.natively = value, is_met, goal, natively

    def __str__(self):
        verdict = "met" if self.is_met else "**missed**: " + REASONS.get(self.key, "the reason is not known")
        cells = (self.what, self.figure, self.alternative, self.value, self.natively, self.goal, verdict)
        return f"| {' | '.join(cells)} |"


def ratio_row(key, what, against, library, alternative, ratio, unit, limit, natively=""):
    return Row(key, what, amount(library, unit), f"{against}: {amount(alternative, unit)}", f"{ratio:.2f}", ratio <= limit,
               f"at most {limit:.2f}", natively)


class Results:
    def __init__(self, folder):
        self.times = read_google_benchmark(folder / "caches.json") | read_google_benchmark(folder / "digests.json")
        self.native_times = read_google_benchmark(folder / "caches_native.json")
        self.figures, self.points = {}, {}
        for name in ("message_loop", "packet_reader", "titles", "growth", "at_rest"):
            read = json.loads((folder / f"{name}.json").read_text())
            self.figures |= read["figures"]
            self.points |= read["points"]

    def compared(self, key, what, against, limit, library, alternative):
        """Two benchmarks by name; the row has the key's."""
        times, native_times = self.times, self.native_times
        return ratio_row(key, what, against, times[library], times[alternative], times[library] / times[alternative], "ns", limit,
                         f"{native_times[library] / native_times[alternative]:.2f}")

    def timed(self, key, what, against, limit, argument=""):
        library, alternative = (f"{key}/{side}{argument}" for side in ("library", "alternative"))
        return self.compared(key, what, against, limit, library, alternative)

    def measured(self, key, what, against, limit):
        figure = self.figures[key]
        return ratio_row(key, what, against, figure["library"], figure["alternative"], figure["ratio"], figure["unit"], limit)

    def bounded(self, key, what, limit):
        figure = self.figures[key]
        value, unit = figure["library"], figure["unit"]
        return Row(key, what, f"{value:.3g} {unit}", "", "", value < limit, f"below {limit:g} {unit}")

    def rate(self):
        a_second = 1e9 / self.figures["message_alone"]["library"]
        return Row("message_rate", "that, on one core", f"{a_second:,.0f} messages a second", "", "", a_second >= 500_000,
                   "at least 500,000 a second")

    def growth_of_take_due(self):
        few, many = (f"take_due/library/{count}" for count in (100_000, 200_000))
        return self.compared("take_due_growth", "`GetEvents`, 200,000 cached, 40,000 due, half duplicates", "100,000 cached", 2.3,
                             many, few)

    def rows(self):
        return [
            self.measured("message", "one event message through the notification loop, on the lab's minifilter",
                          "a bare loop of the platform calls", 1.10),
            self.measured("message_alone", "the same, merged into a cached event, platform calls answering at once",
                          "copying the 1080 bytes and one look-up in an ordered map", 3),
            self.rate(),
            self.measured("acknowledgement_median", "time to acknowledgement, median", "the platform calls before it", 1.15),
            self.measured("acknowledgement_p99", "time to acknowledgement, 99th percentile", "the platform calls before it",
                          1.15),
            self.timed("merge", "`AddEvent` into a cache of 100,000, merged", "the same on a bare `std::map`", 1.5),
            self.timed("create", "`AddEvent` into a cache of 100,000, new", "the same on a bare `std::map`", 1.5),
            self.timed("take_due", "`GetEvents`, 100,000 cached, 20,000 due, half duplicates",
                       "walking the map and sorting the due names", 3, "/100000"),
            self.growth_of_take_due(),
            self.timed("idle", "`GetEvents`, nothing due, 1,000,000 cached", "1,000 cached", 2),
            self.timed("stream_new", "`NetworkEventCache::AddEvent`, 10,000 streams, a new one", "bare map insertion", 1.5),
            self.timed("stream_grow", "`NetworkEventCache::AddEvent`, 10,000 streams, one of them", "bare map insertion", 1.5),
            self.timed("likely", "`GetLikelyEvents`, 10,000 streams", "one linear scan", 1.5),
            self.timed("purge", "purge of 100,000 streams, 1 per cent old", "one linear walk", 1.5),
            self.timed("log", "a log line above the level", "one comparison and branch", 2),
            self.measured("read_event_memory", "memory of a cached read event, no hints", "its strings and one map node", 1.3),
            self.measured("packet", "one packet record through the reader, on the lab's network driver",
                          "a bare overlapped loop with the same look-ups", 1.10),
            self.measured("titles", "one titles request, end to end", "launch, one pause of 50 ms, pipe call", 1.10),
            self.bounded("size", "the DLL on disk, stripped", 1.3),
            self.bounded("private", "private memory at rest, all features on", 8),
            self.bounded("idle_minute", "processor time of an idle minute, all features on", 10),
        ]

    def besides(self):
        """What no goal is set for."""
        same = self.figures["titles_same_pauses"]
        library, platform_alone = (self.times[name] for name in ("HelperDigestsOfFile", "PlatformDigestsOfMemory"))
        walk_few, walk_many = (self.times[f"take_due/alternative/{count}"] for count in (100_000, 200_000))
        return [
            f"- Walking the map and sorting the due names alone takes {walk_many / walk_few:.2f} times as long for 200,000 as for "
            "100,000.",
            f"- A titles request takes {same['ratio']:.2f} times as long as bare calls that pause after each look for the pipe, as "
            "the library must.",
            f"- The helper's digests of a file of 1 GiB take {library / platform_alone:.2f} times as long as the platform's two "
            "digests of as much memory, one after the other.",
        ]


COLOURS = ("#1f77b4", "#7f7f7f", "#d62728", "#2ca02c", "#9467bd")
WIDTH, HEIGHT, LEFT, TOP, RIGHT, BOTTOM = 760, 400, 70, 40, 200, 50


class Axis:
    """Logarithmic, over whole powers of ten."""

    def __init__(self, values, start, end):
        self.low, self.high = math.floor(math.log10(min(values))), math.ceil(math.log10(max(values)))
        self.high = max(self.high, self.low + 1)
        self.start, self.end = start, end

    def place(self, value):
        part = (math.log10(value) - self.low) / (self.high - self.low)
        return self.start + part * (self.end - self.start)

    def ticks(self):
        return [10.0**power for power in range(self.low, self.high + 1)]


def text(x, y, content, anchor="middle", extra=""):
    return f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" {extra}>{content}</text>'


def plot(title, x_label, series):
    """`series` is a list of (name, [(x, y), ...])."""
    xs = Axis([x for _, points in series for x, _ in points], LEFT, WIDTH - RIGHT)
    ys = Axis([y for _, points in series for _, y in points], HEIGHT - BOTTOM, TOP)
    parts = [
        f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" font-family="sans-serif" font-size="12">',
        f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
        text(LEFT, TOP - 18, title, "start", 'font-size="14"'),
        text((LEFT + WIDTH - RIGHT) / 2, HEIGHT - 12, x_label),
    ]
    for tick in xs.ticks():
        x = xs.place(tick)
        parts.append(f'<line x1="{x:.1f}" x2="{x:.1f}" y1="{TOP}" y2="{HEIGHT - BOTTOM}" stroke="#ddd"/>')
        parts.append(text(x, HEIGHT - BOTTOM + 18, f"{tick:,.0f}"))
    for tick in ys.ticks():
        y = ys.place(tick)
        parts.append(f'<line x1="{LEFT}" x2="{WIDTH - RIGHT}" y1="{y:.1f}" y2="{y:.1f}" stroke="#ddd"/>')
        parts.append(text(LEFT - 8, y + 4, f"{tick:,g}", "end"))
    for number, (name, points) in enumerate(series):
        colour = COLOURS[number]
        places = [(xs.place(x), ys.place(y)) for x, y in points]
        line = " ".join(f"{x:.1f},{y:.1f}" for x, y in places)
        parts.append(f'<polyline points="{line}" fill="none" stroke="{colour}" stroke-width="2"/>')
        parts += [f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{colour}"/>' for x, y in places]
        legend = TOP + 10 + 20 * number
        parts.append(f'<rect x="{WIDTH - RIGHT + 15}" y="{legend - 9}" width="12" height="12" fill="{colour}"/>')
        parts.append(text(WIDTH - RIGHT + 33, legend + 1, name, "start"))
    return "\n".join([*parts, "</svg>", ""])


CACHES = (
    ("ReadEventCache", "read_event_cache"),
    ("bare std::map of events", "bare_map"),
    ("IrpCache", "irp_cache"),
    ("SentEventCache", "sent_event_cache"),
    ("NetworkEventCache", "network_event_cache"),
)


def plots(points):
    def of_caches(what):
        return [(name, points[f"{key}_{what}"]) for name, key in CACHES]

    return {
        "cache-time.svg": plot("Filling a cache: nanoseconds per entry", "entries", of_caches("time")),
        "cache-memory.svg": plot("A filled cache: bytes per entry", "entries", of_caches("memory")),
        "detection-pass.svg": plot("A whole detection pass: microseconds per due event", "due events",
                                   [("DiskEventWorker", points["detection_pass"])]),
    }


def first_line(*command):
    return subprocess.run(command, capture_output=True, text=True, check=True).stdout.splitlines()[0]


def machine():
    models = [line.split(":")[1].strip() for line in Path("/proc/cpuinfo").read_text().splitlines()
              if line.startswith("model name")]
    return (f"{len(models)} cores of {models[0]}, Linux {platform.release().split('-')[0]}, "
            f"{first_line('cmake/wine.sh', '--version')}, {first_line('x86_64-w64-mingw32-g++', '--version')}")


PAGE = """# Performance

`scripts/bench.sh` measures everything on this page and writes it. Every figure stands beside its alternative, measured in the same
run and in turns with it, so that whatever else the machine does meets both; figures are medians. The ratio is what counts: the
times are those of a Windows system that Wine stands in for, on {machine}. What only computes is measured
a second time, built for Linux: the difference of the two ratios is not the library's, but that of compiler and heap.

| What | Library | Compared with | Ratio | On Linux | Goal | |
|---|---|---|---|---|---|---|
{rows}

Besides:

{besides}

Private memory is what a host has of its own more than without the library. A new event or stream is timed without what takes it
out of the cache again.

## Growth

A line that stays level is a cost that grows with the number of entries and no faster.

![Time per entry while a cache is filled](performance/cache-time.svg)

![Memory per entry of a filled cache](performance/cache-memory.svg)

Half of the due events are downloads, half uploads; each is of a file of its own name, with one stream, and is reported.

![Time per due event of a detection pass](performance/detection-pass.svg)
"""


def main():
    results = Results(Path(sys.argv[1]))
    docs = Path(sys.argv[2])
    (docs / "performance").mkdir(exist_ok=True)
    for name, drawing in plots(results.points).items():
        (docs / "performance" / name).write_text(drawing)
    rows = results.rows()
    (docs / "performance.md").write_text(PAGE.format(machine=machine(), rows="\n".join(map(str, rows)),
                                                     besides="\n".join(results.besides())))
    print(f"{sum(row.is_met for row in rows)} of {len(rows)} goals met; see {docs / 'performance.md'}")


if __name__ == "__main__":
    main()
