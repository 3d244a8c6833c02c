"""Descriptors of the board in the hands of several processes: a shell's redirections, and what a program
hands on to its children."""

import subprocess
import sys
import time

import pytest

from conftest import environment


def shell(board, script, **options):
    return board.run_command(["sh", "-c", script], **{"speed": "1000", **options})


# --- redirections: the program at the other end knows nothing of the board ---


def test_an_attribute_is_written_through_its_own_rule_and_its_wires(board):
    script = "/bin/echo 7 > /sys/class/gpio/gpio48/value; cat /sys/class/gpio/gpio48/value"
    result = shell(board, f"{script}; cat /sys/class/gpio/gpio40/value")
    # A pin is high whatever number it was given, and the loop-back plug carries that on.
    assert (result.status, result.stdout, result.stderr) == (0, b"1\n1\n", b"")


def test_a_device_that_is_read_by_redirection_gives_its_samples(board):
    result = shell(
        board, "head -c 28 < /dev/gyro | od -An -v -tx1 | tr -d ' \\n' | head -c 24", speed="max"
    )
    assert result.stdout == b"000000000940" + b"0" * 12  # at rest: 1 g


def test_flash_keeps_its_size_and_its_rules_behind_a_redirection(board):
    medium = board.path("media/mtd1.bin")
    before = medium.read_bytes()
    script = "head -c 200000 /dev/zero | tr '\\0' '\\125' > /dev/mtd1"
    shell(board, script)
    after = medium.read_bytes()
    assert len(after) == len(before) == 65536
    # Programming clears bits and sets none.
    assert after == bytes(byte & 0x55 for byte in before)


def test_the_trace_and_the_faults_go_on_in_the_child(board):
    board.fault("/dev/mtd1 read errno=EIO nth=2")
    result = shell(board, "cat < /dev/mtd1 | wc -c")
    assert result.stdout == b"65536\n"
    assert [
        line.split(" out=")[0] for line in result.requests_on("/dev/mtd1") if "read" in line
    ] == [
        "read /dev/mtd1",
        "read /dev/mtd1 = EIO",
    ]


def test_a_redirected_standard_error_reaches_the_device(board):
    buzzer = "/sys/class/leds/buzzer/brightness"
    result = shell(board, f"ls /nowhere 2> {buzzer}")
    assert any(line.startswith("write") for line in result.requests_on(buzzer))


def test_a_file_of_the_board_is_traced_behind_a_redirection(board):
    result = shell(board, "cat < /proc/version | wc -l")
    assert result.stdout == b"1\n"
    assert any(line.startswith("read") for line in result.requests_on("/proc/version"))


def test_the_medium_is_never_in_the_hands_of_a_child(board):
    script = "exec 3<> /dev/mtd1 4< /sys/class/leds/buzzer/brightness; ls -l /proc/self/fd"
    lines = shell(board, script).stdout.decode().splitlines()
    links = dict(line.split()[-3::2] for line in lines if " -> " in line)
    assert (links["3"], links["4"]) == ("/dev/mtd1", "/sys/class/leds/buzzer/brightness")
    # What the board's own part of the process has is beyond the numbers that a program gets.
    low = [link for number, link in links.items() if int(number) < 500]
    assert not [link for link in low if link.startswith(str(board.directory))]


def test_a_command_that_is_started_in_a_folder_of_the_board_is_on_the_board(board):
    board.path("media/mtd1.bin").write_bytes(b"0123456789abcdef".ljust(65536, b"\xff"))
    run = shell(board, "cd /dev; head -c 4 mtd1; cat < mtd1 | head -c 2")
    assert run.stdout == b"012301"
    assert shell(board, "cd /dev && pwd -P && ls -d mtd1").stdout == b"/dev\nmtd1\n"


def test_flash_that_is_truncated_on_opening_keeps_its_size(board):
    shell(board, ": > /dev/mtd1; truncate -s 10 /dev/mtd1")
    assert board.path("media/mtd1.bin").stat().st_size == 65536


# --- one open file, several processes ---


def test_the_position_is_shared(board):
    board.path("media/mtd1.bin").write_bytes(b"0123456789abcdef".ljust(65536, b"\xff"))
    script = "(head -c 4; head -c 4) < /dev/mtd1"
    assert shell(board, script).stdout == b"01234567"


def test_a_position_that_a_child_moves_is_moved_for_all(board):
    board.path("media/mtd1.bin").write_bytes(b"0123456789abcdef".ljust(65536, b"\xff"))
    script = "exec 3< /dev/mtd1; head -c 6 <&3; head -c 2 <&3"
    assert shell(board, script).stdout == b"01234567"


def test_a_device_is_closed_with_its_last_descriptor(board):
    # The watchdog's close disarms it after a 'V'; while a child has the descriptor it is not closed.
    board.set("/dev/watchdog", "timeout_s", "2")
    script = "exec 3> /dev/watchdog; printf V >&3; sleep 4 & exec 3>&-; wait"
    result = shell(board, script, speed="max")
    assert (result.status, result.stderr) == (80, b"board reset\n")


def test_a_device_that_every_process_has_closed_is_closed(board):
    board.set("/dev/watchdog", "timeout_s", "2")
    script = "exec 3> /dev/watchdog; printf V >&3; (sleep 1); exec 3>&-; sleep 4; echo on"
    result = shell(board, script, speed="max")
    assert (result.status, result.stdout) == (0, b"on\n")


