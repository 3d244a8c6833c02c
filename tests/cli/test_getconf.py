"""btdbg getconf: every configuration value of the system."""

import os
import re
import resource
import shutil
import subprocess

import pytest
from conftest import EMULATOR, environment, little_memory, program, untraced, word_size

USAGE = (
    b"Usage: getconf [-v specification] variable_name [pathname]\n"
    b"       getconf -a [pathname]\n"
)

# The C library's own tool for the same machine.
GETCONF = (
    [*EMULATOR, f"{os.environ['BENCHRIG_SYSROOT']}/usr/bin/getconf"] if EMULATOR else ["getconf"]
)

# 320 values, a line each. A 32-bit machine has two environments where others have one, in six values.
LINES = {4: 326, 8: 320}[word_size()]

# What moves from one call to the next.
MOVING = {"_AVPHYS_PAGES"}


def output_of(command, limit=None):
    """Standard output of a command on the PC itself, under a limit of (resource, value)."""

    def set_limit():
        if limit:
            resource.setrlimit(limit[0], (limit[1], limit[1]))

    done = subprocess.run(
        command, capture_output=True, check=False, env=environment(), preexec_fn=set_limit
    )
    assert (done.stderr, done.returncode) == (b"", 0)
    return done.stdout


def rows_of(output):
    """The rows without those that move, which only have to be numbers."""
    rows = output.decode().split("\n")  # no other character ends a row
    for row in rows:
        if row.split(" ")[0] in MOVING:
            assert re.fullmatch(r"\S+ +\d+", row), row
    return [row for row in rows if row.split(" ")[0] not in MOVING]


needs_getconf = pytest.mark.skipif(
    shutil.which(GETCONF[-1]) is None, reason="no getconf to compare with"
)


@needs_getconf
@pytest.mark.parametrize(
    "path", [(), ("/",), ("/proc",), ("/dev/null",), ("/usr",), ("/nonexistent",)]
)
def test_equals_the_system_s_own(build, path):
    # On the PC: some limits are those of the process, some those of the path's file system.
    ours = output_of([*program(build / "bin/benchrig"), "btdbg", "getconf", "-a", *path])
    assert rows_of(ours) == rows_of(output_of([*GETCONF, "-a", *path]))
    assert len(ours.splitlines()) == LINES


@needs_getconf
@pytest.mark.parametrize(
    "limit",
    [
        (resource.RLIMIT_NOFILE, 77),
        (resource.RLIMIT_STACK, 4 << 20),
        (resource.RLIMIT_NPROC, 4000),
        (resource.RLIMIT_SIGPENDING, 12),
    ],
)
def test_follows_the_limits_of_the_process(build, limit):
    ours = output_of([*program(build / "bin/benchrig"), "btdbg", "getconf", "-a"], limit)
    assert rows_of(ours) == rows_of(output_of([*GETCONF, "-a"], limit))


def test_prints_on_the_board_and_ends_the_process(board):
    run = board.run("btdbg", "getconf", "-a")
    assert run.stderr == b""
    assert run.status == 0
    lines = run.stdout.decode().splitlines()
    assert len(lines) == LINES
    assert lines[0].startswith("LINK_MAX                           ")
    assert lines[-1].startswith("_POSIX_RAW_SOCKETS                 ")


def test_a_path_changes_only_the_path_limits(board):
    default = board.run("btdbg", "getconf", "-a").stdout
    root = board.run("btdbg", "getconf", "-a", "/").stdout
    assert rows_of(default) == rows_of(root)
    nowhere = board.run("btdbg", "getconf", "-a", "/nonexistent")
    assert nowhere.status == 0
    assert b"\nNAME_MAX                           \n" in nowhere.stdout


# Two paths may well have the same limits.
@pytest.mark.parametrize("words, path", [((), "/"), (("/tmp",), "/tmp"), (("",), "")])
def test_path_limits_are_those_of_the_path_or_of_the_root(board, words, path):
    run = board.run("btdbg", "getconf", "-a", *words, **untraced(board))
    assert run.status == 0
    assert run.stderr == 27 * f"pathconf {path}\n".encode()


def test_value_that_is_not_there_leaves_the_padded_name(build):
    output = output_of([*program(build / "bin/benchrig"), "btdbg", "getconf", "-a"])
    # No system has the streams interface or the old transport interface.
    for name in (b"_POSIX_PII", b"_POSIX_PII_XTI"):
        assert b"\n%-35s\n" % name in output


def test_a_text_without_memory_ends_the_list(board):
    room = len(os.confstr("CS_PATH")) + 2  # its NUL, and the room of a text that is not there
    short_of_it = {**little_memory(board.build), "NO_BLOCKS_OF": str(room)}
    run = board.run("btdbg", "getconf", "-a", env=short_of_it)
    program_name, text = run.stderr.rsplit(b"/", 1)
    assert b"\n" not in program_name
    assert (text, run.status) == (b"benchrig: memory exhausted\n", 3)
    assert run.stdout.endswith(b"\n%-35s" % b"PATH")


def test_unsigned_limits_are_printed_as_such(build):
    output = output_of([*program(build / "bin/benchrig"), "btdbg", "getconf", "-a"])
    rows = dict(re.match(r"(\S+)\s*(.*)", row).groups() for row in output.decode().splitlines())
    bits = int(rows["LONG_BIT"])
    assert rows["UINT_MAX"] == "4294967295"
    assert rows["ULONG_MAX"] == str((1 << bits) - 1)


@pytest.mark.parametrize(
    "words",
    [
        (),
        ("LINK_MAX",),
        ("LINK_MAX", "/"),
        ("-v", "x"),
        ("-aa",),
        ("",),
        ("/", "-a"),
        ("a", "b", "c", "d"),
    ],
)
def test_anything_else_prints_nothing_and_succeeds(board, words):
    run = board.run("btdbg", "getconf", *words)
    assert (run.stdout, run.stderr, run.status) == (b"", b"", 0)


@pytest.mark.parametrize("words", [("/tmp", "x"), ("/", "/", "/")])
def test_more_than_one_path_is_refused(board, words):
    run = board.run("btdbg", "getconf", "-a", *words)
    assert (run.stdout, run.stderr, run.status) == (b"", USAGE, 2)
