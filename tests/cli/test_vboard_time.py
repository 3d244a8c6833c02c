"""The virtual board's time: as it is, scaled, and jumping from wait to wait."""

import re
import time

import pytest

from conftest import EMULATOR, word_size
from probes import lines, one_probe, probe, run_steps


# How fast board time runs where it is scaled. The PC's own delays count that much more, and an emulated
# program has longer ones.
SPEED = 5 if EMULATOR else 20


def times(run):
    """What each "now" printed."""
    return [
        float(line.split()[1])
        for line in run.stdout.decode().splitlines()
        if line.startswith("now ")
    ]


def real_seconds(work):
    start = time.monotonic()
    result = work()
    return time.monotonic() - start, result


# Every way to let two seconds pass, and what it prints.
WAITS = [
    (["sleep", "2"], "sleep 0"),
    (["usleep", "2000000"], "usleep 0"),
    (["nanosleep", "2"], "nanosleep 0"),
    (["clock_nanosleep", "2"], "clock_nanosleep 0"),
    (["sleep_until", "2"], "sleep_until 0"),
    (["sleep_until_date", "2"], "sleep_until_date 0"),
    (["select", "2"], "select 0"),
    (["pselect", "2"], "pselect 0"),
    (["poll", "2"], "poll 0"),
    (["ppoll", "2"], "ppoll 0"),
    (["epoll", "2"], "epoll 0"),
    (["cond_timedwait", "2"], "cond_timedwait ETIMEDOUT"),
    (["cond_timedwait_monotonic", "2"], "cond_timedwait_monotonic ETIMEDOUT"),
    (["cond_clockwait", "2"], "cond_clockwait ETIMEDOUT"),
    (["sem_timedwait", "2"], "sem_timedwait ETIMEDOUT"),
    (["catch", "ALRM", "alarm", "2", "pause"], "pause EINTR"),
    (["catch", "ALRM", "itimer", "2", "0", "pause"], "pause EINTR"),
    (["catch", "ALRM", "timer", "2", "0", "pause"], "pause EINTR"),
    (["catch", "ALRM", "alarm", "2", "select", "-1"], "select EINTR"),
    (["catch", "ALRM", "alarm", "2", "poll", "-1"], "poll EINTR"),
    (["catch", "ALRM", "alarm", "2", "sleep", "10"], "sleep 8"),
    (["catch", "ALRM", "alarm", "2", "remainder", "10"], "remainder 8.000"),
]


def name_of(value):
    return "-".join(value) if isinstance(value, list) else ""


@pytest.mark.parametrize("steps, told", WAITS, ids=name_of)
def test_each_wait_takes_exactly_its_time_at_max_speed(board, probe, steps, told):
    run = board.run_command([probe, "now", *steps, "now"])
    assert told in lines(run)
    start, end = times(run)
    assert start == 0
    assert 1.999 <= end <= 2.01
    assert b"clocks disagree" not in run.stdout


@pytest.mark.parametrize("steps, told", WAITS, ids=name_of)
def test_each_wait_takes_at_least_its_time_when_scaled(board, one_probe, steps, told):
    took, run = real_seconds(
        lambda: board.run_command([one_probe, "now", *steps, "now"], speed=str(SPEED))
    )
    # What is left of an interrupted sleep depends on when the interruption was noticed.
    told = told.split()[0] if told in ("sleep 8", "remainder 8.000") else told
    assert any(line.startswith(told) for line in lines(run))
    assert 1.999 <= times(run)[1] <= SPEED * took
    assert b"clocks disagree" not in run.stdout


@pytest.mark.parametrize("steps", [steps for steps, _ in WAITS[:15]], ids="-".join)
def test_a_long_wait_costs_nothing_at_max_speed(board, one_probe, steps):
    steps = [re.sub(r"^2", "6000", step) if step[0] == "2" else step for step in steps]
    if steps[0] == "usleep":
        steps = ["usleep", "2000000000"]
    took, run = real_seconds(lambda: board.run_command([one_probe, "now", *steps, "now"]))
    assert times(run)[1] >= 2000
    assert took < 30


def test_half_a_minute_takes_a_twentieth_at_speed_20(board, one_probe):
    took, run = real_seconds(lambda: run_steps(board, one_probe, "now; sleep 30; now", speed="20"))
    assert 29.9 <= times(run)[1] <= 20 * took
    assert took < 15


def test_time_is_the_pc_s_at_speed_1(board, one_probe):
    took, run = real_seconds(
        lambda: run_steps(board, one_probe, "now; usleep 400000; now", speed="1")
    )
    assert 0.399 <= times(run)[1] <= took
    assert took >= 0.4


