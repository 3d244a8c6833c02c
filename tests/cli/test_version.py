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


LOGO = "rig_print_logo 3 1 = 0"


def compilers_texts(board):
    """The date and the time of the build as the compiler writes them, and as the executable holds."""
    run = board.run("version", rigcore=[LOGO])
    year, month, day, hour, minute, second = map(int, LINE.fullmatch(run.stdout[2:]).groups())
    assert 1 <= month <= 12 and 1 <= day <= 31 and hour < 24 and minute < 60 and second < 61
    # The compiler pads the day with a blank and the time with zeros.
    date = b"%b %2d %d\0" % (MONTHS[month - 1], day, year)
    return date, b"%02d:%02d:%02d\0" % (hour, minute, second)


def test_the_fields_are_those_of_the_compilers_date_and_time(board):
    executable = (board.build / "bin/benchrig").read_bytes()
    for text in compilers_texts(board):
        assert text in executable


@pytest.fixture
def built_at(board, tmp_path):
    """built_at(date, time): an executable like the build's, but for the compiler's two texts."""

    def build(date, time):
        executable = (board.build / "bin/benchrig").read_bytes()
        for old, new in zip(compilers_texts(board), (date, time)):
            assert len(new) + 1 == len(old) and old in executable
            executable = executable.replace(old, new + b"\0")
        file = tmp_path / "benchrig"
        file.write_bytes(executable)
        file.chmod(0o755)
        return file

    return build


@pytest.mark.parametrize(
    "date, time, stamp",
    [
        (b"Dec 18 2023", b"16:59:34", b"2023-12-18 16:59:34"),
        (b"Jan  5 2024", b"09:05:03", b"2024-1-5 9:5:3"),
        (b"Feb 29 2024", b"23:00:00", b"2024-2-29 23:0:0"),
        (b"Foo 31 2025", b"00:10:59", b"2025-13-31 0:10:59"),  # no month's name
    ],
)
def test_the_stamp_of_another_build(board, built_at, date, time, stamp):
    run = board.run_command([built_at(date, time), "version"], rigcore=[LOGO])
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout == b"\r\nbenchrig v2.0.0 build " + stamp + b"\r\n"


@pytest.mark.parametrize("applet", ["iccard", "lcd"])
def test_the_usages_that_show_the_build_have_the_compilers_texts(board, built_at, applet):
    command = [built_at(b"Jan  5 2024", b"09:05:03"), "bt1", applet, "-h"]
    run = board.run_command(command, rigcore=[])
    # The blank that pads the day stays.
    assert b"\n------BUILD: Jan  5 2024-09:05:03  ------\n" in run.stdout + run.stderr
