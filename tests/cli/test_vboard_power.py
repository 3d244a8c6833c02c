"""Power cuts of the virtual board: at a time, in a call, and what they leave."""

import struct
import subprocess

import pytest

from conftest import assert_story, environment, out
from probes import lines, one_probe, run_steps

SETTIMEOUT = "0xC0045706"
ERASE = "0x40084D02"
PROTECT = "0x40084D05"
LCD_CMD = "0x40044C80"
BUZZER = "/sys/class/leds/buzzer/brightness"
VGA = "/sys/class/drm/card0-VGA-1/status"
BLOCK = 4096
CUT = (82, b"power cut\n")


def extent(start, length):
    return struct.pack("<II", start, length).hex()


def flash(board):
    return board.path("media/mtd1.bin").read_bytes()


def fill_flash(board, byte):
    board.path("media/mtd1.bin").write_bytes(byte * 65536)


def boots(board):
    clock = board.path("clock").read_text().splitlines()
    return [one.split("=")[1].strip() for one in clock if one.split("=")[0].strip() == "boots"]


# --- at a time ----------------------------------------------------------------------------------------


@pytest.mark.parametrize("speed", ["max", "20"])
def test_a_run_ends_when_the_power_fails(board, one_probe, speed):
    run = run_steps(board, one_probe, "now; sleep 60; now", speed=speed, power_cut="15", story=True)
    assert (run.status, run.stderr) == CUT
    assert run.stdout == b"now 0.000\n"
    assert run.story[-1] == "power cut"


def test_what_happens_before_still_happens(board):
    run = board.run_command(
        ["sh", "-c", "sleep 1.5; echo one; sleep 1; echo two"], power_cut="2", story=True
    )
    assert (run.status, run.stderr, run.stdout) == (*CUT, b"one\n")
    assert_story(run, "sleep 1.500000", out("one\n"), "sleep 1.000000", "power cut")


def test_a_run_that_ends_before_has_its_own_status(board, one_probe):
    run = run_steps(board, one_probe, "sleep 2; exit 7", power_cut="2.5")
    assert (run.status, run.stderr) == (7, b"")
    assert not board.path("clock").exists() or boots(board) in ([], ["0"])


def test_no_process_outlives_the_power(board, one_probe):
    run = run_steps(
        board, one_probe, "fork; sleep 100; now; join; now", power_cut="3", signals=["TERM@4"]
    )
    assert (run.status, run.stderr, run.stdout) == (*CUT, b"")
    run = board.run_command(
        ["sh", "-c", f"trap 'echo trapped' EXIT TERM HUP; {one_probe} sleep 9; echo after"],
        power_cut="3",
    )
    assert (run.status, run.stderr, run.stdout) == (*CUT, b"")


def test_a_program_that_only_computes_ends_too(board):
    run = board.run_command(["sh", "-c", "while :; do :; done"], power_cut="0.1")
    assert (run.status, run.stderr) == CUT


def test_the_power_of_a_board_of_one_run_fails_too(build, tmp_path):
    words = [build / "bin/vboard", "run", "--speed", "max", "--power-cut", "1", "--", "sleep", "5"]
    done = subprocess.run(
        words, capture_output=True, env=environment(), cwd=tmp_path, timeout=60, check=False
    )
    assert (done.returncode, done.stdout, done.stderr) == (82, b"", b"power cut\n")


@pytest.mark.parametrize("time", ["x", "-1", ""])
def test_a_wrong_time_is_refused(build, time):
    words = [build / "bin/vboard", "run", "--power-cut", time, "--", "true"]
    done = subprocess.run(words, capture_output=True, env=environment(), timeout=60, check=False)
    assert (done.returncode, done.stdout) == (125, b"")
    assert done.stderr == f"vboard: --power-cut: wrong value '{time}'\n".encode()


@pytest.mark.parametrize("speed", ["max", "20"])
@pytest.mark.parametrize(
    "cut, end", [("60", (80, b"board reset\n")), ("3", CUT)], ids=["later", "first"]
)
def test_the_watchdog_or_the_power_whichever_comes_first(board, one_probe, cut, end, speed):
    steps = f"open /dev/watchdog wronly; ioctl {SETTIMEOUT} 05000000; sleep 60"
    run = run_steps(board, one_probe, steps, power_cut=cut, speed=speed)
    assert (run.status, run.stderr) == end


