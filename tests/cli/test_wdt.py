"""bt1 wdt: feeds the watchdog, stops it, starts it again and lets it reset the board.

The reset is the pass signal: the program itself never ends when everything works.
"""

import dataclasses
import re
import struct

import pytest

from conftest import assert_story, err, out, untraced
from device_trace import packed

# What the board's driver is told to answer.
INFORMATION = b"options=33152,id=Bench Dog\n"
TIMEOUT_SET = b"set wdt timeout  10\nFeed the dog interval 6 seconds.\n"
CLOSED = b"The WDT has been closed!\nCheck whether it can remain normal after 10 seconds:\n"
REOPENED = b"watchdog was reopen!\n"
ARMED = b"set timeout 15 seconds.\n"
LAST = (
    b"If the device resets after 15 seconds, the test is successful" + "！".encode("gb2312") + b"\n"
)
FAILED_WITH_5 = 256 - 5


@pytest.fixture
def board(board):
    board.set("/dev/watchdog", "options", "33152")
    board.set("/dev/watchdog", "identity", "Bench Dog")
    return board


OPEN = "open /dev/watchdog RDWR = 3"
CLOSE = "close /dev/watchdog = 0"
SUPPORT = packed(struct.pack("<II32s", 33152, 0, b"Bench Dog"))
SECOND = "sleep 1.000000"


def word(number):
    return packed(struct.pack("<i", number))


def set_timeout(seconds, result="0"):
    answer = f" out={word(seconds)}" if result == "0" else ""
    return f"ioctl /dev/watchdog WDIOC_SETTIMEOUT in={word(seconds)}{answer} = {result}"


def set_option(option, result="0"):
    return f"ioctl /dev/watchdog WDIOC_SETOPTIONS in={word(option)} = {result}"


def feeding(result="0"):
    return ["sleep 6.000000", f"ioctl /dev/watchdog WDIOC_KEEPALIVE = {result}"]


def fed(count):
    return [
        line for n in range(1, count + 1) for line in (*feeding(), out(f"Wdt fed {n} times \n"))
    ]


# What a healthy run does, step by step.
TO_INFORMATION = [
    OPEN,
    f"ioctl /dev/watchdog WDIOC_GETSUPPORT out={SUPPORT} = 0",
    out(INFORMATION),
]
TO_FEEDING = [*TO_INFORMATION, set_timeout(10), out(TIMEOUT_SET)]
TO_STOPPING = [*TO_FEEDING, *fed(10), out("\n")]
TO_STARTING = [
    *TO_STOPPING,
    set_option(1),
    out(CLOSED),
    *(line for n in range(10, 0, -1) for line in (out(f"{n} seconds!\n"), SECOND)),
    out("\n"),
]
TO_ARMING = [*TO_STARTING, set_option(2), out(REOPENED)]
TO_CLOSING = [*TO_ARMING, set_timeout(15), out(ARMED)]
TO_COUNTING = [*TO_CLOSING, CLOSE, out(LAST)]


def counting(run):
    """A line for each second until the watchdog bites, counting on by one from any number."""
    numbers = [int(n) for n in re.findall(rb"(-?\d+) seconds!\n", run.stdout.partition(LAST)[2])]
    assert len(numbers) in (14, 15)
    lines = []
    for n in range(numbers[0], numbers[0] + len(numbers)):
        lines += [SECOND, out(f"{n} seconds!\n")]
    return [*lines, SECOND, "board reset"]


@pytest.mark.parametrize("words", [(), ("autotest",), ("-h",), ("a", "b", "c")])
def test_the_board_resets_whatever_the_arguments(board, words):
    run = board.run("bt1", "wdt", *words, story=True)
    assert (run.status, run.stderr) == (80, b"board reset\n")
    # No character is written before the close: the watchdog must stay armed.
    assert_story(run, *TO_COUNTING, *counting(run))


@pytest.mark.parametrize("fault, error", [("absent", "ENOENT"), ("open errno=EBUSY", "EBUSY")])
def test_fails_without_the_device(board, fault, error):
    board.fault(f"/dev/watchdog {fault}")
    run = board.run("bt1", "wdt", story=True)
    assert run.status == 255
    assert_story(run, f"open /dev/watchdog RDWR = {error}", out("open device faild!\n"))


def test_shows_an_identity_of_high_bytes_as_it_is(board):
    board.set("/dev/watchdog", "identity", "D\u00f6g \u00ff")
    board.fault("/dev/watchdog ioctl:WDIOC_SETTIMEOUT errno=EIO")
    run = board.run("bt1", "wdt")
    assert run.stdout.startswith(b"options=33152,id=D\xc3\xb6g \xc3\xbf\n")


def test_shows_an_identity_that_fills_its_field(board):
    # 32 bytes have no room for a NUL.
    board.set("/dev/watchdog", "identity", "ABCDEFGHIJKLMNOPQRSTUVWXYZ123456")
    board.fault("/dev/watchdog ioctl:WDIOC_SETTIMEOUT errno=EIO")
    run = board.run("bt1", "wdt")
    assert run.stdout == (
        b"options=33152,id=ABCDEFGHIJKLMNOPQRSTUVWXYZ123456\nopen watchdog faild!\n\n"
    )


