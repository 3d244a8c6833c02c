"""The virtual board's devices as any program sees them: descriptors, nodes, directories, traces."""

import struct

import pytest

from conftest import word_size

from device_trace import calls
from probes import lines, one_probe, probe, run_steps

LCD_CMD = "0x40044C80"
LCD_DATA = "0x40044C81"
READ_CARD = "0x40044901"
WRITE_CARD = "0x40044902"
BUZZER = "/sys/class/leds/buzzer/brightness"

SETOPTIONS = "0x80045704"
SETTIMEOUT = "0xC0045706"
DISABLE = "01000000"


# --- descriptors ------------------------------------------------------------------------------------


def test_the_first_node_gets_descriptor_3_and_the_number_is_free_again_after_close(board, probe):
    assert lines(
        run_steps(
            board,
            probe,
            "open /dev/lcd rdwr; open /dev/rtc0 rdwr; fd 3; close; " "open /dev/iccard rdwr",
        )
    ) == ["open 3", "open 4", "close 0", "open 3"]


def test_a_closed_descriptor_is_none(board, probe):
    assert lines(
        run_steps(
            board, probe, f"open /dev/lcd rdwr; close; close; write 00; ioctl {LCD_CMD} 00; fstat"
        )
    ) == ["open 3", "close 0", "close EBADF", "write EBADF", "ioctl EBADF", "fstat EBADF"]


@pytest.mark.parametrize("copy", [["dup"], ["dup2", "9"], ["fcntl_dup", "20"]])
def test_a_copy_of_a_descriptor_is_the_same_device(board, probe, copy):
    run = board.run_command(
        [
            probe,
            "open",
            "/dev/iccard",
            "rdwr",
            *copy,
            "ioctl",
            WRITE_CARD,
            "44*256",
            "fd",
            "3",
            "close",
            "dup2",
            "30",
        ]
    )
    assert lines(run)[2].startswith("ioctl 0 ")
    number = lines(run)[1].split()[1]
    again = board.run_command(
        [
            probe,
            "open",
            "/dev/iccard",
            "rdwr",
            *copy,
            "fd",
            "3",
            "close",
            "fd",
            number,
            "ioctl",
            READ_CARD,
            "00*256",
            "close",
            "ioctl",
            READ_CARD,
            "00*256",
        ]
    )
    assert lines(again)[3:] == ["ioctl 0 " + "44" * 256, "close 0", "ioctl EBADF"]


def test_dup2_over_a_node_closes_it(board, probe):
    run = run_steps(
        board,
        probe,
        f"open /dev/lcd rdwr; open /dev/null rdwr; dup2 3; ioctl {LCD_CMD} 00; " "write 00*9",
    )
    assert lines(run)[2:] == ["dup2 3", "ioctl ENOTTY", "write 9"]


def test_a_child_has_its_parent_s_descriptors(board, probe):
    run = run_steps(
        board,
        probe,
        f"open /dev/iccard rdwr; fork; ioctl {WRITE_CARD} 77*256; close; join; "
        f"ioctl {READ_CARD} 00*256",
    )
    assert lines(run)[-1] == "ioctl 0 " + "77" * 256


def test_a_command_that_is_executed_is_on_the_board_too(board, one_probe):
    run = board.run_command(
        [one_probe, "exec", f"{one_probe} access /dev/lcd f access /dev/port f"]
    )
    assert lines(run) == ["access 0", "access ENOENT"]


def test_commands_of_system_and_popen_are_on_the_board_too(board, one_probe):
    run = board.run_command(
        [
            one_probe,
            "popen",
            f"{one_probe} access /dev/lcd f",
            "system",
            f"{one_probe} open /dev/iccard rdwr ioctl {WRITE_CARD} '33*256' >&2",
        ]
    )
    assert run.stdout == b"popen access 0\nsystem 0\n"
    assert board.run("bt1", "iccard", "-r").stdout.endswith(b"51    " * 256)


def test_a_read_only_descriptor_does_not_write(board, probe):
    assert lines(run_steps(board, probe, "open /dev/lcd rdonly; write ff*1024")) == [
        "open 3",
        "write EBADF",
    ]
    assert board.path("media/lcd.frame").read_bytes() == bytes(1024)


