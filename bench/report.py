#!/usr/bin/env python3
"""Turn the results of the benchmarks into docs/benchmarks.md and the data of its plots.

Usage: bench/report.py RESULTS DOCUMENT.md COMMAND...

RESULTS is the folder in which scripts/bench collects the results, and gets the data of the plots.

Ends with 1 when a target is missed.
"""

import os
import platform
import sys
from pathlib import Path

from across_processes import AcrossProcesses
from in_process import InProcess
from readers import Readers
from series import Series
from streams import Streams
from sweeps import Sweeps
from transfer import Transfer


def machine(in_process, across_processes):
    """Describe the machine without naming it."""
    context = in_process.context
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
    yield f"- Boost {context['boost'].replace('_', '.')}"
    yield from across_processes.machine()
    for part, name in ((in_process, "in one process"), (across_processes, "across processes")):
        load = " / ".join(f"{value:.1f}" for value in part.context["load_avg"])
        yield f"- Load when the part {name} started (1, 5, 15 minutes): {load}"


def document(in_process, across_processes, sections, commands):
    yield "# Benchmarks"
    yield ""
    yield "Written by `scripts/bench` from one run. Only ratios within the run mean something on"
    yield "another machine."
    yield ""
    for part in (in_process, across_processes, *sections):
        yield from part.section()
        yield ""
    yield "## Machine"
    yield ""
    yield from machine(in_process, across_processes)
    yield ""
    yield "## Commands"
    yield ""
    yield "```"
    yield from commands
    yield "```"


def main():
    folder, document_path, *commands = sys.argv[1:]
    results = Path(folder)
    parts = InProcess(results / "in-process.json"), AcrossProcesses(results / "across-processes.json")
    series = Series(results / "series-in-process.json", results / "series-across-processes.json")
    transfer = Transfer(results / "transfer.json")
    sections = Sweeps(series), Streams(series), Readers(series), transfer
    text = "\n".join(document(*parts, sections, commands)) + "\n"
    Path(document_path).write_text(text, encoding="utf-8")
    for part in (*parts, *sections):
        part.write_plot_data(results)

    verdicts = [verdict for part in parts for verdict in part.verdicts()]
    for verdict in verdicts:
        print(verdict.line())
    missed = sum(not verdict.holds for verdict in verdicts)
    print(f"{missed} of {len(verdicts)} targets missed" if missed else "All targets hold.")
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
