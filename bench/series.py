"""What is shown over a growing number: each row is measured in one process and across processes."""

from tables import Results, counter

SHARES = ("p50", "p90", "p99")


class Series:
    """The results of both places. Times are in microseconds, sizes in KiB or MiB."""

    PLACES = {"in-process": "In one process", "across-processes": "Across processes"}

    def __init__(self, in_process_path, across_processes_path):
        times = (*SHARES, "publish", "withdraw", "connect", "read")
        values = {name: counter(name, 1e-6) for name in times}
        values |= {
            name: counter(name, 1024) for name in ("memory", "published", "importer", "publisher")
        }
        values["throughput"] = counter("bytes_per_second", 2**20)
        values["calls"] = counter("items_per_second", 1000)
        self.places = {
            "in-process": Results(in_process_path, values),
            "across-processes": Results(across_processes_path, values),
        }
        self.counts = {place: results.repetitions for place, results in self.places.items()}

    def repetitions(self, what):
        """Say how many `what` each median is of, which need not be as many in both places."""
        here, across = (self.counts[place] for place in self.PLACES)
        return f"{here} {what}" + ("" if here == across else f" (across processes: {across})")

    def value(self, place, row, peer, value):
        return self.places[place].value(row, peer, value)
