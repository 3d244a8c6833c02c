"""Faults of the virtual board: each kind, on each call, and when."""

import pytest

from device_trace import calls
from probes import lines, probe, run_steps

READ_CARD = "0x40044901"
WRITE_CARD = "0x40044902"
LCD_CMD = "0x40044C80"
LCD_DATA = "0x40044C81"
BUZZER = "/sys/class/leds/buzzer/brightness"


# --- which call -----------------------------------------------------------------------------------


def test_open_fails_with_the_errno_named(board, probe):
    board.fault("/dev/lcd open errno=EBUSY")
    run = run_steps(board, probe, "open /dev/lcd rdwr; access /dev/lcd f")
    assert lines(run) == ["open EBUSY", "access 0"]
    assert run.requests == ["open /dev/lcd RDWR = EBUSY", "access /dev/lcd = 0"]


def test_open_fails_however_it_is_opened(board, probe):
    board.fault("/dev/lcd open errno=EBUSY")
    assert lines(
        run_steps(board, probe, "openat /dev lcd rdwr; creat /dev/lcd; fopen /dev/lcd r+")
    ) == ["openat EBUSY", "creat EBUSY", "fopen EBUSY"]


def test_read_fails(board, probe):
    board.fault("/dev/gyro read errno=EIO")
    run = run_steps(board, probe, "open /dev/gyro rdwr; read 28; readv 28")
    assert lines(run) == ["open 3", "read EIO", "readv EIO"]
    assert run.requests[1] == "read /dev/gyro = EIO"


def test_write_fails_and_shows_what_was_to_be_written(board, probe):
    board.fault("/dev/lcd write errno=ENOSPC")
    run = run_steps(board, probe, "open /dev/lcd rdwr; write aa*1024; writev bb*1024")
    assert lines(run) == ["open 3", "write ENOSPC", "writev ENOSPC"]
    assert calls(run)[1] == "write /dev/lcd in=aa*1024 = ENOSPC"
    assert board.path("media/lcd.frame").read_bytes() == bytes(1024)


def test_close_fails_and_the_descriptor_is_gone(board, probe):
    board.fault("/dev/lcd close errno=EIO")
    assert lines(run_steps(board, probe, "open /dev/lcd rdwr; close; read 1")) == [
        "open 3",
        "close EIO",
        "read EBADF",
    ]


def test_every_request_fails(board, probe):
    board.fault("/dev/lcd ioctl errno=EPERM")
    assert lines(
        run_steps(
            board,
            probe,
            f"open /dev/lcd rdwr; ioctl {LCD_CMD} af; ioctl {LCD_DATA} 00; " "write 00*4",
        )
    ) == ["open 3", "ioctl EPERM", "ioctl EPERM", "write 0"]


def test_one_request_fails_by_name(board, probe):
    board.fault("/dev/lcd ioctl:LCD_SET_DATA_WRITE errno=EPERM")
    run = run_steps(board, probe, f"open /dev/lcd rdwr; ioctl {LCD_CMD} af; ioctl {LCD_DATA} 00")
    assert lines(run) == ["open 3", "ioctl 0 af", "ioctl EPERM"]
    assert run.requests[2] == "ioctl /dev/lcd LCD_SET_DATA_WRITE in=00 = EPERM"


@pytest.mark.parametrize("number", ["0x40044C81", "0x40044c81"])
def test_one_request_fails_by_number(board, probe, number):
    board.fault(f"/dev/lcd ioctl:{number} errno=EPERM")
    assert lines(
        run_steps(board, probe, f"open /dev/lcd rdwr; ioctl {LCD_CMD} af; ioctl {LCD_DATA} 00")
    ) == ["open 3", "ioctl 0 af", "ioctl EPERM"]


def test_a_request_that_the_model_does_not_know_can_fail_too(board, probe):
    board.fault("/dev/lcd ioctl:0x1234 errno=EPERM nth=1")
    assert lines(
        run_steps(board, probe, "open /dev/lcd rdwr; ioctl 0x1234 00; ioctl 0x1234 00")
    ) == ["open 3", "ioctl EPERM", "ioctl ENOTTY"]


def test_mmap_fails(board, probe):
    board.fault("/dev/mtd1 mmap errno=ENODEV")
    assert lines(run_steps(board, probe, "open /dev/mtd1 rdwr; mmap 4096 0")) == [
        "open 3",
        "mmap ENODEV",
    ]


def test_socket_fails(board, probe):
    board.fault("socket socket errno=EAFNOSUPPORT")
    assert lines(run_steps(board, probe, "socket inet stream")) == ["socket EAFNOSUPPORT"]


def test_a_network_request_fails_by_interface(board, probe):
    board.fault("net:ppp0 ioctl:SIOCGIFADDR errno=EADDRNOTAVAIL nth=1")
    run = run_steps(
        board, probe, "socket inet stream; interface_address ppp0; interface_address ppp0"
    )
    assert lines(run) == [
        "socket 3",
        "interface_address EADDRNOTAVAIL",
        "interface_address 10.64.0.2",
    ]