# --- what is left -------------------------------------------------------------------------------------


def test_the_board_boots_with_the_next_run(board, one_probe):
    for count in ("1", "2"):
        run_steps(board, one_probe, "sleep 60", power_cut="5")
        assert boots(board) == [count]
    assert lines(run_steps(board, one_probe, "sleep 1")) == ["sleep 0"]
    assert boots(board) == ["2"]


def test_the_watchdog_is_not_armed_after_it(board, one_probe):
    run_steps(board, one_probe, "open /dev/watchdog wronly; sleep 60", power_cut="5")
    assert lines(run_steps(board, one_probe, "sleep 6000")) == ["sleep 0"]


def test_the_calendar_goes_on(board, one_probe):
    run_steps(board, one_probe, "sleep 9000", power_cut="7200")
    clock = dict(
        (word.strip() for word in one.split("="))
        for one in board.path("clock").read_text().splitlines()
    )
    assert 7190 < int(clock["ahead_ns"]) / 1e9 <= 7200


def test_media_and_settings_stay_as_they_were_written(board, one_probe):
    steps = f"open /dev/lcd rdwr; write 5a*1024; ioctl {LCD_CMD} a7; sleep 60"
    assert run_steps(board, one_probe, steps, power_cut="5").status == 82
    assert board.path("media/lcd.frame").read_bytes() == b"Z" * 1024
    assert "inverse = 1\n" in board.path("dev/lcd").read_text()


# --- while flash works --------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "cut, blocks, speed",
    [("2", 0, "max"), ("19", 0, "max"), ("21", 1, "max"), ("59", 2, "max"), ("36", 1, "20")],
)
def test_the_block_under_way_is_half_erased(board, one_probe, cut, blocks, speed):
    board.set("/dev/mtd1", "erase_ms", "20000")
    fill_flash(board, b"a")
    steps = f"open /dev/mtd1 rdwr; ioctl {ERASE} {extent(BLOCK, 3 * BLOCK)}; now"
    run = run_steps(board, one_probe, steps, power_cut=cut, speed=speed)
    assert (run.status, run.stderr, run.stdout) == (*CUT, b"open 3\n")
    assert run.requests == ["open /dev/mtd1 RDWR = 3"]
    half = blocks * BLOCK + BLOCK // 2
    assert flash(board) == b"a" * BLOCK + b"\xff" * half + b"a" * (65536 - BLOCK - half)


@pytest.mark.parametrize("speed", ["max", "20"])
def test_the_page_under_way_is_half_programmed(board, one_probe, speed):
    board.set("/dev/mtd1", "page_us", "20000000")
    fill_flash(board, b"\xff")
    # 101 bytes in the first page, 256 in the second one, 43 in the third.
    steps = "open /dev/mtd1 rdwr; lseek 155 set; write 5a*400"
    run = run_steps(board, one_probe, steps, power_cut="36", speed=speed)
    assert (run.status, run.stderr) == CUT
    programmed = 101 + 128
    assert flash(board) == b"\xff" * 155 + b"Z" * programmed + b"\xff" * (65381 - programmed)


def test_of_an_odd_number_of_bytes_the_smaller_half_is_programmed(board, one_probe):
    board.set("/dev/mtd1", "page_us", "1000000")
    fill_flash(board, b"\xff")
    run_steps(board, one_probe, "open /dev/mtd1 rdwr; write 5a*7", power_cut="0.5")
    assert flash(board) == b"ZZZ" + b"\xff" * 65533


def test_sectors_on_a_slow_line_are_whole(board, one_probe):
    board.path("dev/disk").write_text(
        "model = phys_mem\ntype = block\nmedium = disk.bin\nmedium_size = 4096\nbyte_us = 1000\n"
    )
    run = run_steps(board, one_probe, "open /dev/disk rdwr; write 5a*2048", power_cut="1.3")
    assert run.status == 82
    assert board.path("media/disk.bin").read_bytes() == b"Z" * 1024 + bytes(3072)


# --- in a call ----------------------------------------------------------------------------------------


def cut_in(board, probe, fault, steps, printed, traced=(), **options):
    """Runs the steps on a board whose power fails by the fault: what is printed and traced before."""
    board.fault(fault)
    run = run_steps(board, probe, steps, story=True, **options)
    assert (run.status, run.stderr) == CUT
    assert run.stdout.decode().splitlines() == printed
    assert run.requests == list(traced)
    assert run.story[-1] == "power cut"
    assert boots(board) == ["1"]


