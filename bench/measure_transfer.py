#!/usr/bin/env python3
"""Measure how long it takes to copy a published file, beside transfers over SSH on this machine.

Usage: bench/measure_transfer.py ORVI-STREAM REPETITIONS RESULT.json

The SSH server is one of its own: on a free port of the loopback interface, with keys that it makes in
a temporary folder. Nothing of the machine's configuration is read or changed. What the machine cannot
do is left out, and the result says why.
"""

import contextlib
import hashlib
import json
import os
import random
import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

from ssh_server import SshServer, Unavailable, free_port

SIZE = 256 << 20
UUID = "f11e0000-0000-4000-8000-000000000001"


def make_file(path):
    """Write bytes that cannot be compressed, and return their checksum."""
    checksum = hashlib.sha256()
    with path.open("wb") as file:
        for _ in range(SIZE >> 20):
            piece = os.urandom(1 << 20)
            checksum.update(piece)
            file.write(piece)
    return checksum.hexdigest()


def make_certificates(folder):
    commands = """
        new='-newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes'
        openssl req -x509 $new -days 2 -subj /CN=authority -keyout authority.key -out authority.pem &&
        openssl req -new $new -subj /CN=bench -addext subjectAltName=DNS:localhost \\
            -keyout bench.key -out bench.csr &&
        openssl x509 -req -in bench.csr -days 2 -copy_extensions copy \\
            -CA authority.pem -CAkey authority.key -out bench.pem
    """
    subprocess.run(["sh", "-c", commands], cwd=folder, check=True, capture_output=True)
    return [
        f"--tls-cert={folder}/bench.pem",
        f"--tls-key={folder}/bench.key",
        f"--tls-ca={folder}/authority.pem",
    ]


@contextlib.contextmanager
def published(tool, file, options):
    """Publish the file for as long as the context lives."""
    command = [tool, "publish", f"--uuid={UUID}", *options, file]
    with subprocess.Popen(command, stdout=subprocess.PIPE, text=True) as publisher:
        try:
            if publisher.stdout.readline().strip() != UUID:  # printed once it can be reached
                sys.exit("orvi-stream does not publish the file.")
            yield
        finally:
            publisher.terminate()


class Copy:
    """One way to copy the file, as a command line whose output may be dropped."""

    def __init__(self, name, command, check=None, fresh=contextlib.nullcontext):
        """Name a command that copies to its output. `check` is one that does so when it does not."""
        self.name = name
        self.command = command
        self.check = check or command
        self.fresh = fresh

    def seconds(self):
        with self.fresh():
            begin = time.perf_counter()
            subprocess.run(self.command, stdout=subprocess.DEVNULL, check=True)
            return time.perf_counter() - begin

    def checksum(self):
        with self.fresh(), subprocess.Popen(self.check, stdout=subprocess.PIPE) as process:
            checksum = hashlib.sha256()
            while piece := process.stdout.read(1 << 20):
                checksum.update(piece)
        return checksum.hexdigest()


def own_copies(tool, file, folder, context):
    """Publish the file to processes of this machine and over TLS."""
    tls = make_certificates(folder)
    run = folder / "run"
    port = free_port()
    context.enter_context(
        published(tool, file, [f"--runtime-dir={run}", f"--listen=127.0.0.1:{port}", *tls])
    )
    yield Copy("orvi", [tool, "cat", f"--runtime-dir={run}", UUID])
    yield Copy(
        "orvi-tls", [tool, "cat", "--no-local", f"--connect=localhost:{port}", *tls, UUID]
    )


def ssh_copies(file, folder, context, missing):
    """Start an SSH server and yield what can be done with it; note what cannot, and why."""
    try:
        server = context.enter_context(SshServer(folder))
    except Unavailable as reason:
        missing |= {"sshfs": str(reason), "sftp": str(reason)}
        return
    mounted = folder / "mounted"
    mounted.mkdir()

    def mount():
        # Anew each time: what the kernel has kept of a file is no transfer.
        return server.mounted(folder, mounted)

    try:
        with mount():
            pass
        yield Copy("sshfs", ["cat", mounted / file.name], fresh=mount)
    except Unavailable as reason:
        missing["sshfs"] = str(reason)
    if shutil.which("sftp"):
        copy = server.sftp(f"get {file} /dev/null")
        through = folder / "copied"
        whole = ["sh", "-c", f'"$@" >&2 && cat {through}', "sh", *server.sftp(f"get {file} {through}")]
        yield Copy("sftp", copy, check=whole)
    else:
        missing["sftp"] = "the command `sftp` is not installed"


def main():
    tool, repetitions, result = sys.argv[1], int(sys.argv[2]), Path(sys.argv[3])
    with tempfile.TemporaryDirectory(prefix="orvi-bench-") as name, contextlib.ExitStack() as context:
        folder = Path(name)
        file = folder / "file"
        expected = make_file(file)
        missing = {}
        copies = [Copy("local", ["cat", file])]
        copies += own_copies(tool, file, folder, context)
        copies += ssh_copies(file, folder, context, missing)
        for copy in copies:
            if copy.checksum() != expected:
                sys.exit(f"{copy.name} brings other bytes than the file has.")
        seconds = {copy.name: [] for copy in copies}
        order = random.Random(1)
        for _ in range(repetitions):
            for copy in order.sample(copies, len(copies)):
                seconds[copy.name].append(copy.seconds())
    document = {"size": SIZE, "seconds": seconds, "missing": missing}
    result.write_text(json.dumps(document, indent=1), encoding="utf-8")


if __name__ == "__main__":
    main()