# --- requests -----------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "node", ["/dev/lcd", "/dev/iccard", "/dev/gyro", "/dev/rtc0", "/dev/watchdog"]
)
def test_an_unknown_request_is_enotty(board, probe, node):
    # The second one asks whether this is a terminal.
    run = run_steps(
        board, probe, f"open {node} rdwr; ioctl 0x40041234 00*64; ioctl 0x5401 00*64; text V"
    )
    assert lines(run)[:3] == ["open 3", "ioctl ENOTTY", "ioctl ENOTTY"]


@pytest.mark.parametrize(
    "node, request_number, address",
    [
        ("/dev/lcd", LCD_CMD, "bad"),
        ("/dev/lcd", LCD_CMD, "null"),
        ("/dev/iccard", WRITE_CARD, "bad"),
        ("/dev/iccard", READ_CARD, "bad"),
        ("/dev/iccard", READ_CARD, "null"),
        ("/dev/iccard", READ_CARD, "readonly"),
        ("/dev/gyro", "0x80045901", "bad"),
        ("/dev/gyro", "0x80045901", "readonly"),
        ("/dev/rtc0", "0x80247009", "bad"),
    ],
)
def test_a_bad_pointer_is_efault(board, probe, node, request_number, address):
    run = run_steps(
        board,
        probe,
        f"open {node} rdwr; ioctl {request_number} {address}; " f"ioctl {request_number} 00*256",
    )
    assert lines(run)[1] == "ioctl EFAULT"
    assert lines(run)[2].startswith("ioctl 0 ")


# SG_IO, HDIO_DRIVE_CMD, HDIO_DRIVE_TASK, BLKGETSIZE64
@pytest.mark.parametrize("request_number", ["0x2285", "0x031f", "0x031e", "0x80081272"])
@pytest.mark.parametrize("address", ["null", "bad", "readonly"])
def test_a_bad_pointer_of_a_disk_s_request_is_efault(board, probe, request_number, address):
    if word_size() == 4 and request_number == "0x80081272":
        request_number = "0x80041272"
    run = run_steps(board, probe, f"open /dev/sda rdwr; ioctl {request_number} {address}")
    zeros = address == "readonly" and request_number in ("0x2285", "0x031e")
    # A page of zeros that cannot be written is a header of no kind, and a command that is refused.
    assert lines(run)[1] in (["ioctl ENOSYS", "ioctl EFAULT"] if zeros else ["ioctl EFAULT"])


def test_a_short_sample_fits_where_a_long_buffer_is_cut_off(board, probe):
    # The kernel gives what there is: the hole behind it is not touched.
    run = run_steps(board, probe, "open /dev/gyro rdwr; edge_read 4096 100; edge_read 4096 28")
    assert [line.split()[:2] for line in lines(run)[1:]] == [["edge_read", "28"]] * 2
    run = run_steps(board, probe, "open /dev/gyro rdwr; edge_read 28 27; edge_read 28 28")
    assert lines(run)[1] == "edge_read EFAULT"


@pytest.mark.parametrize("node", ["/dev/lcd", "/dev/watchdog", "/dev/mtd1"])
def test_a_write_from_a_buffer_with_a_hole_is_efault(board, probe, node):
    run = run_steps(board, probe, f"open {node} rdwr; edge_write 300 100; text x; text V; close")
    assert lines(run)[0] == "open 3"
    # Flash may have taken the page before the hole.
    assert lines(run)[1] == "edge_write EFAULT"
    assert lines(run)[3] in ("text 0", "text 1")


def test_flash_keeps_what_came_before_a_hole(board, probe):
    run = run_steps(board, probe, "open /dev/mtd1 rdwr; edge_write 4000 1024; lseek 0 cur")
    # In pieces of 512 bytes, of which two were whole.
    assert lines(run)[1:] == ["edge_write 1024", "lseek 1024"]


def test_a_large_buffer_is_not_touched_beyond_the_answer(board, one_probe):
    run = run_steps(board, one_probe, "open /dev/gyro rdwr; roomy_read 268435456")
    assert lines(run)[1] == "roomy_read 28"
    assert lines(run)[2] in ("pages 0", "pages 1")


