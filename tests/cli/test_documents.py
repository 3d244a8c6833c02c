"""The pages of docs/applets show what the program prints.

A block ```session holds commands behind "$ " and what they print, both streams in order; a block
```usage is the same with one command. Commands of one page run on one board, one after the other.
"timeout N" ends a command after N seconds of board time. Texts in GB2312 are shown readable, colours
are left out, and build stamps are <build>.
"""

import pathlib
import re
import shlex
import subprocess

import pytest
from conftest import environment

PAGES = sorted((pathlib.Path(__file__).resolve().parents[2] / "docs/applets").glob("*.md"))
DATE = "2024-01-05 09:05:03"
COLOUR = re.compile(r"\x1b\[[0-9;]*m")
BUILD = re.compile(r"(build |BUILD: )(.*\d:\d.*?)(?=\r?$|  ------$)", re.M)


def readable(output):
    lines = []
    for line in output.split(b"\n"):
        try:
            lines.append(line.decode())
        except UnicodeDecodeError:
            lines.append(line.decode("gb2312"))
    text = "\n".join(lines).replace("\r", "")
    return BUILD.sub(r"\1<build>", COLOUR.sub("", text))


def printed(board, work, command):
    """What a documented command prints, both streams in order."""
    words = shlex.split(command)
    limit = []
    if words[0] == "timeout":
        limit, words = ["--for", words[1]], words[2:]
    program = board.build / "bin" / words[0]
    if words[0] == "vboard":
        words = [program, *(board.directory if word == "board" else word for word in words[1:])]
    else:
        words = [
            board.build / "bin/vboard",
            "run",
            "--board",
            board.directory,
            "--speed",
            "max",
            "--date",
            DATE,
            *limit,
            "--",
            program,
            *words[1:],
        ]
    done = subprocess.run(
        list(map(str, words)),
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        stdin=subprocess.DEVNULL,
        cwd=work,
        env=environment(),
        timeout=60,
        check=False,
    )
    return readable(done.stdout)


def blocks(page):
    text = page.read_text(encoding="utf-8")
    return re.findall(r"^```(?:session|usage)\n(.*?)^```$", text, re.M | re.S)


def commands(block):
    """(command, expected text) of a block, in order."""
    parts = re.split(r"^\$ (.*)\n", block, flags=re.M)
    assert parts[0] == "", "a block begins with a command"
    return list(zip(parts[1::2], parts[2::2]))


@pytest.mark.parametrize("page", PAGES, ids=lambda page: page.stem)
def test_page_shows_what_the_program_prints(board, tmp_path, page):
    for block in blocks(page):
        for command, expected in commands(block):
            output = printed(board, tmp_path, command)
            # A page leaves out empty lines around a command's output.
            assert output.strip("\n") == expected.strip("\n"), command