# The pages of the third write: each has 256 bytes.
@pytest.mark.parametrize(
    "size, programmed", [(256, 128), (512, 384), (768, 384), (1024, 640), (100, 50), (1, 0)]
)
def test_a_write_to_flash_is_half_done(board, one_probe, size, programmed):
    fill_flash(board, b"\xff")
    cut_in(
        board,
        one_probe,
        "/dev/mtd1 write power-cut nth=3",
        f"open /dev/mtd1 rdwr; write 61*256; write 62*256; write 63*{size}; write 64",
        ["open 3", "write 256", "write 256"],
        ["open /dev/mtd1 RDWR = 3", *(f"write /dev/mtd1 in={b}*256 = 256" for b in ("61", "62"))],
    )
    rest = 65536 - 512 - programmed
    assert flash(board) == b"a" * 256 + b"b" * 256 + b"c" * programmed + b"\xff" * rest


@pytest.mark.parametrize("blocks, erased", [(1, 0.5), (2, 1.5), (3, 1.5), (16, 8.5)])
def test_erasing_is_half_done(board, one_probe, blocks, erased):
    fill_flash(board, b"a")
    cut_in(
        board,
        one_probe,
        "/dev/mtd1 ioctl:MEMERASE power-cut",
        f"open /dev/mtd1 rdwr; ioctl {ERASE} {extent(0, blocks * BLOCK)}; now",
        ["open 3"],
        ["open /dev/mtd1 RDWR = 3"],
    )
    size = int(erased * BLOCK)
    assert flash(board) == b"\xff" * size + b"a" * (65536 - size)


def test_the_power_fails_after_half_of_the_time(board, one_probe):
    board.set("/dev/mtd1", "erase_ms", "3000")
    fill_flash(board, b"a")
    # Two blocks before it and half of its own time are 7.5 s: the watchdog would bite later.
    cut_in(
        board,
        one_probe,
        "/dev/mtd1 ioctl power-cut",
        f"open /dev/watchdog wronly; ioctl {SETTIMEOUT} 08000000; "
        f"open /dev/mtd1 rdwr; ioctl {ERASE} {extent(0, 5 * BLOCK)}",
        ["open 3", "ioctl 0 08000000", "open 4"],
        [
            "open /dev/watchdog WRONLY = 3",
            "ioctl /dev/watchdog WDIOC_SETTIMEOUT in=08000000 out=08000000 = 0",
            "open /dev/mtd1 RDWR = 4",
        ],
    )
    assert flash(board) == b"\xff" * 10240 + b"a" * (65536 - 10240)


def test_nand_loses_the_spare_bytes_of_the_page_under_way(board, one_probe):
    board.path("dev/mtd2").write_text(
        "model = mtd\nflash = nand\nmedium = nand.bin\nmedium_size = 65536\nnumber = 90:4\n"
        "erase_size = 8192\nwrite_size = 512\noob_size = 16\n"
    )
    board.path("media/nand.bin").write_bytes(b"a" * 65536)
    board.path("media/nand.bin.oob").write_bytes(b"s" * 2048)
    cut_in(
        board,
        one_probe,
        "/dev/mtd2 ioctl:MEMERASE power-cut",
        f"open /dev/mtd2 rdwr; ioctl {ERASE} {extent(0, 2 * 8192)}",
        ["open 3"],
        ["open /dev/mtd2 RDWR = 3"],
    )
    nand = board.path("media/nand.bin").read_bytes()
    assert nand == b"\xff" * 12288 + b"a" * (65536 - 12288)
    assert board.path("media/nand.bin.oob").read_bytes() == b"\xff" * 256 + b"s" * 1792


def test_a_request_in_one_piece_is_done_without_an_answer(board, one_probe):
    board.set("/dev/mtd1", "locks", "1")
    cut_in(
        board,
        one_probe,
        "/dev/mtd1 ioctl:MEMLOCK power-cut",
        f"open /dev/mtd1 rdwr; ioctl {PROTECT} {extent(0, 65536)}; now",
        ["open 3"],
        ["open /dev/mtd1 RDWR = 3"],
    )
    assert "protected = 1\n" in board.path("dev/mtd1").read_text()


