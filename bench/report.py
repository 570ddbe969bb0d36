#!/usr/bin/env python3
"""Turn the results of orvi_bench into docs/benchmarks.md and the data of its plot.

Usage: bench/report.py RESULTS.json DOCUMENT.md PLOT-DATA-FOLDER COMMAND

Ends with 1 when a target is missed.
"""

import json
import os
import platform
import statistics
import sys
from pathlib import Path

PEERS = ["orvi", "minimal", "boost", "filebuf", "stringbuf", "memcpy"]
CHUNKS = {"10": 10, "100": 100, "4KiB": 4 << 10, "8KiB": 8 << 10, "64KiB": 64 << 10, "1MiB": 1 << 20}
OURS = "orvi"

BUFFERED = [("boost", 1.05), ("filebuf", 1.0)]
LARGE = [("minimal", 1.05), ("boost", 1.3)]
TARGETS = {
    "sbumpc": BUFFERED,
    "sputc": BUFFERED,
    "getline": BUFFERED,
    "call-4KiB": [("floor", 1.3)],
    "call-1MiB": [("floor", 1.15)],
}
for direction in ("sgetn", "sputn"):
    for chunk in ("10", "100"):
        TARGETS[f"{direction}-{chunk}"] = BUFFERED
    for chunk in ("4KiB", "64KiB", "1MiB"):
        TARGETS[f"{direction}-{chunk}"] = LARGE


class Results:
    """The time of one call in nanoseconds per row and peer: the median of the repetitions."""

    def __init__(self, path):
        document = json.loads(Path(path).read_text(encoding="utf-8"))
        self.context = document["context"]
        samples = {}
        for run in document["benchmarks"]:
            if run.get("error_occurred"):
                sys.exit(f"{run['name']}: {run['error_message']}")
            if run["run_type"] == "iteration":
                samples.setdefault(run["run_name"], []).append(1e9 / run["items_per_second"])
        self.repetitions = min(len(times) for times in samples.values())
        self.medians = {name: statistics.median(times) for name, times in samples.items()}

    def time(self, row, peer):
        return self.medians.get(f"{row}/{peer}")

    def ratio(self, row, peer):
        return self.time(row, OURS) / self.time(row, peer)

    def rows(self):
        """Return the names of the rows in the order in which they are shown."""
        sized = [f"{direction}-{chunk}" for direction in ("sgetn", "sputn") for chunk in CHUNKS]
        return ["sbumpc", "sputc", "getline", *sized]


def number(value):
    """Write a time with three digits that count."""
    if value is None:
        return "–"
    return f"{value:,.0f}" if value >= 100 else f"{value:.3g}"


def table(header, lines):
    yield "| " + " | ".join(header) + " |"
    yield "|---|" + "---:|" * (len(header) - 1)
    for line in lines:
        yield "| " + " | ".join(line) + " |"


def machine(context):
    """Describe the machine without naming it."""
    model = "unknown processor"
    for line in Path("/proc/cpuinfo").read_text(encoding="utf-8").splitlines():
        if line.startswith("model name"):
            model = line.split(":", 1)[1].strip()
            break
    memory = os.sysconf("SC_PAGE_SIZE") * os.sysconf("SC_PHYS_PAGES") / 2**30
    system = platform.freedesktop_os_release()["PRETTY_NAME"]
    caches = ", ".join(
        f"L{cache['level']} {cache['type'].lower()} {cache['size'] // 1024} KiB"
        for cache in context["caches"]
    )
    yield f"- Processor: {model}, {context['num_cpus']} cores at {context['mhz_per_cpu']} MHz; {caches}"
    yield f"- Memory: {memory:.0f} GiB"
    yield f"- System: {system}, Linux {platform.release()}, {' '.join(platform.libc_ver())}"
    yield f"- Compiler: {context['compiler']}, optimised (preset `release`)"
    yield f"- Boost: {context['boost'].replace('_', '.')}"
    load = " / ".join(f"{value:.1f}" for value in context["load_avg"])
    yield f"- Load when it started (1, 5, 15 minutes): {load}"


