"""The guide as a list of chapters, with the code that it quotes and the sessions that it shows."""

import re
from dataclasses import dataclass, field


@dataclass
class Quote:
    """A block of code, and where it is from."""

    file: str
    region: str
    text: str
    line: int


@dataclass
class Command:
    """What is typed in a shell, and what is seen then. `^C` interrupts the command before."""

    shell: str
    text: str
    line: int
    output: list = field(default_factory=list)


@dataclass
class Chapter:
    """A chapter may continue the sessions of another one, and need two hosts."""

    title: str
    continues: str = ""
    onTwoHosts: bool = False
    quotes: list = field(default_factory=list)
    commands: list = field(default_factory=list)


def parseSession(lines, first):
    commands = []
    for number, line in enumerate(lines, first):
        typed = re.fullmatch(r"(\w*)\$ (.*)", line)
        if commands and commands[-1].text.endswith("\\"):
            commands[-1].text = commands[-1].text[:-1] + line.lstrip()
        elif typed:
            commands.append(Command(typed[1], typed[2], number))
        elif commands:
            commands[-1].output.append(line)
        else:
            raise SystemExit(f"line {number}: a session begins with output")
    return commands


def parse(path):
    """Return the chapters. A block that is neither quoted nor a session is refused."""
    chapters = [Chapter("")]
    origin = None
    block = None
    with open(path, encoding="utf-8") as guide:
        for number, line in enumerate(guide.read().splitlines(), 1):
            chapter = chapters[-1]
            if line.startswith("```") and block is None:
                block, language, first = [], line[3:], number + 1
            elif line == "```":
                if language == "console":
                    chapter.commands += parseSession(block, first)
                elif origin:
                    text = "".join(row + "\n" for row in block)
                    chapter.quotes.append(Quote(origin[1], origin[2], text, first))
                else:
                    raise SystemExit(f"line {first}: nobody knows where this is from")
                block = origin = None
            elif block is not None:
                block.append(line)
            elif line.startswith("## "):
                chapters.append(Chapter(line[3:]))
            elif found := re.fullmatch(r"<!-- (\S+) \[(\w+)\] -->", line):
                origin = found
            elif found := re.fullmatch(r"<!-- continues (.*?)(, on two hosts)? -->", line):
                chapter.continues, chapter.onTwoHosts = found[1], bool(found[2])
    if block is not None:
        raise SystemExit("a block does not end")
    return chapters