def test_a_write_to_another_device_gets_half_through(board, one_probe):
    cut_in(
        board,
        one_probe,
        "/dev/lcd write power-cut",
        "open /dev/lcd rdwr; write 5a*1023",
        ["open 3"],
        ["open /dev/lcd RDWR = 3"],
    )
    assert board.path("media/lcd.frame").read_bytes() == b"Z" * 511 + bytes(513)


@pytest.mark.parametrize("size, written", [(2048, 1024), (3072, 1536), (1536, 512), (512, 0)])
def test_a_block_device_gets_whole_sectors(board, one_probe, size, written):
    board.path("dev/disk").write_text(
        "model = phys_mem\ntype = block\nmedium = disk.bin\nmedium_size = 4096\n"
    )
    cut_in(
        board,
        one_probe,
        "/dev/disk write power-cut",
        f"open /dev/disk rdwr; write 5a*{size}",
        ["open 3"],
        ["open /dev/disk RDWR = 3"],
    )
    assert board.path("media/disk.bin").read_bytes() == b"Z" * written + bytes(4096 - written)


def test_a_file_gets_half_through(board, one_probe):
    cut_in(
        board,
        one_probe,
        "/var/log/text write power-cut",
        "open /var/log/text rdwr,creat,trunc; write 5a*9",
        ["open 3"],
        ["open /var/log/text RDWR|CREAT|TRUNC = 3"],
    )
    assert board.path("var/log/text").read_bytes() == b"ZZZZ"


@pytest.mark.parametrize(
    "attribute, text, kept", [(BUZZER, "1", b"0\n"), (VGA, "disconnected", b"connected\n")]
)
def test_an_attribute_gets_nothing(board, one_probe, attribute, text, kept):
    cut_in(
        board,
        one_probe,
        f"{attribute} write power-cut",
        f"open {attribute} wronly; text {text}",
        ["open 3"],
        [f"open {attribute} WRONLY = 3"],
    )
    assert board.path(attribute[1:]).read_bytes() == kept


@pytest.mark.parametrize(
    "call, node, steps, printed",
    [
        ("open", "/dev/lcd", "open /dev/lcd rdwr", []),
        ("close", "/dev/lcd", "open /dev/lcd rdwr; close", ["open 3"]),
        ("read", "/dev/mtd1", "open /dev/mtd1 rdonly; read 4", ["open 3"]),
        ("mmap", "/dev/mem", "open /dev/mem rdwr; mmap 4096 0", ["open 3"]),
        ("socket", "socket", "socket inet dgram", []),
    ],
)
def test_the_power_fails_at_any_call(board, one_probe, call, node, steps, printed):
    board.fault(f"{node} {call} power-cut")
    run = run_steps(board, one_probe, f"{steps}; now")
    assert (run.status, run.stderr) == CUT
    assert run.stdout.decode().splitlines() == printed


def test_the_power_fails_within_a_window_alone(board, one_probe):
    board.fault("/dev/lcd write power-cut time=1.5..3.5")
    steps = "open /dev/lcd rdwr; " + "write 00*1024; sleep 1; " * 5
    run = run_steps(board, one_probe, steps)
    assert (run.status, run.stderr) == CUT
    assert run.stdout.decode().splitlines() == ["open 3", *["write 0", "sleep 0"] * 2]


@pytest.mark.parametrize("words", [("absent", "power-cut"), ("write", "power-cut=1")])
def test_a_fault_that_makes_no_sense_is_refused(board, build, words):
    done = subprocess.run(
        [build / "bin/vboard", "fault", board.directory, "add", "/dev/mtd1", *words],
        capture_output=True,
        env=environment(),
        timeout=60,
        check=False,
    )
    assert (done.returncode, done.stdout) == (125, b"")


def test_a_fault_of_the_command_line_that_was_met_is_not_reported(build, tmp_path):
    words = [build / "bin/vboard", "run", "--fault", "/dev/lcd open power-cut", "--", "cat"]
    done = subprocess.run(
        [*words, "/dev/lcd"],
        capture_output=True,
        env=environment(),
        cwd=tmp_path,
        timeout=60,
        check=False,
    )
    assert (done.returncode, done.stdout, done.stderr) == (82, b"", b"power cut\n")
