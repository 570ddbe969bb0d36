"""The section of docs/benchmarks.md about one call by the size of the buffer."""

from series import SHARES
from tables import number, table, write_columns

SIZES = [512 << step for step in range(12)]
PEERS = {"in-process": ("orvi", "call", "floor"), "across-processes": ("orvi", "socket", "stream")}


def name_of(size):
    if size >= 1 << 20:
        return f"{size >> 20}MiB"
    return f"{size >> 10}KiB" if size >= 1 << 10 else f"{size}B"


class Sweeps:
    def __init__(self, series):
        self.series = series

    def value(self, place, size, peer, value):
        return self.series.value(place, f"sweep-{name_of(size)}", peer, value)

    def shares(self, place, size, peer):
        return " / ".join(number(self.value(place, size, peer, share)) for share in SHARES)

    def section(self):
        yield "## By size of the buffer"
        yield ""
        yield "![Times and throughput of reads by the size of the buffer](benchmarks-sweeps.svg)"
        yield ""
        yield "One read of a whole buffer after another, from memory. The program checks that each is one"
        yield "call of the published operation."
        yield ""
        yield "- **orvi**: a connected `StreamBuffer` with a buffer of that size"
        yield "- **call**: the same remote `read` without the stream buffer around it"
        yield "- **floor**, **socket**, **stream**: as above"
        yield ""
        yield f"Each number is the median of {self.series.repetitions('repetitions')} in random order, of times on"
        yield "the clock. Times are what half, nine tenths and 99 of 100 calls did not exceed, the reading of"
        yield "the clock included; in one process, one call in 16 is timed by itself."
        for place, title in self.series.PLACES.items():
            yield ""
            yield f"### {title}, microseconds per call"
            yield ""
            lines = (
                [name_of(size), *(self.shares(place, size, peer) for peer in PEERS[place])]
                for size in SIZES
            )
            yield from table(["", *PEERS[place]], lines)
        for place, title in self.series.PLACES.items():
            yield ""
            yield f"### {title}, MiB per second"
            yield ""
            lines = (
                [
                    name_of(size),
                    *(number(self.value(place, size, peer, "throughput")) for peer in PEERS[place]),
                ]
                for size in SIZES
            )
            yield from table(["", *PEERS[place]], lines)

    def write_plot_data(self, folder):
        for place, peers in PEERS.items():
            rows = [
                [size, *(self.value(place, size, peer, value) for peer in peers
                         for value in ("p50", "p99", "throughput"))]
                for size in SIZES
            ]
            header = ["bytes", *(f"{peer}-{value}" for peer in peers
                                 for value in ("p50", "p99", "throughput"))]
            write_columns(folder, f"sweep-{place}.dat", [header, *rows])
