#!/usr/bin/env python3
"""Run the benchmarks of two builds in turn and say which rows moved beyond the noise.

Usage: bench/compare.py [--rounds N] [--filter REGEX] NAME=BUILD-FOLDER NAME=BUILD-FOLDER
"""

import argparse
import json
import random
import subprocess
import sys
import tempfile
from pathlib import Path

from comparison import ERROR_RATE, FEWEST_SAMPLES, LEAST_CHANGE, compare
from tables import number

PROGRAMS = {"bench/orvi_bench": "0.01", "bench/remoting/orvi_remoting_bench": "0.05"}
PLACES = {"bench/orvi_bench": "in process", "bench/remoting/orvi_remoting_bench": "across"}
TIMES = ("publish", "withdraw", "connect", "read")
SIZES = ("memory", "published", "importer", "publisher")


def values_of(run):
    """Return what is compared of a repetition, by name: microseconds or KiB, less is better."""
    name = "/".join(run["run_name"].split("/")[:2])
    values = {}
    if "items_per_second" in run:
        values[f"{name}, time"] = 1e6 / run["items_per_second"]
    for counter in ("p50", *TIMES):
        if counter in run:
            what = "median" if counter == "p50" else counter
            values[f"{name}, {what}"] = run[counter] * 1e6
    for counter in SIZES:
        if counter in run:
            values[f"{name}, {counter} [KiB]"] = run[counter] / 1024
    return {name: value for name, value in values.items() if value > 0}


class Build:
    def __init__(self, text):
        self.name, _, folder = text.partition("=")
        self.folder = Path(folder)
        self.values = {}

    def run(self, program, pattern):
        """Run each benchmark of a program once, and collect the values."""
        path = self.folder / program
        if not path.exists():
            return
        with tempfile.NamedTemporaryFile(suffix=".json") as result:
            command = [
                path,
                f"--benchmark_filter={pattern}",
                f"--benchmark_min_time={PROGRAMS[program]}",
                f"--benchmark_out={result.name}",
                "--benchmark_out_format=json",
            ]
            # What matches nothing is said on the standard error, and no failure.
            said = subprocess.run(command, capture_output=True, text=True, check=False)
            if said.returncode != 0:
                sys.exit(f"{path}: {said.stderr.strip()}")
            text = Path(result.name).read_text(encoding="utf-8")
        for run in json.loads(text)["benchmarks"] if text.strip() else []:
            if run.get("error_occurred"):
                sys.exit(f"{self.name}: {run['name']}: {run['error_message']}")
            for name, value in values_of(run).items():
                self.values.setdefault(f"{PLACES[program]}: {name}", []).append(value)


def measure(builds, rounds, pattern):
    # In random order: what changes every minute or so must not always meet the same build.
    order = random.Random(1)
    for done in range(rounds):
        for program in PROGRAMS:
            for build in order.sample(builds, len(builds)):
                build.run(program, pattern)
        print(f"\rround {done + 1} of {rounds}", end="", file=sys.stderr)
    print(file=sys.stderr)


def report(first, second):
    changes = compare(first.values, second.values)
    if not changes:
        sys.exit("There are no rows that both commits have.")
    width = max(len(change.row) for change in changes)
    print(f"{'microseconds':{width}} {first.name:>12} {second.name:>12}   ratio (95 % interval)")
    for change in changes:
        verdict = ("", "slower" if change.ratio > 1 else "faster")[change.moved]
        if verdict and "[KiB]" in change.row:
            verdict = "larger" if change.ratio > 1 else "smaller"
        print(
            f"{change.row:{width}} {number(change.first):>12} {number(change.second):>12}   "
            f"{change.ratio:.3f} ({change.low:.3f} to {change.high:.3f})  {verdict}".rstrip()
        )
    for build, other in ((first, second), (second, first)):
        alone = [row for row in build.values if row not in other.values]
        if alone:
            print(f"Only {build.name} has: {'; '.join(alone)}")
    moved = [change for change in changes if change.moved]
    print(
        f"{len(moved)} of {len(changes)} rows moved beyond the noise and by {LEAST_CHANGE:.0%} or more"
        f" (chance of any by accident: {ERROR_RATE:.0%})."
    )


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--rounds", type=int, default=15)
    parser.add_argument("--filter", default="/orvi")
    parser.add_argument("builds", nargs=2, type=Build)
    arguments = parser.parse_args()
    if arguments.rounds < FEWEST_SAMPLES:
        parser.error(f"at least {FEWEST_SAMPLES} rounds are needed to tell a change from noise")
    measure(arguments.builds, arguments.rounds, arguments.filter)
    report(*arguments.builds)


if __name__ == "__main__":
    main()
