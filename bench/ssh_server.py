"""An SSH server for one measurement, which leaves nothing behind."""

import contextlib
import getpass
import os
import shutil
import socket
import subprocess
import time
from pathlib import Path


class Unavailable(Exception):
    """The machine cannot do it; the text says why."""


def free_port():
    with socket.socket() as listener:
        listener.bind(("127.0.0.1", 0))
        return listener.getsockname()[1]


def find(command):
    """Return the path of a command, also of those for administrators."""
    path = shutil.which(command, path=os.environ.get("PATH", "") + ":/usr/sbin:/sbin")
    if path is None:
        raise Unavailable(f"the command `{command}` is not installed")
    return path


def last_line(text):
    return (text.strip().splitlines() or ["it does not say why"])[-1]


class SshServer:
    """A server on the loopback interface that knows one key. A context manager."""

    def __init__(self, folder):
        """Make what it needs in a folder of its own.

        Raises Unavailable when something is not installed.
        """
        self.folder = Path(folder, "ssh")
        self.folder.mkdir(mode=0o700)
        self.port = free_port()
        self.command = [find("sshd"), "-D", "-e", "-f", str(self.folder / "sshd_config")]
        for key in ("host", "user"):
            command = [find("ssh-keygen"), "-q", "-t", "ed25519", "-N", "", "-f", self.folder / key]
            subprocess.run(command, check=True)
        host_key = (self.folder / "host.pub").read_text(encoding="utf-8")
        self._write("known_hosts", [f"[127.0.0.1]:{self.port} {host_key.strip()}"])
        # What the machine configures for its own server and clients is not looked at.
        self._write(
            "sshd_config",
            [
                "ListenAddress 127.0.0.1",
                f"Port {self.port}",
                f"HostKey {self.folder}/host",
                f"AuthorizedKeysFile {self.folder}/user.pub",
                "StrictModes no",  # the folder above may be one for all
                "UsePAM no",
                "PasswordAuthentication no",
                "KbdInteractiveAuthentication no",
                "PermitRootLogin prohibit-password",
                "PidFile none",
                "LogLevel ERROR",
                "Subsystem sftp internal-sftp",
            ],
        )
        self.options = [
            "-F/dev/null",
            *(
                f"-o{option}"
                for option in (
                    f"IdentityFile={self.folder}/user",
                    f"UserKnownHostsFile={self.folder}/known_hosts",
                    "IdentitiesOnly=yes",
                    "BatchMode=yes",
                    "StrictHostKeyChecking=yes",
                    f"Port={self.port}",
                )
            ),
        ]
        self.login = f"{getpass.getuser()}@127.0.0.1"
        self.process = None

    def _write(self, name, lines):
        (self.folder / name).write_text("\n".join(lines) + "\n", encoding="utf-8")

    def __enter__(self):
        command = self.command
        if os.geteuid() == 0 and not Path("/run/sshd").is_dir():
            # Then the server wants an empty folder there, which only it gets to see.
            script = 'mount -t tmpfs none /run && mkdir -m 755 /run/sshd && exec "$@"'
            command = [find("unshare"), "--mount", "sh", "-c", script, "sh", *command]
        log = self.folder / "sshd.log"
        with log.open("wb") as errors:
            self.process = subprocess.Popen(command, stderr=errors)
        try:
            self._await()
            probe = [find("ssh"), *self.options, self.login, "true"]
            said = subprocess.run(probe, capture_output=True, text=True, check=False)
            if said.returncode != 0:
                raise Unavailable(f"nobody can log in to an SSH server: {last_line(said.stderr)}")
        except Unavailable:
            self.__exit__()
            raise
        return self

    def _await(self):
        patience = time.monotonic() + 10
        while time.monotonic() < patience and self.process.poll() is None:
            with contextlib.suppress(OSError), socket.create_connection(("127.0.0.1", self.port)):
                return
            time.sleep(0.02)
        text = (self.folder / "sshd.log").read_text(encoding="utf-8", errors="replace")
        raise Unavailable(f"an SSH server does not start: {last_line(text)}")

    def __exit__(self, *_):
        self.process.terminate()
        self.process.wait()

    @contextlib.contextmanager
    def mounted(self, folder, place):
        """Mount a folder for as long as the context lives. Raises Unavailable when that fails."""
        command = [find("sshfs"), f"{self.login}:{folder}", str(place), *self.options]
        unmount = [find("fusermount3"), "-u", str(place)]
        said = subprocess.run(command, capture_output=True, text=True, check=False)
        if said.returncode != 0:
            raise Unavailable(f"`sshfs` does not mount: {last_line(said.stderr)}")
        try:
            yield
        finally:
            subprocess.run(unmount, check=True)

    def sftp(self, request):
        """Return the command line that makes one request."""
        batch = self.folder / f"batch-{len(list(self.folder.glob('batch-*')))}"
        self._write(batch.name, [request])
        return [find("sftp"), "-q", *self.options, "-b", str(batch), self.login]
