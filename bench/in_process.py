"""The section of docs/benchmarks.md about calls and stream buffers in one process."""

from tables import Results, Verdict, number, table, targets, write_columns

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


class InProcess:
    def __init__(self, path):
        self.results = Results(path, {"time": lambda run: 1e9 / run["items_per_second"]})
        self.context = self.results.context

    def time(self, row, peer):
        """Return the nanoseconds that one call takes."""
        return self.results.value(row, peer, "time")

    def ratio(self, row, peer):
        return self.time(row, OURS) / self.time(row, peer)

    def rows(self):
        """Return the names of the rows in the order in which they are shown."""
        sized = [f"{direction}-{chunk}" for direction in ("sgetn", "sputn") for chunk in CHUNKS]
        return ["sbumpc", "sputc", "getline", *sized]

    def verdicts(self):
        return [
            Verdict(row, f"time / {peer}", self.ratio(row, peer), "≤", limit)
            for row, limits in TARGETS.items()
            for peer, limit in limits
        ]

    def section(self):
        yield "## In one process"
        yield ""
        yield "![Throughput by size of the request, and times of single characters and calls](benchmarks.svg)"
        yield ""
        yield "Every row moves the same 64 MiB of text lines. All stream buffers have buffers of"
        yield f"{self.context['buffer_size']} characters, the size that `std::filebuf` takes by itself."
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
        yield f"Each number is the median of {self.results.repetitions} repetitions in random order, processor"
        yield "time per call. Each repetition makes its buffers at another place of the heap, since a copy"
        yield "costs up to half as much again when its ends are placed badly."
        yield ""
        yield "A request for exactly one buffer (8 KiB here) has no target: a read then asks the device for one"
        yield "more buffer, which is copied into the buffer and out again, and a write is copied into the buffer."
        yield ""
        yield "### Nanoseconds per call"
        yield ""
        lines = ([row, *(number(self.time(row, peer)) for peer in PEERS)] for row in self.rows())
        yield from table(["", *PEERS], lines)
        yield ""
        yield "One in-process remote `read`:"
        yield ""
        calls = ("call-4KiB", "call-1MiB")
        lines = ([row, *(number(self.time(row, peer)) for peer in (OURS, "floor"))] for row in calls)
        yield from table(["", OURS, "floor"], lines)
        yield ""
        yield "### Targets"
        yield ""
        yield from targets(self.verdicts())

    def write_plot_data(self, folder):
        for direction in ("sgetn", "sputn"):
            # bytes per nanosecond are gigabytes per second
            rows = [
                [size, *(size / self.time(f"{direction}-{chunk}", peer) for peer in PEERS)]
                for chunk, size in CHUNKS.items()
            ]
            write_columns(folder, f"{direction}.dat", [["bytes", *PEERS], *rows])
        rows = [
            [row, *(1 / self.ratio(row, peer) for peer in PEERS)]
            for row in ("sbumpc", "sputc", "getline")
        ]
        write_columns(folder, "relative.dat", [["row", *PEERS], *rows])
        rows = [[size, self.ratio(f"call-{size}", "floor"), 1] for size in ("4KiB", "1MiB")]
        write_columns(folder, "calls.dat", [["row", OURS, "floor"], *rows])