def test_an_attribute_fails(board, probe):
    board.fault(f"{BUZZER} write errno=ENODEV")
    assert lines(run_steps(board, probe, f"open {BUZZER} wronly; text 1; close")) == [
        "open 3",
        "text ENODEV",
        "close 0",
    ]
    assert board.path(BUZZER[1:]).read_text() != "1\n"


def test_an_attribute_fails_through_a_stream(board, probe):
    board.fault(f"{BUZZER} write errno=ENODEV")
    assert lines(run_steps(board, probe, f"fopen {BUZZER} w; fputs 1; fclose")) == [
        "fopen 0",
        "fputs 0",
        "fclose ENODEV",
    ]


def test_an_attribute_is_absent(board, probe):
    board.fault(f"{BUZZER} absent")
    assert lines(
        run_steps(
            board,
            probe,
            f"open {BUZZER} rdonly; access {BUZZER} f; stat {BUZZER}; "
            f"fopen {BUZZER} r; list /sys/class/leds/buzzer",
        )
    )[:4] == ["open ENOENT", "access ENOENT", "stat ENOENT", "fopen ENOENT"]


# --- what happens ---------------------------------------------------------------------------------


def test_short_read_lets_so_many_bytes_through(board, probe):
    board.fault("/dev/gyro read short=10")
    run = run_steps(board, probe, "open /dev/gyro rdwr; read 28")
    result = lines(run)[1].split()
    assert result[:2] == ["read", "10"] and len(result[2]) == 20
    assert run.requests[-1].endswith(" = 10")


def test_short_longer_than_the_call_changes_nothing(board, probe):
    board.fault("/dev/gyro read short=100")
    assert lines(run_steps(board, probe, "open /dev/gyro rdwr; read 28"))[1].startswith("read 28 ")


def test_short_read_of_nothing_is_the_end(board, probe):
    board.fault("/dev/gyro read short=0")
    assert lines(run_steps(board, probe, "open /dev/gyro rdwr; read 28"))[1].rstrip() == "read 0"


def test_short_write_lets_so_many_bytes_through(board, probe):
    board.set("/dev/lcd", "returns", "count")
    board.fault("/dev/lcd write short=100")
    assert lines(run_steps(board, probe, "open /dev/lcd rdwr; write ff*1024"))[1] == "write 100"
    assert board.path("media/lcd.frame").read_bytes() == b"\xff" * 100 + bytes(924)


def test_result_performs_the_call_and_returns_another_value(board, probe):
    board.fault("/dev/lcd write result=77")
    board.fault("/dev/iccard ioctl:HAL_ICCARD_WRITE result=5")
    run = run_steps(
        board,
        probe,
        "open /dev/lcd rdwr; write ff*1024; open /dev/iccard rdwr; " f"ioctl {WRITE_CARD} 21*256",
    )
    assert lines(run)[1] == "write 77"
    assert lines(run)[3].startswith("ioctl 5 ")
    assert calls(run)[1] == "write /dev/lcd in=ff*1024 = 77"
    assert board.path("media/lcd.frame").read_bytes() == b"\xff" * 1024
    board.clear_faults()
    assert lines(run_steps(board, probe, f"open /dev/iccard rdwr; ioctl {READ_CARD} 00*256"))[
        1
    ] == ("ioctl 0 " + "21" * 256)


# --- when -----------------------------------------------------------------------------------------


def writes(board, probe, count):
    run = board.run_command([probe, "open", "/dev/lcd", "rdwr", *["write", "00"] * count])
    return [line.split()[1] for line in lines(run)[1:]]


def test_nth_is_the_nth_such_call_alone(board, probe):
    board.fault("/dev/lcd write errno=EIO nth=3")
    assert writes(board, probe, 5) == ["0", "0", "EIO", "0", "0"]


def test_from_is_that_call_and_all_after(board, probe):
    board.fault("/dev/lcd write errno=EIO from=3")
    assert writes(board, probe, 5) == ["0", "0", "EIO", "EIO", "EIO"]


def test_several_lines_each_count_the_calls(board, probe):
    board.fault("/dev/lcd write errno=EIO nth=2")
    board.fault("/dev/lcd write errno=ENOSPC nth=4")
    board.fault("/dev/lcd write result=9 from=5")
    assert writes(board, probe, 6) == ["0", "EIO", "0", "ENOSPC", "9", "9"]


def test_calls_are_counted_anew_in_each_process(board, probe):
    board.fault("/dev/lcd write errno=EIO nth=2")
    assert writes(board, probe, 3) == ["0", "EIO", "0"]
    assert writes(board, probe, 3) == ["0", "EIO", "0"]


def test_calls_are_counted_over_all_descriptors_of_the_process(board, probe):
    board.fault("/dev/lcd write errno=EIO nth=3")
    run = run_steps(
        board,
        probe,
        "open /dev/lcd rdwr; write 00; open /dev/lcd rdwr; write 00; write 00; fd 3; " "write 00",
    )
    assert [line.split()[1] for line in lines(run) if line.startswith("write")] == [
        "0",
        "0",
        "EIO",
        "0",
    ]


