"""Dispatch: the nine applet tables, the words that select a row, and who ignores Ctrl-C."""

import os
import re
import signal
import subprocess
import time

import pytest

from conftest import program

# Level: the words that lead there, the name it prints, and its rows in order.
LEVELS = {
    "benchrig": (
        (),
        [
            ("version", "benchrig version"),
            ("bt1", "bt1 tools for hardinfo"),
            ("bt2", "bt2 tools for system"),
            ("btdbg", "btdbg tools for debug"),
            ("upgrade", "upgrade tools"),
            ("md5sum", "md5sum tools"),
            ("mtd", "mtd tools"),
            ("ethutil", "ethutil tools"),
            ("ethchan", "ethchan tools"),
        ],
    ),
    "bt1": (
        ("bt1",),
        [
            ("autotest", "AUTOTEST"),
            ("rtc", "测试RTC功能"),
            ("beep", "测试蜂鸣器功能"),
            ("alarm", "测试报警功能"),
            ("lcd", "测试lcd功能"),
            ("vgadet", "VGA接入检测"),
            ("gsensor", "gsensor test"),
            ("iccard", "iccard test"),
            ("bootparam", "BOOTPARAM test"),
            ("cpldinfo", "CPLDINFO test"),
            ("wdt", "测试开门狗功能"),  # sic: "open" for "watch"
        ],
    ),
    "bt2": (
        ("bt2",),
        [
            ("all", "ALL test"),
            ("bsp", "BSP test"),
            ("power", "POWER test"),
            ("gpio", "gpio for korio tools"),
            ("led", "hat led test"),
            ("pwm", "hat pwm test"),
            ("stor", "hat stor test"),
            ("mouse", "mouse init event test"),
            ("endless", "endless loop for eth speed test"),
            ("reset", "RESET test"),
            ("hdstatus", "get sata status test"),
            ("korcmem", "korcmem"),
            ("mem_hotplug", "memory hotplug"),
            ("blktrace", "blk trace test"),
            ("uenv", "UBOOT env test"),
            ("uart", "UART test"),
            ("uartmode", "UARTMODE set"),
            ("uartauto", "UART autotest set"),
            ("dtbofs", "DTB tools"),
            ("dtbofcell", "DTB tools"),
            ("hdsmart", "SMART Info, IDENTIFY Info"),
            ("rs485en", "rs485en demo tools"),
            ("loop", "loop demo tools"),
            ("malloc", "malloc demo tools"),
            ("apinet", "system net api test"),
            ("gps_tool", "gps test"),
            ("mcu", "mcu command"),
        ],
    ),
    "btdbg": (
        ("btdbg",),
        [
            ("mem", "memory tools"),
            ("pstat", "stat debug"),
            ("proctrace", "proc trace tools"),
            ("getconf", "getconf"),
        ],
    ),
    "upgrade": (
        ("upgrade",),
        [
            ("upgrade", "upgrade auto"),
            ("bootloader", "upgrade bootloader"),
            ("kernel", "upgrade kernel"),
            ("fwbundle", "upgrade fwbundle"),
            ("backup", "upgrade backup"),
            ("maint", "upgrade maint"),
            ("secboot", "upgrade maint"),  # the text of maint
            ("syspart", "upgrade syspart"),
            ("stop", "upgrade stop"),
            ("auto", "upgrade auto"),  # the text of upgrade
            ("ssd", "upgrade ssd"),
        ],
    ),
    "ethutil": (
        ("ethutil",),
        [
            ("ethlist", "ethutil ethlist tool"),
            ("mdio", "ethutil mdio tool"),
            ("mii", "ethutil mii tool"),
            ("miirtl836x", "ethutil miirtl836x tool"),
            ("ifrename", "ethutil ifrename tool"),
        ],
    ),
    "ethchan": (
        ("ethchan",),
        [
            ("info", "ethchan info tool"),
            ("status", "ethchan status tool"),
            ("setting", "ethchan setting tool"),
            ("psestat", "ethchan psestat tool"),
        ],
    ),
    "uenv": (("bt2", "uenv"), [("list", "uenv list"), ("get", "uenv get"), ("set", "uenv set")]),
    "mcu": (("bt2", "mcu"), [("heart", "mcu heart"), ("version", "mcu version")]),
}
IGNORING_CTRL_C = {"bt1", "btdbg", "ethutil", "ethchan"}


def check_listing(run, level):
    """The level's name, then a row for each applet in table order, and nothing else."""
    assert run.status not in (0, 99, 139)
    lines = [
        line for line in (run.stdout + run.stderr).decode("utf-8").splitlines() if line.strip()
    ]
    rows = LEVELS[level][1]
    assert re.search(rf"\b{level}\b", lines[0])
    assert len(lines) == 1 + len(rows)
    for line, (name, description) in zip(lines[1:], rows):
        # A mark may stand around the name of a row that opens a group.
        words = line.split()
        assert name in words[0] or name in words[1]
        assert re.search(rf"(?<!\w){name}(?!\w)", line) and line.endswith(description)
        assert not re.search(rf"\w", line.replace(name, "", 1).removesuffix(description))
    assert run.requests == []