@pytest.mark.parametrize(
    "node, request_number, size",
    [
        ("/dev/lcd", LCD_CMD, 1),
        ("/dev/lcd", LCD_DATA, 1),
        ("/dev/iccard", READ_CARD, 256),
        ("/dev/gyro", "0x80045901", 36),
        ("/dev/gyro", "0x80045905", 20),
        ("/dev/rtc0", "0x80247009", 36),
    ],
)
def test_a_request_touches_its_record_and_nothing_behind_it(
    board, probe, node, request_number, size
):
    run = run_steps(board, probe, f"open {node} rdwr; ioctl {request_number} 00*{size}")
    # The probe says so when bytes behind the record change.
    assert len(lines(run)) == 2
    assert lines(run)[1].startswith("ioctl 0 ")


def test_a_request_number_is_taken_by_its_low_32_bits(board, probe):
    # A number above 0x7FFFFFFF that passed through an int arrives with its sign extended.
    run = run_steps(board, probe, "open /dev/gyro rdwr; ioctl 0xFFFFFFFF80045901 00*36")
    assert lines(run)[1].startswith("ioctl 0 " + b"GYRO_LSM6DS3TR".hex())


# --- nodes and directories ----------------------------------------------------------------------------

PASSED_THROUGH = {
    "null",
    "zero",
    "full",
    "random",
    "urandom",
    "tty",
    "stdin",
    "stdout",
    "stderr",
    "fd",
    "pts",
    "shm",
}


@pytest.mark.parametrize("list_step", ["list", "scandir"])
def test_dev_lists_the_board_s_nodes_and_no_others(board, probe, list_step):
    names = set(lines(board.run_command([probe, list_step, "/dev"]))[0].split()[1:])
    nodes = {path.name for path in board.path("dev").iterdir()}
    assert {"lcd", "iccard", "gyro", "rtc0", "watchdog"} <= nodes
    assert names - PASSED_THROUGH == nodes


def test_a_node_exists_because_its_file_does(board, probe):
    board.path("dev/lcd2").write_text(board.path("dev/lcd").read_text())
    board.path("dev/rtc0").unlink()
    run = run_steps(
        board, probe, "open /dev/lcd2 rdwr; write 00*4; open /dev/rtc0 rdwr; glob /dev/lcd*"
    )
    assert lines(run) == ["open 3", "write 0", "open ENOENT", "glob 0 /dev/lcd /dev/lcd2"]


def test_a_node_is_a_character_device(board, probe):
    run = run_steps(
        board,
        probe,
        "stat /dev/lcd; lstat /dev/lcd; open /dev/lcd rdwr; fstat; stat /dev; "
        f"stat {BUZZER}; stat /sys/class/leds",
    )
    assert lines(run) == [
        "stat character",
        "lstat character",
        "open 3",
        "fstat character",
        "stat directory",
        "stat file",
        "stat directory",
    ]


@pytest.mark.parametrize(
    "path", ["/dev//lcd", "/dev/./lcd", "/dev/../dev/lcd", "//dev/lcd", "/sys/../dev/lcd"]
)
def test_a_node_is_found_however_its_path_is_written(board, probe, path):
    assert lines(run_steps(board, probe, f"open {path} rdwr; write 00")) == ["open 3", "write 0"]


def test_a_relative_path_reaches_the_board_from_its_directory(board, one_probe):
    run = run_steps(board, one_probe, "chdir /dev; open lcd rdwr; write 00; open port rdonly")
    assert lines(run) == ["chdir 0", "open 3", "write 0", "open ENOENT"]


def test_a_node_cannot_be_created(board, probe):
    run = run_steps(board, probe, "open /dev/new rdwr,creat")
    assert lines(run)[0] in ("open ENOENT", "open EACCES", "open EPERM", "open EROFS")
    assert not board.path("dev/new").exists()


# --- streams --------------------------------------------------------------------------------------------


