"""What librigcore does with the board's files, asked by a program of its own.

tests/probes/rig_probe.cpp calls the operations of its command line in one process and prints their
results, errno included. What the applets make of these is tested with each applet.
"""

import errno
import pathlib

import pytest

from conftest import assert_story, err, is_instrumented, little_memory, untraced, word_size
from device_trace import calls

ROOT = pathlib.Path(__file__).resolve().parents[2]
MAP = "etc/benchrig/board.conf"
BRIGHTNESS = "/sys/class/leds/buzzer/brightness"
NVMEM = "/sys/bus/nvmem/devices/bootparam0/nvmem"
HARDINFO = "/sys/bus/nvmem/devices/hardinfo0/nvmem"


def probe(board, *words, **options):
    """A run of the probe that asks for these operations."""
    return board.run_command([board.build / "tests/probes/rig_probe", *map(str, words)], **options)


def ask(board, *words, **options):
    """The lines of a probe that asks for these operations."""
    run = probe(board, *words, **options)
    assert (run.status, run.stderr) == (0, b"")
    return run.stdout.decode().splitlines()


# Descriptor 0 is a descriptor like any other.
@pytest.mark.parametrize(
    "words, path",
    [
        (("get_bootparam", "256"), NVMEM),
        (("bootparam", "7"), NVMEM),
        (("get_hardinfo", "256"), HARDINFO),
        (("burn", "0", "200", "x"), "/sys/class/firmware/cpld/data"),
        (("state", "sda"), "/sys/block/sda/ro"),
        (("input",), "/sys/class/gpio/gpio47/value"),
        (("output", "1"), "/sys/class/gpio/gpio48/value"),
    ],
)
def test_operations_without_standard_input(board, words, path):
    usual = ask(board, *words)
    words = [board.build / "tests/probes/rig_probe", *words]
    run = board.run_command(["sh", "-c", 'exec "$@" <&-', "sh", *words])
    assert (run.status, run.stderr, run.stdout.decode().splitlines()) == (0, b"", usual)
    assert usual[0].startswith(f"{words[1]} ") and usual[0].split()[1].isdigit()
    opened = [line for line in run.requests_on(path) if line.startswith("open")]
    assert opened and all(line.endswith(" = 0") for line in opened)


# --- The board's map ----------------------------------------------------------------------------


def test_without_a_map_the_defaults_hold_and_nothing_is_said(board):
    board.fault(f"/{MAP} absent")
    assert ask(board, "vga", "beep", "1", "feature", "0") == ["vga 1", "beep 0", "feature 0"]
    assert board.path(BRIGHTNESS[1:]).read_text() == "1\n"


@pytest.mark.parametrize(
    "fault, reason",
    [("open errno=EACCES", "EACCES"), ("read errno=EIO", "EIO"), ("read errno=EIO from=2", "EIO")],
)
def test_a_map_that_cannot_be_read_is_a_failure_of_everything_that_needs_it(board, fault, reason):
    with open(board.path(MAP), "a", encoding="utf-8") as file:
        file.write("feature.7 = 1\n")
    board.fault(f"/{MAP} {fault}")
    lines = ask(
        *(board, "vga", "beep", "1", "input", "output", "1", "feature", "7"),
        *("get_bootparam", "256", "get_hardinfo", "256", "list", "all", "burn", "0", "1", "x"),
    )
    assert lines == [
        *(f"{name} {reason}" for name in ("vga", "beep", "input", "output")),
        "feature 0",
        *(f"{name} {reason}" for name in ("get_bootparam", "get_hardinfo", "list", "burn")),
    ]
    assert board.path(BRIGHTNESS[1:]).read_text() == "0\n"


@pytest.mark.parametrize(
    "entry, present",
    [("1", 1), ("0", 0), ("", 0), ("10", 0), ("01", 0), ("yes", 0)],
)
def test_a_feature_is_there_when_its_entry_is_1(board, entry, present):
    with open(board.path(MAP), "a", encoding="utf-8") as file:
        file.write(f"feature.0 = {entry}\nfeature.200 = {entry}\n")
    numbers = ("0", "200", "1", "20", "-1")
    assert ask(board, *(word for number in numbers for word in ("feature", number))) == [
        f"feature {present}",
        f"feature {present}",
        *3 * ["feature 0"],
    ]


# --- The U-Boot environment ---------------------------------------------------------------------


def new_variables():
    """How many variables a new board's boot loader has."""
    text = (ROOT / "vboard/template/etc/uboot-env.txt").read_text(encoding="utf-8")
    return sum(not line.startswith("#") for line in text.splitlines())