def test_requests_are_counted_by_what_the_line_names(board, probe):
    board.fault("/dev/lcd ioctl:LCD_SET_DATA_WRITE errno=EIO nth=2")
    board.fault("/dev/lcd ioctl errno=EPERM nth=5")
    steps = []
    for request in (LCD_CMD, LCD_DATA, LCD_CMD, LCD_DATA, LCD_DATA):
        steps += ["ioctl", request, "00"]
    run = board.run_command([probe, "open", "/dev/lcd", "rdwr", *steps])
    assert [line.split()[1] for line in lines(run)[1:]] == ["0", "0", "0", "EIO", "EPERM"]


def writes_over_time(board, probe, seconds):
    run = board.run_command(
        [probe, "open", "/dev/lcd", "rdwr", *["write", "00", "sleep", "1"] * seconds]
    )
    return [line.split()[1] for line in lines(run) if line.startswith("write")]


@pytest.mark.parametrize(
    "window, broken",
    [
        ("time=1.5..3.5", [2, 3]),
        ("time=..2.5", [0, 1, 2]),
        ("time=3.5..", [4, 5]),
        ("time=0.5..1.5 time=3.5..4.5", [1, 4]),
        ("time=..0.5 time=1.5..2.5 time=4.5..", [0, 2, 5]),
    ],
)
def test_time_windows_are_board_seconds_since_the_run_began(board, probe, window, broken):
    board.fault(f"/dev/lcd write errno=EIO {window}")
    # At 0 s, 1 s, ... 5 s.
    assert writes_over_time(board, probe, 6) == ["EIO" if n in broken else "0" for n in range(6)]


def test_a_line_may_have_many_windows(board, probe):
    windows = " ".join(f"time={2 * n + 0.5}..{2 * n + 1.5}" for n in range(12))
    board.fault(f"/dev/lcd write errno=EIO {windows}")
    assert writes_over_time(board, probe, 24) == ["0", "EIO"] * 12


def test_comments_and_blank_lines_say_nothing(board, probe):
    board.path("faults").write_text(
        "# broken display\n\n   \n/dev/lcd   write\terrno=EIO  nth=1 # the first\n"
        "#/dev/lcd absent\n"
    )
    assert writes(board, probe, 2) == ["EIO", "0"]


def test_another_node_s_fault_changes_nothing(board, probe):
    board.fault("/dev/lcd2 absent")
    board.fault("/dev/lc absent")
    board.fault("/dev/rtc0 write errno=EIO")
    assert writes(board, probe, 2) == ["0", "0"]


# --- absent nodes -----------------------------------------------------------------------------------


def test_an_absent_node_is_not_there_in_any_way(board, probe):
    board.fault("/dev/iccard absent")
    run = run_steps(
        board,
        probe,
        "open /dev/iccard rdwr; access /dev/iccard f; stat /dev/iccard; "
        "lstat /dev/iccard; fopen /dev/iccard r; openat /dev iccard rdwr; list /dev; "
        "scandir /dev; glob /dev/icc*",
    )
    result = lines(run)
    assert result[:6] == [
        "open ENOENT",
        "access ENOENT",
        "stat ENOENT",
        "lstat ENOENT",
        "fopen ENOENT",
        "openat ENOENT",
    ]
    assert "lcd" in result[6].split() and "iccard" not in result[6].split()
    assert "lcd" in result[7].split() and "iccard" not in result[7].split()
    assert not result[8].startswith("glob 0")


def test_a_node_goes_and_comes_back(board, probe):
    board.fault("/dev/iccard absent time=1.5..3.5")
    steps = ["access", "/dev/iccard", "f", "sleep", "1"] * 5
    run = board.run_command([probe, *steps])
    assert [line for line in lines(run) if line.startswith("access")] == [
        "access 0",
        "access 0",
        "access ENOENT",
        "access ENOENT",
        "access 0",
    ]


def test_an_open_descriptor_of_an_absent_node_answers_enodev(board, probe):
    board.fault("/dev/iccard absent time=0.5..1.5")
    ask = ["ioctl", READ_CARD, "00*256"]
    run = board.run_command(
        [
            probe,
            "open",
            "/dev/iccard",
            "rdwr",
            *ask,
            "sleep",
            "1",
            *ask,
            "sleep",
            "1",
            *ask,
            "close",
        ]
    )
    assert [line.split()[1] for line in lines(run)] == ["3", "0", "0", "ENODEV", "0", "0", "0"]


def test_a_write_to_an_absent_node_answers_enodev(board, probe):
    board.fault("/dev/lcd absent time=0.5..")
    run = run_steps(board, probe, "open /dev/lcd rdwr; sleep 1; write ff*1024; read 1")
    assert lines(run)[2:] == ["write ENODEV", "read ENODEV"]
    assert board.path("media/lcd.frame").read_bytes() == bytes(1024)
