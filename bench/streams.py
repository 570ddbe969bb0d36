"""The section of docs/benchmarks.md about what streams cost while many are published."""

from tables import number, table, write_columns

COUNTS = (1, 10, 100, 1_000, 10_000)
ENOUGH = 100  # Memory comes in pages and blocks: divided by few streams, it says nothing of one.
TIMES = {
    "in-process": ("publish", "withdraw", "connect", "read"),
    "across-processes": ("connect", "read"),
}
MEMORY = {
    "in-process": {"memory": "published"},
    "across-processes": {
        "published": "published",
        "publisher": "connected, publisher",
        "importer": "connected, importer",
    },
}


class Streams:
    def __init__(self, series):
        self.series = series

    def value(self, place, count, value):
        if value in MEMORY[place] and count < ENOUGH:
            return None
        return self.series.value(place, f"streams-{count}", "orvi", value)

    def section(self):
        yield "## By number of published streams"
        yield ""
        yield "![Times and memory by the number of published streams](benchmarks-streams.svg)"
        yield ""
        yield "A process publishes so many streams with buffers of 4 KiB over memory. Then it is measured"
        yield "what one takes: to publish one more and to withdraw it again, to connect to any of them with"
        yield "`makeDevice`, and one read of 4 KiB over connected ones in turn. Across processes, another"
        yield "process connects and reads; it does not know a stream when it connects to it."
        yield ""
        yield "Memory is what the processes have more of it in RAM, for each stream: once published, and,"
        yield "across processes, on both sides once the other process is connected to all of them at the same"
        yield "time and has read from each. What the library needs once is not in it, as far as the first use takes it."
        yield ""
        yield f"Each number is the median of {self.series.repetitions('new processes')}, of medians of 51 times (of"
        yield "2,000 for a read)."
        for place, title in self.series.PLACES.items():
            values = (*TIMES[place], *MEMORY[place])
            header = [*(f"{time} [µs]" for time in TIMES[place])]
            header += [f"{what} [KiB]" for what in MEMORY[place].values()]
            yield ""
            yield f"### {title}"
            yield ""
            lines = (
                [f"{count:,}", *(number(self.value(place, count, value)) for value in values)]
                for count in COUNTS
            )
            yield from table(["streams", *header], lines)

    def write_plot_data(self, folder):
        for place in self.series.PLACES:
            values = (*TIMES[place], *MEMORY[place])
            rows = [[count, *(self.value(place, count, value) for value in values)] for count in COUNTS]
            write_columns(folder, f"streams-{place}.dat", [["streams", *values], *rows])
