"""bt1 rtc: does the real-time clock run, and can it be set.

The test reads the clock six times, a second apart, judges the seconds that passed, sets it to a
fixed time and reads six times more. Only a clock that does not open or close fails it.
"""

import dataclasses
import datetime
import re
import struct

import pytest

from conftest import assert_story, out
from device_trace import packed

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


def moments(start, count, first=0):
    """`count` moments a second apart, the first one `first` seconds after `start`."""
    start = datetime.datetime.fromisoformat(start)
    return [start + datetime.timedelta(seconds=first + i) for i in range(count)]


def printed(moment):
    return moment.strftime("%Y-%m-%d %H:%M:%S\n").encode()


def times(start, count, first=0):
    """`count` printed times, the first one `first` seconds after `start`."""
    return b"".join(map(printed, moments(start, count, first)))


def after_setting(count):
    return times(SET_TO, count, first=1)


def setting():
    return RUNS + SETTING + AFTER_SETTING


HEALTHY = times(DATE, 6) + setting() + after_setting(6)


def record(moment):
    """The driver's record of a time; the fields that the kernel computes are zero."""
    return packed(
        struct.pack(
            "<9i",
            *(moment.second, moment.minute, moment.hour),
            *(moment.day, moment.month - 1, moment.year - 1900),
            *(0, 0, 0),
        )
    )


OPEN = "open /dev/rtc0 RDWR = 3"
CLOSE = "close /dev/rtc0 = 0"
SLEEP = "sleep 1.000000"
READ_EIO = "ioctl /dev/rtc0 RTC_RD_TIME = EIO"


def read(start, count, first=0):
    """`count` readings, each printed and followed by a wait; the sixth one by none."""
    lines = []
    for moment in moments(start, count, first):
        lines += [
            f"ioctl /dev/rtc0 RTC_RD_TIME out={record(moment)} = 0",
            out(printed(moment)),
            SLEEP,
        ]
    return lines[:-1] if count == 6 else lines


def set_time(result="0"):
    (moment,) = moments(SET_TO, 1)
    return f"ioctl /dev/rtc0 RTC_SET_TIME in={record(moment)} = {result}"


# A clock that runs is set; the readings that follow are the caller's.
SET = [out(RUNS), out(SETTING), set_time(), SLEEP, out(AFTER_SETTING)]


def assert_rtc_story(run, *expected):
    """Compares the whole story.

    Whether the sixth reading of each check is followed by a wait is nobody's business: those two
    waits are left out.
    """
    kept = []
    readings = 0
    for line in run.story:
        readings += " RTC_RD_TIME " in line
        after_the_sixth = readings in (6, 12) and kept[-1].startswith('out "20')
        if not (line == SLEEP and after_the_sixth):
            kept.append(line)
    assert_story(dataclasses.replace(run, story=kept), *expected)


@pytest.mark.parametrize("words", BANNERS)
def test_sets_and_reads_a_clock_that_runs(board, words):
    start, finish = BANNERS[words]
    run = board.run("bt1", "rtc", *words, date=DATE, story=True)
    assert run.status == 0
    assert_rtc_story(
        run,
        out(start),
        OPEN,
        *read(DATE, 6),
        *SET,
        *read(SET_TO, 6, first=1),
        CLOSE,
        out(finish),
    )


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
@pytest.mark.parametrize("fault, error", [("absent", "ENOENT"), ("open errno=EBUSY", "EBUSY")])
def test_fails_without_the_device(board, words, fault, error):
    board.fault(f"/dev/rtc0 {fault}")
    run = board.run("bt1", "rtc", *words, story=True)
    assert run.status == 255
    assert_story(
        run, out(BANNERS[words][0]), f"open /dev/rtc0 RDWR = {error}", out("open rtc0 failed\n")
    )


