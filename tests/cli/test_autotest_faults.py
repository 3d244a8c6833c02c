"""One broken device at a time: the unattended run differs in exactly the lines of that device.

The watchdog is missing in both runs, since the verdicts are printed only then.
"""

from collections import Counter

import pytest

from bt1_report import VGADET_USAGE, progress, report
from test_rtc import (
    AFTER_SETTING,
    CLOSING_FAILED,
    DATE,
    READ_FAILED,
    RUNS,
    SETTING,
    after_setting,
    times,
)

RTC = "/dev/rtc0"
BUZZER = "/sys/class/leds/buzzer/brightness"
INPUT = "/sys/class/gpio/gpio45/value"
OUTPUT = "/sys/class/gpio/gpio48/value"
VGA = "/sys/class/drm/card0-VGA-1/status"
BOOTPARAM = "/sys/bus/nvmem/devices/bootparam0/nvmem"
HARDINFO = "/sys/bus/nvmem/devices/hardinfo0/nvmem"

CLOCK = times(DATE, 6) + RUNS + SETTING + AFTER_SETTING + after_setting(6)
CLOCK_ENDS = b"\nRTC AUTOTEST FINISH!\n"
WRITTEN = b"HAL_ICCARD_WRITE sucess \n"
READ_BACK = b"HAL_ICCARD_READ sucess \n"
CARD_PASSES = b"*************read write iccard pass(10)!*************\n"


def card_fails(passes):
    return b"*************read write iccard fail%s!*************\n" % passes


def bootparam_fails(line, what):
    return (
        b"[bootparam_auto:%d]RETURN:%s fail[-1]\n[bootparam_main:133]WARN:bootparam_auto fail[-1]\n"
        % (line, what)
    )


# What is broken; the tests that fail by it; the lines that go and the lines that come.
ROWS = {
    "the clock is missing": ([f"{RTC} absent"], {"rtc"}, CLOCK + CLOCK_ENDS, b"open rtc0 failed\n"),
    "the clock does not open": (
        [f"{RTC} open errno=EIO"],
        {"rtc"},
        CLOCK + CLOCK_ENDS,
        b"open rtc0 failed\n",
    ),
    "the clock does not close": ([f"{RTC} close errno=EIO"], {"rtc"}, CLOCK_ENDS, CLOSING_FAILED),
    # A clock that cannot be read counts as tested.
    "the clock cannot be read": ([f"{RTC} ioctl:RTC_RD_TIME errno=EIO"], set(), CLOCK, READ_FAILED),
    # Nobody hears that the buzzer is silent.
    "the buzzer is missing": ([f"{BUZZER} absent"], set(), b"", b""),
    "the buzzer fails": ([f"{BUZZER} write errno=EIO"], set(), b"", b""),
    "an alarm input is missing": (
        [f"{INPUT} absent"],
        {"alarm"},
        b"",
        b"alarm_autotest:41 get alarm input failed \n",
    ),
    "an alarm input fails after the first reading": (
        [f"{INPUT} open errno=EIO from=2"],
        {"alarm"},
        b"",
        b"alarm_autotest:49 get alarm input failed \n",
    ),
    # The inputs stay low, and only a high one fails.
    "the alarm output fails": ([f"{OUTPUT} write errno=EIO"], set(), b"", b""),
    "the display is missing": (["/dev/lcd absent"], {"lcd"}, b"", b"can't open device /dev/lcd\n"),
    "the display takes no frame": (
        ["/dev/lcd write errno=EIO"],
        {"lcd"},
        b"",
        b"write black screen buf fail! \nwrite white screen buf fail! \n" * 3
        + b"[lcd_main:320]WARN:lcd_auto fail[-1]\n",
    ),
    "the display takes the last frame by the byte": (
        ["/dev/lcd write result=1024 nth=6"],
        {"lcd"},
        b"",
        b"[lcd_main:320]WARN:lcd_auto fail[1024]\n",
    ),
    # Its test takes no argument and fails anyway.
    "the monitor connector is missing": ([f"{VGA} absent"], set(), b"", b""),
    "the motion sensor is missing": (
        ["/dev/gyro absent"],
        {"gsensor"},
        b"",
        b"gsensor_main:599 no find /dev/gyro err[2]\n",
    ),
    # The card's test succeeds whatever it finds.
    "the card reader is missing": (
        ["/dev/iccard absent"],
        set(),
        (WRITTEN + READ_BACK) * 10 + CARD_PASSES,
        b"open /dev/iccard error\n" + card_fails(b""),
    ),
    "the card cannot be written": (
        ["/dev/iccard ioctl:HAL_ICCARD_WRITE errno=EIO"],
        set(),
        (WRITTEN + READ_BACK) * 10 + CARD_PASSES,
        b"HAL_ICCARD_WRITE set failure.\n" + card_fails(b"(0)"),
    ),
    "the card cannot be read in the third pass": (
        ["/dev/iccard ioctl:HAL_ICCARD_READ errno=EIO nth=3"],
        set(),
        WRITTEN * 7 + READ_BACK * 8 + CARD_PASSES,
        b"HAL_ICCARD_READ set failure.\n" + card_fails(b"(2)"),
    ),
    # The blocks' tests succeed whatever they find.
    "the boot block is missing": (
        [f"{BOOTPARAM} absent"],
        set(),
        b"",
        bootparam_fails(92, b"bootparam_get"),
    ),
    "the boot block cannot be read": (
        [f"{BOOTPARAM} read errno=EIO"],
        set(),
        b"",
        bootparam_fails(92, b"bootparam_get"),
    ),
    "the boot block cannot be written": (
        [f"{BOOTPARAM} write errno=EIO"],
        set(),
        b"",
        bootparam_fails(98, b"bootparam_set"),
    ),
    "the boot block cannot be restored": (
        [f"{BOOTPARAM} write errno=EIO nth=2"],
        set(),
        b"",
        bootparam_fails(109, b"bootparam_bak"),
    ),
    "the hardware block is missing": (
        [f"{HARDINFO} absent"],
        set(),
        b"",
        b"[cpldinfo_auto:63]WARN:cpldinfo_get fail[-1]\n",
    ),
    "two devices are missing": (
        ["/dev/lcd absent", "/dev/gyro absent"],
        {"lcd", "gsensor"},
        b"",
        b"can't open device /dev/lcd\ngsensor_main:599 no find /dev/gyro err[2]\n",
    ),
}