def test_a_new_board_has_its_boot_loaders_variables(board):
    count = new_variables()
    assert count > 1
    last = ask(board, "total", "key", count - 1)
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
    assert ask(board, "total", "key", index) == [f"total {new_variables()}", "key EINVAL"]


@pytest.mark.parametrize("size, length", [(1, 0), (2, 1), (5, 4)])
def test_a_name_is_cut_to_its_room_and_terminated(board, size, length):
    name = ask(board, "total", "key", "0")[1].split()[2]
    assert len(name) > 4
    assert ask(board, "key_room", "0", size) == [f"key_room 0 {name[:length] + '$':.<16}"]


@pytest.mark.parametrize("size", [0, -1, "NULL"])
def test_a_name_without_room_is_refused(board, size):
    assert ask(board, "key_room", "0", size) == ["key_room EINVAL"]


@pytest.mark.parametrize("size, length", [(1, 0), (2, 1), (4, 3), (5, 4), (16, 4)])
def test_a_value_is_cut_to_its_room_and_terminated(board, size, length):
    lines = ask(board, "set", "bench", "7129", "get_room", "bench", size)
    assert lines == ["set 0", f"get_room 0 {'7129'[:length] + '$':.<16}"]


@pytest.mark.parametrize(
    "name, size", [("NULL", 16), ("bootcmd", "NULL"), ("bootcmd", 0), ("bootcmd", -1)]
)
def test_a_value_without_a_name_or_room_is_refused(board, name, size):
    assert ask(board, "get_room", name, size) == ["get_room EINVAL"]


def test_a_listing_for_which_there_is_no_memory(board):
    text = (ROOT / "vboard/template/etc/uboot-env.txt").read_text(encoding="utf-8")
    variables = [line for line in text.splitlines() if not line.startswith("#")]
    # Two pointers for each and one more pair, then the names and values with their NULs.
    size = 2 * word_size() * (len(variables) + 1) + sum(len(line) + 1 for line in variables)
    short_of_it = {
        **little_memory(board.build),
        "NO_BLOCKS_OF": str(size),
        "NO_BLOCKS_FOR": "librigcore.so",
    }
    lines = ask(board, "total", "key", "0", "get", "kdbg", env=short_of_it)
    assert lines == ["total ENOMEM", "key ENOMEM", "get 0 0"]


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


# A close that fails after the environment was read is no reason of what fails later.
@pytest.mark.parametrize("fault", [None, "/dev/mtd1 close errno=ENOMEM nth=2"])
def test_a_full_environment_has_a_reason_of_its_own(board, fault):
    if is_instrumented(board.build):
        pytest.skip("the environment's library keeps the memory of a change that it cannot store")
    if fault:
        board.fault(fault)
    assert ask(board, "set", "bench", 100000 * "x", "get", "bench") == ["set ENOSPC", "get ENOENT"]


@pytest.mark.parametrize(
    "size, room",
    [(1, "7"), (2, "71"), (5, "7129."), (6, "7129.$"), (16, "7129.$")],
)
def test_a_boot_value_has_its_nul_only_when_that_fits(board, size, room):
    lines = ask(board, "set", "bench", "7129.", "value", "bench", size)
    assert lines == ["set 0", f"value 0 {room:.<16}"]


def test_an_empty_boot_value_is_its_nul(board):
    assert ask(board, "set", "bench", "", "value", "bench", 1) == ["set 0", f"value 0 {'$':.<16}"]


@pytest.mark.parametrize(
    "words, reason",
    [
        (("value", "none", 16), "ENOENT"),
        (("value", "NULL", 16), "EINVAL"),
        (("value", "bootcmd", 0), "EINVAL"),
        (("value", "bootcmd", -1), "EINVAL"),
        (("value_nowhere", "bootcmd"), "EINVAL"),
    ],
)
def test_a_boot_value_that_is_not_there_leaves_the_room_alone(board, words, reason):
    assert ask(board, *words) == [f"{words[0]} {reason}"]


def test_a_boot_value_has_the_mediums_reason(board):
    board.fault("/dev/mtd1 open errno=EACCES")
    assert ask(board, "value", "bootcmd", 16) == ["value EACCES"]


def test_the_applet_shows_the_mediums_reason_and_no_missing_key(board):
    board.fault("/dev/mtd1 open errno=EPERM")
    run = board.run("bt2", "uenv", "get", "bootcmd")
    assert (run.status, run.stdout) == (255, b"ioctl UBOOTENV_GET fail![13]\nbootcmd=\n")
    run = board.run("bt2", "uenv", "set", "bootcmd", "x")
    assert (run.status, run.stdout) == (255, b"ioctl UBOOTENV_SET fail![13]\nbootcmd=x\n")


# --- Versions -----------------------------------------------------------------------------------

