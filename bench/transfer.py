"""The section of docs/benchmarks.md about copying a published file."""

import json
import statistics
from pathlib import Path

from tables import number, table

WAYS = {
    "local": "`cat FILE`, without any transfer",
    "orvi": "`orvi-stream cat` of what `orvi-stream publish FILE` has published",
    "orvi-tls": "the same over mutual TLS on the loopback interface",
    "sshfs": "`cat` of the file on a mount of `sshfs`, on the loopback interface",
    "sftp": "`sftp` of the file, on the loopback interface",
}


class Transfer:
    def __init__(self, path):
        document = json.loads(Path(path).read_text(encoding="utf-8"))
        self.size = document["size"]
        self.missing = document["missing"]
        self.medians = {way: statistics.median(each) for way, each in document["seconds"].items()}
        self.repetitions = min(len(each) for each in document["seconds"].values())

    def section(self):
        yield "## Copying a file"
        yield ""
        yield f"A file of {self.size >> 20} MiB that cannot be compressed is copied to `/dev/null`, one way after"
        yield "another in random order. Each way has been seen to bring the file's bytes. The time is that of"
        yield "the whole command, with its start and its connection; mounting, which is done anew for each"
        yield "copy, is not in it. The SSH server runs for this alone, with OpenSSH's own choice of ciphers;"
        yield "**orvi** between processes of one user on one machine encrypts nothing."
        yield ""
        yield f"Each number is the median of {self.repetitions} copies."
        yield ""
        lines = (
            [
                way,
                number(seconds),
                number(self.size / 2**20 / seconds),
                number(seconds / self.medians["orvi"]),
                WAYS[way],
            ]
            for way, seconds in self.medians.items()
        )
        yield from table(["", "seconds", "MiB per second", "time / orvi", ""], lines)
        for way, reason in self.missing.items():
            yield ""
            yield f"Without {way}: {reason}."

    def write_plot_data(self, folder):
        """There is no plot."""
