"""bt1 rtc: does the real-time clock run, and can it be set.

The test reads the clock six times, a second apart, judges the seconds that passed, sets it to a
fixed time and reads six times more. Only a clock that does not open or close fails it.
"""

import datetime
import re
import struct

import pytest

from device_trace import unpacked

DATE = "2024-01-05 09:05:03"
SET_TO = "2015-04-01 08:57:23"
RUNS = "RTC走时测试成功。\n".encode("gb2312")
SETTING = "设置RTC时间: 2015-04-01 08:57:23\n".encode("gb2312")
AFTER_SETTING = "测试设置后的走时:\n".encode("gb2312")
READING_FAILED = "读取RTC失败\n".encode("gb2312")
CLOSING_FAILED = "关闭文件失败!\n".encode("gb2312")
READ_FAILED = b"rtc rd time faid\n"
INPUT_ERROR = b"\ninput error!!!\n"

BANNERS = {
    (): (b"\nRTC START TEST!\n", b"\nRTC TEST FINISH!\n"),
    ("autotest",): (b"\nRTC START AUTOTEST!\n", b"\nRTC AUTOTEST FINISH!\n"),
    ("extra",): (b"", b""),
}


def times(start, count, first=0):
    """`count` printed times, the first one `first` seconds after `start`."""
    start = datetime.datetime.fromisoformat(start)
    return b"".join(
        (start + datetime.timedelta(seconds=first + i)).strftime("%Y-%m-%d %H:%M:%S\n").encode()
        for i in range(count)
    )


def after_setting(count):
    return times(SET_TO, count, first=1)


def setting():
    return RUNS + SETTING + AFTER_SETTING


HEALTHY = times(DATE, 6) + setting() + after_setting(6)


def story(run):
    """The requests as short words: "open", "read SECONDS", "set", "sleep 1", "close".

    Whether the sixth reading of each check is followed by a sleep is nobody's business: those two
    sleeps are left out.
    """
    words = []
    readings = 0
    for line in run.requests:
        record = re.search(r" (?:in|out)=(\S+)", line)
        if re.fullmatch(r"open /dev/rtc0 RDWR = \d+", line):
            words.append("open")
        elif line == "close /dev/rtc0 = 0":
            words.append("close")
        elif re.fullmatch(r"ioctl /dev/rtc0 RTC_RD_TIME out=\S+ = 0", line):
            readings += 1
            words.append(f"read {struct.unpack_from('<i', unpacked(record[1]))[0]}")
        elif re.fullmatch(r"ioctl /dev/rtc0 RTC_SET_TIME in=\S+ = 0", line):
            # 2015-04-01 08:57:23; the fields that the kernel computes are left zero.
            assert unpacked(record[1]) == struct.pack("<9i", 23, 57, 8, 1, 3, 115, 0, 0, 0)
            words.append("set")
        elif line == "sleep 1.000000":
            if not (readings in (6, 12) and words[-1].startswith("read")):
                words.append("sleep 1")
        else:
            words.append(line)
    return words


def reading(*seconds):
    words = []
    for second in seconds:
        words += [f"read {second}", "sleep 1"]
    return words[:-1]


@pytest.mark.parametrize("words", BANNERS)
def test_sets_and_reads_a_clock_that_runs(board, words):
    start, finish = BANNERS[words]
    run = board.run("bt1", "rtc", *words, date=DATE)
    assert (run.status, run.stdout, run.stderr) == (0, start + HEALTHY + finish, b"")
    assert story(run) == [
        "open",
        *reading(3, 4, 5, 6, 7, 8),
        "set",
        "sleep 1",
        *reading(24, 25, 26, 27, 28, 29),
        "close",
    ]


def test_leaves_the_clock_at_the_time_set(board):
    board.run("bt1", "rtc", date=DATE)
    run = board.run("bt1", "rtc", date="2024-01-05 09:05:16")
    assert b"\n2015-04-01 08:57:" in run.stdout.split(RUNS)[0]


@pytest.mark.parametrize("words", [("a", "b"), ("autotest", "autotest"), ("a", "b", "c")])
def test_more_than_two_elements_are_an_error(board, words):
    run = board.run("bt1", "rtc", *words)
    assert (run.status, run.stdout, run.stderr) == (255, b"", INPUT_ERROR)
    assert run.requests == []


@pytest.mark.parametrize("words", BANNERS)
@pytest.mark.parametrize("fault", ["absent", "open errno=EBUSY"])
def test_fails_without_the_device(board, words, fault):
    board.fault(f"/dev/rtc0 {fault}")
    run = board.run("bt1", "rtc", *words)
    assert (run.status, run.stdout, run.stderr) == (
        255,
        BANNERS[words][0] + b"open rtc0 failed\n",
        b"",
    )
    assert len(run.requests) == 1


@pytest.mark.parametrize("words", BANNERS)
@pytest.mark.parametrize("good", [0, 1, 5])
def test_a_failed_reading_ends_the_test_with_success(board, words, good):
    start, finish = BANNERS[words]
    board.fault(f"/dev/rtc0 ioctl:RTC_RD_TIME errno=EIO nth={good + 1}")
    run = board.run("bt1", "rtc", *words, date=DATE)
    assert (run.status, run.stdout, run.stderr) == (
        0,
        start + times(DATE, good) + READ_FAILED + finish,
        b"",
    )
    expected = ["open"]
    for second in range(good):
        expected += [f"read {3 + second}", "sleep 1"]
    assert story(run) == expected + ["ioctl /dev/rtc0 RTC_RD_TIME = EIO", "close"]


