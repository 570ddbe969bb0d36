"""What the sections of docs/benchmarks.md are written with."""

import json
import statistics
import sys
from dataclasses import dataclass
from pathlib import Path


@dataclass
class Verdict:
    """Whether a target holds, and how closely."""

    row: str
    what: str
    value: float
    bound: str  # "≤" or "≥"
    limit: float

    @property
    def holds(self):
        return self.value <= self.limit if self.bound == "≤" else self.value >= self.limit

    def cells(self):
        verdict = "yes" if self.holds else "**no**"
        return [self.row, self.what, f"{self.value:.2f}", f"{self.bound} {self.limit:.2f}", verdict]

    def line(self):
        missed = "" if self.holds else "  MISSED"
        return f"{self.row:15} {self.value:6.2f} {self.bound} {self.limit:.2f}  {self.what}{missed}"


class Results:
    """The results of one program: for each benchmark and value, the median of the repetitions."""

    def __init__(self, path, values):
        """Read the results. `values` maps each name to a function of one repetition."""
        document = json.loads(Path(path).read_text(encoding="utf-8"))
        self.context = document["context"]
        samples = {}
        for run in document["benchmarks"]:
            if run.get("error_occurred"):
                sys.exit(f"{run['name']}: {run['error_message']}")
            if run["run_type"] == "iteration":
                name = "/".join(run["run_name"].split("/")[:2])
                samples.setdefault(name, []).append(run)
        self.repetitions = min(len(runs) for runs in samples.values())
        self.medians = {}
        for name, runs in samples.items():
            for value, of in values.items():
                each = [of(run) for run in runs]
                if None not in each:
                    self.medians[name, value] = statistics.median(each)

    def value(self, row, peer, value):
        """Return a median, or None when the row does not have the peer, or the peer not the value."""
        return self.medians.get((f"{row}/{peer}", value))


def number(value):
    """Write a value with three digits that count."""
    if value is None:
        return "–"
    return f"{value:,.0f}" if value >= 100 else f"{value:.3g}"


def counter(name, unit=1):
    """Return what takes a value from a repetition, in that unit, if the repetition has it."""
    return lambda run: run[name] / unit if name in run else None


def table(header, lines):
    yield "| " + " | ".join(header) + " |"
    yield "|---|" + "---:|" * (len(header) - 1)
    for line in lines:
        yield "| " + " | ".join(line) + " |"


def targets(verdicts):
    header = ["", "of orvi", "value", "target", "holds"]
    yield from table(header, (verdict.cells() for verdict in verdicts))


def write_columns(folder, name, lines):
    """Write the data of a plot. What is None is missing there."""
    text = "".join(
        " ".join("?" if cell is None else str(cell) for cell in line) + "\n" for line in lines
    )
    Path(folder, name).write_text(text, encoding="utf-8")