def lines(text):
    """The lines that a text holds, in no order; the sensor's own report is left out."""
    return Counter(
        line
        for line in text.splitlines(keepends=True)
        if not line.startswith(
            (b"Gsensor name is ", b"Accel Full Scale is ", b"Gyro Full Scale is ")
        )
    )


def unattended(board, *words):
    board.fault("/dev/watchdog absent")
    return board.run("bt1", "autotest", *words, date=DATE)


@pytest.fixture(scope="module")
def healthy(make_board):
    run = unattended(make_board(), "autotest")
    assert run.status == 0
    assert run.stderr == progress({"vgadet": VGADET_USAGE}) + report({"vgadet", "wdt"})
    return lines(run.stdout)


@pytest.mark.parametrize("row", ROWS)
def test_changes_exactly_the_lines_of_the_broken_device(board, healthy, row):
    faults, failed, gone, come = ROWS[row]
    for fault in faults:
        board.fault(fault)
    run = unattended(board, "autotest")
    assert run.status == 0
    assert run.stderr == progress({"vgadet": VGADET_USAGE}) + report({"vgadet", "wdt"} | failed)
    broken = lines(run.stdout)
    assert (healthy - broken, broken - healthy) == (lines(gone), lines(come))


def test_a_broken_alarm_wire_with_an_input_stuck_high(board, healthy):
    board.path("sys.wires").write_text("", encoding="utf-8")
    board.set(INPUT, "1")
    run = unattended(board, "autotest")
    assert run.status == 0
    assert run.stderr == progress({"vgadet": VGADET_USAGE}) + report({"alarm", "vgadet", "wdt"})
    broken = lines(run.stdout)
    assert (healthy - broken, broken - healthy) == (
        Counter(),
        lines(b"alarm_autotest:54 alarm auto test failed\n"),
    )


def test_a_sensor_without_an_identity(board, healthy):
    board.fault("/dev/gyro ioctl:HAT_GYRO_INIT errno=EIO")
    run = unattended(board, "autotest")
    assert run.status == 0
    said = b"get gsensor id failure.\n: Input/output error\n"
    assert run.stderr == (
        progress({"vgadet": VGADET_USAGE, "gsensor": said}) + report({"vgadet", "gsensor", "wdt"})
    )
    assert lines(run.stdout) == healthy


def test_a_watchdog_that_refuses_its_timeout_instead_of_a_missing_one(board, healthy):
    board.fault("/dev/watchdog ioctl:WDIOC_SETTIMEOUT errno=EINVAL")
    run = board.run("bt1", "autotest", "autotest", date=DATE)
    assert run.status == 0
    assert run.stderr == progress({"vgadet": VGADET_USAGE}) + report({"vgadet", "wdt"})
    broken = lines(run.stdout)
    assert healthy - broken == lines(b"open device faild!\n")
    come = sorted(broken - healthy)
    assert [line for line in come if not line.startswith(b"options=")] == [
        b"\n",
        b"open watchdog faild!\n",
    ]


# The monitor is looked at only when the tests get their names alone.
@pytest.mark.parametrize("setting, number", [("connected", 1), ("disconnected", 0)])
def test_a_missing_monitor_is_no_error(board, setting, number):
    board.set(VGA, setting)
    run = unattended(board)
    assert run.status == 0
    assert b"vga detect %d\n" % number in run.stdout
    assert b"[RESULT] vgadet test is OK!\n" in run.stderr