CHOSEN = "proc/device-tree/chosen"
VERSIONS = {
    "korboot": (f"{CHOSEN}/first-stage,version", "{}\0"),
    "uboot": (f"{CHOSEN}/u-boot,version", "{}\0"),
    "korbsp": ("etc/os-release", 'NAME="Bench"\nPRETTY_NAME="{}"\n'),
    "kernel": ("proc/version", "{}\nmore\n"),
}


@pytest.mark.parametrize("which", VERSIONS)
@pytest.mark.parametrize("length", [1, 9, 255, 256, 300])
def test_a_version_is_a_line_of_255_characters_at_most(board, which, length):
    path, form = VERSIONS[which]
    text = "v1.7 bench".ljust(length, "x")[:length]
    board.path(path).write_text(form.format(text), encoding="utf-8")
    assert ask(board, "version", which) == [f"version 0 {text[:255]}"]


@pytest.mark.parametrize("which", VERSIONS)
def test_a_version_that_is_not_told_leaves_the_text_alone(board, which):
    path, form = VERSIONS[which]
    board.path(path).write_text(form.format(""), encoding="utf-8")
    assert ask(board, "version", which) == ["version ENOENT"]
    board.fault(f"/{path} open errno=EACCES")
    assert ask(board, "version", which) == ["version EACCES"]
    board.clear_faults()
    board.fault(f"/{path} absent")
    assert ask(board, "version", which) == ["version ENOENT"]


@pytest.mark.parametrize("which", ["korboot", "uboot", "korbsp"])
def test_a_version_that_the_map_does_not_name(board, which):
    with open(board.path(MAP), "a", encoding="utf-8") as file:
        file.write(f"version.{which} =\n")
    assert ask(board, "version", which) == ["version ENODEV"]


# --- The buzzer and the alarm lines -------------------------------------------------------------


@pytest.mark.parametrize(
    "number, written",
    [("0", "30"), ("1", "31"), ("7", "31"), ("-1", "31"), ("256", "31"), ("2147483647", "31")],
)
def test_every_number_but_0_switches_the_buzzer_on(board, number, written):
    run = board.run("bt1", "beep", number)
    writes = [line for line in run.requests_on(BRIGHTNESS) if line.startswith("write")]
    assert writes == [f"write {BRIGHTNESS} in={written} = 1"]


@pytest.mark.parametrize(
    "fault, reason",
    [
        ("absent", "ENOENT"),
        ("open errno=EACCES", "EACCES"),
        ("write errno=EIO", "EIO"),
        ("write result=0", "EIO"),
        ("close errno=ENOSPC", "ENOSPC"),
        ("close errno=EINTR", 0),  # closed all the same
        ("write errno=EINTR nth=1", 0),
    ],
)
def test_a_buzzer_that_cannot_be_switched_has_a_reason(board, fault, reason):
    board.fault(f"{BRIGHTNESS} {fault}")
    assert ask(board, "beep", "1") == [f"beep {reason}"]


def pin(number):
    return f"/sys/class/gpio/gpio{number}/value"


def attribute(board, path, value):
    file = board.path(path.lstrip("/"))
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_text(f"{value}\n")


@pytest.mark.parametrize("values, levels", [("100", 1), ("010", 2), ("001", 0x80000000)])
def test_every_input_has_its_own_bit(board, values, levels):
    lines = [0, 1, 31]
    with open(board.path(MAP), "a", encoding="utf-8") as file:
        for index in range(32):
            place = pin(60 + index) if index in lines else ""
            file.write(f"alarm.input.{index} = {place}\n")
    for index, value in zip(lines, values):
        attribute(board, pin(60 + index), value)
    assert ask(board, "input") == [f"input 0 {levels:x}"]


@pytest.mark.parametrize(
    "key, words", [("alarm.input.32", ["input"]), ("alarm.output.32", ["output", "0xffffffff"])]
)
def test_there_are_32_lines_of_a_kind(board, key, words):
    attribute(board, pin(60), 1)
    with open(board.path(MAP), "a", encoding="utf-8") as file:
        file.write(f"{key} = {pin(60)}\n")
        file.write("".join(f"alarm.input.{index} =\n" for index in range(8)))
        file.write("alarm.output.0 =\n")
    number = board.path(MAP).read_text().splitlines().index(f"{key} = {pin(60)}") + 1
    run = probe(board, *words)
    assert run.stderr.decode() == f'/{MAP}:{number}: unknown key "{key}", line ignored\n'
    assert (run.status, run.stdout.decode()) == (0, f"{words[0]} ENODEV\n")
    assert run.requests_on(pin(60)) == []


