"""benchrig version: the logo, then the program's version and build stamp."""

import re

import pytest

# No field is padded: "2024-1-5 9:5:3".
NUMBER = rb"(0|[1-9][0-9]*)"
LINE = re.compile(
    rb"benchrig v2\.0\.0 build "
    + rb"-".join([NUMBER] * 3)
    + rb" "
    + rb":".join([NUMBER] * 3)
    + rb"\r\n"
)
MONTHS = [
    b"Jan",
    b"Feb",
    b"Mar",
    b"Apr",
    b"May",
    b"Jun",
    b"Jul",
    b"Aug",
    b"Sep",
    b"Oct",
    b"Nov",
    b"Dec",
]


@pytest.mark.parametrize("result", [0, -1])
def test_prints_the_logo_then_the_stamp_and_succeeds(board, result):
    run = board.run("version", rigcore=[f"rig_print_logo 3 1 = {result}"])
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout.startswith(b"\r\n")
    assert LINE.fullmatch(run.stdout[2:])
    assert run.requests == []


@pytest.mark.parametrize("words", [("-h",), ("--version",), ("a", "b", "c"), ("",)])
def test_arguments_change_nothing(board, words):
    plain = board.run("version")
    run = board.run("version", *words)
    assert (run.status, run.stdout, run.stderr) == (0, plain.stdout, b"")


def test_the_stamp_is_the_last_line_after_the_logo(board):
    run = board.run("version")
    assert (run.status, run.stderr) == (0, b"")
    logo, newline, line = run.stdout.rpartition(b"\r\nbenchrig ")
    assert newline and LINE.fullmatch(b"benchrig " + line)
    assert logo == b"" or logo.endswith(b"\n")


def test_the_fields_are_those_of_the_compilers_date_and_time(board):
    run = board.run("version", rigcore=["rig_print_logo 3 1 = 0"])
    year, month, day, hour, minute, second = map(int, LINE.fullmatch(run.stdout[2:]).groups())
    assert 1 <= month <= 12 and 1 <= day <= 31 and hour < 24 and minute < 60 and second < 61

    executable = (board.build / "bin/benchrig").read_bytes()
    # The compiler pads the day with a blank and the time with zeros.
    assert b"%b %2d %d\0" % (MONTHS[month - 1], day, year) in executable
    assert b"%02d:%02d:%02d\0" % (hour, minute, second) in executable