def test_a_wait_for_nothing_takes_no_time(board, probe):
    run = run_steps(board, probe, "now; poll 0; select 0; usleep 0; now")
    assert lines(run)[1:4] == ["poll 0", "select 0", "usleep 0"]
    assert times(run)[1] < 0.001


@pytest.mark.parametrize("speed", ["max", "20"])
def test_timers_repeat(board, probe, speed):
    for timer in ("itimer", "timer"):
        run = board.run_command(
            [probe, "catch", "ALRM", "now", timer, "0.5", "1.5", "pauses", "4", "caught"],
            speed=speed,
        )
        assert lines(run)[-1] == "caught 4"
        passed = times(run)[1:]
        for shown, meant in zip(passed, (0.5, 2.0, 3.5, 5.0)):
            assert meant - 0.001 <= shown <= meant + (0.01 if speed == "max" else 20)


def test_an_alarm_without_a_handler_ends_the_command(board, probe):
    run = run_steps(board, probe, "alarm 3; sleep 10; now")
    assert run.status == 128 + 14
    assert run.stdout == b"alarm 0\n"


def test_an_alarm_set_anew_tells_what_was_left(board, probe):
    run = run_steps(board, probe, "alarm 10; sleep 3; alarm 0; sleep 20; now")
    assert lines(run)[:4] == ["alarm 0", "sleep 0", "alarm 7", "sleep 0"]


def test_the_date_passes_with_the_board(board, probe):
    run = run_steps(board, probe, "date; sleep 86400; date", date="2024-02-28 23:59:59")
    assert lines(run) == ["date 2024-02-28 23:59:59", "sleep 0", "date 2024-02-29 23:59:59"]


def test_waits_stand_in_the_trace_with_the_time_asked_for(board, probe):
    run = run_steps(
        board,
        probe,
        "sleep 2; usleep 300000; select 1.5; poll 0.25; nanosleep 0.001; catch ALRM; "
        "alarm 2; select -1; alarm 1; poll -1",
    )
    assert run.requests == [
        "sleep 2.000000",
        "sleep 0.300000",
        "select 1.500000",
        "poll 0.250000",
        "sleep 0.001000",
        "select forever",
        "poll forever",
    ]
    # Times of the trace are board times, and they do not run backwards.
    stamps = [stamp for stamp, _ in run.trace]
    assert stamps == sorted(stamps)
    assert 2 + 0.3 + 1.5 + 0.25 + 2 <= stamps[-1] < 8


# --- devices keep time ------------------------------------------------------------------------------


@pytest.mark.parametrize("wait", ["select", "pselect", "poll", "ppoll", "epoll"])
@pytest.mark.parametrize("limit", ["-1", "3"])
def test_a_wait_ends_when_the_device_is_ready(board, probe, wait, limit):
    # The motion sensor has a sample every second.
    board.set("/dev/gyro", "poll_ms", "1000")
    run = board.run_command(
        [
            probe,
            "now",
            "open",
            "/dev/gyro",
            "rdwr",
            wait,
            limit,
            "now",
            "read",
            "28",
            wait,
            limit,
            "now",
        ]
    )
    assert [line for line in lines(run) if line.startswith(wait)] == [wait + " 1"] * 2
    assert [round(shown, 2) for shown in times(run)] == [0, 1, 2]


@pytest.mark.parametrize("wait", ["select", "pselect", "poll", "ppoll", "epoll"])
def test_a_wait_times_out_before_the_device_is_ready(board, probe, wait):
    board.set("/dev/gyro", "poll_ms", "1000")
    run = board.run_command([probe, "now", "open", "/dev/gyro", "rdwr", wait, "0.4", "now"])
    assert lines(run)[2] == wait + " 0"
    assert round(times(run)[1], 2) == 0.4


def test_a_blocking_read_waits_for_the_device(board, probe):
    board.set("/dev/gyro", "poll_ms", "1000")
    run = run_steps(board, probe, "now; open /dev/gyro rdwr; read 28; now; read 28; now")
    assert [round(shown, 2) for shown in times(run)] == [0, 1, 2]


def test_a_read_without_blocking_answers_eagain_until_the_device_is_ready(board, probe):
    board.set("/dev/gyro", "poll_ms", "1000")
    run = run_steps(board, probe, "open /dev/gyro rdwr; nonblock; read 28; sleep 1; read 28")
    result = lines(run)
    assert result[2] == "read EAGAIN"
    assert result[4].startswith("read 28 ")


def test_an_interrupted_read_answers_eintr(board, probe):
    board.set("/dev/gyro", "silent", "1")
    run = run_steps(board, probe, "catch ALRM; now; open /dev/gyro rdwr; alarm 2; read 28; now")
    # SA_RESTART is not asked for.
    assert "read EINTR" in lines(run)
    assert round(times(run)[1], 2) == 2


