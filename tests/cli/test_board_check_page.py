"""docs/applets/board-check.md says what a bench matches: each text is printed when it should be.

A row of the page's table names a test, the texts of a passed one and of a failed one. Each failed text
has a way to provoke it here; a text that the page drops or adds is missed.
"""

import pathlib
import re

import pytest

PAGE = pathlib.Path(__file__).resolve().parents[2] / "docs/applets/board-check.md"
NVMEM = "/sys/bus/nvmem/devices"
RESET = 80


def table():
    """{test: (passed texts, failed texts)} of the section "What to match"."""
    section = PAGE.read_text(encoding="utf-8").split("## What to match\n")[1].split("\n## ")[0]
    rows = re.findall(r"^\| `(\w+)` \| (.*) \| (.*) \|$", section, re.M)
    return {name: tuple(re.findall(r"`([^`]+)`", cell) for cell in cells) for name, *cells in rows}


def text_of(data):
    """Output with GB2312 texts made readable."""
    lines = []
    for line in data.split(b"\n"):
        try:
            lines.append(line.decode())
        except UnicodeDecodeError:
            lines.append(line.decode("gb2312", errors="replace"))
    return "\n".join(lines)


# (test, failed text): faults, or settings as (node, key, value), that provoke it
PROVOKED = {
    ("rtc", "open rtc0 failed"): ["/dev/rtc0 absent"],
    ("rtc", "rtc rd time faid"): ["/dev/rtc0 ioctl:RTC_RD_TIME errno=EIO"],
    ("rtc", "ret:-1"): ["/dev/rtc0 ioctl:RTC_SET_TIME errno=EIO"],
    ("rtc", "读取RTC失败"): ["/dev/rtc0 ioctl:RTC_RD_TIME errno=EIO from=8"],
    ("rtc", "关闭文件失败!"): ["/dev/rtc0 close errno=EIO"],
    ("alarm", "alarm auto test failed"): [
        "/sys/class/gpio/gpio48/value write errno=EIO",
        ("/sys/class/gpio/gpio40/value", "1"),
    ],
    ("alarm", "get alarm input failed"): ["/sys/class/gpio/gpio43/value read errno=EIO"],
    ("lcd", "can't open device /dev/lcd"): ["/dev/lcd absent"],
    ("lcd", "screen buf fail!"): ["/dev/lcd write errno=EIO"],
    ("lcd", "ioctl set data write fail!"): ["/dev/lcd ioctl errno=EIO"],
    ("lcd", "lcd_auto fail"): [("/dev/lcd", "returns", "count")],
    ("gsensor", "no find /dev/gyro"): ["/dev/gyro absent"],
    ("gsensor", "get gsensor id failure."): ["/dev/gyro ioctl:HAT_GYRO_INIT errno=EIO"],
    ("gsensor", "[ERR]read data err"): ["/dev/gyro read errno=EIO nth=5"],
    ("iccard", "read write iccard fail"): ["/dev/iccard absent"],
    ("bootparam", "bootparam_auto fail"): [f"{NVMEM}/bootparam0/nvmem absent"],
    ("cpldinfo", "cpldinfo_get fail"): [f"{NVMEM}/hardinfo0/nvmem absent"],
    ("wdt", "open device faild!"): ["/dev/watchdog absent"],
    ("wdt", "open watchdog faild!"): ["/dev/watchdog ioctl:WDIOC_SETTIMEOUT errno=EIO nth=1"],
    ("wdt", "feed watchdog faild!"): ["/dev/watchdog ioctl:WDIOC_KEEPALIVE errno=EIO nth=3"],
    ("wdt", "close watchdog faild!"): ["/dev/watchdog ioctl:WDIOC_SETOPTIONS errno=EIO nth=1"],
    ("wdt", "open the wdt faild!"): ["/dev/watchdog ioctl:WDIOC_SETOPTIONS errno=EIO nth=2"],
    ("wdt", "set timeout failed!"): ["/dev/watchdog ioctl:WDIOC_SETTIMEOUT errno=EIO nth=2"],
    ("wdt", "close device failed!"): ["/dev/watchdog close errno=EIO"],
}
# Names of files and of commands in the cells, not lines that a test prints.
NOT_PRINTED = {
    "gsensor_log",
    "gsensor autotest faild!",
    "bt1 vgadet",
    "vga detect 1",
    "14 seconds!",
}
WATCHDOG_FAILS = [text for test, text in PROVOKED if test == "wdt"]


def check(board, *faults):
    """(status, both streams) of the whole check under faults and settings."""
    for one in faults:
        if isinstance(one, str):
            board.fault(one)
        else:
            board.set(*one)
    run = board.run("bt1", "autotest", "autotest")
    return run.status, text_of(run.stdout + run.stderr)


def test_a_healthy_board_prints_every_passed_text_and_no_failed_one(board):
    status, text = check(board)
    assert status == RESET
    assert "RESULT:" not in text
    for passed, failed in table().values():
        for one in set(passed) - NOT_PRINTED:
            assert one in text, one
        for one in set(failed) - NOT_PRINTED - set(passed):
            assert one not in text, one


