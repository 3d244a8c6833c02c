"""What librigcore does with the board's files, asked by a program of its own.

tests/probes/rig_probe.cpp calls the operations of its command line in one process and prints their
results, errno included. What the applets make of these is tested with each applet.
"""

import pathlib

import pytest

from conftest import assert_story, err, untraced
from device_trace import calls

ROOT = pathlib.Path(__file__).resolve().parents[2]
MAP = "etc/benchrig/board.conf"
BRIGHTNESS = "/sys/class/leds/buzzer/brightness"
NVMEM = "/sys/bus/nvmem/devices/bootparam0/nvmem"


def ask(board, *words, **options):
    """The lines of a probe that asks for these operations."""
    run = board.run_command([board.build / "tests/probes/rig_probe", *words], **options)
    assert (run.status, run.stderr) == (0, b"")
    return run.stdout.decode().splitlines()


# --- The U-Boot environment ---------------------------------------------------------------------


def new_variables():
    """How many variables a new board's boot loader has."""
    text = (ROOT / "vboard/template/etc/uboot-env.txt").read_text(encoding="utf-8")
    return sum(not line.startswith("#") for line in text.splitlines())


def test_a_new_board_has_its_boot_loaders_variables(board):
    count = new_variables()
    assert count > 1
    last = ask(board, "total", "key", str(count - 1))
    assert last[0] == f"total {count}" and last[1].startswith("key 0 ")


def test_a_variable_that_was_named_has_the_new_value_after_a_set(board):
    names = [line.split()[2] for line in ask(board, "total", "key", "0", "key", "1")[1:]]
    assert len(set(names)) == 2
    for i, name in enumerate(names):
        lines = ask(board, "total", "key", str(i), "set", name, f"new {i}", "get", name)
        assert lines[1:] == [f"key 0 {name}", "set 0", f"get 0 new {i}"]


def test_names_after_a_set_are_those_of_a_new_listing(board):
    count = int(ask(board, "total")[0].split()[1])
    lines = ask(board, "total", "set", "zz_bench", "1", "key", str(count), "total")
    assert lines == [f"total {count}", "set 0", "key 0 zz_bench", f"total {count + 1}"]


def test_the_listing_answers_for_a_name_once(board):
    name = ask(board, "total", "key", "0")[1].split()[2]
    value = ask(board, "get", name)[0]
    board.fault("/dev/mtd1 open errno=EACCES from=3")  # a listing takes two
    assert ask(board, "total", "key", "0", "get", name, "get", name)[2:] == [value, "get EACCES"]


@pytest.mark.parametrize("index", [-1, new_variables(), 1000])
def test_an_index_beyond_the_listing_is_refused(board, index):
    assert ask(board, "total", "key", str(index)) == [f"total {new_variables()}", "key EINVAL"]


@pytest.mark.parametrize("name", ["", "a=b", "="])
def test_a_name_that_no_variable_can_have_is_refused(board, name):
    assert ask(board, "set", name, "1") == ["set EINVAL"]


# EPERM and ENOENT are about a variable, never about the medium.
@pytest.mark.parametrize(
    "fault, reason",
    [
        ("/dev/mtd1 open errno=EPERM", "EACCES"),
        ("/dev/mtd1 read errno=EPERM", "EACCES"),
        ("/dev/mtd1 ioctl:MEMGETINFO errno=EPERM", "EACCES"),
        ("/etc/fw_env.config open errno=EPERM", "EACCES"),
        ("/dev/mtd1 open errno=EACCES", "EACCES"),
        ("/dev/mtd1 absent", "ENODEV"),
        ("/dev/mtd1 open errno=ENOENT", "ENODEV"),
        ("/etc/fw_env.config absent", "ENODEV"),
        ("/dev/mtd1 read errno=EIO", "EIO"),
        ("/dev/mtd1 read errno=ENOENT", "EIO"),
    ],
)
def test_a_medium_that_cannot_be_read_has_a_reason_of_its_own(board, fault, reason):
    board.fault(fault)
    assert ask(board, "total", "key", "0", "get", "bootcmd", "set", "bootcmd", "x") == [
        f"total {reason}",
        f"key {reason}",
        f"get {reason}",
        f"set {reason}",
    ]


@pytest.mark.parametrize(
    "errno, reason",
    [("EPERM", "EACCES"), ("EROFS", "EROFS"), ("ENOENT", "EIO"), ("EIO", "EIO")],
)
def test_a_medium_that_cannot_be_written_has_a_reason_of_its_own(board, errno, reason):
    board.fault(f"/dev/mtd1 write errno={errno}")
    assert ask(board, "get", "nope", "set", "bootcmd", "x") == ["get ENOENT", f"set {reason}"]


