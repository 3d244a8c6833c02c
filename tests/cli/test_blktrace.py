"""bt2 blktrace: block requests of a device into a log.

Assumes the virtual board's /dev/korstorage (model korstorage): `devices` that can be traced, and a
time line in media/korstorage.timeline (SECONDS ACTION SECTOR BYTES PID ERROR [CATEGORY...]). A run
polls busily, so the events come at once; the signal leaves the program time to install its handler.
"""

import os
import re

import pytest

from conftest import out
from device_trace import bytes_of, calls, packed

NODE = "/dev/korstorage"
STOP = ["TERM@0.2"]

USAGE = (
    b"\n blktrace v1.0\nUsage:\n\n    blktrace  dev  path      ---dev name\n\n\nexample:\n\n"
    b"    blktrace  mmcblk0  /var/log/mmcblk0_blktrace.log  \n\n\n"
)
START_BAD = b"\033[0;32mSTOR_CMD_TRACE_DEVICE_START faild!\033[m\n"
STOP_BAD = b"\033[0;32mSTOR_CMD_TRACE_DEVICE_STOP faild!\033[m\n"


def timeline(board, *lines):
    board.path("media/korstorage.timeline").write_text("".join(line + "\n" for line in lines))


def process(board, pid, first_line):
    directory = board.path(f"proc/{pid}")
    directory.mkdir(parents=True)
    (directory / "status").write_text(first_line + "\nUmask:\t0022\n")


def event_line(device, time, name, action, sector, sectors, kind, error):
    """A line of the log, with its NUL."""
    return (
        f"{device:<20}{time:<20}{name:<20}{action:<3}{sector:<20}{sectors:<10}{kind:<16}{error:<5}\n\0"
    ).encode()


def log_of(board, name="var/mmcblk0_blktrace.log"):
    return board.path(name).read_bytes()


def start_record(name, handle):
    return packed(
        name.encode().ljust(32, b"\0") + handle.to_bytes(4, "little") + (384).to_bytes(4, "little")
    )


def test_no_argument_prints_the_usage(board):
    run = board.run("bt2", "blktrace")
    assert len(USAGE) == 134
    assert (run.status, run.stdout, run.stderr) == (255, b"", USAGE)
    assert run.requests == []


def test_log_that_does_not_open(board, tmp_path):
    log = tmp_path / "none/log"
    run = board.run("bt2", "blktrace", "mmcblk0", log)
    assert (run.status, run.stderr) == (255, b"")
    assert run.stdout == b"%s open error! \n" % str(log).encode()
    assert not any(NODE in line for line in run.requests)


def test_missing_driver(board, tmp_path):
    board.fault(f"{NODE} absent")
    run = board.run("bt2", "blktrace", "mmcblk0", tmp_path / "log")
    assert (run.status, run.stdout, run.stderr) == (255, b"Open /dev/korstorage failed!\n", b"")
    assert (tmp_path / "log").read_bytes() == b""


def test_events_until_the_signal(board):
    timeline(
        board,
        "0 1 2048 4096 4242 0 write sync",
        "0 8 5000000000 131072 4242 31 ahead",
        "0.000002 7 0 0 4242 0 flush",
    )
    process(board, 4242, "Name:\tjbd2/mmcblk0p2-")
    run = board.run("bt2", "blktrace", "mmcblk0", signals=STOP)
    assert (run.status, run.stdout, run.stderr) == (0, b"", b"")
    name = "jbd2/mmcblk0p2-"
    assert log_of(board) == (
        event_line("mmcblk0", 1, name, "Q", 2048, 8, "WS", "0")
        + event_line("mmcblk0", 1, name, "C", 5000000000, 256, "RA", "1f")
        + event_line("mmcblk0", 2001, name, "D", 0, 0, "FN", "0")
    )


def test_start_and_stop_carry_one_record(board):
    timeline(board)
    run = board.run("bt2", "blktrace", "sda", signals=STOP)
    lines = calls(run)
    assert [line.split(" out=")[0] for line in lines if "_START" in line] == [
        f"ioctl {NODE} STOR_CMD_TRACE_DEVICE_START in={start_record('sda', 0)}"
    ]
    assert [line.split(" out=")[0] for line in lines if "_STOP" in line] == [
        f"ioctl {NODE} STOR_CMD_TRACE_DEVICE_STOP in={start_record('sda', 7)}"
    ]
    # Stopped, then the log and the device are closed.
    assert lines[-2:] == ["close /var/sda_blktrace.log = 0", "close /dev/korstorage = 0"]
    assert "STOR_CMD_TRACE_DEVICE_STOP" in lines[-3]


