"""bt1 autotest: every test of the bt1 table in order, then a verdict for each.

The verdicts are printed only when the watchdog test fails early; when the watchdog works, the
board's reset is the end of the run.
"""

import re

import pytest

from bt1_report import TESTS, VGADET_USAGE, heading, progress, report
from device_trace import packed
from test_alarm import USAGE as ALARM_USAGE
from test_alarm import loop_back
from test_beep import SELF_TEST as BEEP_SELF_TEST
from test_beep import USAGE as BEEP_USAGE
from test_cpldinfo import USAGE as CPLDINFO_USAGE
from test_rtc import BANNERS, DATE, HEALTHY, INPUT_ERROR

CPLDINFO_WARNS = b"[cpldinfo_main:157]WARN:cpldinfo_auto fail[-1]\n"
NO_WATCHDOG = "/dev/watchdog absent"
SENSOR = rb"Gsensor name is GYRO_LSM6DS3TR \n(?:.*\n)*?"
CARD = (
    b"*************start read write iccard test*************\n"
    + b"HAL_ICCARD_WRITE sucess \nHAL_ICCARD_READ sucess \n" * 10
    + b"*************read write iccard pass(10)!*************\n"
)


CARD_USAGE = re.compile(
    rb"\n------KORVEXIUM iccard test tools:\t------\n.*\n\n(?:\d\. iccard .*\n){5}"
)


def rtc(words):
    start, finish = BANNERS[words]
    return start + HEALTHY + finish


def test_ends_with_the_boards_reset_when_the_watchdog_works(board):
    run = board.run("bt1", "autotest", "autotest", date=DATE)
    assert run.status == 80
    assert run.stderr == progress({"vgadet": VGADET_USAGE}) + b"board reset\n"
    assert re.match(
        re.escape(rtc(("autotest",)) + BEEP_SELF_TEST)
        + SENSOR
        + re.escape(CARD + CPLDINFO_WARNS)
        + rb"options=-?\d+,id=.*\nset wdt timeout  10\n",
        run.stdout,
    )


def test_reports_every_test_when_the_watchdog_is_missing(board):
    board.fault(NO_WATCHDOG)
    run = board.run("bt1", "autotest", "autotest", date=DATE)
    assert run.status == 0
    # vgadet takes no argument, so that it fails in the unattended run.
    assert run.stderr == progress({"vgadet": VGADET_USAGE}) + report({"vgadet", "wdt"})
    assert re.fullmatch(
        re.escape(rtc(("autotest",)) + BEEP_SELF_TEST)
        + SENSOR
        + re.escape(CARD + CPLDINFO_WARNS + b"open device faild!\n"),
        run.stdout,
    )


@pytest.mark.parametrize(
    "request_name", ["WDIOC_SETTIMEOUT", "WDIOC_KEEPALIVE", "WDIOC_SETOPTIONS"]
)
def test_reports_every_test_when_the_watchdog_fails(board, request_name):
    board.fault(f"/dev/watchdog ioctl:{request_name} errno=EIO")
    run = board.run("bt1", "autotest", "autotest")
    assert run.status == 0
    assert run.stderr == progress({"vgadet": VGADET_USAGE}) + report({"vgadet", "wdt"})


def test_without_an_argument_each_test_gets_its_name_alone(board):
    board.fault(NO_WATCHDOG)
    run = board.run("bt1", "autotest", date=DATE)
    assert run.status == 0
    # The card's usage names the test as its own command line would; its stream is nobody's business.
    assert len(CARD_USAGE.findall(run.stdout + run.stderr)) == 1
    # lcd without an option, beep, alarm and iccard without arguments fail; gsensor has nothing to do.
    assert CARD_USAGE.sub(b"", run.stderr) == (
        progress({"beep": BEEP_USAGE, "alarm": ALARM_USAGE, "cpldinfo": CPLDINFO_USAGE})
        + report({"beep", "alarm", "lcd", "iccard", "wdt"})
    )
    stdout = CARD_USAGE.sub(b"", run.stdout)
    # Between them stands the boot block, in the library's own form.
    assert stdout.startswith(rtc(()) + b"vga detect 1\n")
    assert stdout.endswith(b"open device faild!\n")


