"""The virtual board's watchdog: it bites, is fed, is disarmed, and outlives the program."""

import pytest

from probes import lines, one_probe, probe, run_steps

SETOPTIONS = "0x80045704"
KEEPALIVE = "0x80045705"
SETTIMEOUT = "0xC0045706"
DISABLE, ENABLE = "01000000", "02000000"


@pytest.mark.parametrize("speed", ["max", "20"])
def test_an_armed_watchdog_resets_the_board(board, one_probe, speed):
    run = run_steps(
        board,
        one_probe,
        f"open /dev/watchdog rdwr; ioctl {SETTIMEOUT} 05000000; now; sleep 60; now",
        speed=speed,
    )
    assert run.status == 80
    assert b"board reset" in run.stderr
    assert run.stdout == b"open 3\nioctl 0 05000000\nnow 0.000\n"


def test_opening_arms_the_watchdog(board, one_probe):
    board.set("/dev/watchdog", "timeout_s", "10")
    run = run_steps(board, one_probe, "open /dev/watchdog wronly; sleep 9; sleep 9")
    assert run.status == 80
    assert run.stdout == b"open 3\nsleep 0\n"


@pytest.mark.parametrize(
    "feed",
    [["ioctl", KEEPALIVE, "null"], ["text", "x"], ["ioctl", SETTIMEOUT, "0a000000"]],
    ids=["keepalive", "write", "settimeout"],
)
def test_a_fed_watchdog_does_not_bite(board, one_probe, feed):
    board.set("/dev/watchdog", "timeout_s", "10")
    rounds = ["sleep", "8", *feed] * 5
    run = board.run_command(
        [one_probe, "open", "/dev/watchdog", "wronly", *rounds, "now", "sleep", "11", "now"]
    )
    assert run.status == 80
    assert run.stdout.count(b"now") == 1
    assert run.stdout.count(b"sleep 0") == 5


@pytest.mark.parametrize("speed", ["max", "20"])
def test_a_watchdog_disarmed_by_the_magic_close_does_not_bite(board, one_probe, speed):
    run = run_steps(
        board,
        one_probe,
        f"open /dev/watchdog wronly; ioctl {SETTIMEOUT} 05000000; text V; close; " "sleep 20; now",
        speed=speed,
    )
    assert lines(run)[-1].startswith("now")


def test_a_watchdog_disabled_by_request_does_not_bite(board, one_probe):
    run = run_steps(
        board,
        one_probe,
        f"open /dev/watchdog wronly; ioctl {SETTIMEOUT} 05000000; "
        f"ioctl {SETOPTIONS} {DISABLE}; sleep 100; now",
    )
    assert lines(run)[-1] == "now 0.000"


def test_a_watchdog_enabled_again_bites(board, one_probe):
    run = run_steps(
        board,
        one_probe,
        f"open /dev/watchdog wronly; ioctl {SETTIMEOUT} 05000000; "
        f"ioctl {SETOPTIONS} {DISABLE}; sleep 100; ioctl {SETOPTIONS} {ENABLE}; "
        "sleep 4; sleep 2; now",
    )
    assert run.status == 80
    assert run.stdout.endswith(b"ioctl 0 02000000\nsleep 0\n")


@pytest.mark.parametrize("speed", ["max", "20"])
def test_a_close_without_the_magic_character_leaves_it_armed(board, one_probe, speed):
    run = run_steps(
        board,
        one_probe,
        f"open /dev/watchdog wronly; ioctl {SETTIMEOUT} 05000000; text no; close; " "sleep 60; now",
        speed=speed,
    )
    assert run.status == 80
    assert run.stdout == b"open 3\nioctl 0 05000000\ntext 2\nclose 0\n"


@pytest.mark.parametrize(
    "end, status",
    [(["close"], 0), ([], 0), (["exit", "3"], 3), (["quick_exit", "3"], 3), (["abort"], 134)],
    ids=["close", "end", "exit", "quick_exit", "abort"],
)
def test_a_watchdog_stays_armed_after_the_program_s_end(board, one_probe, end, status):
    # The run ends with the command's own status; the board goes on and is reset in its time.
    run = board.run_command(
        [one_probe, "open", "/dev/watchdog", "wronly", "ioctl", SETTIMEOUT, "58020000", *end]
    )
    assert run.status == status
    run = run_steps(board, one_probe, "sleep 300; sleep 400; now")
    assert run.status == 80
    assert b"board reset" in run.stderr
    assert run.stdout == b"sleep 0\n"
    # The board has been reset since: this run finds the watchdog stopped.
    assert lines(run_steps(board, one_probe, "sleep 6000")) == ["sleep 0"]


def test_a_watchdog_left_armed_is_fed_by_the_next_run(board, one_probe):
    run_steps(board, one_probe, f"open /dev/watchdog wronly; ioctl {SETTIMEOUT} 58020000")
    run = run_steps(
        board,
        one_probe,
        "sleep 300; open /dev/watchdog wronly; sleep 500; text V; close; sleep 6000",
    )
    assert lines(run)[-1] == "sleep 0"


def test_a_watchdog_left_armed_does_not_bite_another_board(make_board, one_probe):
    run_steps(make_board(), one_probe, "open /dev/watchdog wronly")
    assert lines(run_steps(make_board(), one_probe, "sleep 6000")) == ["sleep 0"]


def test_a_reset_ends_every_process_of_the_run(board, one_probe):
    run = run_steps(
        board,
        one_probe,
        f"open /dev/watchdog wronly; ioctl {SETTIMEOUT} 03000000; fork; sleep 100; "
        "now; join; now",
    )
    assert run.status == 80
    assert b"now" not in run.stdout


def test_a_signal_ends_the_program_and_leaves_the_watchdog_armed(board, one_probe):
    run = run_steps(board, one_probe, "open /dev/watchdog wronly; sleep 50", signals=["TERM@2"])
    assert run.status == 128 + 15
    assert run_steps(board, one_probe, "sleep 70").status == 80


def test_the_watchdog_of_a_missing_node_never_bites(board, one_probe):
    board.fault("/dev/watchdog absent")
    assert lines(run_steps(board, one_probe, "open /dev/watchdog rdwr; sleep 100")) == [
        "open ENOENT",
        "sleep 0",
    ]


def test_the_watchdog_has_one_user_at_a_time(board, probe):
    run = run_steps(
        board, probe, "open /dev/watchdog wronly; open /dev/watchdog wronly; fd 3; text V; close"
    )
    assert lines(run)[:2] == ["open 3", "open EBUSY"]