def test_a_stream_on_a_node_writes_to_the_device(board, probe):
    board.set("/dev/lcd", "returns", "count")
    assert lines(run_steps(board, probe, "fopen /dev/lcd r+; fwrite ff*1024; fflush; fclose")) == [
        "fopen 0",
        "fwrite 1024",
        "fflush 0",
        "fclose 0",
    ]
    assert board.path("media/lcd.frame").read_bytes() == b"\xff" * 1024


def test_a_stream_on_an_attribute_reads_and_writes(board, probe):
    assert lines(
        board.run_command(
            [
                probe,
                "fopen",
                BUZZER,
                "w",
                "fputs",
                "1\n",
                "fclose",
                "fopen",
                BUZZER,
                "r",
                "fgets",
                "fgets",
                "fclose",
            ]
        )
    ) == ["fopen 0", "fputs 0", "fclose 0", "fopen 0", "fgets 1", "fgets end", "fclose 0"]
    assert board.path(BUZZER[1:]).read_text() == "1\n"


def test_a_stream_has_a_descriptor_with_the_model_behind_it(board, probe):
    run = run_steps(board, probe, f"fopen /dev/iccard r+; fileno; ioctl {READ_CARD} 00*256")
    # A stream without a descriptor is what fopencookie makes; then the request cannot be sent at all.
    assert lines(run)[0] == "fopen 0"
    assert lines(run)[1] == "fileno 0"
    assert lines(run)[2].startswith("ioctl 0 ")


# --- attributes -----------------------------------------------------------------------------------------


def test_an_attribute_keeps_one_line_whatever_is_written(board, probe):
    run = run_steps(
        board, probe, f"open {BUZZER} rdwr; text 255; lseek 0 set; text 1; lseek 0 set; read 16"
    )
    assert lines(run)[-1] == "read 2 310a"
    assert board.path(BUZZER[1:]).read_text() == "1\n"


def test_opening_an_attribute_does_not_empty_it(board, probe):
    # sysfs has no length to cut: a program that truncates and writes nothing changes nothing.
    board.set(BUZZER, "1")
    assert lines(
        run_steps(board, probe, f"open {BUZZER} wronly,trunc; close; creat {BUZZER}; close")
    ) == ["open 3", "close 0", "creat 3", "close 0"]
    assert board.path(BUZZER[1:]).read_text() == "1\n"


def test_the_bench_plug_loops_the_alarm_output_back_to_the_inputs(board, probe):
    output = "/sys/class/gpio/gpio48/value"
    inputs = [f"/sys/class/gpio/gpio{number}/value" for number in range(40, 48)]
    for level in ("1", "0"):
        steps = ["open", output, "wronly", "text", level, "close"]
        for path in inputs:
            steps += ["open", path, "rdonly", "read", "8", "close"]
        seen = [
            line for line in lines(board.run_command([probe, *steps])) if line.startswith("read")
        ]
        assert len(set(seen)) == 1 and len(seen) == 8
        assert seen[0] in ("read 2 310a", "read 2 300a")
        for path in inputs:
            assert board.path(path[1:]).read_text() in ("0\n", "1\n")


def test_a_wire_that_is_cut_carries_nothing(board, probe):
    wires = board.path("sys.wires")
    kept = [line for line in wires.read_text().splitlines() if "gpio41" not in line]
    wires.write_text("\n".join(kept) + "\n")
    before = board.path("sys/class/gpio/gpio41/value").read_text()
    for level in ("1", "0"):
        run_steps(board, probe, f"open /sys/class/gpio/gpio48/value wronly; text {level}; close")
        assert board.path("sys/class/gpio/gpio41/value").read_text() == before


# --- media ------------------------------------------------------------------------------------------------


def test_flash_is_read_and_mapped_where_it_is_asked_for(board, probe):
    medium = board.path("media/mtd1.bin")
    data = bytearray(medium.read_bytes())
    data[4096:4104] = b"FLASHED!"
    medium.write_bytes(data)
    run = run_steps(
        board, probe, "open /dev/mtd1 rdonly; pread 8 4096; lseek 4096 set; read 8; read 4"
    )
    marked = b"FLASHED!".hex()
    assert lines(run)[1:4] == ["pread 8 " + marked, "lseek 4096", "read 8 " + marked]