# --- threads ----------------------------------------------------------------------------------------

THREADS = [
    (
        "interleave",
        [
            "1.0 second",
            "1.4 first",
            "2.0 second",
            "2.8 first",
            "3.0 second",
            "4.0 second",
            "4.2 first",
            "4.2 joined",
        ],
    ),
    ("thread_join", ["2.0 woke", "2.0 joined"]),
    ("cond_signalled", ["2.0 signalled"]),
    ("cond_forever", ["2.0 signalled"]),
    ("cond_too_late", ["5.0 timed out", "7.0 too late"]),
    ("lock", ["2.0 unlocks", "2.0 locked"]),
    ("pipe", ["2.0 read"]),
    ("semaphore", ["2.0 posted"]),
    # A tenth of a second of work takes no board time, and nobody's sleep ends meanwhile.
    ("busy", ["0.0 worked", "1.0 napped", "2.0 woke"]),
]


@pytest.mark.parametrize("step, told", THREADS, ids=[step for step, _ in THREADS])
def test_threads_share_one_clock_that_jumps_when_all_wait(board, probe, step, told):
    took, run = real_seconds(lambda: board.run_command([probe, step]))
    assert lines(run) == told
    assert took < 30


def test_threads_in_scaled_time(board, one_probe):
    run = run_steps(board, one_probe, "cond_signalled; interleave; cond_too_late", speed="10")
    words = [line.split(" ", 1)[1] for line in lines(run)]
    assert words == ["signalled"] + [line.split(" ", 1)[1] for line in THREADS[0][1]] + [
        "timed out",
        "too late",
    ]


def test_a_child_s_waits_take_its_time_and_the_parent_s_go_on(board, probe):
    took, run = real_seconds(
        lambda: run_steps(board, probe, "now; fork; sleep 600; now; join; sleep 300; now")
    )
    assert [line.split()[0] for line in lines(run)] == [
        "now",
        "sleep",
        "now",
        "child",
        "sleep",
        "now",
    ]
    assert round(times(run)[1], 1) == 600
    assert times(run)[2] >= 300
    assert took < 30


# --- deterministic ------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "words",
    [
        ["lcd", "autotest"],
        ["iccard", "autotest"],
        ["iccard", "-c"],
        ["gsensor", "autotest"],
        ["lcd", "-u"],
    ],
    ids="-".join,
)
def test_the_same_run_twice_leaves_the_same_trace(make_board, words):
    def trace():
        board = make_board()
        board.fault("/dev/iccard absent time=2.5..3.5")
        return board.run("bt1", *words, date="2024-01-05 09:05:03").trace

    first = trace()
    assert first
    assert trace() == first


def test_the_same_threads_twice_print_the_same(board, one_probe):
    steps = ["interleave", "cond_signalled", "lock", "pipe", "cond_too_late", "semaphore"] * 3
    first = board.run_command([one_probe, *steps])
    second = board.run_command([one_probe, *steps])
    assert first.stdout == second.stdout
    # Which of two threads that run at one moment comes first is the PC's affair, and so are the
    # microseconds that their calls cost.
    moments = [
        sorted((round(time, 3), line) for time, line in run.trace) for run in (first, second)
    ]
    assert moments[0] == moments[1]


# --- signals and the end of a run ---------------------------------------------------------------------


@pytest.mark.parametrize("speed", ["max", "5"])
@pytest.mark.parametrize("name, number", [("TERM", 15), ("INT", 2), ("HUP", 1), ("KILL", 9)])
def test_a_signal_comes_at_its_board_time(board, one_probe, speed, name, number):
    run = run_steps(
        board, one_probe, "now; sleep 1; now; sleep 100; now", signals=[f"{name}@2.5"], speed=speed
    )
    assert run.status == 128 + number
    assert len(times(run)) == 2


def test_signals_are_caught_and_repeat(board, probe):
    run = run_steps(
        board, probe, "catch INT; now; pauses 3; caught", signals=["INT@1", "INT@2.5", "INT@4"]
    )
    assert lines(run)[-1] == "caught 3"
    assert [round(shown, 2) for shown in times(run)[1:]] == [1.0, 2.5, 4.0]


def test_an_ignored_signal_changes_nothing(board, probe):
    run = run_steps(board, probe, "ignore INT; now; sleep 5; now", signals=["INT@2"])
    assert lines(run) == ["ignore 0", "now 0.000", "sleep 0", lines(run)[-1]]
    assert round(times(run)[1], 2) == 5


def test_a_signal_after_the_end_changes_nothing(board, probe):
    assert lines(run_steps(board, probe, "sleep 1", signals=["TERM@5"])) == ["sleep 0"]