def test_a_claim_goes_with_the_descriptor_to_the_child(board):
    script = "exec 3< /dev/rtc0; sh -c 'cat < /dev/rtc0'; exec 3<&-; exec 4< /dev/rtc0 && echo free"
    result = shell(board, script)
    assert result.stdout == b"free\n"
    assert b"busy" in result.stderr.lower()


def test_a_claim_is_kept_by_a_program_that_takes_the_shell_s_place(board):
    script = "exec 3< /dev/rtc0; exec sh -c 'sh -c \": < /dev/rtc0\"'"
    result = shell(board, script)
    assert b"busy" in result.stderr.lower()


def test_a_failed_exec_leaves_the_device_open(board):
    script = "exec 3> /dev/watchdog; command /nowhere 2>/dev/null; printf V >&3; exec 3>&-; echo on"
    result = shell(board, script)
    assert result.stdout == b"on\n"
    assert "write /dev/watchdog in=56 = 1" in result.requests_on("/dev/watchdog")


@pytest.mark.parametrize("count", [1100])
def test_open_files_are_given_back(board, count):
    # More than a run has room for at once.
    script = (
        f"i=0; while [ $i -lt {count} ]; do : < /dev/iccard || exit 9; i=$((i+1)); done; echo ok"
    )
    assert shell(board, script).stdout == b"ok\n"


def test_killed_processes_give_their_open_files_back(board):
    script = """
i=0
while [ $i -lt 30 ]; do
  sh -c 'exec 3< /dev/iccard 4< /dev/mtd1; kill -9 $$' 2> /dev/null
  i=$((i+1))
done
cat < /dev/mtd1 | wc -c"""
    assert shell(board, script).stdout == b"65536\n"


# --- a board in use ---


def started(board, script):
    process = subprocess.Popen(
        [board.build / "bin/vboard", "run", "--board", board.directory, "--", "sh", "-c", script],
        env=environment(),
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
    )
    assert process.stdout.readline() == b"open\n"
    return process


def ended(process):
    time.sleep(0.05)
    output, _ = process.communicate(b"go on\n", timeout=30)
    return output


READ_TWICE = "exec 3< /dev/mtd1; echo open; read word; head -c 4 <&3 || echo failed"


def test_a_fault_that_is_added_reaches_the_descriptors_that_are_open(board):
    process = started(board, READ_TWICE)
    board.vboard("fault", board.directory, "add", "/dev/mtd1", "read", "errno=EIO")
    assert b"failed\n" in ended(process)


def test_a_device_that_goes_away_is_gone_for_open_descriptors(board):
    process = started(board, READ_TWICE)
    board.vboard("fault", board.directory, "add", "/dev/mtd1", "absent")
    assert b"No such device" in ended(process)


def test_a_setting_that_is_changed_reaches_the_descriptors_that_are_open(board):
    board.path("media/mtd1.bin").write_bytes(b"\xff" * 65536)
    script = "exec 3> /dev/mtd1; echo open; read word; printf abcd >&3 || echo failed"
    process = started(board, script)
    for key in ("locks", "protected"):
        board.set("/dev/mtd1", key, "1")
    assert b"failed\n" in ended(process)
    assert board.path("media/mtd1.bin").read_bytes() == b"\xff" * 65536


# --- exec() ---


@pytest.mark.parametrize("flag, status", [("os.O_CLOEXEC", 0), ("0", 80)])
def test_exec_closes_what_it_is_asked_to_close(board, flag, status):
    # The watchdog is stopped by its close, which exec() brings about, or does not.
    board.set("/dev/watchdog", "timeout_s", "2")
    script = f"""
import os
fd = os.open("/dev/watchdog", os.O_WRONLY | {flag})
os.set_inheritable(fd, not {flag})
os.write(fd, b"V")
os.execv("/bin/sleep", ["sleep", "4"])
"""
    run = board.run_command([sys.executable, "-S", "-c", script])
    assert (run.status, run.stderr) == (status, b"board reset\n" if status else b"")


@pytest.mark.parametrize("repeat", range(10))
def test_a_close_beside_an_exec_does_not_count_as_the_last(board, repeat):
    board.set("/dev/watchdog", "timeout_s", "2")
    script = "exec 3> /dev/watchdog; printf V >&3; sleep 4 & exec 3>&-; wait"
    run = shell(board, script, speed="max")
    assert (run.status, run.stderr) == (80, b"board reset\n")


def test_a_claim_is_made_again_when_exec_has_closed_its_descriptor(board):
    # Opened to be closed by exec(), which a duplicate survives: the device is still in use.
    script = """
import errno, os
fd = os.open("/dev/rtc0", os.O_RDONLY)
os.dup2(fd, 9)
started, told = os.pipe()
if os.fork() == 0:
    os.dup2(told, 1)
    os.execv("/bin/sh", ["sh", "-c", "echo; sleep 2"])
os.close(fd)
os.close(9)
os.read(started, 1)
try:
    os.open("/dev/rtc0", os.O_RDONLY)
except OSError as error:
    print(errno.errorcode[error.errno], flush=True)
"""
    run = board.run_command([sys.executable, "-S", "-c", script], speed="1")
    assert (run.status, run.stdout, run.stderr) == (0, b"EBUSY\n", b"")
