"""Draws a recorded terminal session as an SVG: draw_session.py COMMAND RECORDING OUTPUT

Long recordings are cut in the middle, and the cut is shown. Texts in GB2312 are shown readable.
"""

import re
import sys

from rich.console import Console
from rich.text import Text

FIRST, LAST = 18, 22


def readable(line):
    """One recorded line as text; bytes that are not UTF-8 are one of the older tests' GB2312."""
    line = line.replace(b"\r", b"")
    try:
        return line.decode()
    except UnicodeDecodeError:
        return line.decode("gb2312", "replace")


def main():
    command, recording, output = sys.argv[1:]
    with open(recording, "rb") as file:
        lines = [readable(line) for line in file.read().rstrip(b"\n").split(b"\n")]
    if len(lines) > FIRST + LAST:
        hidden = len(lines) - FIRST - LAST
        lines[FIRST:-LAST] = ["", f"    ... {hidden} lines ...", ""]
    console = Console(record=True, width=90, file=open("/dev/null", "w"))
    console.print(Text(f"$ {command}", style="bold"))
    for line in lines:
        console.print(Text.from_ansi(line))
    drawing = console.export_svg(title="the board check on a virtual board")
    # Without the web font: a picture fetches nothing.
    drawing = re.sub(r"@font-face \{.*?\}\s*", "", drawing, flags=re.S)
    with open(output, "w", encoding="utf-8") as file:
        file.write(drawing)


if __name__ == "__main__":
    main()
