"""btdbg pstat: the fields of /proc/PID/stat."""

import os
import pathlib
import re

import pytest

from conftest import assert_story, out

DATA = pathlib.Path(__file__).resolve().parents[1] / "data/proc/stat"

USAGE = (
    b"======================================================\n"
    b"\n"
    b"usage:\n"
    b"btdbg pstat /proc/[pid]/stat     \n"
    b"\n"
    b"example:\n"
    b"btdbg pstat /proc/333/stat       \n"
    b"\n"
    b"======================================================\n"
)

MISSING = (
    b"======================================================\n" b"This node does not exist!\n"
) + USAGE

JIFFIES = " (Unit:jiffies)"
STATES = " (R:runnign, S:sleeping, D:disk sleep, T:stopped, t:tracing stop, Z:zombie, X:dead)"

# label, how the number is shown, what follows it
FIELDS = [
    ("pid", "u", ""),
    ("comm", "s", ""),
    ("task_state", "s", STATES),
    ("ppid", "u", ""),
    ("pgid", "u", ""),
    ("sid", "u", ""),
    ("tty_nr", "d", ""),
    ("tty_pgrp", "d", ""),
    ("task_flags", "u", ""),
    ("min_flt", "lu", ""),
    ("cmin_flt", "lu", ""),
    ("maj_flt", "lu", ""),
    ("cmaj_flt", "lu", ""),
    ("utime", "lu", JIFFIES),
    ("stime", "lu", JIFFIES),
    ("cutime", "lu", JIFFIES),
    ("cstime", "lu", JIFFIES),
    ("priority", "d", ""),
    ("nice", "d", ""),
    ("num_threads", "d", ""),
    ("it_real_value", "d", JIFFIES),
    ("start_time", "llu", JIFFIES),
    ("vsize", "lu", ""),
    ("rss", "lu", ""),
    ("rsslim", "lu", ""),
    ("start_code", "x", ""),
    ("end_code", "x", ""),
    ("start_stack", "x", ""),
    ("kstkesp", "x", ""),
    ("kstkeip", "x", ""),
    ("pendingsig", "u", ""),
    ("block_sig", "u", ""),
    ("sigign", "u", ""),
    ("sigcatch", "u", ""),
    ("wchan", "lu", ""),
    ("nswap", "d", " (Not use)"),
    ("cnswap", "d", " (Not use)"),
    ("exit_signal", "u", ""),
    ("task_cpu", "u", ""),
    ("task_rt_priority", "u", ""),
    ("task_policy", "u", " (0=No real, 1=FIFO, 2=RR)"),
    ("task", "u", ""),
    ("gtime", "lu", ""),
    ("cgtime", "lu", ""),
    ("start_data", "x", ""),
    ("end_data", "x", ""),
    ("start_brk", "x", ""),
    ("arg_start", "x", ""),
    ("arg_end", "x", ""),
    ("env_start", "x", ""),
    ("env_end", "x", ""),
    ("exit_code", "x", ""),
]


def number(text):
    digits = text.strip()
    return int(digits) if digits.lstrip("-").isdigit() else 0


def unsigned32(value):
    # As a 32-bit strtoul() has it.
    return 0xFFFFFFFF if abs(value) > 0xFFFFFFFF else value % (1 << 32)


def shown(kind, text):
    value = number(text)
    if kind == "s":
        return text
    if kind == "d":
        return str(max(-(1 << 31), min((1 << 31) - 1, value)))
    if kind == "u":
        value = unsigned32(value)
        return str(value - (1 << 32) if value >= 1 << 31 else value)
    if kind == "lu":
        return str(unsigned32(value))
    if kind == "x":
        return f"0x{unsigned32(value):x}"
    return str(value)


def report(text):
    """What the program prints of a stat file's text."""
    tokens = [token for token in text[:500].split(" ") if token]
    lines = []
    for i, (label, kind, suffix) in enumerate(FIELDS):
        token = tokens[i] if i < len(tokens) else ""
        lines.append(f"{label:<17} = {shown(kind, token)}{suffix}\n")
    return "".join(lines).encode()


def pstat(board, *words):
    return board.run("btdbg", "pstat", *words)


def assert_run(run, status, stdout):
    assert run.stdout == stdout
    assert run.stderr == b""
    assert run.status == status


@pytest.mark.parametrize("words", [(), ("/proc/1/stat", "/proc/1/stat"), ("a", "b", "c")])
def test_wants_one_word(board, words):
    assert_run(pstat(board, *words), 255, USAGE)


@pytest.mark.parametrize("path", ["/proc/0/stat", "none", "", "-h"])
def test_file_that_does_not_open_prints_the_usage_too(board, path):
    assert_run(pstat(board, path), 255, MISSING)