@pytest.mark.parametrize("broken", [0, 3, 7])
@pytest.mark.parametrize(
    "fault, reason",
    [("read errno=EIO", "EIO"), ("open errno=EACCES", "EACCES"), ("absent", "ENOENT")],
)
def test_an_input_that_cannot_be_read_leaves_the_levels_alone(board, broken, fault, reason):
    board.fault(f"{pin(40 + broken)} {fault}")
    assert ask(board, "input") == [f"input {reason}"]


@pytest.mark.parametrize("text", ["", "high", "1 0"])
def test_an_input_whose_level_is_no_number(board, text):
    attribute(board, pin(41), text)
    assert ask(board, "input") == ["input EBADMSG"]


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
    run = probe(board, "output", "5")
    assert run.stdout == b"output 3\n"
    assert [line for line in run.requests if line.startswith("write /sys/")] == [
        f"write {pin(60)} in=31 = 1",
        f"write {pin(61)} in=30 = 1",
        f"write {pin(62)} in=31 = 1",
    ]
    assert [level(board, number) for number in (60, 61, 62)] == [1, 0, 1]
    assert ask(board, "output", "2") == ["output 3"]
    assert [level(board, number) for number in (60, 61, 62)] == [0, 1, 0]


def test_outputs_need_not_be_numbered_without_gaps(board):
    outputs(board, 60)
    attribute(board, pin(91), 0)
    with open(board.path(MAP), "a", encoding="utf-8") as file:
        file.write(f"alarm.output.31 = {pin(91)}\n")
    assert ask(board, "output", "0x80000000") == ["output 2"]
    assert (level(board, 60), level(board, 91)) == (0, 1)


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


# --- The monitor --------------------------------------------------------------------------------

CONNECTOR = "/sys/class/drm/card0-VGA-1/status"


@pytest.mark.parametrize(
    "status, result",
    [
        ("connected", 1),
        ("disconnected", 0),
        ("unknown", "ENODATA"),
        ("", "ENODATA"),
        ("connected now", "ENODATA"),
    ],
)
def test_a_connector_says_whether_a_monitor_is_there(board, status, result):
    attribute(board, CONNECTOR, status)
    assert ask(board, "vga") == [f"vga {result}"]


@pytest.mark.parametrize(
    "fault, reason",
    [("absent", "ENOENT"), ("open errno=EACCES", "EACCES"), ("read errno=EIO", "EIO")],
)
def test_a_connector_that_cannot_be_read_has_a_reason(board, fault, reason):
    board.fault(f"{CONNECTOR} {fault}")
    assert ask(board, "vga") == [f"vga {reason}"]


def test_a_board_without_a_connector_says_so(board):
    with open(board.path(MAP), "a", encoding="utf-8") as file:
        file.write("vga.status =\n")
    assert ask(board, "vga") == ["vga ENODEV"]


# --- The boot parameters ------------------------------------------------------------------------


def test_the_boot_parameters_are_written_in_place_and_synced(board):
    run = probe(board, "bootparam", 7, story=True, **untraced(board))
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
    run = probe(board, "bootparam", 7)
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
    if fault.startswith("write") and reason:
        board.fault(f"{NVMEM} close errno=EBUSY")  # the first reason counts
    assert ask(board, "bootparam", "7") == [f"bootparam {reason or 0}"]


# A driver whose writes are through already need not have a sync.
@pytest.mark.parametrize(
    "number, reason",
    [
        (errno.EIO, "EIO"),
        (errno.ENOSPC, "ENOSPC"),
        (errno.EINVAL, None),
        (errno.EROFS, None),
        (errno.ENOTSUP, None),
    ],
)
def test_a_boot_block_that_is_not_synced_is_not_written(board, number, reason):
    options = untraced(board)
    options["env"]["FSYNC_ERRNO"] = str(number)
    run = probe(board, "bootparam", 7, **options)
    assert run.stdout.decode() == f"bootparam {reason or 0}\n"
    assert (run.status, run.stderr.decode()) == (0, "fsync 3 = -1\n")


BLOCKS = [("get_bootparam", NVMEM), ("get_hardinfo", HARDINFO)]


@pytest.mark.parametrize("operation, path", BLOCKS)
@pytest.mark.parametrize("length", [256, 257])
def test_a_block_is_its_first_256_bytes(board, operation, path, length):
    board.path(path[1:]).write_bytes(b"\x12" + bytes(254) + b"\x34\x56"[: length - 255])
    assert ask(board, operation, 256) == [f"{operation} 0 12 34"]


@pytest.mark.parametrize("operation, path", BLOCKS)
@pytest.mark.parametrize("length", [0, 1, 255])
def test_a_block_that_is_too_short_is_left_alone(board, operation, path, length):
    board.path(path[1:]).write_bytes(b"\x12" * length)
    assert ask(board, operation, 256) == [f"{operation} EIO"]


