"""Trace lines in one spelling, so that a list of calls can be compared as text.

The bytes of a call are hexadecimal with runs (`in=ff*1024`). tidy() brings a line into the spelling
that packed() uses: a run of four or more equal bytes as XX*N, a dot between the pieces.
"""

import re

PIECE = re.compile(r"([0-9a-f]{2})\*(\d+)|([0-9a-f]{2})|\.")
FIELD = re.compile(r"\b(in|out)=([0-9a-f.*]*)")


def unpacked(text):
    """The bytes that a trace's `in=` or `out=` field stands for."""
    data = bytearray()
    position = 0
    while position < len(text):
        piece = PIECE.match(text, position)
        assert piece, f"no trace bytes: {text!r}"
        if piece[1]:
            data += bytes.fromhex(piece[1]) * int(piece[2])
        elif piece[3]:
            data += bytes.fromhex(piece[3])
        position = piece.end()
    return bytes(data)


def packed(data):
    pieces = []
    for run in re.finditer(rb"(.)\1{3,}|(?:(.)(?!\2{3}))+", bytes(data), re.DOTALL):
        whole = run[0]
        if len(whole) >= 4 and len(set(whole)) == 1:
            pieces.append(f"{whole[0]:02x}*{len(whole)}")
        else:
            pieces.append(whole.hex())
    return ".".join(pieces)


def tidy(line):
    return FIELD.sub(lambda field: f"{field[1]}={packed(unpacked(field[2]))}", line)


def calls(run):
    """Every line of a run's trace, tidied."""
    return [tidy(line) for line in run.requests]


def bytes_of(line, field):
    """The bytes of the line's `in` or `out` field."""
    for name, text in FIELD.findall(line):
        if name == field:
            return unpacked(text)
    raise AssertionError(f"no {field}= in {line!r}")
