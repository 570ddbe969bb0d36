#!/usr/bin/env python3
"""Holds the code in the guide against the programs: QuoteTest.py SOURCES [--fix]

Every block must be what stands between the two marks of its region, every region must be quoted, and
every program must be run by a session. With --fix, the blocks are replaced by what they should be."""

import re
import sys
import textwrap
from pathlib import Path

import Guide


def regionsOf(path):
    """Return name and text of what stands between the marks of a file."""
    regions = {}
    rows = path.read_text(encoding="utf-8").splitlines(keepends=True)
    marks = [(number, found[1]) for number, row in enumerate(rows)
             if (found := re.fullmatch(r"\s*// \[(\w+)\]\n", row))]
    for (first, name), (last, end) in zip(marks[::2], marks[1::2]):
        if name != end or name in regions:
            raise SystemExit(f"{path}: the marks of [{name}] do not fit")
        regions[name] = textwrap.dedent("".join(rows[first + 1:last]))
    if len(marks) % 2:
        raise SystemExit(f"{path}: [{marks[-1][1]}] does not end")
    return regions


def fix(guide, quotes, regions):
    rows = guide.read_text(encoding="utf-8").splitlines(keepends=True)
    for quote in reversed(quotes):
        rows[quote.line - 1:quote.line - 1 + quote.text.count("\n")] = [
            regions[quote.file, quote.region]]
    guide.write_text("".join(rows), encoding="utf-8")


def main():
    sources = Path(sys.argv[1])
    guide = sources / "docs" / "guide.md"
    chapters = Guide.parse(guide)
    quotes = [quote for chapter in chapters for quote in chapter.quotes]
    programs = sorted((sources / "examples" / "guide").glob("*.cpp"))
    regions = {(str(path.relative_to(sources)), name): text
               for path in programs for name, text in regionsOf(path).items()}
    if "--fix" in sys.argv:
        fix(guide, quotes, regions)
        return

    findings = []
    for quote in quotes:
        if regions.get((quote.file, quote.region)) != quote.text:
            findings.append(f"line {quote.line}: {quote.file} [{quote.region}] reads differently")
    for file, name in regions.keys() - {(quote.file, quote.region) for quote in quotes}:
        findings.append(f"{file} [{name}] is not quoted")
    typed = " ".join(command.text for chapter in chapters for command in chapter.commands)
    for path in programs:
        if not re.search(rf"\bguide-{path.stem}(?![\w-])", typed):
            findings.append(f"{path.name} is not run")
    if not quotes or findings:
        sys.exit("\n".join(findings) or "The guide has no code")


main()