def test_passes_its_further_arguments_on_untouched(board):
    board.fault(NO_WATCHDOG)
    run = board.run("bt1", "autotest", "output", "1")
    assert run.status == 0
    assert run.stderr.startswith(
        heading("rtc")
        + INPUT_ERROR
        + heading("beep")
        + BEEP_USAGE
        + heading("alarm")
        + heading("lcd")
    )
    assert run.stdout.startswith(b"output set OK\n")
    results = [line for line in run.stderr.splitlines() if line.startswith(b"[RESULT]")]
    assert results[:5] == [
        b"[RESULT] rtc test is ERROR!",
        b"[RESULT] beep test is ERROR!",
        b"[RESULT] alarm test is OK!",
        b"[RESULT] lcd test is ERROR!",
        b"[RESULT] vgadet test is ERROR!",
    ]


def test_a_positive_status_is_an_error_too(board):
    board.fault(NO_WATCHDOG)
    # A display driver that answers a write with the number of bytes makes its test return 1024.
    board.set("/dev/lcd", "returns", "count")
    run = board.run("bt1", "autotest", "autotest")
    assert run.status == 0
    assert run.stderr == progress({"vgadet": VGADET_USAGE}) + report({"lcd", "vgadet", "wdt"})
    assert b"\n[lcd_main:320]WARN:lcd_auto fail[1024]\n" in run.stdout


def test_succeeds_when_every_test_that_can_fail_has_failed(board):
    for line in (
        NO_WATCHDOG,
        "/dev/rtc0 absent",
        "/dev/lcd absent",
        "/dev/gyro absent",
        "/dev/iccard absent",
        "/sys/class/gpio/gpio40/value absent",
    ):
        board.fault(line)
    run = board.run("bt1", "autotest", "autotest")
    assert run.status == 0
    assert run.stderr == (
        progress({"vgadet": VGADET_USAGE})
        + report({"rtc", "alarm", "lcd", "vgadet", "gsensor", "wdt"})
    )


def test_asks_the_library_in_the_order_of_the_table(board):
    board.fault(NO_WATCHDOG)
    before = bytes(256)
    bumped = before[:250] + b"\x01" + before[251:]
    run = board.run(
        "bt1",
        "autotest",
        "autotest",
        rigcore=[
            *["rig_beep 1 = 0", "rig_beep 0 = 0"] * 3,
            *loop_back(0xFF, 0),
            f"rig_bootparam_get 256 -> hex:{packed(before)} = 0",
            f"rig_bootparam_set hex:{packed(bumped)} 256 = 0",
            f"rig_bootparam_get 256 -> hex:{packed(bumped)} = 0",
            f"rig_bootparam_set hex:{packed(before)} 256 = 0",
            f"rig_hardinfo_get 256 -> hex:{packed(before)} = 0",
        ],
    )
    assert run.status == 0
    assert run.stderr == progress({"vgadet": VGADET_USAGE}) + report({"vgadet", "wdt"})


@pytest.mark.parametrize("result", [-1, -5, 2])
def test_bootparam_and_cpldinfo_are_ok_also_when_they_failed(board, result):
    board.fault(NO_WATCHDOG)
    run = board.run(
        "bt1",
        "autotest",
        "autotest",
        rigcore=[
            *["rig_beep 1 = 0", "rig_beep 0 = 0"] * 3,
            *loop_back(0xFF, 0x40),
            f"rig_bootparam_get 256 = {result} errno=5",
            f"rig_hardinfo_get 256 = {result} errno=5",
        ],
    )
    assert run.status == 0
    assert run.stderr == progress({"vgadet": VGADET_USAGE}) + report({"alarm", "vgadet", "wdt"})
    assert run.stdout.endswith(
        b"[bootparam_auto:92]RETURN:bootparam_get fail[%d]\n"
        b"[bootparam_main:133]WARN:bootparam_auto fail[%d]\n"
        b"[cpldinfo_auto:63]WARN:cpldinfo_get fail[%d]\n" % (result, result, result)
        + CPLDINFO_WARNS
        + b"open device faild!\n"
    )