# --- network interfaces -----------------------------------------------------------------------------------


def test_an_interface_has_the_address_of_its_file(board, one_probe):
    ask = [one_probe, "socket", "inet", "dgram", "interface_address", "ppp0"]
    board.set("net/ppp0", "ipv4", "10.64.0.77")
    assert lines(board.run_command(ask)) == ["socket 3", "interface_address 10.64.0.77"]
    board.set("net/ppp0", "ipv4", "")
    assert lines(board.run_command(ask)) == ["socket 3", "interface_address EADDRNOTAVAIL"]
    board.path("net/ppp0").unlink()
    assert lines(board.run_command(ask)) == ["socket 3", "interface_address ENODEV"]


# --- traces -----------------------------------------------------------------------------------------------


def test_trace_has_a_line_for_each_call_on_the_board_and_none_for_the_pc_s(
    board, one_probe, tmp_path
):
    run = board.run_command(
        [
            one_probe,
            "open",
            "/dev/lcd",
            "rdwr",
            "ioctl",
            LCD_CMD,
            "e2",
            "write",
            "ff*1024",
            "close",
            "open",
            "/dev/none",
            "rdwr",
            "open",
            tmp_path / "file",
            "wronly,creat",
            "write",
            "00*9",
            "close",
            "open",
            "/dev/zero",
            "rdonly",
            "read",
            "4",
            "close",
            "open",
            "/dev/iccard",
            "rdonly",
            "ioctl",
            READ_CARD,
            "00*256",
            "sleep",
            "3",
        ]
    )
    assert run.status == 0
    assert calls(run) == [
        "open /dev/lcd RDWR = 3",
        "ioctl /dev/lcd LCD_SET_CMD_WRITE in=e2 = 0",
        "write /dev/lcd in=ff*1024 = 0",
        "close /dev/lcd = 0",
        "open /dev/none RDWR = ENOENT",
        "open /dev/iccard RDONLY = 3",
        "ioctl /dev/iccard HAL_ICCARD_READ out=00*256 = 0",
        "sleep 3.000000",
    ]
    assert run.trace[-1][0] < 4


def test_trace_writes_the_bytes_of_a_request_both_ways(board, one_probe):
    run = run_steps(
        board,
        one_probe,
        f"open /dev/watchdog rdwr; ioctl {SETTIMEOUT} 0a000000; "
        f"ioctl {SETOPTIONS} {DISABLE}; text V; close",
    )
    assert lines(run)[1] == "ioctl 0 0a000000"
    assert calls(run)[:3] == [
        "open /dev/watchdog RDWR = 3",
        "ioctl /dev/watchdog WDIOC_SETTIMEOUT in=0a000000 out=0a000000 = 0",
        "ioctl /dev/watchdog WDIOC_SETOPTIONS in=01000000 = 0",
    ]


def test_trace_shows_a_run_of_equal_bytes_shortened(board, one_probe):
    data = "00*250.07.00*5"
    run = run_steps(board, one_probe, f"open /dev/iccard rdwr; ioctl {WRITE_CARD} {data}")
    assert f"in={data} = 0" in run.requests[1]


def test_trace_of_a_board_without_calls_is_empty(board):
    run = board.run_command(["true"])
    assert run.requests == []


# --- the calendar clock -----------------------------------------------------------------------------------


def clock_record(second, minute, hour, day, month, year):
    return struct.pack("<6i", second, minute, hour, day, month - 1, year - 1900).hex()


def test_the_clock_tells_the_board_s_date_and_goes_on(board, one_probe):
    run = run_steps(
        board,
        one_probe,
        "open /dev/rtc0 rdwr; ioctl 0x80247009 00*36; sleep 57; " "ioctl 0x80247009 00*36",
        date="2024-01-05 09:05:03",
    )
    first, second = [line.split()[2] for line in lines(run) if line.startswith("ioctl 0")]
    assert first.startswith(clock_record(3, 5, 9, 5, 1, 2024))
    assert second.startswith(clock_record(0, 6, 9, 5, 1, 2024))