@pytest.mark.parametrize("operation, path", BLOCKS)
@pytest.mark.parametrize(
    "fault, reason",
    [
        ("absent", "ENOENT"),
        ("open errno=EACCES", "EACCES"),
        ("read errno=ENXIO", "ENXIO"),
        ("read errno=ENXIO nth=2", "ENXIO"),
    ],
)
def test_a_block_that_cannot_be_read_has_a_reason(board, operation, path, fault, reason):
    if "nth" in fault:
        board.fault(f"{path} read short=100 nth=1")
    board.fault(f"{path} {fault}")
    assert ask(board, operation, 256) == [f"{operation} {reason}"]


def test_a_board_without_blocks_says_so(board):
    with open(board.path(MAP), "a", encoding="utf-8") as file:
        file.write("bootparam =\nhardinfo =\n")
    words = ("get_bootparam", "256", "bootparam", "7", "get_hardinfo", "256")
    assert ask(board, *words, stdin=bytes(256)) == [f"{word} ENODEV" for word in words[::2]]


@pytest.mark.parametrize("size", [0, 255, 257, -256])
@pytest.mark.parametrize("operation", ["get_bootparam", "get_hardinfo", "set_bootparam"])
def test_a_block_has_no_other_size(board, operation, size):
    run = probe(board, operation, size)
    assert (run.status, run.stdout.decode()) == (0, f"{operation} EINVAL\n")
    assert run.requests_on(NVMEM, HARDINFO) == []


# --- Storage devices ----------------------------------------------------------------------------


def test_a_device_that_the_board_lacks_is_off_line_and_has_no_power(board):
    assert ask(board, "state", "sdz", "power", "sdz", "switch", "sdz", "1") == [
        "state 0",
        "power ENODEV",
        "switch ENODEV",
    ]


@pytest.mark.parametrize("name", ["", ".", "..", ".a", "a/b", "/", 32 * "a", "NULL"])
def test_a_name_that_no_device_can_have_is_refused(board, name):
    assert ask(board, "state", name, "power", name, "switch", name, "1") == [
        "state EINVAL",
        "power EINVAL",
        "switch EINVAL",
    ]


@pytest.mark.parametrize("name", ["s", "a.", 31 * "a"])
def test_the_name_of_a_device_has_1_to_31_characters(board, name):
    attribute(board, f"/sys/block/{name}/ro", 1)
    assert ask(board, "state", name, "power", name, "switch", name, "1") == [
        "state 6",
        "power 1",
        "switch ENODEV",
    ]


DEVICES = "mmcblk0 1 1, sda 1 1"


@pytest.mark.parametrize(
    "attribute, fault, reason",
    [
        ("ro", "read errno=EIO", "EIO"),
        ("ro", "open errno=EACCES", "EACCES"),
        ("device/state", "read errno=EIO", "EIO"),
        ("device/state", "open errno=EACCES", "EACCES"),
    ],
)
def test_a_device_whose_state_cannot_be_read_fails_the_list(board, attribute, fault, reason):
    board.fault(f"/sys/block/sda/{attribute} {fault}")
    assert ask(board, "state", "sda", "list", "all", "state", "mmcblk0") == [
        f"state {reason}",
        f"list {reason}",
        "state 1",
    ]
    run = board.run("bt2", "stor", "-g", "sda")
    assert run.stdout == b"sda state: -1.\nsda power_state: STOR_POWERUP.\n"


def test_a_device_whose_power_cannot_be_read_fails_the_list(board):
    assert ask(board, "list", "all") == [f"list 0 {DEVICES}"]
    board.fault("/sys/devices/platform/sda-power/state read errno=EIO")
    assert ask(board, "power", "sda", "list", "all") == ["power EIO", "list EIO"]


@pytest.mark.parametrize("name", ["ro", "device/state"])
def test_a_device_may_lack_the_attributes_of_its_state(board, name):
    board.fault(f"/sys/block/sda/{name} absent")
    assert ask(board, "list", "all") == [f"list 0 {DEVICES}"]


def test_a_state_that_is_no_number_fails_the_list(board):
    attribute(board, "/sys/block/sda/ro", "no")
    assert ask(board, "state", "sda", "list", "all") == ["state EBADMSG", "list EBADMSG"]


