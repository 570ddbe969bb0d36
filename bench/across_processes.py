"""The section of docs/benchmarks.md about calls to another process."""

from pathlib import Path

from tables import Results, Verdict, number, table, targets, write_columns

PEERS = ["orvi", "socket", "stream", "unary", "raw"]
SIZES = ("4KiB", "64KiB", "1MiB")
KINDS = ("read", "write", "tls-read")
CONNECTS = {
    "connect": "`makeDevice` for a stream that the process has not looked for before",
    "connect-first": "the same, and the importer is made only then",
    "connect-and-read": "the same as the first, until the first character is there",
}
SHARES = ("p50", "p90", "p99")
OURS = "orvi"


class AcrossProcesses:
    def __init__(self, path):
        values = {share: lambda run, share=share: run[share] for share in SHARES}
        values["throughput"] = lambda run: run.get("bytes_per_second", 0) / 2**20
        self.results = Results(path, values)
        self.context = self.results.context

    def rows(self, sizes=SIZES):
        return [f"{kind}-{size}" for kind in KINDS for size in sizes]

    def ratio(self, row, peer, value):
        return self.results.value(row, OURS, value) / self.results.value(row, peer, value)

    def verdicts(self):
        def throughput(row, limit):
            ratio = self.ratio(row, "stream", "throughput")
            return Verdict(row, "throughput / stream", ratio, "≥", limit)

        def milliseconds(row):
            return Verdict(row, "milliseconds", self.results.value(row, OURS, "p50") * 1e3, "≤", 5)

        short = self.ratio("read-4KiB", "socket", "p50")
        short_tls = 1 / self.ratio("tls-read-4KiB", "stream", "p50")
        return [
            Verdict("read-4KiB", "median time / socket", short, "≤", 1.1),
            throughput("read-64KiB", 0.9),
            throughput("read-1MiB", 0.9),
            Verdict("tls-read-4KiB", "stream / median time", short_tls, "≥", 0.8),
            throughput("tls-read-64KiB", 0.8),
            throughput("tls-read-1MiB", 0.8),
            milliseconds("connect"),
            milliseconds("connect-first"),
        ]

    def shares(self, row, peer, unit):
        if self.results.value(row, peer, "p50") is None:
            return "–"
        return " / ".join(number(self.results.value(row, peer, share) / unit) for share in SHARES)

    def section(self):
        yield "## Across processes"
        yield ""
        yield "![Times of short calls, and throughput of long ones](benchmarks-remoting.svg)"
        yield ""
        yield "One process reads from or writes to memory of another one on the same machine, one call after"
        yield "another, each of the same size. Nothing is pinned to a processor."
        yield ""
        yield "- **orvi**: a connected `StreamBuffer` with a buffer as large as the call, so that each"
        yield "  `sgetn` or `sputn` is exactly one call of the published operation; the program checks that"
        yield "- **socket**: a Unix stream socket, blocking: 16 bytes there, the answer back"
        yield "- **stream**: a hand-written gRPC bidirectional stream, generated messages, synchronous calls"
        yield "- **unary**: a hand-written unary gRPC call, the same messages"
        yield "- **raw**: a hand-written gRPC bidirectional stream whose messages are the bytes alone, without"
        yield "  generated code, over completion queues"
        yield ""
        yield "The peers use a Unix socket, too, and one transfer reuses the messages of the one before. Their"
        yield "bytes end in a message; those of a stream buffer are copied once more, to where the caller of"
        yield "`sgetn` wants them. The rows `tls-` are mutual TLS over TCP on the loopback interface, with the"
        yield "same certificates for both."
        yield ""
        yield f"Each number is the median of {self.results.repetitions} repetitions in random order. A repetition"
        yield "connects anew and is alone in its process; what connecting takes is not in its times. Times"
        yield "are what half, nine tenths and 99 of 100 calls did not exceed."
        yield ""
        yield "### Microseconds per call"
        yield ""
        lines = ([row, *(self.shares(row, peer, 1e-6) for peer in PEERS)] for row in self.rows())
        yield from table(["", *PEERS], lines)
        yield ""
        yield "### MiB per second"
        yield ""
        lines = (
            [row, *(number(self.results.value(row, peer, "throughput")) for peer in PEERS)]
            for row in self.rows(("64KiB", "1MiB"))
        )
        yield from table(["", *PEERS], lines)
        yield ""
        yield "### Milliseconds to connect"
        yield ""
        lines = ([row, self.shares(row, OURS, 1e-3), what] for row, what in CONNECTS.items())
        yield from table(["", OURS, ""], lines)
        yield ""
        yield "### Targets"
        yield ""
        yield from targets(self.verdicts())
        peers = self.results.value("read-4KiB", "stream", "p50") / self.results.value("read-4KiB", "socket", "p50")
        ours = self.ratio("read-4KiB", "stream", "p50")
        yield ""
        yield "The target of read-4KiB is meant for machines on which most of a short call is the time until the"
        yield "other process has woken up. How far this is one of them, the hand-written stream shows: here its"
        yield f"call takes {peers:.2f} times as long as that of the bare socket, and that of **orvi** {ours:.2f} times as"
        yield "long as that of the hand-written stream."

    def machine(self):
        limit = int(Path("/proc/sys/net/core/wmem_max").read_text(encoding="utf-8")) // 1024
        yield f"- gRPC {self.context['grpc']}, Protocol Buffers {self.context['protobuf']}"
        yield f"- Socket buffers: at most {limit} KiB (`net.core.wmem_max`)"

    def write_plot_data(self, folder):
        def cell(row, peer, value, unit):
            median = self.results.value(row, peer, value)
            return None if median is None else median / unit

        short = [[row, *(cell(row, peer, "p50", 1e-6) for peer in PEERS)] for row in self.rows(["4KiB"])]
        write_columns(folder, "short.dat", [["row", *PEERS], *short])
        long = [
            [row, *(cell(row, peer, "throughput", 1024) for peer in PEERS)]
            for row in self.rows(("64KiB", "1MiB"))
        ]
        write_columns(folder, "long.dat", [["row", *PEERS], *long])
