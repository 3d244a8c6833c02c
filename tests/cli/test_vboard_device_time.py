"""Board time that devices take for their own work: flash that erases and programs, and slow lines."""

import struct

import pytest

from probes import lines, one_probe, probe, run_steps

ERASE = "0x40084D02"
GET_INFO = "0x80204D01"
BRIGHTNESS = "/sys/class/leds/buzzer/brightness"
BLOCK = 4096


def extent(start, length):
    return struct.pack("<II", start, length).hex()


def flash(board):
    return board.path("media/mtd1.bin").read_bytes()


@pytest.fixture
def nand(board):
    board.path("dev/mtd2").write_text(
        "model = mtd\nflash = nand\nmedium = nand.bin\nmedium_size = 65536\nnumber = 90:4\n"
        "erase_size = 8192\nwrite_size = 512\noob_size = 16\nerase_ms = 2000\npage_us = 300000\n"
    )
    return board


@pytest.fixture
def line(board):
    """A device of plain bytes, a thousandth of a second each."""
    board.path("dev/line").write_text(
        "model = phys_mem\nmedium = line.bin\nmedium_size = 4096\nbyte_us = 1000\n"
    )
    return board


def times(board, probe, text, **options):
    """What "now" printed, and the results of the other steps."""
    got = [one.split() for one in lines(run_steps(board, probe, text, **options))]
    return [one[1] for one in got if one[0] == "now"], [one[1] for one in got if one[0] != "now"]


# --- flash --------------------------------------------------------------------------------------------


def test_flash_of_a_new_board_takes_no_time(board, probe):
    steps = f"open /dev/mtd1 rdwr; now; ioctl {ERASE} {extent(0, 65536)}; write 00*65536; now"
    assert times(board, probe, steps) == (["0.000", "0.000"], ["3", "0", "65536"])


@pytest.mark.parametrize("blocks, seconds", [(1, "0.300"), (5, "1.500")])
def test_each_block_takes_its_time_to_erase(board, probe, blocks, seconds):
    board.set("/dev/mtd1", "erase_ms", "300")
    board.path("media/mtd1.bin").write_bytes(b"a" * 65536)
    steps = f"open /dev/mtd1 rdwr; now; ioctl {ERASE} {extent(BLOCK, blocks * BLOCK)}; now"
    assert times(board, probe, steps) == (["0.000", seconds], ["3", "0"])
    end = BLOCK + blocks * BLOCK
    assert flash(board) == b"a" * BLOCK + b"\xff" * blocks * BLOCK + b"a" * (65536 - end)


# Pages of 256 bytes: (offset, bytes) and how many of them are touched.
@pytest.mark.parametrize(
    "offset, size, pages", [(0, 1, 1), (0, 256, 1), (0, 257, 2), (250, 1000, 5), (512, 1024, 4)]
)
def test_each_page_takes_its_time_to_program(board, probe, offset, size, pages):
    board.set("/dev/mtd1", "page_us", "10000")
    board.path("media/mtd1.bin").write_bytes(b"\xff" * 65536)
    steps = f"open /dev/mtd1 rdwr; lseek {offset} set; now; write 5a*{size}; now"
    assert times(board, probe, steps) == (
        ["0.000", f"{pages * 0.01:.3f}"],
        ["3", str(offset), str(size)],
    )
    assert flash(board) == b"\xff" * offset + b"Z" * size + b"\xff" * (65536 - offset - size)


def test_nand_programs_its_own_pages_and_their_spare_bytes(nand, one_probe):
    steps = "open /dev/mtd2 rdwr; now; write 00*1024; now; read 512; now"
    assert times(nand, one_probe, steps)[0] == ["0.000", "0.600", "0.600"]


def test_a_worn_block_takes_its_time_and_a_bad_one_does_not(nand, one_probe):
    nand.set("/dev/mtd2", "worn_blocks", "1")
    nand.set("/dev/mtd2", "bad_blocks", "2")
    steps = "open /dev/mtd2 rdwr; now; " + "; ".join(
        f"ioctl {ERASE} {extent(block * 8192, 8192)}; now" for block in (1, 2)
    )
    assert times(nand, one_probe, steps) == (["0.000", "2.000", "2.000"], ["3", "EIO", "EIO"])


def test_a_refused_request_takes_no_time(board, probe):
    board.set("/dev/mtd1", "erase_ms", "300")
    steps = (
        f"open /dev/mtd1 rdwr; now; ioctl {ERASE} {extent(1, BLOCK)}; ioctl {GET_INFO} 00*32; now"
    )
    assert times(board, probe, steps) == (["0.000", "0.000"], ["3", "EINVAL", "0"])