@pytest.mark.parametrize("level", LEVELS)
def test_no_word_lists_the_level(board, level):
    check_listing(board.run(*LEVELS[level][0]), level)


# A word selects a row only when it is the same, to the last character and in case.
@pytest.mark.parametrize(
    "level, word",
    [
        ("benchrig", "versio"),
        ("benchrig", "version "),
        ("benchrig", "Version"),
        ("benchrig", "BT1"),
        ("benchrig", "bt"),
        ("benchrig", "bt11"),
        ("benchrig", ""),
        ("benchrig", "-h"),
        ("benchrig", "--help"),
        ("benchrig", "benchrig"),
        ("benchrig", "beep"),
        ("benchrig", "benchrig version"),
        ("bt1", "RTC"),
        ("bt1", "bt1"),
        ("bt1", "wd"),
        ("bt1", "bsp"),
        ("bt1", "测试RTC功能"),
        ("bt2", "bsps"),
        ("bt2", "beep"),
        ("bt2", ""),
        ("btdbg", "memo"),
        ("upgrade", "upgrad"),
        ("ethutil", "mi"),
        ("ethchan", "stat"),
        ("uenv", "ge"),
        ("uenv", "bootcmd"),
        ("mcu", "heartbeat"),
    ],
)
@pytest.mark.parametrize("more", [(), ("1", "2")])
def test_an_unknown_word_lists_the_level(board, level, word, more):
    check_listing(board.run(*LEVELS[level][0], word, *more), level)


@pytest.mark.parametrize("more", [(), ("autotest",), ("-h",)])
def test_the_row_without_a_handler_lists_its_level(board, more):
    check_listing(board.run("bt2", "all", *more), "bt2")


def test_a_word_of_two_tables_selects_the_row_of_the_one_searched(board):
    top = board.run("version")
    assert (top.status, top.stderr) == (0, b"")
    assert b"\r\nbenchrig v2.0.0 build " in top.stdout
    # The other one asks the supervisory controller, and gives up after half a minute.
    nested = board.run("bt2", "mcu", "version", seconds=120)
    assert b"benchrig v2.0.0" not in nested.stdout
    check_listing(board.run("bt2", "version"), "bt2")
    check_listing(board.run("bt1", "version"), "bt1")


def test_an_applet_gets_its_own_name_and_its_arguments(board):
    run = board.run("bt1", "alarm", "input", "8", rigcore=["rig_alarm_input -> 0 = 0"])
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout.count(b"ALARM IN") == 8


def test_nested_groups_shift_the_words_once_a_level(board):
    run = board.run(
        "bt2", "uenv", "get", "bootcmd", rigcore=['rig_uenv_get "bootcmd" 256 -> "run x" = 0']
    )
    assert (run.status, run.stdout, run.stderr) == (0, b"bootcmd=run x\n", b"")


@pytest.mark.parametrize(
    "result, status", [(-1, 255), (-5, 251), (-128, 128), (3, 3), (256, 0), (-2147483648, 0)]
)
def test_the_status_travels_back_and_keeps_its_low_eight_bits(board, result, status):
    run = board.run(
        "bt2", "uenv", "set", "a", "1", rigcore=[f'rig_uenv_set "a" "1" = {result} errno=5']
    )
    assert run.status == status


# --- Ctrl-C ---


def ignored_signals(pid):
    with open(f"/proc/{pid}/status", encoding="ascii") as file:
        fields = dict(line.split(":", 1) for line in file)
    return int(fields["SigIgn"], 16), fields["State"].split()[0]


@pytest.mark.parametrize("level", LEVELS)
def test_who_ignores_ctrl_c(build, level):
    """The listing is held up by a full pipe, so that the process can be looked at while it runs."""
    reading, writing = os.pipe()
    os.set_blocking(writing, False)
    for size in (4096, 1):
        try:
            while True:
                os.write(writing, b"x" * size)
        except BlockingIOError:
            pass
    os.set_blocking(writing, True)
    with subprocess.Popen(
        [*program(build / "bin/benchrig"), *LEVELS[level][0]],
        stdin=subprocess.DEVNULL,
        stdout=writing,
        stderr=writing,
    ) as process:
        os.close(writing)
        try:
            asleep = 0
            deadline = time.monotonic() + 30
            while asleep < 5 and time.monotonic() < deadline:
                ignored, state = ignored_signals(process.pid)
                asleep = asleep + 1 if state == "S" else 0
                time.sleep(0.002)
            assert asleep == 5, "the process does not wait for the pipe"
        finally:
            process.kill()
            os.close(reading)
    assert bool(ignored & (1 << (signal.SIGINT - 1))) == (level in IGNORING_CTRL_C)
