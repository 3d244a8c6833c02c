"""bt1 wdt: feeds the watchdog, stops it, starts it again and lets it reset the board.

The reset is the pass signal: the program itself never ends when everything works.
"""

import re
import struct

import pytest

from device_trace import unpacked

# What the board's driver is told to answer.
INFORMATION = b"options=33152,id=Bench Dog\n"
TIMEOUT_SET = b"set wdt timeout  10\nFeed the dog interval 6 seconds.\n"
CLOSED = b"The WDT has been closed!\nCheck whether it can remain normal after 10 seconds:\n"
COUNT_DOWN = b"".join(b"%d seconds!\n" % n for n in range(10, 0, -1))
REOPENED = b"watchdog was reopen!\n"
ARMED = b"set timeout 15 seconds.\n"
LAST = (
    b"If the device resets after 15 seconds, the test is successful" + "！".encode("gb2312") + b"\n"
)
FAILED_WITH_5 = 256 - 5


def fed(count):
    return b"".join(b"Wdt fed %d times \n" % n for n in range(1, count + 1))


@pytest.fixture
def board(board):
    board.set("/dev/watchdog", "options", "33152")
    board.set("/dev/watchdog", "identity", "Bench Dog")
    return board


def story(run):
    """The requests as short words."""
    words = []
    for line in run.requests:
        sent = re.search(r" in=(\S+)", line)
        value = f" {struct.unpack('<i', unpacked(sent[1]))[0]}" if sent else ""
        result = line.rpartition(" = ")[2]
        if re.fullmatch(r"open /dev/watchdog RDWR = \d+", line):
            words.append("open")
        elif line.startswith("close /dev/watchdog "):
            words.append("close" if result == "0" else f"close {result}")
        elif line.startswith("ioctl /dev/watchdog WDIOC_"):
            name = line.split()[2].removeprefix("WDIOC_")
            # What KEEPALIVE is given means nothing to the driver.
            words.append(
                name
                + ("" if name in ("KEEPALIVE", "GETSUPPORT") else value)
                + ("" if result == "0" else f" {result}")
            )
        elif re.fullmatch(r"sleep \d+\.000000", line):
            words.append(line.removesuffix(".000000"))
        else:
            words.append(line)
    return words


TO_FEEDING = ["open", "GETSUPPORT", "SETTIMEOUT 10"]
FEEDING = ["sleep 6", "KEEPALIVE"] * 10
REMAINING = ["SETOPTIONS 1"] + ["sleep 1"] * 10
ENDLESS = ["SETOPTIONS 2", "SETTIMEOUT 15", "close"]


@pytest.mark.parametrize("words", [(), ("autotest",), ("-h",), ("a", "b", "c")])
def test_the_board_resets_whatever_the_arguments(board, words):
    run = board.run("bt1", "wdt", *words)
    assert (run.status, run.stderr) == (80, b"board reset\n")
    until_armed = (
        INFORMATION
        + TIMEOUT_SET
        + fed(10)
        + b"\n"
        + CLOSED
        + COUNT_DOWN
        + b"\n"
        + REOPENED
        + ARMED
        + LAST
    )
    assert run.stdout.startswith(until_armed)
    # A line for each second until the watchdog bites, counting on by one.
    counted = run.stdout[len(until_armed) :]
    numbers = [int(n) for n in re.findall(rb"(-?\d+) seconds!\n", counted)]
    assert counted == b"".join(b"%d seconds!\n" % n for n in numbers)
    assert len(numbers) in (14, 15)
    assert numbers == list(range(numbers[0], numbers[0] + len(numbers)))

    steps = story(run)
    fixed = TO_FEEDING + FEEDING + REMAINING + ENDLESS
    assert steps[: len(fixed)] == fixed
    assert set(steps[len(fixed) :]) == {"sleep 1"}
    # No character is written before the close: the watchdog must stay armed.
    assert not any(line.startswith("write") for line in run.requests)


@pytest.mark.parametrize("fault", ["absent", "open errno=EBUSY"])
def test_fails_without_the_device(board, fault):
    board.fault(f"/dev/watchdog {fault}")
    run = board.run("bt1", "wdt")
    assert (run.status, run.stdout, run.stderr) == (255, b"open device faild!\n", b"")
    assert len(run.requests) == 1


def test_shows_an_identity_of_high_bytes_as_it_is(board):
    board.set("/dev/watchdog", "identity", "D\u00f6g \u00ff")
    board.fault("/dev/watchdog ioctl:WDIOC_SETTIMEOUT errno=EIO")
    run = board.run("bt1", "wdt")
    assert run.stdout.startswith(b"options=33152,id=D\xc3\xb6g \xc3\xbf\n")