def test_goes_on_without_the_devices_information(board):
    board.fault("/dev/watchdog ioctl:WDIOC_GETSUPPORT errno=ENOTTY")
    run = board.run("bt1", "wdt", story=True)
    assert (run.status, run.stderr) == (80, b"board reset\n")
    # What is shown of a device without information is not fixed.
    (shown,) = re.findall(rb"options=-?\d+,id=.*\n", run.stdout)
    assert_story(
        run,
        OPEN,
        "ioctl /dev/watchdog WDIOC_GETSUPPORT = ENOTTY",
        out("Get device infomation  faild!\n"),
        out(shown),
        *TO_COUNTING[len(TO_INFORMATION) :],
        *counting(run),
    )


def test_a_positive_result_is_no_failure(board):
    for request in ("GETSUPPORT", "SETTIMEOUT", "KEEPALIVE", "SETOPTIONS"):
        board.fault(f"/dev/watchdog ioctl:WDIOC_{request} result=1")
    run = board.run("bt1", "wdt", story=True)
    assert (run.status, run.stderr) == (80, b"board reset\n")
    assert_story(
        dataclasses.replace(run, story=[line for line in run.story if line.startswith("out ")]),
        *(step for step in TO_COUNTING + counting(run)[:-1] if not isinstance(step, str)),
    )


# Each failed request closes the device, prints an empty line and returns -5.


def assert_failure(run, *expected):
    assert run.status == FAILED_WITH_5
    assert_story(run, *expected, CLOSE, out("\n"))


def test_fails_when_the_timeout_cannot_be_set(board):
    board.fault("/dev/watchdog ioctl:WDIOC_SETTIMEOUT errno=EINVAL")
    assert_failure(
        board.run("bt1", "wdt", story=True),
        *TO_INFORMATION,
        set_timeout(10, "EINVAL"),
        out("open watchdog faild!\n"),
    )


@pytest.mark.parametrize("good", [0, 1, 9])
def test_fails_when_it_cannot_be_fed(board, good):
    board.fault(f"/dev/watchdog ioctl:WDIOC_KEEPALIVE errno=EIO nth={good + 1}")
    assert_failure(
        board.run("bt1", "wdt", story=True),
        *TO_FEEDING,
        *fed(good),
        *feeding("EIO"),
        out("feed watchdog faild!\n"),
    )


def test_fails_when_it_cannot_be_stopped(board):
    board.fault("/dev/watchdog ioctl:WDIOC_SETOPTIONS errno=EIO nth=1")
    assert_failure(
        board.run("bt1", "wdt", story=True),
        *TO_STOPPING,
        set_option(1, "EIO"),
        out("close watchdog faild!\n"),
    )


def test_fails_when_it_cannot_be_started_again(board):
    board.fault("/dev/watchdog ioctl:WDIOC_SETOPTIONS errno=EIO nth=2")
    assert_failure(
        board.run("bt1", "wdt", story=True),
        *TO_STARTING,
        set_option(2, "EIO"),
        out("open the wdt faild!\n"),
    )


def test_fails_when_the_last_timeout_cannot_be_set(board):
    board.fault("/dev/watchdog ioctl:WDIOC_SETTIMEOUT errno=EINVAL nth=2")
    assert_failure(
        board.run("bt1", "wdt", story=True),
        *TO_ARMING,
        set_timeout(15, "EINVAL"),
        out("set timeout failed!\n"),
    )


def test_fails_when_the_device_does_not_close(board):
    board.fault("/dev/watchdog close errno=EIO nth=1")
    run = board.run("bt1", "wdt", story=True, **untraced(board))
    assert run.status == FAILED_WITH_5
    # The program closes the number once more. The device is gone from it by then, as the kernel
    # has it also for a close that failed, so that the second one is no call on the board.
    assert_story(
        run,
        *TO_CLOSING,
        "close /dev/watchdog = EIO",
        out("close device failed!\n"),
        err("close 3 = EBADF\n"),
        out("\n"),
    )


@pytest.mark.parametrize("signals", [["INT@3"], ["INT@65", "INT@78.5", "INT@79"]])
def test_ctrl_c_does_not_stop_it(board, signals):
    run = board.run("bt1", "wdt", signals=signals)
    assert (run.status, run.stderr) == (80, b"board reset\n")
    assert LAST in run.stdout


def test_counts_on_for_ever_when_the_watchdog_does_not_bite(board):
    board.set("/dev/watchdog", "bites", "0")
    run = board.run("bt1", "wdt", seconds=170.5)
    assert (run.status, run.stderr) == (143, b"")
    numbers = [int(n) for n in re.findall(rb"(-?\d+) seconds!\n", run.stdout.partition(LAST)[2])]
    assert len(numbers) == 100
    assert numbers == list(range(numbers[0], numbers[0] + 100))


def test_what_was_printed_before_a_kill_is_not_lost(board):
    run = board.run("bt1", "wdt", seconds=13)
    assert (run.status, run.stderr) == (143, b"")
    assert run.stdout == INFORMATION + TIMEOUT_SET + b"Wdt fed 1 times \nWdt fed 2 times \n"
