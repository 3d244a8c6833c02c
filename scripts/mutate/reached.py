"""Reading the maps that programs leave which are linked with reached.c."""

import re

# What fixtures of a module or a session reached belongs to every test of the file.
SHARED = "*"


def reached(folder):
    """The places that each program of a folder of maps reached, by its build ID."""
    return {
        file.name: [match.start() for match in re.finditer(b"\x01", file.read_bytes())]
        for file in folder.iterdir()
    }