def test_time_passes_at_a_fixed_speed(board, one_probe):
    board.set("/dev/mtd1", "erase_ms", "4000")
    steps = f"open /dev/mtd1 rdwr; now; ioctl {ERASE} {extent(0, BLOCK)}; now"
    shown, results = times(board, one_probe, steps, speed="20")
    assert results == ["3", "0"]
    assert 4.0 <= float(shown[1]) < 60


def test_traces_and_stories_show_the_call_alone(board, one_probe):
    board.set("/dev/mtd1", "erase_ms", "300")
    board.set("/dev/mtd1", "page_us", "1000")
    board.set("/dev/mtd1", "byte_us", "100")
    steps = f"open /dev/mtd1 rdwr; ioctl {ERASE} {extent(0, BLOCK)}; write 00*512; read 2; close"
    run = run_steps(board, one_probe, steps, story=True)
    assert lines(run)[1].startswith("ioctl 0")
    expected = [
        "open /dev/mtd1 RDWR = 3",
        "ioctl /dev/mtd1 MEMERASE in=00*5.100000 = 0",
        "write /dev/mtd1 in=00*512 = 512",
        f"read /dev/mtd1 out={flash(board)[512:514].hex()} = 2",
        "close /dev/mtd1 = 0",
    ]
    assert run.requests == expected
    assert [one for one in run.story if not one.startswith("out ")] == expected
    # The line of a request has the time at which it began. 51.2 ms on the line, two pages of 1 ms.
    assert [round(when, 4) for when, _ in run.trace] == [0, 0, 0.3, 0.3534, 0.3534]


# --- what happens meanwhile ---------------------------------------------------------------------------


def test_a_signal_comes_when_the_request_is_over(board, probe):
    board.set("/dev/mtd1", "erase_ms", "300")
    board.path("media/mtd1.bin").write_bytes(b"a" * 65536)
    steps = (
        f"catch ALRM; open /dev/mtd1 rdwr; now; ioctl {ERASE} {extent(0, 2 * BLOCK)}; now; caught"
    )
    got = lines(run_steps(board, probe, steps, signals=["ALRM@0.1"]))
    assert got[2:] == ["now 0.000", f"ioctl 0 {extent(0, 2 * BLOCK)}", "now 0.600", "caught 1"]


@pytest.mark.parametrize("speed", ["max", "20"])
def test_a_signal_that_ends_the_program_leaves_whole_blocks(board, one_probe, speed):
    board.set("/dev/mtd1", "erase_ms", "10000")
    board.path("media/mtd1.bin").write_bytes(b"a" * 65536)
    steps = f"open /dev/mtd1 rdwr; ioctl {ERASE} {extent(0, 2 * BLOCK)}; now"
    run = run_steps(board, one_probe, steps, signals=["TERM@12"], speed=speed)
    assert (run.status, run.stdout) == (128 + 15, b"open 3\n")
    assert flash(board) == b"\xff" * 2 * BLOCK + b"a" * (65536 - 2 * BLOCK)
    assert run.requests[1] == "ioctl /dev/mtd1 MEMERASE in=00*5.200000 = 0"


@pytest.mark.parametrize("call", [f"ioctl {ERASE} {extent(0, BLOCK)}", "write 00", "read 1"])
def test_signals_come_through_again_after_the_call(board, one_probe, call):
    board.set("/dev/mtd1", "erase_ms", "300")
    board.set("/dev/mtd1", "byte_us", "1000")
    steps = f"open /dev/mtd1 rdwr; {call}; sleep 5; now"
    run = run_steps(board, one_probe, steps, signals=["TERM@1"])
    assert (run.status, b"now" in run.stdout) == (128 + 15, False)
    assert run.requests[-1] == "sleep 5.000000"


def test_the_watchdog_bites_while_flash_is_erased(board, one_probe):
    board.set("/dev/watchdog", "timeout_s", "10")
    board.set("/dev/mtd1", "erase_ms", "3000")
    board.path("media/mtd1.bin").write_bytes(b"a" * 65536)
    steps = f"open /dev/watchdog wronly; open /dev/mtd1 rdwr; ioctl {ERASE} {extent(0, 65536)}; now"
    run = run_steps(board, one_probe, steps)
    assert (run.status, run.stdout) == (80, b"open 3\nopen 4\n")
    # Three blocks in 9 s, and half of the fourth.
    erased = 3 * BLOCK + BLOCK // 2
    assert flash(board) == b"\xff" * erased + b"a" * (65536 - erased)