def test_the_applet_shows_the_mediums_reason_and_no_missing_key(board):
    board.fault("/dev/mtd1 open errno=EPERM")
    run = board.run("bt2", "uenv", "get", "bootcmd")
    assert (run.status, run.stdout) == (255, b"ioctl UBOOTENV_GET fail![13]\nbootcmd=\n")
    run = board.run("bt2", "uenv", "set", "bootcmd", "x")
    assert (run.status, run.stdout) == (255, b"ioctl UBOOTENV_SET fail![13]\nbootcmd=x\n")


# --- The buzzer and the alarm lines -------------------------------------------------------------


@pytest.mark.parametrize(
    "number, written",
    [("0", "30"), ("1", "31"), ("7", "31"), ("-1", "31"), ("256", "31"), ("2147483647", "31")],
)
def test_every_number_but_0_switches_the_buzzer_on(board, number, written):
    run = board.run("bt1", "beep", number)
    writes = [line for line in run.requests_on(BRIGHTNESS) if line.startswith("write")]
    assert writes == [f"write {BRIGHTNESS} in={written} = 1"]


def pin(number):
    return f"/sys/class/gpio/gpio{number}/value"


def outputs(board, *numbers):
    """A board whose alarm outputs are these lines, all low."""
    with open(board.path(MAP), "a", encoding="utf-8") as file:
        for index, number in enumerate(numbers):
            file.write(f"alarm.output.{index} = {pin(number)}\n")
    for number in numbers:
        line = board.path(pin(number)[1:])
        line.parent.mkdir(exist_ok=True)
        line.write_text("0\n")


def level(board, number):
    return int(board.path(pin(number)[1:]).read_text())


def test_every_output_takes_its_own_bit_and_counts(board):
    outputs(board, 60, 61, 62)
    assert ask(board, "output", "5") == ["output 3"]
    assert [level(board, number) for number in (60, 61, 62)] == [1, 0, 1]
    assert ask(board, "output", "2") == ["output 3"]
    assert [level(board, number) for number in (60, 61, 62)] == [0, 1, 0]


@pytest.mark.parametrize("broken", [0, 1, 2])
@pytest.mark.parametrize("fault", ["write errno=EIO", "open errno=EIO"])
def test_an_output_that_fails_keeps_no_other_from_being_set(board, broken, fault):
    numbers = (60, 61, 62)
    outputs(board, *numbers)
    board.fault(f"{pin(numbers[broken])} {fault}")
    assert ask(board, "output", "7") == ["output EIO"]
    assert [level(board, number) for number in numbers] == [int(i != broken) for i in range(3)]
    run = board.run("bt1", "alarm", "output", "0")
    assert (run.status, run.stdout) == (255, b"alarm_main:104 output set failed\n")


def test_the_first_of_several_failures_is_the_reason(board):
    outputs(board, 60, 61, 62)
    board.fault(f"{pin(61)} write errno=EACCES")
    board.fault(f"{pin(62)} write errno=EBUSY")
    assert ask(board, "output", "7") == ["output EACCES"]


def test_a_board_without_alarm_lines_says_so(board):
    with open(board.path(MAP), "a", encoding="utf-8") as file:
        file.write("alarm.output.0 =\n")
        for index in range(8):
            file.write(f"alarm.input.{index} =\n")
    assert ask(board, "output", "1", "input") == ["output ENODEV", "input ENODEV"]


# --- The boot parameters ------------------------------------------------------------------------


def test_the_boot_parameters_are_written_in_place_and_synced(board):
    probe = board.build / "tests/probes/rig_probe"
    run = board.run_command([probe, "bootparam", "7"], story=True, **untraced(board))
    assert (run.status, run.stdout) == (0, b"bootparam 0\n")
    # Never truncated: a power cut then must not leave an empty block.
    assert_story(
        run,
        f"open {NVMEM} WRONLY|CLOEXEC = 3",
        f"write {NVMEM} in=07*256 = 256",
        err("fsync 3 = 0\n"),
        f"close {NVMEM} = 0",
        'out "bootparam 0\\n"',
        only=(NVMEM,),
    )


def test_a_boot_block_that_takes_a_part_gets_the_rest(board):
    board.fault(f"{NVMEM} write short=100 nth=1")
    probe = board.build / "tests/probes/rig_probe"
    run = board.run_command([probe, "bootparam", "7"])
    assert (run.status, run.stdout) == (0, b"bootparam 0\n")
    assert [line for line in calls(run) if line.startswith("write")] == [
        f"write {NVMEM} in=07*100 = 100",
        f"write {NVMEM} in=07*156 = 156",
    ]
    assert board.path(NVMEM[1:]).read_bytes() == b"\x07" * 256