def test_visits_the_devices_in_the_order_of_the_table(board):
    run = board.run("bt1", "autotest", "autotest")
    opened = [line.split()[1] for line in run.requests if line.startswith("open /dev/")]
    assert opened == ["/dev/rtc0", "/dev/lcd", "/dev/gyro", "/dev/iccard", "/dev/watchdog"]


def test_ctrl_c_does_not_stop_it(board):
    board.fault(NO_WATCHDOG)
    run = board.run("bt1", "autotest", "autotest", signals=["INT@3.5", "INT@20.5", "INT@60.5"])
    assert run.status == 0
    assert run.stderr == progress({"vgadet": VGADET_USAGE}) + report({"vgadet", "wdt"})


def test_a_kill_leaves_what_was_done_so_far_on_the_streams(board):
    run = board.run("bt1", "autotest", "autotest", seconds=15.5, date=DATE)
    assert run.status == 143
    assert run.stderr == heading("rtc") + heading("beep")
    assert run.stdout.startswith(rtc(("autotest",)) + b"beep open!\r\n")


def test_leaves_no_log_behind_when_the_sensor_passed(board, tmp_path):
    board.fault(NO_WATCHDOG)
    work = tmp_path / "work"
    work.mkdir()
    assert board.run("bt1", "autotest", "autotest", cwd=work).status == 0
    assert list(work.iterdir()) == []


def test_every_test_has_a_verdict(board):
    board.fault(NO_WATCHDOG)
    run = board.run("bt1", "autotest", "autotest")
    verdicts = re.findall(rb"^\[RESULT\] (\w+) test is", run.stderr, re.M)
    assert [
        name.decode() for name in verdicts
    ] == TESTS  # ten, and the runner itself is not among them


# lcd, gsensor and iccard walk the same words one after the other: each of them begins at the first
# option, also when the one before has stopped within a group of letters.
@pytest.mark.parametrize(
    "word, initialised, usages, failed",
    [
        ("-i", 1, 0, {"alarm", "vgadet", "wdt"}),
        ("-hi", 1, 2, {"alarm", "lcd", "vgadet", "iccard", "wdt"}),
    ],
)
def test_every_test_walks_the_options_from_their_beginning(
    board, word, initialised, usages, failed
):
    board.fault(NO_WATCHDOG)
    run = board.run("bt1", "autotest", word)
    assert run.status == 0
    assert len([line for line in run.requests if " HAT_GYRO_INIT " in line]) == initialised
    assert len(re.findall(rb"------BUILD: ", run.stdout)) == usages
    assert (b"\nusage\n -h  " in run.stdout) == (usages > 0)
    # iccard has no "-i": getopt complains where it is reached.
    assert (b"iccard: invalid option -- 'i'\n" in run.stderr) == (usages == 0)
    assert run.stderr.endswith(report(failed))


def test_a_sensor_that_ends_early_leaves_the_next_tests_their_waits(board):
    board.fault("/dev/gyro ioctl:HAT_GYRO_INIT errno=EIO")
    run = board.run("bt1", "autotest", "autotest")
    assert run.status == 80  # the board's reset

    def waits(request_name):
        times = [time for time, line in run.trace if f" {request_name} " in line]
        return [later - earlier for earlier, later in zip(times, times[1:])]

    passes, feedings = waits("HAL_ICCARD_WRITE"), waits("WDIOC_KEEPALIVE")
    assert len(passes) == 9 and all(1 <= seconds < 1.1 for seconds in passes)
    assert len(feedings) == 9 and all(6 <= seconds < 6.1 for seconds in feedings)


def test_a_test_that_stops_within_a_group_of_letters_leaves_them_to_the_next(board):
    board.fault(NO_WATCHDOG)
    board.fault("/dev/gyro ioctl:HAT_GYRO_INIT errno=EIO")
    # gsensor ends at its "r"; iccard reads the card, then complains of the "y".
    run = board.run("bt1", "autotest", "-ry")
    assert run.status == 0
    assert len([line for line in run.requests if " HAL_ICCARD_READ " in line]) == 1
    assert b"iccard: invalid option -- 'y'\n" in run.stderr
    assert run.stderr.endswith(report({"alarm", "vgadet", "gsensor", "wdt"}))