def shell(board, text):
    """Processes side by side have one clock at a fixed speed."""
    return board.run_command(["sh", "-c", text], speed="20")


def test_other_devices_go_on_meanwhile(board, one_probe):
    board.set("/dev/mtd1", "erase_ms", "40000")
    erase = f"{one_probe} open /dev/mtd1 rdwr ioctl {ERASE} {extent(0, BLOCK)}"
    run = shell(board, f"{erase} & sleep 10; cat {BRIGHTNESS}; wait")
    assert run.status == 0
    order = [one.split()[0:2] for one in run.requests if one.split()[0] in ("read", "ioctl")]
    assert order == [["read", BRIGHTNESS]] * 2 + [["ioctl", "/dev/mtd1"]]


def test_whoever_calls_the_same_device_waits_for_it(board, one_probe):
    board.set("/dev/mtd1", "erase_ms", "40000")
    board.path("media/mtd1.bin").write_bytes(b"a" * 65536)
    begin = f"{one_probe} open /dev/mtd1 rdwr"
    later = [
        f"{begin} lseek 4088 set read 16",
        f"{begin} lseek 5000 set now write 00 now",
        f"{begin} now ioctl {GET_INFO} 00*32 now",
    ]
    erase = f"{begin} ioctl {ERASE} {extent(0, BLOCK)}"
    run = shell(board, f"{erase} & sleep 10; {' & '.join(later)} & wait")
    assert run.status == 0
    printed = run.stdout.decode().splitlines()
    assert "read 16 " + "ff" * 8 + "61" * 8 in printed
    waits = [float(one.split()[1]) for one in printed if one.startswith("now ")]
    assert len(waits) == 4 and sum(one > 10 for one in waits) == 2


# --- bytes on a line ----------------------------------------------------------------------------------


def test_bytes_take_their_time_both_ways(line, probe):
    steps = "open /dev/line rdwr; now; write 5a*700; now; lseek 0 set; read 70; now"
    assert times(line, probe, steps)[0] == ["0.000", "0.700", "0.770"]
    assert line.path("media/line.bin").read_bytes()[:701] == b"Z" * 700 + b"\0"


def test_bytes_for_a_place_arrive_there(line, one_probe):
    steps = "open /dev/line rdwr; now; pwrite 5a*1100 100; now; lseek 0 cur"
    assert times(line, one_probe, steps) == (["0.000", "1.100"], ["3", "1100", "0"])
    assert line.path("media/line.bin").read_bytes() == bytes(100) + b"Z" * 1100 + bytes(2896)


def test_the_time_of_a_byte_may_have_decimals(line, one_probe):
    line.set("/dev/line", "byte_us", "86.8")
    assert times(line, one_probe, "open /dev/line rdwr; now; write 00*1000; now")[0][1] == "0.087"


def test_requests_take_no_time_of_the_line(board, one_probe):
    board.set("/dev/mtd1", "byte_us", "1000")
    steps = f"open /dev/mtd1 rdwr; now; ioctl {GET_INFO} 00*32; now; write 00*100; now"
    assert times(board, one_probe, steps)[0] == ["0.000", "0.000", "0.100"]


def test_a_read_past_the_end_takes_no_time(line, one_probe):
    steps = "open /dev/line rdwr; lseek 4090 set; now; read 100; now; read 100; now"
    assert times(line, one_probe, steps)[0] == ["0.000", "0.006", "0.006"]


def test_a_signal_that_ends_the_program_leaves_whole_sectors(line, one_probe):
    run = run_steps(line, one_probe, "open /dev/line rdwr; write 5a*2048", signals=["TERM@1.3"])
    assert run.status == 128 + 15
    # It comes in the third: 1.024 s to 1.536 s.
    assert line.path("media/line.bin").read_bytes() == b"Z" * 1536 + bytes(2560)


def test_a_time_that_makes_no_sense_is_found(board, build):
    for key, value in (("byte_us", "-1"), ("erase_ms", "-1"), ("page_us", "1000000001")):
        with open(board.path("dev/mtd1"), "a", encoding="utf-8") as node:
            node.write(f"{key} = {value}\n")
    done = board.run_command([build / "bin/vboard", "check", board.directory], speed="1")
    assert done.status == 1
    assert [one.split(": ")[1] for one in done.stdout.decode().splitlines()] == [
        "byte_us",
        "erase_ms",
        "page_us",
    ]
