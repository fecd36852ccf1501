#!/usr/bin/env python3
"""Writes what the library costs while nothing happens: its size on disk, the memory that is a host's own because of it, and
the processor time of a minute at rest, all threads together.

    measure_rest.py STRIPPED-LIBRARY FIGURES.json HOST...

HOST is the command that runs at_rest.exe. The system's own figures of its process are taken, since Wine's have hundredths of a
second where milliseconds are asked for."""

import json
import os
import subprocess
import sys
import time
from pathlib import Path

MINUTE = 60


def private_kibibytes(process):
    lines = Path(f"/proc/{process}/smaps_rollup").read_text().splitlines()
    return sum(int(line.split()[1]) for line in lines if line.startswith("Private_Dirty:"))


def processor_milliseconds(process):
    """Of each thread, so that one that ends meanwhile does not turn the difference negative unnoticed."""
    return {
        thread.name: int((thread / "schedstat").read_text().split()[0]) / 1e6
        for thread in Path(f"/proc/{process}/task").iterdir()
    }


def wait_for(host, state):
    line = host.stdout.readline().strip()
    if line != state:
        raise SystemExit(f"measure_rest: the host said {line!r} instead of {state!r}")


def go_on(host):
    host.stdin.write("\n")
    host.stdin.flush()


def measure(command):
    host = subprocess.Popen(command, stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    wait_for(host, "without the library")
    empty = private_kibibytes(host.pid)
    go_on(host)
    wait_for(host, "at rest")
    loaded = private_kibibytes(host.pid)
    before = processor_milliseconds(host.pid)
    time.sleep(MINUTE)
    after = processor_milliseconds(host.pid)
    go_on(host)
    if host.wait() != 0:
        raise SystemExit("measure_rest: the host failed")
    idle = sum(value - before.get(thread, 0) for thread, value in after.items())
    return loaded - empty, idle, len(after)


def main():
    stripped, output, *command = sys.argv[1:]
    kibibytes, idle, threads = measure(command)
    figures = {
        "size": {"library": os.path.getsize(stripped) / 2**20, "unit": "MiB"},
        "private": {"library": kibibytes / 1024, "unit": "MiB"},
        "idle_minute": {"library": idle, "unit": "ms"},
        "threads": {"library": threads, "unit": ""},
    }
    Path(output).write_text(json.dumps({"figures": figures, "points": {}}, indent=2) + "\n")


if __name__ == "__main__":
    main()
