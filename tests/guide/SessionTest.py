#!/usr/bin/env python3
"""Types what a chapter of the guide shows and compares what comes: SessionTest.py GUIDE CHAPTER FOLDER...

The folders hold the programs. Every shell runs one command at a time: a command has ended before the
next one is typed, unless that is ^C, and before ^C is typed elsewhere. "..." in the output stands for
anything within a line. What a chapter continues is what was typed in the shell without a name. Exits
with 77 where this machine cannot play two hosts."""

import os
import queue
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
from pathlib import Path

import Guide

patience = 60  # seconds for a line; instrumented programs are slow
hostNames = {"10.99.1.1": "publisher.example.org", "10.99.1.2": "reader.example.org"}


class Failure(Exception):
    pass


class Running:
    """A command that was typed."""

    def __init__(self, command, prefix, **settings):
        self.command = command
        self.process = subprocess.Popen(
            [*prefix, "bash", "-c", command.text], stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, start_new_session=True,
            **settings)
        self.lines = queue.Queue()
        threading.Thread(target=self.collect, daemon=True).start()

    def collect(self):
        for line in self.process.stdout:
            self.lines.put(line.rstrip("\n"))
        self.lines.put(None)

    def fail(self, expected, actual):
        raise Failure(f"line {self.command.line}: {self.command.text}\n"
                      f"  expected: {expected}\n  came:     {actual}")

    def expect(self, expected):
        """Wait for a line, or for the end, which is None."""
        wanted = "the end" if expected is None else expected
        try:
            line = self.lines.get(timeout=patience)
        except queue.Empty:
            self.fail(wanted, "nothing")
        if expected is None or line is None:
            if line is not expected:
                self.fail(wanted, "the end" if line is None else line)
        elif not re.fullmatch(".*".join(map(re.escape, expected.split("..."))), line):
            self.fail(wanted, line)

    def interrupt(self):
        if self.process.returncode is not None:
            self.fail("to be interrupted", "the end")
        os.killpg(self.process.pid, signal.SIGINT)

    def end(self):
        if self.process.returncode is None:
            self.expect(None)
            self.process.wait(patience)

    def kill(self):
        if self.process.poll() is None:
            os.killpg(self.process.pid, signal.SIGKILL)


def play(commands, prefixes, **settings):
    shells = {}
    try:
        for command in commands:
            before = shells.get(command.shell)
            if command.text == "^C":
                for other in shells.values():
                    if other is not before:
                        other.end()
                before.interrupt()
                continue
            if before:
                before.end()
            running = Running(command, prefixes.get(command.shell, []), **settings)
            shells[command.shell] = running
            for line in command.output:
                running.expect(line)
        for running in shells.values():
            running.end()
    finally:
        for running in shells.values():
            running.kill()


def freePort():
    with socket.socket() as probe:
        probe.bind(("127.0.0.1", 0))
        return str(probe.getsockname()[1])


def withPort(commands, port):
    """Port 7000 may be taken here."""
    for command in commands:
        command.text = re.sub(r"\b7000\b", port, command.text)
        command.output = [re.sub(r"\b7000\b", port, line) for line in command.output]
    return commands


def sessionsOf(chapters, title):
    chapter = next(chapter for chapter in chapters if chapter.title == title)
    if not chapter.commands:
        sys.exit(f"Nothing is typed in {title}")
    before = []
    if chapter.continues:
        before, _ = sessionsOf(chapters, chapter.continues)
    return [command for command in before if not command.shell] + chapter.commands, chapter.onTwoHosts


def beOnTwoHosts(work):
    """Join this process's network namespace with another one, and return what runs a command there."""
    if "IN_NAMESPACE" not in os.environ:
        enter = ["unshare", "--net", "--mount"]
        if os.geteuid() != 0:
            enter += ["--user", "--map-root-user"]
        if subprocess.run([*enter, "unshare", "--net", "true"], capture_output=True).returncode:
            print("Network namespaces cannot be made here")
            sys.exit(77)
        os.environ["IN_NAMESPACE"] = "yes"
        sys.exit(subprocess.run([*enter, sys.executable, *sys.argv]).returncode)

    other = subprocess.Popen(
        ["unshare", "--net", "sh", "-c", "echo && exec cat"], stdin=subprocess.PIPE,
        stdout=subprocess.PIPE)  # ends with this process
    other.stdout.readline()
    there = ["nsenter", f"--net=/proc/{other.pid}/ns/net"]
    subprocess.run(f"ip link add cable type veth peer name cable netns {other.pid}".split(), check=True)
    for prefix, address in zip((there, []), hostNames):
        for words in (f"addr add {address}/24 dev cable", "link set lo up", "link set cable up"):
            subprocess.run([*prefix, "ip", *words.split()], check=True)
    hosts = work / "hosts"
    hosts.write_text("".join(f"{address} {name}\n" for address, name in hostNames.items()))
    subprocess.run(["mount", "--bind", hosts, "/etc/hosts"], check=True)
    return there


def main():
    guide, title, *folders = sys.argv[1:]
    commands, onTwoHosts = sessionsOf(Guide.parse(guide), title)
    work = Path(tempfile.mkdtemp(prefix="guide."))  # paths of sockets must be short
    try:
        prefixes = {"publisher": beOnTwoHosts(work)} if onTwoHosts else {}
        folder, meeting = work / "here", work / "run"
        folder.mkdir()
        meeting.mkdir(mode=0o700)
        environment = dict(os.environ, LC_ALL="C", XDG_RUNTIME_DIR=str(meeting))
        environment["PATH"] = ":".join([*folders, environment["PATH"]])
        play(withPort(commands, freePort()), prefixes, cwd=folder, env=environment)
    except Failure as failure:
        sys.exit(str(failure))
    finally:
        shutil.rmtree(work)


main()