def test_goes_on_without_the_devices_information(board):
    board.fault("/dev/watchdog ioctl:WDIOC_GETSUPPORT errno=ENOTTY")
    run = board.run("bt1", "wdt")
    assert (run.status, run.stderr) == (80, b"board reset\n")
    assert re.match(
        rb"Get device infomation  faild!\noptions=-?\d+,id=.*\n" + re.escape(TIMEOUT_SET + fed(10)),
        run.stdout,
    )
    assert LAST in run.stdout


# Each failed request closes the device, prints an empty line and returns -5.


def test_fails_when_the_timeout_cannot_be_set(board):
    board.fault("/dev/watchdog ioctl:WDIOC_SETTIMEOUT errno=EINVAL")
    run = board.run("bt1", "wdt")
    assert (run.status, run.stdout, run.stderr) == (
        FAILED_WITH_5,
        INFORMATION + b"open watchdog faild!\n\n",
        b"",
    )
    assert story(run) == ["open", "GETSUPPORT", "SETTIMEOUT 10 EINVAL", "close"]


@pytest.mark.parametrize("good", [0, 1, 9])
def test_fails_when_it_cannot_be_fed(board, good):
    board.fault(f"/dev/watchdog ioctl:WDIOC_KEEPALIVE errno=EIO nth={good + 1}")
    run = board.run("bt1", "wdt")
    assert (run.status, run.stdout, run.stderr) == (
        FAILED_WITH_5,
        INFORMATION + TIMEOUT_SET + fed(good) + b"feed watchdog faild!\n\n",
        b"",
    )
    assert story(run) == TO_FEEDING + FEEDING[: 2 * good] + ["sleep 6", "KEEPALIVE EIO", "close"]


def test_fails_when_it_cannot_be_stopped(board):
    board.fault("/dev/watchdog ioctl:WDIOC_SETOPTIONS errno=EIO nth=1")
    run = board.run("bt1", "wdt")
    assert (run.status, run.stdout, run.stderr) == (
        FAILED_WITH_5,
        INFORMATION + TIMEOUT_SET + fed(10) + b"\nclose watchdog faild!\n\n",
        b"",
    )
    assert story(run) == TO_FEEDING + FEEDING + ["SETOPTIONS 1 EIO", "close"]


def test_fails_when_it_cannot_be_started_again(board):
    board.fault("/dev/watchdog ioctl:WDIOC_SETOPTIONS errno=EIO nth=2")
    run = board.run("bt1", "wdt")
    assert (run.status, run.stdout, run.stderr) == (
        FAILED_WITH_5,
        INFORMATION
        + TIMEOUT_SET
        + fed(10)
        + b"\n"
        + CLOSED
        + COUNT_DOWN
        + b"\nopen the wdt faild!\n\n",
        b"",
    )
    assert story(run) == TO_FEEDING + FEEDING + REMAINING + ["SETOPTIONS 2 EIO", "close"]


def test_fails_when_the_last_timeout_cannot_be_set(board):
    board.fault("/dev/watchdog ioctl:WDIOC_SETTIMEOUT errno=EINVAL nth=2")
    run = board.run("bt1", "wdt")
    assert (run.status, run.stdout, run.stderr) == (
        FAILED_WITH_5,
        INFORMATION
        + TIMEOUT_SET
        + fed(10)
        + b"\n"
        + CLOSED
        + COUNT_DOWN
        + b"\n"
        + REOPENED
        + b"set timeout failed!\n\n",
        b"",
    )
    assert story(run) == TO_FEEDING + FEEDING + REMAINING + [
        "SETOPTIONS 2",
        "SETTIMEOUT 15 EINVAL",
        "close",
    ]


def test_fails_when_the_device_does_not_close(board):
    board.fault("/dev/watchdog close errno=EIO nth=1")
    run = board.run("bt1", "wdt")
    assert (run.status, run.stdout, run.stderr) == (
        FAILED_WITH_5,
        INFORMATION
        + TIMEOUT_SET
        + fed(10)
        + b"\n"
        + CLOSED
        + COUNT_DOWN
        + b"\n"
        + REOPENED
        + ARMED
        + b"close device failed!\n\n",
        b"",
    )
    # The program closes the number once more. The device is gone from it by then, as the kernel
    # has it also for a close that failed, so that the second one is no call on the board.
    assert story(run) == (
        TO_FEEDING + FEEDING + REMAINING + ["SETOPTIONS 2", "SETTIMEOUT 15", "close EIO"]
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
    assert run.stdout == INFORMATION + TIMEOUT_SET + fed(2)