def test_switches_need_not_be_numbered_without_gaps(board):
    with open(board.path(MAP), "a", encoding="utf-8") as file:
        file.write("storage.0 =\nstorage.1 =\n")
        file.write("storage.3 = sda /sys/devices/platform/sda-power/state host0\n")
        file.write("storage.15 = sdb /sys/devices/platform/sdb-power/state\n")
    attribute(board, "/sys/devices/platform/sdb-power/state", "disabled")
    assert ask(board, "list", "all", "power", "sdb", "switch", "sda", 0, "power", "sda") == [
        "list 0 mmcblk0 1 1, sda 1 1, sdb 0 0",
        "power 0",
        "switch 0",
        "power 0",
    ]


def test_a_map_has_sixteen_switches(board):
    for number in range(17):
        attribute(board, f"/sys/devices/platform/disk{number}/state", "disabled")
    with open(board.path(MAP), "w", encoding="utf-8") as file:
        for number in range(17):
            file.write(
                f"storage.{number} = disk{number} /sys/devices/platform/disk{number}/state\n"
            )
    run = probe(board, "switch", "disk15", "1", "switch", "disk16", "1", "switch", "disk16", "1")
    assert run.stdout == b"switch 0\nswitch ENODEV\nswitch ENODEV\n"
    # Said when the map is read.
    assert run.stderr == (b'/etc/benchrig/board.conf:17: unknown key "storage.16", line ignored\n')


def test_a_device_without_a_host_has_power_once_its_switch_is_closed(board):
    assert ask(board, "switch", "mmcblk0", "0", "switch", "mmcblk0", "1", "power", "mmcblk0") == [
        "switch 0",
        "switch 0",
        "power 1",
    ]


def test_a_device_that_does_not_let_go_keeps_its_power(board):
    board.fault("/sys/block/sda/device/delete write errno=EBUSY")
    assert ask(board, "switch", "sda", "0", "power", "sda") == ["switch EBUSY", "power 1"]


@pytest.mark.parametrize("entry", ["", "sda"])
def test_an_entry_that_is_no_switch(board, entry):
    with open(board.path(MAP), "a", encoding="utf-8") as file:
        file.write(f"storage.0 =\nstorage.1 = {entry}\n")
    # An entry without a value is one that the board lacks.
    reasons = ("EINVAL", "EINVAL", "EINVAL") if entry else ("1", "ENODEV", f"0 {DEVICES}")
    lines = ask(board, "power", "sda", "switch", "sda", "0", "list", "all")
    assert lines == [
        f"{word} {reason}" for word, reason in zip(("power", "switch", "list"), reasons)
    ]


def test_a_list_needs_a_place(board):
    assert ask(board, "list", "NULL") == ["list EINVAL"]


def test_a_kernel_without_block_devices_lists_those_with_a_switch(board):
    board.fault("/sys/block absent")
    assert ask(board, "list", "all") == ["list 0 mmcblk0 0 1, sda 0 1"]


def test_block_devices_without_a_device_are_left_out(board):
    for name in ("sda", "mmcblk0"):
        board.fault(f"/sys/block/{name}/device absent")
    for name in ("loop0", "ram0", "zram0"):
        attribute(board, f"/sys/block/{name}/ro", 0)
    # A disk and a card have switches.
    assert ask(board, "list", "all") == [f"list 0 {DEVICES}"]


def test_block_devices_that_cannot_be_listed_are_a_failure(board):
    board.fault("/sys/block open errno=EACCES")
    assert ask(board, "list", "all") == ["list EACCES"]


def test_block_devices_that_cannot_be_listed_to_the_end_are_a_failure(board):
    options = untraced(board)
    options["env"]["READDIR_ERRNO"] = str(errno.EIO)
    assert ask(board, "list", "all", **options) == ["list EIO"]


@pytest.mark.parametrize("power", ["2", "0xffffffff"])
def test_a_power_that_is_neither_on_nor_off_is_refused(board, power):
    assert ask(board, "switch", "sda", power, "power", "sda") == ["switch EINVAL", "power 1"]


@pytest.mark.parametrize("taken", [0, 1, 7])
def test_a_switch_that_takes_a_part_of_its_word_has_failed(board, taken):
    board.fault(f"/sys/devices/platform/sda-power/state write result={taken}")
    assert ask(board, "switch", "sda", "0") == ["switch EIO"]


def test_a_switch_that_takes_nothing_after_an_interruption_has_failed(board):
    board.fault("/sys/devices/platform/sda-power/state write errno=EINTR nth=1")
    board.fault("/sys/devices/platform/sda-power/state write result=0 nth=2")
    assert ask(board, "switch", "sda", "0") == ["switch EIO"]


# --- The CPLD -----------------------------------------------------------------------------------

CPLD = "/sys/class/firmware/cpld"
LOST = ", the CPLD may be half programmed"