@pytest.mark.parametrize(
    "fault, reason",
    [
        ("open errno=EACCES", "EACCES"),
        ("write errno=ENOSPC", "ENOSPC"),
        ("write result=0", "EIO"),
        ("close errno=EIO", "EIO"),
        ("write errno=EINTR nth=1", None),
    ],
)
def test_a_boot_block_that_is_not_written_has_a_reason(board, fault, reason):
    board.fault(f"{NVMEM} {fault}")
    assert ask(board, "bootparam", "7") == [f"bootparam {reason or 0}"]


# --- Storage devices ----------------------------------------------------------------------------


def test_a_device_that_the_board_lacks_is_off_line_and_has_no_power(board):
    assert ask(board, "state", "sdz", "power", "sdz", "switch", "sdz", "1") == [
        "state 0",
        "power ENODEV",
        "switch ENODEV",
    ]


@pytest.mark.parametrize("name", ["", ".", "..", "a/b"])
def test_a_name_that_no_device_can_have_is_refused(board, name):
    assert ask(board, "state", name, "power", name, "switch", name, "1") == [
        "state EINVAL",
        "power EINVAL",
        "switch EINVAL",
    ]


@pytest.mark.parametrize("power", ["2", "0xffffffff"])
def test_a_power_that_is_neither_on_nor_off_is_refused(board, power):
    assert ask(board, "switch", "sda", power, "power", "sda") == ["switch EINVAL", "power 1"]


# --- Reasons that outlive a message ---------------------------------------------------------------

OVERLAYS = "/sys/kernel/config/device-tree/overlays"


def ask_without_messages(board, *words):
    """The lines of a probe whose standard error takes nothing: each message fails with ENOSPC."""
    probe = board.build / "tests/probes/rig_probe"
    run = board.run_command(["sh", "-c", 'exec "$@" 2>/dev/full', "sh", probe, *words])
    assert (run.status, run.stderr) == (0, b"")
    return run.stdout.decode().splitlines()


@pytest.mark.parametrize(
    "node, name, fault, reason",
    [
        ("chosen", "test", None, "EINVAL"),
        ("/chosen/none", "test", None, "ENOENT"),
        ("/chosen", "test", f"{OVERLAYS} absent", "ENOSYS"),
        ("/chosen", "test", f"{OVERLAYS}/benchrig-0/status read short=0", "EIO"),
        ("/chosen", "test", f"{OVERLAYS}/benchrig-0/dtbo write errno=EACCES", "EACCES"),
    ],
)
def test_an_overlay_that_is_refused_has_its_reason_whatever_becomes_of_the_message(
    board, node, name, fault, reason
):
    if fault:
        board.fault(fault)
    assert ask_without_messages(board, "overlay", node, name, "aaaa") == [f"overlay {reason}"]


# The map's first reading complains of its line before the answer is found.
WRONG_LINE = "no entry\n"


@pytest.mark.parametrize(
    "entry, reason",
    [
        ("version.uboot = /etc/none", "ENOENT"),
        ("version.uboot = /etc/empty", "ENOENT"),
        ("version.uboot =", "ENODEV"),
        (f"version.uboot = /{255 * 'x'}", "ENAMETOOLONG"),
    ],
)
def test_a_text_that_the_board_does_not_have_has_its_reason_after_a_complaint(board, entry, reason):
    board.path("etc/empty").write_bytes(b"")
    board.path(MAP).write_text(f"{WRONG_LINE}{entry}\n", encoding="utf-8")
    assert ask_without_messages(board, "uboot") == [f"uboot {reason}"]


@pytest.mark.parametrize("text", ["", "NAME=Bench\n", "PRETTY_NAME=\n", 'PRETTY_NAME=""\n'])
def test_a_board_support_package_without_a_name_is_enoent_after_a_complaint(board, text):
    board.path("etc/os-release").write_text(text, encoding="utf-8")
    board.path(MAP).write_text(WRONG_LINE, encoding="utf-8")
    assert ask_without_messages(board, "korbsp") == ["korbsp ENOENT"]


@pytest.mark.parametrize("text, reason", [("Linux\n", "ENODATA"), ("", "ENODATA")])
def test_a_kernel_that_does_not_tell_its_date_has_a_reason(board, text, reason):
    board.path("proc/version").write_text(text, encoding="utf-8")
    assert ask_without_messages(board, "uboot", "date")[1:] == [f"date {reason}"]