def document(results, command, verdicts):
    yield "# Benchmarks"
    yield ""
    yield "Written by `scripts/bench` from one run. Only ratios within the run mean something on"
    yield "another machine."
    yield ""
    yield "![Throughput by size of the request, and times of single characters and calls](benchmarks.svg)"
    yield ""
    yield "## What is measured"
    yield ""
    yield "Every row moves the same 64 MiB of text lines. All stream buffers have buffers of"
    yield f"{results.context['buffer_size']} characters, the size that `std::filebuf` takes by itself."
    yield ""
    yield "- **orvi**: the publisher's own `StreamBuffer` over four operations on memory"
    yield "- **minimal**: a hand-written `std::streambuf` over the same four operations"
    yield "- **boost**: `boost::iostreams::stream_buffer` over a device with the same four operations"
    yield "- **filebuf**: `std::filebuf` over a file in memory"
    yield "- **stringbuf**: `std::stringbuf`"
    yield "- **memcpy**: the bytes alone, copied in pieces of the same size"
    yield "- **floor**: a promise, a future, two payloads of one value and a look-up by name around the"
    yield "  same device, without registration, withdrawal and errors"
    yield ""
    yield f"Each number is the median of {results.repetitions} repetitions in random order, processor"
    yield "time per call. Each repetition makes its buffers at another place of the heap, since a copy"
    yield "costs up to half as much again when its ends are placed badly."
    yield ""
    yield "A request for exactly one buffer (8 KiB here) has no target: the device is then asked for one"
    yield "more buffer, which is copied into the buffer and out again."
    yield ""
    yield "## Nanoseconds per call"
    yield ""
    lines = (
        [row, *(number(results.time(row, peer)) for peer in PEERS)] for row in results.rows()
    )
    yield from table(["", *PEERS], lines)
    yield ""
    yield "One in-process remote `read`:"
    yield ""
    calls = ("call-4KiB", "call-1MiB")
    lines = ([row, *(number(results.time(row, peer)) for peer in (OURS, "floor"))] for row in calls)
    yield from table(["", OURS, "floor"], lines)
    yield ""
    yield "## Targets"
    yield ""
    yield "The time of orvi as a multiple of the peer's, and the most that it may be."
    yield ""
    yield from table(
        ["", "peer", "ratio", "at most", "holds"],
        (
            [row, peer, f"{ratio:.2f}", f"{limit:.2f}", "yes" if holds else "**no**"]
            for row, peer, ratio, limit, holds in verdicts
        ),
    )
    yield ""
    yield "## Machine"
    yield ""
    yield from machine(results.context)
    yield ""
    yield "## Command"
    yield ""
    yield "```"
    yield command
    yield "```"


def write_plot_data(results, folder):
    def write(name, lines):
        text = "".join(" ".join(map(str, line)) + "\n" for line in lines)
        Path(folder, name).write_text(text, encoding="utf-8")

    for direction in ("sgetn", "sputn"):
        # bytes per nanosecond are gigabytes per second
        write(
            f"{direction}.dat",
            [["bytes", *PEERS]]
            + [
                [size, *(size / results.time(f"{direction}-{chunk}", peer) for peer in PEERS)]
                for chunk, size in CHUNKS.items()
            ],
        )
    rows = ("sbumpc", "sputc", "getline")
    write(
        "relative.dat",
        [["row", *PEERS]]
        + [[row, *(1 / results.ratio(row, peer) for peer in PEERS)] for row in rows],
    )
    write(
        "calls.dat",
        [["row", OURS, "floor"]]
        + [
            [size, results.time(f"call-{size}", OURS) / results.time(f"call-{size}", "floor"), 1]
            for size in ("4KiB", "1MiB")
        ],
    )


def main():
    results_path, document_path, plot_folder, command = sys.argv[1:]
    results = Results(results_path)
    verdicts = []
    for row, targets in TARGETS.items():
        for peer, limit in targets:
            ratio = results.ratio(row, peer)
            verdicts.append((row, peer, ratio, limit, ratio <= limit))
    text = "\n".join(document(results, command, verdicts)) + "\n"
    Path(document_path).write_text(text, encoding="utf-8")
    write_plot_data(results, plot_folder)

    missed = 0
    for row, peer, ratio, limit, holds in verdicts:
        missed += not holds
        print(f"{row:12} {ratio:5.2f} x {peer:8} (at most {limit:.2f}){'' if holds else '  MISSED'}")
    print(f"{missed} of {len(verdicts)} targets missed" if missed else "All targets hold.")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