def test_polls_carry_the_handle_in_a_record_of_136_bytes(board):
    timeline(board)
    run = board.run("bt2", "blktrace", "sda", signals=STOP)
    polls = [line for line in run.requests if "STOR_CMD_TRACE_READ" in line]
    assert bytes_of(polls[0], "in") == b"\x07\0\0\0" + bytes(132)
    assert not any(line.startswith(("sleep", "select", "poll")) for line in run.requests)


def test_each_line_is_synced_before_the_next_poll(board):
    timeline(board, "0 1 0 512 1 0", "0 1 1 512 1 0")
    run = board.run("bt2", "blktrace", "sda", signals=STOP)
    words = [
        re.sub(r" .*", "", line) if not line.startswith("ioctl") else line.split()[2]
        for line in run.requests
    ]
    first = words.index("write")
    assert words[first + 1] == "sync"
    assert words[first + 2] == "STOR_CMD_TRACE_READ"
    assert words.count("sync") == words.count("write") == 2


def test_the_stop_flag_counts_only_after_an_empty_poll(board):
    # An event costs three calls at least, a microsecond each: the signal comes between them.
    events = 30000
    timeline(board, *(f"0 1 {sector} 512 4194305 0" for sector in range(events)))
    run = board.run("bt2", "blktrace", "sda", signals=["TERM@0.05"])
    assert run.status == 0
    assert log_of(board, "var/sda_blktrace.log").count(b"\n\0") == events
    polls = [line for line in run.requests if "STOR_CMD_TRACE_READ" in line]
    assert len(polls) == events + 1  # the empty one is the first that looks at the flag


def test_a_second_signal_waits_for_the_empty_poll_too(board):
    events = 8000
    timeline(board, *(f"0 1 {sector} 512 4194305 0" for sector in range(events)))
    run = board.run("bt2", "blktrace", "sda", signals=["TERM@0.008", "TERM@0.012"])
    assert (run.status, run.stdout, run.stderr) == (0, b"", b"")
    assert log_of(board, "var/sda_blktrace.log").count(b"\n\0") == events


def test_a_positive_result_of_a_poll_is_no_failure(board):
    timeline(board, "0 1 2048 4096 4194305 0")
    board.fault(f"{NODE} ioctl:STOR_CMD_TRACE_READ result=5 nth=1")
    run = board.run("bt2", "blktrace", "sda", signals=STOP)
    assert (run.status, run.stdout) == (0, b"")
    line = event_line("sda", 1, "", "Q", 2048, 8, "R", "0")
    assert log_of(board, "var/sda_blktrace.log") == line


def test_a_failed_poll_is_tried_again(board):
    timeline(board, "0 1 2048 4096 1 0")
    board.fault(f"{NODE} ioctl:STOR_CMD_TRACE_READ errno=EIO nth=1")
    board.fault(f"{NODE} ioctl:STOR_CMD_TRACE_READ errno=EINTR nth=2")
    run = board.run("bt2", "blktrace", "sda", signals=STOP)
    assert (run.status, run.stdout) == (0, b"")
    assert log_of(board, "var/sda_blktrace.log").count(b"\n\0") == 1


def test_events_after_a_quiet_time_are_logged_too(board):
    # Thousands of polls find no event before the first one, and between the two.
    timeline(board, "0.001 1 2048 4096 4194305 0", "0.002 8 4096 512 4194305 0")
    run = board.run("bt2", "blktrace", "sda", signals=STOP)
    assert (run.status, run.stdout, run.stderr) == (0, b"", b"")
    assert log_of(board, "var/sda_blktrace.log") == (
        event_line("sda", 1000001, "", "Q", 2048, 8, "R", "0")
        + event_line("sda", 2000001, "", "C", 4096, 1, "R", "0")
    )


def test_an_event_of_a_process_that_has_ended(board):
    timeline(board, "0 1 2048 4096 4194305 0")  # above the largest process number
    board.run("bt2", "blktrace", "sda", signals=STOP)
    assert log_of(board, "var/sda_blktrace.log") == event_line("sda", 1, "", "Q", 2048, 8, "R", "0")


def test_kinds_and_actions(board):
    timeline(
        board,
        "0 1 0 4096 9999 0 write flush fua sync",
        "0 11 0 4096 9999 0 discard meta",
        "0 16 0 0 9999 0",
    )
    process(board, 9999, "Name:\tWeb Content")
    board.run("bt2", "blktrace", "sda", signals=STOP)
    assert log_of(board, "var/sda_blktrace.log") == (
        event_line("sda", 1, "Web", "Q", 0, 8, "FWFS", "0")
        + event_line("sda", 1, "Web", "UT", 0, 8, "DM", "0")
        + event_line("sda", 1, "Web", "", 0, 0, "N", "0")
    )