@pytest.mark.parametrize("words", BANNERS)
@pytest.mark.parametrize("good", [0, 1, 5])
def test_a_failed_reading_ends_the_test_with_success(board, words, good):
    start, finish = BANNERS[words]
    board.fault(f"/dev/rtc0 ioctl:RTC_RD_TIME errno=EIO nth={good + 1}")
    run = board.run("bt1", "rtc", *words, date=DATE, story=True)
    assert run.status == 0
    assert_rtc_story(
        run, out(start), OPEN, *read(DATE, good), READ_EIO, out(READ_FAILED), CLOSE, out(finish)
    )


@pytest.mark.parametrize("good", [0, 3, 5])
def test_a_failed_reading_after_setting_ends_the_test_with_success(board, good):
    board.fault(f"/dev/rtc0 ioctl:RTC_RD_TIME errno=EIO nth={6 + good + 1}")
    run = board.run("bt1", "rtc", "autotest", date=DATE, story=True)
    start, finish = BANNERS[("autotest",)]
    assert run.status == 0
    assert_rtc_story(
        run,
        out(start),
        OPEN,
        *read(DATE, 6),
        *SET,
        *read(SET_TO, good, first=1),
        READ_EIO,
        out(READING_FAILED),
        CLOSE,
        out(finish),
    )


@pytest.mark.parametrize("nth, message", [(1, READ_FAILED), (7, READING_FAILED)])
def test_a_positive_result_of_reading_is_a_failed_reading_too(board, nth, message):
    board.fault(f"/dev/rtc0 ioctl:RTC_RD_TIME result=1 nth={nth}")
    run = board.run("bt1", "rtc", "autotest", date=DATE)
    start, finish = BANNERS[("autotest",)]
    done = b"" if nth == 1 else times(DATE, 6) + setting()
    assert (run.status, run.stdout, run.stderr) == (0, start + done + message + finish, b"")


def test_goes_on_when_the_clock_cannot_be_set(board):
    board.fault("/dev/rtc0 ioctl:RTC_SET_TIME errno=EPERM")
    run = board.run("bt1", "rtc", "autotest", date=DATE, story=True)
    start, finish = BANNERS[("autotest",)]
    # The clock was not set and has gone on: the six sleeps (or five), and one.
    first = 6 + (times(DATE, 6, first=7) in run.stdout)
    assert run.status == 0
    assert_rtc_story(
        run,
        out(start),
        OPEN,
        *read(DATE, 6),
        out(RUNS),
        out(SETTING),
        set_time("EPERM"),
        out("ret:-1, errno:1\n"),
        SLEEP,
        out(AFTER_SETTING),
        *read(DATE, 6, first=first),
        CLOSE,
        out(finish),
    )


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
    run = board.run("bt1", "rtc", *words, date=DATE, story=True)
    assert run.status == 255
    assert_rtc_story(
        run,
        out(BANNERS[words][0]),
        OPEN,
        *read(DATE, 6),
        *SET,
        *read(SET_TO, 6, first=1),
        "close /dev/rtc0 = EIO",
        out(CLOSING_FAILED),
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
        assert set_time() in run.requests
    else:
        assert run.stdout == start + shown + finish
        assert set_time() not in run.requests
        assert len(run.sleeps) in (5, 6)


def test_a_clock_that_stands_still_is_not_set(board):
    board.set("/dev/rtc0", "stopped", "1")
    run = board.run("bt1", "rtc", date=DATE, story=True)
    start, finish = BANNERS[()]
    assert run.status == 0
    assert_rtc_story(run, out(start), OPEN, *(read(DATE, 1) * 6)[:-1], CLOSE, out(finish))


def test_a_clock_that_lost_its_time(board):
    board.set("/dev/rtc0", "time_valid", "0")
    run = board.run("bt1", "rtc", date=DATE)
    start, finish = BANNERS[()]
    assert (run.status, run.stdout, run.stderr) == (0, start + READ_FAILED + finish, b"")


def test_ctrl_c_does_not_stop_it(board):
    run = board.run("bt1", "rtc", "autotest", date=DATE, signals=["INT@2.5", "INT@8.5"])
    start, finish = BANNERS[("autotest",)]
    assert (run.status, run.stdout, run.stderr) == (0, start + HEALTHY + finish, b"")