def test_every_failed_text_of_the_page_is_provoked():
    shown = {
        (test, one) for test, (_, failed) in table().items() for one in set(failed) - NOT_PRINTED
    }
    assert shown == set(PROVOKED)


@pytest.mark.parametrize(
    "test, text", [pytest.param(*row, id=f"{row[0]}: {row[1]}") for row in PROVOKED]
)
def test_failed_text_is_printed(board, test, text):
    status, printed = check(board, *PROVOKED[test, text])
    assert text in printed
    # The reset comes all the same, unless the watchdog's own test failed.
    assert (status == RESET) == (test != "wdt")
    assert ("RESULT:" in printed) == (test == "wdt")


def test_a_clock_that_stands_a_missing_card_and_a_failing_sensor_end_in_the_reset(board):
    board.set("/dev/gyro", "medium", "gyro-at-rest.timeline")  # flat
    status, text = check(board, ("/dev/rtc0", "stopped", "1"), "/dev/iccard absent")
    assert status == RESET
    assert "RESULT:" not in text
    assert "RTC走时测试成功。" not in text
    assert "read write iccard fail" in text


def test_a_flat_board_leaves_the_sensors_log(board, tmp_path):
    board.set("/dev/gyro", "medium", "gyro-at-rest.timeline")
    board.run("bt1", "gsensor", "autotest", cwd=tmp_path)
    assert (tmp_path / "gsensor_log").read_text().endswith("gsensor autotest faild!\n")
    board.set("/dev/gyro", "medium", "gyro.timeline")
    board.run("bt1", "gsensor", "autotest", cwd=tmp_path)
    assert not (tmp_path / "gsensor_log").exists()


@pytest.mark.parametrize(
    "fault, seconds",
    [
        ("ioctl:WDIOC_SETTIMEOUT errno=EIO nth=1", 60),  # the driver's own limit
        ("ioctl:WDIOC_KEEPALIVE errno=EIO nth=3", 10),
        ("ioctl:WDIOC_SETOPTIONS errno=EIO nth=1", 10),
        ("ioctl:WDIOC_SETOPTIONS errno=EIO nth=2", None),  # it was stopped before
        ("ioctl:WDIOC_SETTIMEOUT errno=EIO nth=2", 10),
        ("close errno=EIO", 15),
        ("absent", None),
    ],
)
def test_a_failed_watchdog_test_ends_in_a_reset_too(board, fault, seconds):
    board.fault(f"/dev/watchdog {fault}")
    benchrig = board.build / "bin/benchrig"
    command = ["sh", "-c", f"{benchrig} bt1 wdt; sleep 100; echo alive"]
    run = board.run_command(command)
    if seconds is None:
        assert (run.status, run.stdout.endswith(b"alive\n")) == (0, True)
        return
    assert run.status == RESET
    closed = next(time for time, line in run.trace if line.startswith("close /dev/watchdog"))
    reset = next(time for time, line in run.trace if line.startswith("sleep 100"))  # cut short
    assert reset - closed == pytest.approx(seconds, abs=0.01)


def test_every_word_of_wdt_is_ignored(board):
    assert board.run("bt1", "wdt", "--help").status == RESET


@pytest.mark.parametrize("word", ["autotest", "rtc", "gsensor", "wdt"])
def test_ctrl_backslash_ends_what_ignores_ctrl_c(board, word):
    run = board.run("bt1", word, "autotest", signals=["INT@2", "QUIT@3"])
    assert run.status == 128 + 3


def test_inputs_that_lie_low_pass_without_the_plug(board):
    board.path("sys.wires").write_text("")
    run = board.run("bt1", "alarm", "autotest")
    assert (run.status, run.stdout) == (0, b"")


def test_a_missing_buzzer_changes_no_line(board):
    whole = board.run("bt1", "beep", "autotest").stdout
    board.fault("/sys/class/leds/buzzer/brightness absent")
    assert board.run("bt1", "beep", "autotest").stdout == whole


def test_what_the_check_leaves_behind(board):
    before = board.path("media/iccard.bin").read_bytes()
    block = board.path(NVMEM[1:] + "/bootparam0/nvmem").read_bytes()
    board.set("/sys/class/gpio/gpio48/value", "1")
    check(board)
    after = board.path("media/iccard.bin").read_bytes()
    assert sum(a != b for a, b in zip(before, after)) > 200
    assert "set_to = 2015-04-01 08:57:23" in board.path("dev/rtc0").read_text()
    assert board.path("sys/class/gpio/gpio48/value").read_text() == "0\n"
    assert board.path("sys/class/leds/buzzer/brightness").read_text() == "0\n"
    assert board.path(NVMEM[1:] + "/bootparam0/nvmem").read_bytes() == block
    assert set(board.path("media/lcd.frame").read_bytes()) == {0}


def test_a_buzzer_that_was_left_on_stays_on(board):
    board.run("bt1", "beep", "autotest", signals=["QUIT@2.5"])
    assert board.path("sys/class/leds/buzzer/brightness").read_text() == "1\n"