@pytest.mark.parametrize("speed", ["max", "5"])
def test_for_ends_the_run_with_sigterm(board, one_probe, speed):
    run = run_steps(board, one_probe, "sleep 3; sleep 3; sleep 3", seconds=5, speed=speed)
    assert run.status == 128 + 15
    assert run.stdout == b"sleep 0\n"


def test_for_ends_a_wait_for_ever(board, one_probe):
    run = run_steps(board, one_probe, "catch TERM; now; pause; now", seconds=1000)
    assert lines(run)[2] == "pause EINTR"
    assert round(times(run)[1]) == 1000


def test_for_does_not_lengthen_a_run(board, one_probe):
    took, run = real_seconds(
        lambda: run_steps(board, one_probe, "sleep 1", seconds=3600, speed="20")
    )
    assert lines(run) == ["sleep 0"]
    assert took < 30


def test_a_program_that_never_waits_is_ended_by_for_as_well(board, one_probe):
    # It spins: its board time is the time of its calls, or the PC's, but it must end.
    run = board.run_command(["sh", "-c", "while :; do :; done"], seconds=0.5, speed="1")
    assert run.status == 128 + 15


# --- Times that 64 bits of nanoseconds do not hold ------------------------------------------------

NEEDS_64_BITS = pytest.mark.skipif(word_size() == 4, reason="times have 32 bits here")
A_LONG_TIME = "1e18"  # seconds


@NEEDS_64_BITS
@pytest.mark.parametrize(
    "words",
    [
        ["nanosleep"],
        ["clock_nanosleep"],
        ["sleep_until"],
        ["sleep_until_date"],
        ["select"],
        ["pselect"],
        ["ppoll"],
        ["cond_timedwait"],
        ["cond_timedwait_monotonic"],
        ["cond_clockwait"],
        ["sem_timedwait"],
    ],
    ids=name_of,
)
@pytest.mark.parametrize("speed", ["max", "20"])
def test_a_wait_beyond_all_time_goes_on(board, one_probe, words, speed):
    run = board.run_command([one_probe, *words, A_LONG_TIME], seconds=1, speed=speed)
    assert (run.status, run.stdout, run.stderr) == (143, b"", b"")


@NEEDS_64_BITS
def test_a_wait_beyond_all_time_goes_on_where_the_board_is_slow(board, one_probe):
    run = board.run_command([one_probe, "nanosleep", A_LONG_TIME], seconds=0.1, speed="0.5")
    assert (run.status, run.stdout, run.stderr) == (143, b"", b"")


@NEEDS_64_BITS
@pytest.mark.parametrize("speed", ["max", "20"])
@pytest.mark.parametrize("timer", ["itimer", "timer"])
def test_a_timer_beyond_all_time_does_not_go_off(board, one_probe, timer, speed):
    run = board.run_command([one_probe, timer, A_LONG_TIME, A_LONG_TIME, "sleep", "3"], speed=speed)
    assert lines(run) == [f"{timer} 0", "sleep 0"]


@NEEDS_64_BITS
@pytest.mark.parametrize("seconds", ["9000000001", "9223372036854775807", "-1"])
@pytest.mark.parametrize("step", ["settimeofday", "clock_settime"])
def test_the_clock_is_not_set_to_a_time_that_the_calendar_lacks(board, one_probe, step, seconds):
    run = run_steps(board, one_probe, f"{step} {seconds}; date", date="2024-01-05 09:05:03")
    assert lines(run) == [f"{step} EINVAL", "date 2024-01-05 09:05:03"]


# The whole nanoseconds of 64 bits would end in 2262, and begin in 1677.
@pytest.mark.parametrize(
    "ahead, first, then",
    [
        ("9223372036854775807", "2255-03-14 16:00:00", "2255-03-14 16:00:00"),
        ("-9223372036854775808", "1970-01-01 00:00:00", "1970-01-01 00:00:05"),
    ],
)
def test_a_clock_file_beyond_the_calendar_is_taken_as_its_end(board, one_probe, ahead, first, then):
    board.path("clock").write_text(
        f"ahead_ns = {ahead}\nboots = 9223372036854775807\nreset_at = -9223372036854775808\n"
    )
    assert b"has run out, the board is reset" in board.vboard("show", board.directory)
    run = run_steps(board, one_probe, "date; sleep 5; date")
    assert (run.status, run.stderr) == (0, b"")
    if word_size() == 8:  # the probe's own time_t
        assert lines(run) == [f"date {first}", "sleep 0", f"date {then}"]
    clock = board.path("clock").read_text()
    assert "boots = 9223372036854775807\n" in clock
    assert "reset_at =\n" in clock