def burn(board, reason, message="", size=200, text="\xa5", **options):
    """A run that programs the CPLD; its result, and what it says on standard error, must be these."""
    run = probe(board, "burn", 0, size, text, **options)
    assert (run.status, run.stdout.decode()) == (0, f"burn {reason}\n")
    assert run.stderr.decode() == message
    return run


def burn_writes(run, directory=CPLD):
    """The names and values that were written, but for the image."""
    lines = [line.split() for line in run.requests if line.startswith("write")]
    assert all(path.startswith(directory + "/") for _, path, *_ in lines)
    names = [(path.rpartition("/")[2], bytes_in) for _, path, bytes_in, *_ in lines]
    texts = {"in=31": "1", "in=30": "0", "in=2d31": "-1"}
    return [f"{name} {texts[text]}" if name != "data" else name for name, text in names]


def test_an_image_is_begun_written_and_handed_over(board):
    run = burn(board, 0)
    assert burn_writes(run) == ["loading 1", "data", "loading 0"]
    assert run.sleeps == []


@pytest.mark.parametrize(
    "words, reason",
    [
        (("0", "0", "x"), "EINVAL"),
        (("0", "-1", "x"), "EINVAL"),
        (("1", "200", "x"), "EINVAL"),
        (("-1", "200", "x"), "EINVAL"),
        (("0", "200", "NULL"), "EINVAL"),
        (("0", "262145", "x"), "EFBIG"),
        (("0", "2147483647", "x"), "EFBIG"),
    ],
)
def test_an_image_that_no_cpld_takes_is_not_begun(board, words, reason):
    run = probe(board, "burn", *words)
    assert (run.status, run.stdout.decode(), run.stderr) == (0, f"burn {reason}\n", b"")
    assert run.requests == []


def test_a_board_without_a_cpld_says_so(board):
    with open(board.path(MAP), "a", encoding="utf-8") as file:
        file.write("cpld =\n")
    assert burn_writes(burn(board, "ENODEV")) == []


@pytest.mark.parametrize("size", [1, 262144])
def test_the_smallest_and_the_largest_image_are_burnt(board, size):
    burn(board, 0, size=size, text="x")
    assert board.path("media/cpld.bin").read_bytes() == size * b"x"


@pytest.mark.parametrize(
    "fails, reason, consequence",
    [
        ("receiving:timeout", "ETIMEDOUT", ""),
        ("preparing:device-busy", "EBUSY", ""),
        ("preparing:invalid-file-size", "EFBIG", ""),
        ("preparing:firmware-invalid", "EBADMSG", ""),
        ("transferring:read-write-error", "EIO", LOST),
        ("transferring:hw-error", "EIO", LOST),
        ("programming:timeout", "ETIMEDOUT", LOST),
        ("programming:user-abort", "ECANCELED", LOST),
        ("programming:flash-wearout", "EIO", LOST),
        ("programming:another", "EIO", LOST),
        ("programming:timeouts", "EIO", LOST),
        ("user-abort", "ECANCELED", LOST),
    ],
)
def test_what_the_driver_reports_is_the_reason(board, fails, reason, consequence):
    board.set("firmware/cpld", "fails", fails)
    run = burn(board, reason, f"{CPLD}: upload failed ({fails}){consequence}\n")
    assert burn_writes(run) == ["loading 1", "data", "loading 0"]


@pytest.mark.parametrize(
    "fault, reason",
    [("status read errno=ENXIO", "ENXIO"), ("status open errno=EACCES", "EACCES")],
)
def test_without_a_status_no_image_is_begun(board, fault, reason):
    board.fault(f"{CPLD}/{fault}")
    assert burn_writes(burn(board, reason)) == []


@pytest.mark.parametrize("status", ["", "idl", "idle2", "programming"])
def test_a_driver_that_is_not_idle_is_busy(board, status):
    attribute(board, f"{CPLD}/status", status)
    assert burn_writes(burn(board, "EBUSY")) == []


@pytest.mark.parametrize(
    "fault, reason, writes",
    [
        ("loading write errno=ENXIO nth=1", "ENXIO", ["loading 1"]),
        ("loading open errno=EACCES", "EACCES", []),
        ("data open errno=EACCES", "EACCES", ["loading 1", "loading -1"]),
        ("data write errno=ENXIO", "ENXIO", ["loading 1", "data", "loading -1"]),
        ("data write result=0", "EIO", ["loading 1", "data", "loading -1"]),
        ("data close errno=ENOSPC", "ENOSPC", ["loading 1", "data", "loading -1"]),
        (
            "loading write errno=ENXIO nth=2",
            "ENXIO",
            ["loading 1", "data", "loading 0", "loading -1"],
        ),
    ],
)
def test_an_image_that_does_not_arrive_is_dropped(board, fault, reason, writes):
    board.fault(f"{CPLD}/{fault}")
    # The first reason counts, whatever comes of the dropping.
    board.fault(f"{CPLD}/loading close errno=EBUSY from=2")
    if fault.startswith("data write"):
        board.fault(f"{CPLD}/data close errno=EBUSY")
    assert burn_writes(burn(board, reason)) == writes
    assert not board.path("media/cpld.bin").exists()