@pytest.mark.parametrize("good", [0, 3, 5])
def test_a_failed_reading_after_setting_ends_the_test_with_success(board, good):
    board.fault(f"/dev/rtc0 ioctl:RTC_RD_TIME errno=EIO nth={6 + good + 1}")
    run = board.run("bt1", "rtc", "autotest", date=DATE)
    start, finish = BANNERS[("autotest",)]
    assert (run.status, run.stdout, run.stderr) == (
        0,
        start + times(DATE, 6) + setting() + after_setting(good) + READING_FAILED + finish,
        b"",
    )
    assert story(run)[-2:] == ["ioctl /dev/rtc0 RTC_RD_TIME = EIO", "close"]


def test_goes_on_when_the_clock_cannot_be_set(board):
    board.fault("/dev/rtc0 ioctl:RTC_SET_TIME errno=EPERM")
    run = board.run("bt1", "rtc", "autotest", date=DATE)
    start, finish = BANNERS[("autotest",)]
    # The clock was not set and has gone on: the six sleeps (or five), and one.
    shown = run.stdout[
        len(start + times(DATE, 6) + RUNS + SETTING + b"ret:-1, errno:1\n" + AFTER_SETTING) : -len(
            finish
        )
    ]
    assert shown in (times(DATE, 6, first=6), times(DATE, 6, first=7))
    assert run.stdout == (
        start
        + times(DATE, 6)
        + RUNS
        + SETTING
        + b"ret:-1, errno:1\n"
        + AFTER_SETTING
        + shown
        + finish
    )
    assert (run.status, run.stderr) == (0, b"")


def test_a_positive_result_of_setting_is_reported_too(board):
    board.fault("/dev/rtc0 ioctl:RTC_SET_TIME result=3")
    run = board.run("bt1", "rtc", "autotest", date=DATE)
    start, finish = BANNERS[("autotest",)]
    assert run.status == 0
    assert re.fullmatch(
        re.escape(start + times(DATE, 6) + RUNS + SETTING)
        + rb"ret:3, errno:\d+\n"
        + re.escape(AFTER_SETTING + after_setting(6) + finish),
        run.stdout,
    )


@pytest.mark.parametrize("words", BANNERS)
def test_fails_when_the_device_does_not_close(board, words):
    board.fault("/dev/rtc0 close errno=EIO")
    run = board.run("bt1", "rtc", *words, date=DATE)
    assert (run.status, run.stdout, run.stderr) == (
        255,
        BANNERS[words][0] + HEALTHY + CLOSING_FAILED,
        b"",
    )


def test_fails_when_the_device_does_not_close_after_a_failed_reading(board):
    board.fault("/dev/rtc0 ioctl:RTC_RD_TIME errno=EIO")
    board.fault("/dev/rtc0 close errno=EIO")
    run = board.run("bt1", "rtc", "autotest", date=DATE)
    assert (run.status, run.stdout, run.stderr) == (
        255,
        BANNERS[("autotest",)][0] + READ_FAILED + CLOSING_FAILED,
        b"",
    )


# Only the seconds field is looked at: over the minute 60 are added.
@pytest.mark.parametrize(
    "start", ["2024-01-05 09:05:57", "2024-12-31 23:59:55", "2024-02-29 23:59:59"]
)
def test_counts_over_the_minute(board, start):
    run = board.run("bt1", "rtc", "extra", date=start)
    assert (run.status, run.stdout, run.stderr) == (
        0,
        times(start, 6) + setting() + after_setting(6),
        b"",
    )


# The first reading is kept and the sixth judges: four to eight seconds are a clock that runs.
@pytest.mark.parametrize(
    "rate, runs",
    [
        ("0.6", False),  # 3 s
        ("0.8", True),  # 4 s
        ("1.6", True),  # 8 s
        ("1.8", False),  # 9 s
        ("12", False),  # 60 s: the seconds are the same, which counts as a minute
        ("13", True),  # 65 s: the seconds alone look like 5 s
        ("0", False),
    ],
)
def test_judges_the_seconds_that_passed(board, rate, runs):
    board.set("/dev/rtc0", "rate", rate)
    run = board.run("bt1", "rtc", "autotest", date=DATE)
    start, finish = BANNERS[("autotest",)]
    assert (run.status, run.stderr) == (0, b"")
    begin = datetime.datetime.fromisoformat(DATE)
    shown = b"".join(
        (begin + datetime.timedelta(seconds=int(i * float(rate) + 0.001)))
        .strftime("%Y-%m-%d %H:%M:%S\n")
        .encode()
        for i in range(6)
    )
    if runs:
        assert run.stdout.startswith(start + shown + setting())
        assert "set" in story(run)
    else:
        assert run.stdout == start + shown + finish
        assert "set" not in story(run)
        assert len(run.sleeps) in (5, 6)


def test_a_clock_that_stands_still_is_not_set(board):
    board.set("/dev/rtc0", "stopped", "1")
    run = board.run("bt1", "rtc", date=DATE)
    start, finish = BANNERS[()]
    assert (run.status, run.stdout, run.stderr) == (0, start + times(DATE, 1) * 6 + finish, b"")
    assert story(run) == ["open", *reading(3, 3, 3, 3, 3, 3), "close"]


def test_a_clock_that_lost_its_time(board):
    board.set("/dev/rtc0", "time_valid", "0")
    run = board.run("bt1", "rtc", date=DATE)
    start, finish = BANNERS[()]
    assert (run.status, run.stdout, run.stderr) == (0, start + READ_FAILED + finish, b"")


def test_ctrl_c_does_not_stop_it(board):
    run = board.run("bt1", "rtc", "autotest", date=DATE, signals=["INT@2.5", "INT@8.5"])
    start, finish = BANNERS[("autotest",)]
    assert (run.status, run.stdout, run.stderr) == (0, start + HEALTHY + finish, b"")
