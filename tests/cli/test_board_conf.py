"""librigcore's map of the board, /etc/benchrig/board.conf: whose defaults hold, what is warned of."""

import pathlib
import re

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
MAP = "/etc/benchrig/board.conf"
OUTPUT = "/sys/class/gpio/gpio48/value"


def another_board(board, names=b"maker,gateway\0maker,soc\0"):
    board.path("proc/device-tree/compatible").write_bytes(names)
    board.path("etc/benchrig/board.conf").write_text("")


@pytest.mark.parametrize(
    "names",
    [
        b"maker,gateway\0maker,soc\0",
        b"korvexium,recorders\0korvexium,record\0",
        b"korvexium,recorder korvexium,recorder2\0",
        b"\0",
        b"",
    ],
)
def test_another_boards_lines_are_not_driven(board, names):
    another_board(board, names)
    run = board.run("bt1", "alarm", "output", "1")
    assert (run.status, run.stdout, run.stderr) == (255, b"alarm_main:104 output set failed\n", b"")
    run = board.run("bt1", "alarm", "input", "1")
    assert run.stdout == b"alarm_main:84 get alarm input failed \n"
    run = board.run("bt1", "beep", "7")
    assert [line for line in run.requests if "/sys/" in line] == []
    assert board.path(OUTPUT[1:]).read_text() == "0\n"


def test_another_boards_blocks_are_not_read(board):
    another_board(board)
    run = board.run("bt1", "bootparam")
    assert [line for line in run.requests if "nvmem" in line] == []
    run = board.run("bt1", "cpldinfo")
    assert [line for line in run.requests if "nvmem" in line] == []


def test_a_machine_without_a_device_tree_has_no_lines(board):
    another_board(board)
    board.fault("/proc/device-tree/compatible absent")
    assert board.run("bt1", "alarm", "output", "1").status == 255


def test_another_board_has_what_its_map_says_and_what_holds_everywhere(board):
    another_board(board)
    board.path("etc/benchrig/board.conf").write_text(f"alarm.output.0 = {OUTPUT}\n")
    assert board.run("bt1", "alarm", "output", "1").status == 0
    assert board.path(OUTPUT[1:]).read_text() == "1\n"
    assert board.run("bt1", "vgadet").stdout == b"vga detect 1\n"
    lines = board.run("bt2", "bsp", "ver").stdout.splitlines()
    assert lines[2:4] == [
        b"U-Boot 2023.10 (Oct 02 2023 - 14:02:11 +0000)",
        b"Board support package 2.4.1 (virtual board)",
    ]


def test_a_variant_of_the_recorder_has_its_defaults(board):
    another_board(board, b"maker,variant\0korvexium,recorder\0maker,soc\0")
    assert board.run("bt1", "alarm", "output", "1").status == 0
    assert board.path(OUTPUT[1:]).read_text() == "1\n"


def test_the_virtual_board_has_everything_that_a_default_names(board):
    rows = re.findall(
        r"^(?:#.*|([\w.]+) = (/\S+).*)$",
        (ROOT / "platform/board.conf.example").read_text(encoding="utf-8"),
        re.M,
    )
    paths = {key: path for key, path in rows if key}
    assert len(paths) == 17
    missing = {key for key, path in paths.items() if not board.path(path[1:]).exists()}
    assert missing == set()


def test_what_does_nothing_is_warned_of_with_its_line(board):
    board.path("etc/benchrig/board.conf").write_text(
        "# the bench's board\n"
        "buzer = /sys/class/leds/buzzer/brightness\n"
        "\n"
        "alarm.output.0 /sys/class/gpio/gpio48/value\n"
        'vga.status = "/sys/class/drm/card0-VGA-1/status"  # copied from a shell script\n'
        "bootparam = '/sys/bus/nvmem/devices/bootparam0/nvmem'\n"
        "alarm.input.32 = /sys/class/gpio/gpio40/value\n"
        "alarm.input.07 =\n"
        "= /x\n"
        "feature.200 = 1\n"
        "storage.15 = sda /x\n"
        "alarm.output.31 =\n"
    )
    run = board.run("bt1", "vgadet")
    assert run.stderr.decode() == (
        f'{MAP}:2: unknown key "buzer", line ignored\n'
        f'{MAP}:4: not "key = value", line ignored\n'
        f'{MAP}:5: the quotes are taken as a part of the value of "vga.status"\n'
        f'{MAP}:6: the quotes are taken as a part of the value of "bootparam"\n'
        f'{MAP}:7: unknown key "alarm.input.32", line ignored\n'
        f'{MAP}:8: unknown key "alarm.input.07", line ignored\n'
        f'{MAP}:9: not "key = value", line ignored\n'
    )
    assert run.stdout == b"vga detect -1\n"  # there is no file with quotes in its name


def test_a_correct_map_is_read_without_a_word(board):
    example = (ROOT / "platform/board.conf.example").read_bytes()
    board.path("etc/benchrig/board.conf").write_bytes(example)
    run = board.run("bt1", "vgadet")
    assert (run.status, run.stdout, run.stderr) == (0, b"vga detect 1\n", b"")