@pytest.mark.parametrize(
    "fault, state, reason",
    [
        ("status read errno=ENXIO from=3", "no status", "ENXIO"),
        ("status open errno=EACCES from=2", "no status", "EACCES"),
        ("error read errno=ENXIO", "no result", "ENXIO"),
        ("error open errno=EACCES", "no result", "EACCES"),
    ],
)
def test_a_driver_that_falls_silent_may_leave_a_half_programmed_cpld(board, fault, state, reason):
    board.fault(f"{CPLD}/{fault}")
    run = burn(board, reason, f"{CPLD}: upload failed ({state}){LOST}\n")
    assert burn_writes(run) == ["loading 1", "data", "loading 0"]


@pytest.mark.parametrize("fails, reason", [("", "0"), ("programming:user-abort", "ECANCELED")])
def test_a_driver_that_works_for_a_while_is_waited_for(board, fails, reason):
    board.set("firmware/cpld", "fails", fails)
    for number in (3, 4, 5):  # two reads are one look at the status; an empty one takes one read
        board.fault(f"{CPLD}/status read short=0 nth={number}")
    message = f"{CPLD}: upload failed ({fails}){LOST}\n" if fails else ""
    run = burn(board, reason, message)
    assert burn_writes(run) == ["loading 1", "data", "loading 0"]
    assert run.sleeps == [0.1, 0.1, 0.1]


@pytest.mark.parametrize(
    "status, consequence",
    [
        ("receiving", ""),
        ("preparing", ""),
        ("transferring", LOST),
        ("programming", LOST),
        ("receiv", LOST),
    ],
)
def test_a_driver_that_never_ends_is_cancelled_after_five_minutes(board, status, consequence):
    # A driver whose status is the image, for ever.
    driver = "/sys/devices/platform/cpld"
    for name, value in {
        "status": "idle",
        "error": "",
        "loading": 0,
        "data": "",
        "cancel": 0,
    }.items():
        attribute(board, f"{driver}/{name}", value)
    with open(board.path("sys.wires"), "a", encoding="utf-8") as file:
        file.write(f"{driver}/data -> {driver}/status\n")
    with open(board.path(MAP), "a", encoding="utf-8") as file:
        file.write(f"cpld = {driver}\n")
    message = f"{driver}: upload failed ({status}){consequence}\n"
    run = burn(board, "ETIMEDOUT", message, size=len(status), text=status)
    assert burn_writes(run, driver) == ["loading 1", "data", "loading 0", "cancel 1"]
    assert set(run.sleeps) == {0.1}
    # The limit is counted in whole seconds of the clock, wherever in one of them the wait began.
    assert 2990 <= len(run.sleeps) <= 3000


# --- The banner ---------------------------------------------------------------------------------


def test_the_banner_has_four_lines_that_an_indent_moves_to_the_right(board):
    banner = probe(board, "logo", 0, 0).stdout.decode()
    lines = banner.split("\n")
    assert len(lines) == 4 and "b e n c h r i g" in banner
    for indent, shown in ((1, 1), (3, 3), (39, 39), (40, 40), (41, 0), (-1, 0), (-40, 0)):
        moved = "\n".join(shown * " " + line for line in lines)
        for end_line in (0, 1, 2, -1):
            run = probe(board, "logo", indent, end_line)
            assert (run.status, run.stderr) == (0, b"")
            assert run.stdout.decode() == moved + ("\n" if end_line else "")


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
        ("/chosen", "test", f"{OVERLAYS}/benchrig-0/dtbo close errno=EBUSY", "EBUSY"),
    ],
)
def test_an_overlay_that_is_refused_has_its_reason_whatever_becomes_of_the_message(
    board, node, name, fault, reason
):
    if fault:
        board.fault(fault)
    assert ask_without_messages(board, "overlay", node, name, "aaaa") == [f"overlay {reason}"]


def test_an_overlay_that_is_not_written_has_that_reason_whatever_closing_says(board):
    board.fault(f"{OVERLAYS}/benchrig-0/dtbo write errno=EACCES")
    board.fault(f"{OVERLAYS}/benchrig-0/dtbo close errno=EBUSY")
    assert ask_without_messages(board, "overlay", "/chosen", "test", "aaaa") == ["overlay EACCES"]


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
