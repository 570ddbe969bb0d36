"""The section of docs/benchmarks.md about threads that read at the same time."""

from tables import number, table, write_columns

COUNTS = (1, 2, 4, 8, 16, 32, 64)
PEERS = {
    "in-process": ("orvi", "orvi-one", "floor"),
    "across-processes": ("orvi", "orvi-one", "socket", "stream"),
}


class Readers:
    def __init__(self, series):
        self.series = series

    def value(self, place, count, peer, value):
        return self.series.value(place, f"readers-{count}", peer, value)

    def section(self):
        yield "## By number of readers"
        yield ""
        yield "![Throughput and times by the number of threads that read](benchmarks-readers.svg)"
        yield ""
        yield "So many threads of one process read 4 KiB after 4 KiB from memory, all at the same time. The"
        yield "program checks the bytes of one read of each thread, before the time that is measured, and that"
        yield "each read is one call of the published operation."
        yield ""
        yield "- **orvi**: each thread has a stream of its own"
        yield "- **orvi-one**: each thread has its own connection to the same stream, which serves one call"
        yield "  after another: under the device's own lock in one process, across processes as an"
        yield "  endpoint does by default"
        yield "- **floor**, **socket**, **stream**: as above, each thread with its own; each **stream** has"
        yield "  a connection of its own, where those of **orvi** share one"
        yield ""
        yield f"Each number is the median of {self.series.repetitions('repetitions')} in random order. Times are what"
        yield "half and 99 of 100 calls did not exceed; with more threads than processors, that is the time"
        yield "of the calls before it, too."
        yield ""
        yield "Across processes, the threads of **orvi** and **orvi-one** share the importer of their process: one"
        yield "connection, and one thread at a time that handles what arrives. So throughput does not grow with"
        yield "the threads, and a few of them can move less than one: who handles the answer of another thread"
        yield "has to wake that one. [remoting.md](remoting.md#one-read-across-processes) says what to do."
        for place, title in self.series.PLACES.items():
            yield ""
            yield f"### {title}, MiB per second, all together"
            yield ""
            lines = (
                [str(count), *(number(self.value(place, count, peer, "throughput")) for peer in PEERS[place])]
                for count in COUNTS
            )
            yield from table(["readers", *PEERS[place]], lines)
        for place, title in self.series.PLACES.items():
            yield ""
            yield f"### {title}, microseconds per call"
            yield ""
            lines = (
                [
                    str(count),
                    *(
                        " / ".join(number(self.value(place, count, peer, share)) for share in ("p50", "p99"))
                        for peer in PEERS[place]
                    ),
                ]
                for count in COUNTS
            )
            yield from table(["readers", *PEERS[place]], lines)

    def write_plot_data(self, folder):
        for place, peers in PEERS.items():
            values = ("p50", "p99", "throughput")
            rows = [
                [count, *(self.value(place, count, peer, value) for peer in peers for value in values)]
                for count in COUNTS
            ]
            header = ["readers", *(f"{peer}-{value}" for peer in peers for value in values)]
            write_columns(folder, f"readers-{place}.dat", [header, *rows])