def test_file_that_cannot_be_read_is_reported(board):
    assert_run(pstat(board, "/proc/device-tree"), 255, b"This node failed to read!\n")


@pytest.mark.parametrize("name", sorted(path.name for path in DATA.iterdir()))
def test_recorded_process(board, name):
    assert_run(
        board.run("btdbg", "pstat", name, cwd=DATA),
        0,
        report((DATA / name).read_text(encoding="utf-8")),
    )


def test_process_of_the_board(board):
    (board.path("proc/77")).mkdir()
    text = "77 (sh) S 1 77 77 1025 77 4194560 " + " ".join(str(i) for i in range(10, 53)) + "\n"
    board.path("proc/77/stat").write_text(text, encoding="utf-8")
    run = pstat(board, "/proc/77/stat")
    assert_run(run, 0, report(text))
    assert run.stdout.startswith(
        b"pid               = 77\n"
        b"comm              = (sh)\n"
        b"task_state        = S (R:runnign, S:sleeping, D:disk sleep, T:stopped, t:tracing stop, Z:zombie, X:dead)\n"
        b"ppid              = 1\n"
    )


@pytest.mark.parametrize("fault", [None, "ESRCH"])
def test_file_is_read_once_and_closed_after_the_report(board, fault):
    (board.path("proc/77")).mkdir()
    text = 600 * "7 "
    board.path("proc/77/stat").write_text(text, encoding="utf-8")
    if fault:  # as when the process has ended since the open
        board.fault(f"/proc/77/stat read errno={fault}")
    assert_story(
        board.run("btdbg", "pstat", "/proc/77/stat", story=True),
        "open /proc/77/stat RDONLY = 3",
        f"read /proc/77/stat out={text[:500].encode().hex()} = 500"
        if not fault
        else f"read /proc/77/stat = {fault}",
        out("This node failed to read!\n" if fault else report(text)),
        "close /proc/77/stat = 0",
    )


def test_every_process_of_this_machine(board, tmp_path):
    # The files are copied first: a counter may move between two readings.
    copied = 0
    for process in os.listdir("/proc"):
        try:
            text = pathlib.Path(f"/proc/{process}/stat").read_bytes() if process.isdigit() else b""
        except OSError:
            text = b""
        if text and copied < 40:
            (tmp_path / process).write_bytes(text)
            copied += 1
    assert copied > 0
    for file in tmp_path.iterdir():
        run = board.run("btdbg", "pstat", file.name, cwd=tmp_path)
        assert_run(run, 0, report(file.read_text(encoding="utf-8", errors="surrogateescape")))


def test_name_with_a_blank_makes_every_label_one_late(board, tmp_path):
    (tmp_path / "stat").write_text("12 (Web Content) S 1 2 3\n", encoding="utf-8")
    run = board.run("btdbg", "pstat", "stat", cwd=tmp_path)
    lines = run.stdout.decode().splitlines()
    assert lines[:6] == [
        "pid               = 12",
        "comm              = (Web",
        "task_state        = Content)" + STATES,
        "ppid              = 0",  # the state
        "pgid              = 1",
        "sid               = 2",
    ]
    assert run.status == 0


@pytest.mark.parametrize("text", ["", "\n", "12", "12 (a) S", " 12  (a)   S 5 "])
def test_missing_fields_are_0_or_empty(board, tmp_path, text):
    (tmp_path / "stat").write_text(text, encoding="utf-8")
    run = board.run("btdbg", "pstat", "stat", cwd=tmp_path)
    assert_run(run, 0, report(text))
    assert run.stdout.count(b" = ") == 52


def test_only_500_bytes_are_read(board, tmp_path):
    text = "1 (" + "n" * 470 + ") S " + "7 " * 100
    (tmp_path / "stat").write_text(text, encoding="utf-8")
    run = board.run("btdbg", "pstat", "stat", cwd=tmp_path)
    assert_run(run, 0, report(text))
    assert len(re.findall(rb"= 7[ \n]", run.stdout)) == 12  # 23 bytes were left for them


def test_path_of_49_characters_is_taken(board, tmp_path):
    name = "s" * 49
    (tmp_path / name).write_text("12 (a) S\n", encoding="utf-8")
    assert_run(board.run("btdbg", "pstat", name, cwd=tmp_path), 0, report("12 (a) S\n"))


@pytest.mark.parametrize("length", [50, 51, 300, 5000])
def test_longer_path_is_no_other_file(board, tmp_path, length):
    (tmp_path / ("s" * 49)).write_text("12 (a) S\n", encoding="utf-8")
    if length < 256:
        (tmp_path / ("s" * length)).write_text("13 (b) S\n", encoding="utf-8")
    assert_run(board.run("btdbg", "pstat", "s" * length, cwd=tmp_path), 255, MISSING)