def test_a_name_that_ends_with_127_characters_of_its_line(board):
    timeline(board, "0 1 0 4096 9999 0")
    process(board, 9999, "Name:".ljust(67) + 60 * "n" + "x")
    board.run("bt2", "blktrace", "sda", signals=STOP)
    assert log_of(board, "var/sda_blktrace.log") == event_line(
        "sda", 1, 60 * "n", "Q", 0, 8, "R", "0"
    )


def test_a_log_of_ones_own(board, tmp_path):
    timeline(board, "0 1 0 512 1 0")
    run = board.run("bt2", "blktrace", "sda", tmp_path / "log", signals=STOP)
    assert run.status == 0
    assert (tmp_path / "log").read_bytes().count(b"\n\0") == 1


@pytest.mark.parametrize("length, kept", [(109, 109), (110, 109)])
def test_the_default_log_s_path_has_127_characters_at_most(board, length, kept):
    board.fault(f"{NODE} absent")
    board.run("bt2", "blktrace", "n" * length)
    path = f"/var/{'n' * kept}_blktrace.log"
    assert len(path) == 127
    assert log_of(board, path[1:]) == b""


@pytest.mark.parametrize("mask", [0o000, 0o022, 0o077])
def test_a_new_log_may_be_used_by_everyone_whom_the_mask_allows(board, tmp_path, mask):
    board.fault(f"{NODE} absent")
    before = os.umask(mask)
    try:
        board.run("bt2", "blktrace", "sda", tmp_path / "log")
    finally:
        os.umask(before)
    assert (tmp_path / "log").stat().st_mode & 0o7777 == 0o777 & ~mask


def test_further_words_take_the_default_log(board, tmp_path):
    timeline(board, "0 1 0 512 1 0")
    board.run("bt2", "blktrace", "sda", tmp_path / "log", "x", signals=STOP)
    assert not (tmp_path / "log").exists()
    assert log_of(board, "var/sda_blktrace.log").count(b"\n\0") == 1


def test_an_older_log_is_overwritten_from_its_begin_and_keeps_its_tail(board, tmp_path):
    timeline(board, "0 1 0 512 4194305 0")
    (tmp_path / "log").write_bytes(b"x" * 300)
    board.run("bt2", "blktrace", "sda", tmp_path / "log", signals=STOP)
    line = event_line("sda", 1, "", "Q", 0, 1, "R", "0")
    assert (tmp_path / "log").read_bytes() == line + b"x" * (300 - len(line))


@pytest.mark.parametrize("name", ["sdz", "a" * 40])
def test_a_device_that_cannot_be_traced(board, tmp_path, name):
    run = board.run("bt2", "blktrace", name, tmp_path / "log")
    assert (run.status, run.stdout, run.stderr) == (255, START_BAD, b"")
    start = next(line for line in calls(run) if "_START" in line)
    assert bytes_of(start, "in")[:32] == name[:31].encode().ljust(32, b"\0")
    assert calls(run)[-1] == f"close {NODE} = 0"


def test_the_result_of_the_start_is_handed_on(board):
    board.fault(f"{NODE} ioctl:STOR_CMD_TRACE_DEVICE_START result=5")
    run = board.run("bt2", "blktrace", "sda")
    assert (run.status, run.stdout) == (5, START_BAD)


@pytest.mark.parametrize("name, text", [("START", START_BAD), ("STOP", STOP_BAD)])
def test_a_refusal_is_told_before_log_and_device_are_closed(board, name, text):
    timeline(board)
    board.fault(f"{NODE} ioctl:STOR_CMD_TRACE_DEVICE_{name} errno=EIO")
    run = board.run("bt2", "blktrace", "sda", signals=STOP, story=True)
    ends = [line for line in run.story if line.startswith(("out", "close")) or f"_{name}" in line]
    assert ends[0].startswith(f"ioctl {NODE} STOR_CMD_TRACE_DEVICE_{name} ")
    assert ends[1:] == [
        *out(text),
        "close /var/sda_blktrace.log = 0",
        "close /dev/korstorage = 0",
    ]


def test_the_result_of_the_stop_is_handed_on(board):
    timeline(board)
    board.fault(f"{NODE} ioctl:STOR_CMD_TRACE_DEVICE_STOP errno=EIO")
    run = board.run("bt2", "blktrace", "sda", signals=STOP)
    assert (run.status, run.stdout) == (255, STOP_BAD)
    board.clear_faults()
    board.set(NODE, "stop_result", 3)
    run = board.run("bt2", "blktrace", "sda", signals=STOP)
    assert (run.status, run.stdout) == (3, STOP_BAD)
