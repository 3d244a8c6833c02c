"""Every timed call of libc counts in board time, by the clock that it was made with.

The plainer waits (sleep, select, conditions, alarms) are in test_vboard_time.py.
"""

import pytest

from conftest import EMULATOR, assert_story, only_in_plain_builds, out
from probes import lines, one_probe, probe, run_steps

# As in test_vboard_time.py: how fast scaled time runs.
SPEED = 5 if EMULATOR else 20

EARLY = "1970-01-01 00:10:00"


def times(run):
    return [float(line.split()[1]) for line in lines(run) if line.startswith("now ")]


# Calls that wait two seconds for nothing, and what they print.
WAITS = [
    ("timerfd MONOTONIC block; timerfd_set 2 0 after; timerfd_read", "timerfd_read 1"),
    ("timerfd MONOTONIC block; timerfd_set 2 0 at; timerfd_read", "timerfd_read 1"),
    ("timerfd REALTIME block; timerfd_set 2 0 after; timerfd_read", "timerfd_read 1"),
    ("timerfd REALTIME block; timerfd_set 2 0 at; timerfd_read", "timerfd_read 1"),
    ("timerfd MONOTONIC nonblock; timerfd_set 2 0 after; select -1", "select 1"),
    ("timerfd MONOTONIC nonblock; timerfd_set 2 0 after; pselect -1", "pselect 1"),
    ("timerfd MONOTONIC nonblock; timerfd_set 2 0 after; poll -1", "poll 1"),
    ("timerfd REALTIME nonblock; timerfd_set 2 0 at; ppoll 9", "ppoll 1"),
    ("timerfd MONOTONIC nonblock; timerfd_set 2 0 after; epoll 9", "epoll 1"),
    ("timerfd MONOTONIC nonblock; timerfd_set 3 0 after; poll 2", "poll 0"),
    ("timerfd MONOTONIC nonblock; timerfd_set 3 0 at; epoll 2", "epoll 0"),
    ("timer_thread 2 0 1", "2.0 called"),
    ("catch ALRM; timer_at MONOTONIC 2; pause", "pause EINTR"),
    ("catch ALRM; timer_at REALTIME 2; pause", "pause EINTR"),
    ("timedrdlock 2", "timedrdlock ETIMEDOUT"),
    ("timedwrlock 2", "timedwrlock ETIMEDOUT"),
    ("clockrdlock 2", "clockrdlock ETIMEDOUT"),
    ("clockwrlock 2", "clockwrlock ETIMEDOUT"),
    ("cnd_timedwait 2", "cnd_timedwait timedout"),
    ("mtx_timedlock 2", "mtx_timedlock timedout"),
    ("futex_wait 2", "futex_wait ETIMEDOUT"),
    ("futex_until 2", "futex_until ETIMEDOUT"),
    ("futex_until_date 2", "futex_until_date ETIMEDOUT"),
    ("call_nanosleep 2", "call_nanosleep 0"),
    ("call_sleep_until 2", "call_sleep_until 0"),
    ("mq_timedreceive 2", "mq_timedreceive ETIMEDOUT"),
    ("mq_timedsend 2", "mq_timedsend ETIMEDOUT"),
    ("socketpair stream; rcvtimeo 2; receive recv", "recv EAGAIN"),
    ("socketpair stream; rcvtimeo 2; receive recvfrom", "recvfrom EAGAIN"),
    ("socketpair dgram; rcvtimeo 2; receive recvmsg", "recvmsg EAGAIN"),
    ("socketpair stream; rcvtimeo 2; receive read", "read EAGAIN"),
    ("socketpair dgram; rcvtimeo 2; receive readv", "readv EAGAIN"),
    ("socketpair stream; fill; sndtimeo 2; send send small", "send EAGAIN"),
    ("socketpair dgram; fill; sndtimeo 2; send send small", "send EAGAIN"),
    ("socketpair stream; fill; sndtimeo 2; send sendto small", "sendto EAGAIN"),
    ("socketpair stream; fill; sndtimeo 2; send sendmsg small", "sendmsg EAGAIN"),
    ("socketpair stream; fill; sndtimeo 2; send write small", "write EAGAIN"),
    ("socketpair stream; fill; sndtimeo 2; send writev small", "writev EAGAIN"),
    ("listen; rcvtimeo 2; accept", "accept EAGAIN"),
    ("crowd; sndtimeo 2; connect_local", "connect_local EAGAIN"),
]

# The C++ library chooses its calls itself, whatever the program's own are.
CPP_WAITS = [
    ("future_wait 2", "future_wait timeout"),
    ("try_acquire 2", "try_acquire failed"),
]


def takes_two_seconds(board, program, steps, told, **options):
    run = run_steps(board, program, f"now; {steps}; now", speed="max", **options)
    assert told in lines(run)
    start, end = times(run)
    assert start == 0
    assert 1.999 <= end <= 2.02


def takes_two_scaled_seconds(board, program, steps, told, **options):
    run = run_steps(board, program, f"now; {steps}; now", speed=str(SPEED), **options)
    assert told.split(" ", 1)[1] in [line.split(" ", 1)[1] for line in lines(run)]
    # Two seconds of the PC would be more.
    assert 1.999 <= times(run)[1] < 2 * SPEED


@pytest.mark.parametrize("steps, told", WAITS)
def test_each_wait_takes_exactly_its_time_at_max_speed(board, probe, steps, told):
    takes_two_seconds(board, probe, steps, told)


@pytest.mark.parametrize("steps, told", CPP_WAITS)
def test_the_c_library_s_waits_take_exactly_their_time_at_max_speed(board, one_probe, steps, told):
    takes_two_seconds(board, one_probe, steps, told)


@only_in_plain_builds
@pytest.mark.parametrize("steps, told", WAITS + CPP_WAITS)
def test_each_wait_takes_its_time_when_scaled(board, one_probe, steps, told):
    takes_two_scaled_seconds(board, one_probe, steps, told)


# --- each by its own clock --------------------------------------------------------------------------

# Ten minutes after 1970 no size of a number says which clock it belongs to.
BY_CLOCK = [
    ("sleep_until 2", "sleep_until 0"),
    ("sleep_until_date 2", "sleep_until_date 0"),
    ("cond_timedwait 2", "cond_timedwait ETIMEDOUT"),
    ("cond_timedwait_monotonic 2", "cond_timedwait_monotonic ETIMEDOUT"),
    ("cond_clockwait 2", "cond_clockwait ETIMEDOUT"),
    ("sem_timedwait 2", "sem_timedwait ETIMEDOUT"),
    *[
        row
        for row in WAITS
        if any(word in row[0] for word in ("until", "lock", "mq_", "timer_at", " at;"))
    ],
    ("cnd_timedwait 2", "cnd_timedwait timedout"),
]


@pytest.mark.parametrize("steps, told", BY_CLOCK)
@pytest.mark.parametrize("before", ["", "settimeofday 600; "], ids=["dated", "set"])
def test_absolute_times_count_by_the_clock_of_their_call(board, one_probe, steps, told, before):
    run = run_steps(board, one_probe, f"{before}now; {steps}; now", date=EARLY)
    assert told in lines(run)
    assert 1.999 <= times(run)[1] <= 2.02


@only_in_plain_builds
@pytest.mark.parametrize("steps, told", BY_CLOCK)
def test_absolute_times_count_by_the_clock_of_their_call_when_scaled(board, one_probe, steps, told):
    takes_two_scaled_seconds(board, one_probe, steps, told, date=EARLY)


# The calendar jumps eight seconds ahead; the board's own time does not.
FOLLOWED = pytest.mark.parametrize(
    "clock, end", [("REALTIME", 2), ("MONOTONIC", 10)], ids=["calendar", "monotonic"]
)


@FOLLOWED
def test_a_timer_of_the_calendar_follows_it_when_it_is_set(board, probe, clock, end):
    run = run_steps(
        board,
        probe,
        f"timerfd {clock} block; timerfd_set 10 0 at; settimeofday 608; poll {end - 1}; poll 30; "
        "timerfd_read; date",
        date=EARLY,
    )
    assert lines(run)[3:] == [
        "poll 0",
        "poll 1",
        "timerfd_read 1",
        f"date 1970-01-01 00:10:{8 + end:02}",
    ]


@pytest.mark.parametrize(
    "clock, ends",
    # The calendar is set some time after the timer.
    [("REALTIME", range(10, 15)), ("MONOTONIC", range(15, 25))],
    ids=["calendar", "monotonic"],
)
def test_a_timer_of_the_calendar_follows_it_when_scaled(board, one_probe, clock, ends):
    run = run_steps(
        board,
        one_probe,
        f"timerfd {clock} block; timerfd_set 10 0 at; settimeofday 608; timerfd_read; date",
        date=EARLY,
        speed=str(SPEED),
    )
    assert lines(run)[3] == "timerfd_read 1"
    assert lines(run)[4] in [f"date 1970-01-01 00:10:{end}" for end in ends]


def test_a_relative_timer_does_not_follow_the_calendar(board, one_probe):
    run = run_steps(
        board,
        one_probe,
        "timerfd REALTIME block; timerfd_set 10 0 after; settimeofday 608; poll 9.5; poll 1",
        date=EARLY,
    )
    assert lines(run)[-2:] == ["poll 0", "poll 1"]


def test_a_timer_may_report_that_the_calendar_was_set(board, one_probe):
    run = run_steps(
        board,
        one_probe,
        "timerfd REALTIME block; timerfd_set 10 0 cancel; settimeofday 605; poll 0; timerfd_read; "
        "poll 4; poll 2; timerfd_read",
        date=EARLY,
    )
    assert lines(run)[3:] == [
        "poll 1",
        "timerfd_read ECANCELED",
        "poll 0",
        "poll 1",
        "timerfd_read 1",
    ]


def test_a_timer_of_another_clock_does_not_report_it(board, one_probe):
    run = run_steps(
        board,
        one_probe,
        "timerfd MONOTONIC block; timerfd_set 10 0 cancel; settimeofday 605; poll 9; poll 2",
        date=EARLY,
    )
    assert lines(run)[-2:] == ["poll 0", "poll 1"]


# --- timers that are descriptors ----------------------------------------------------------------------


@pytest.mark.parametrize("speed", ["max", str(SPEED)])
def test_a_timer_counts_the_expiries_since_it_was_read(board, probe, speed):
    run = run_steps(
        board,
        probe,
        "timerfd MONOTONIC block; now; timerfd_set 3 1 after; timerfd_read; now; "
        "nanosleep 10.5; timerfd_read; now; timerfd_read; now",
        speed=speed,
    )
    reads = [line for line in lines(run) if line.startswith("timerfd_read")]
    first, slept, last = times(run)[1:]
    if speed == "max":
        # At 3; 4 to 13, read at 13.5; 14.
        assert reads == ["timerfd_read 1", "timerfd_read 10", "timerfd_read 1"]
        assert [round(shown, 1) for shown in (first, slept, last)] == [3, 13.5, 14]
    else:
        # None is lost or counted twice, however late the reads are.
        assert 12 <= sum(int(line.split()[1]) for line in reads) <= last - 2 + 0.01
        assert first >= 2.999 and last >= 13.999


def test_a_timer_without_expiries_answers_eagain_and_shows_what_is_left(board, probe):
    run = run_steps(
        board,
        probe,
        "timerfd MONOTONIC nonblock; timerfd_read; timerfd_left; timerfd_set 2 5 after; "
        "timerfd_read; nanosleep 0.5; timerfd_left; nanosleep 3; timerfd_left; timerfd_read; "
        "timerfd_read; timerfd_set 0 5 after; timerfd_left; poll 20; timerfd_set 1 0 after; "
        "nanosleep 2; timerfd_left; timerfd_read; timerfd_read",
    )
    assert [line for line in lines(run) if not line.startswith(("nanosleep", "timerfd_set"))] == [
        "timerfd 0",
        "timerfd_read EAGAIN",
        "timerfd_left 0.0 0.0",
        "timerfd_read EAGAIN",
        "timerfd_left 1.5 5.0",
        "timerfd_left 3.5 5.0",
        "timerfd_read 1",
        "timerfd_read EAGAIN",
        "timerfd_left 0.0 5.0",
        "poll 0",
        "timerfd_left 0.0 0.0",
        "timerfd_read 1",
        "timerfd_read EAGAIN",
    ]


def test_a_timer_s_count_needs_eight_bytes(board, probe):
    run = run_steps(
        board, probe, "timerfd MONOTONIC block; timerfd_set 2 0 after; now; timerfd_read_short; now"
    )
    assert "timerfd_read_short EINVAL" in lines(run)
    assert times(run)[1] < 0.001


def test_a_child_shares_the_timer(board, probe):
    run = run_steps(
        board,
        probe,
        "now; timerfd MONOTONIC nonblock; timerfd_set 2 0 after; fork; poll -1; timerfd_read; "
        "join; timerfd_read; timerfd_set 3 0 after; poll -1",
    )
    assert [line.split()[0] + " " + line.split()[1] for line in lines(run)][3:] == [
        "poll 1",
        "timerfd_read 1",
        "child 0",
        "timerfd_read EAGAIN",
        "timerfd_set 0",
        "poll 1",
    ]


def test_a_program_that_is_executed_has_the_timer(board, one_probe):
    words = "timerfd REALTIME block timerfd_set 2 0 at".split()
    run = board.run_command(
        [one_probe, *words, "exec", "head -c 8 <&3 | od -An -tx1; date -u +%H:%M:%S"], date=EARLY
    )
    assert lines(run)[2:] == [" 01 00 00 00 00 00 00 00", "00:10:02"]


def test_a_story_shows_a_timer(board, one_probe):
    run = board.run_command(
        [
            one_probe,
            *"timerfd REALTIME block timerfd_set 2 0.5 after timerfd_read".split(),
            *"timerfd MONOTONIC block timerfd_set 0 0 after".split(),
        ],
        story=True,
    )
    assert_story(
        run,
        "timerfd_create timer REALTIME = 3",
        out("timerfd 0\n"),
        "timerfd_settime timer 2.000000 0.500000 = 0",
        out("timerfd_set 0\n"),
        "read timer out=01.00*7 = 8",
        out("timerfd_read 1\n"),
        "timerfd_create timer MONOTONIC = 4",
        out("timerfd 0\n"),
        "timerfd_settime timer 0.000000 = 0",
        out("timerfd_set 0\n"),
    )


# --- woken early ----------------------------------------------------------------------------------------

WOKEN = [
    ("rwlock_unlocked", ["2.0 locked"]),
    ("cnd_signalled", ["2.0 success", "3.0 42"]),
    ("cnd_broadcast", ["2.0 success", "3.0 -5"]),
    ("mtx_unlocked", ["2.0 success"]),
    (
        "futex_woken",
        ["nobody 0", "one 1", "1.5 second", "longest 1", "2.5 first", "rest 1", "3.5 third"],
    ),
    ("mq_arrives timed", ["2.0 received"]),
    ("mq_arrives plain", ["2.0 received"]),
    ("mq_drained", ["2.0 sent"]),
    ("timerfd_set_later", ["2.0 expired"]),
    ("timer_thread 0.5 1.5 3", ["0.5 called", "2.0 called", "3.5 called", "timer_delete 0"]),
]

CPP_WOKEN = [
    ("future_set", ["2.0 ready"]),
    ("semaphore_released", ["2.0 acquired"]),
    ("atomic_notified", ["2.0 notified"]),
]


@pytest.mark.parametrize("steps, told", WOKEN)
def test_a_wait_ends_when_another_thread_ends_it(board, probe, steps, told):
    assert sorted(lines(run_steps(board, probe, steps))) == sorted(told)


@pytest.mark.parametrize("steps, told", CPP_WOKEN)
def test_a_wait_of_the_c_library_ends_when_another_thread_ends_it(board, one_probe, steps, told):
    assert lines(run_steps(board, one_probe, steps)) == told


@only_in_plain_builds
@pytest.mark.parametrize("steps, told", WOKEN + CPP_WOKEN)
def test_a_wait_ends_when_another_thread_ends_it_in_scaled_time(board, one_probe, steps, told):
    run = run_steps(board, one_probe, steps, speed="10")

    def without_times(texts):
        return sorted(text.split(" ", 1)[1] for text in texts)

    assert without_times(lines(run)) == without_times(told)


# --- sockets of the PC's kernel ---------------------------------------------------------------------------

ARRIVALS = [
    ("socketpair stream; rcvtimeo 60; later write; receive recv", "recv 5", 2),
    ("socketpair stream; rcvtimeo 60; later write; receive readv", "readv 5", 2),
    ("socketpair dgram; later write; receive recvmsg", "recvmsg 5", 2),
    ("socketpair stream; later write; receive read", "read 5", 2),
    ("socketpair stream; rcvtimeo 60; later write; receive waitall", "waitall 8", 3),
    ("socketpair stream; fill; sndtimeo 60; later drain; send send small", "send 100", 2),
    ("socketpair stream; fill; later drain; send write small", "write 100", 2),
    ("socketpair dgram; fill; sndtimeo 60; later drain; send sendmsg small", "sendmsg 100", 2),
    ("listen; rcvtimeo 60; later connect; accept", "accept 0", 2),
    ("crowd; sndtimeo 60; later accept; connect_local", "connect_local 0", 2),
]


@pytest.mark.parametrize("steps, told, end", ARRIVALS)
def test_a_socket_s_wait_ends_when_the_other_end_acts(board, probe, steps, told, end):
    run = run_steps(board, probe, f"now; {steps}; now", speed="max")
    assert told in lines(run)
    assert end - 0.001 <= times(run)[1] <= end + 0.02


@only_in_plain_builds
@pytest.mark.parametrize("steps, told, end", ARRIVALS)
def test_a_socket_s_wait_ends_when_the_other_end_acts_in_scaled_time(
    board, one_probe, steps, told, end
):
    run = run_steps(board, one_probe, f"now; {steps}; now", speed="10")
    assert told in lines(run)
    assert times(run)[1] >= end - 0.001


@pytest.mark.parametrize("speed", ["max", str(SPEED), "1"])
def test_a_socket_s_limits_are_what_the_program_has_set(board, probe, speed):
    run = run_steps(
        board,
        probe,
        "socketpair stream; limits; rcvtimeo 2; sndtimeo 4; limits; rcvtimeo 0; limits",
        speed=speed,
    )
    shown = [line for line in lines(run) if line.startswith("limits")]
    assert shown == ["limits 0.0 0.0", "limits 2.0 4.0", "limits 0.0 4.0"]


# Three of these are more than a stream holds; the kernel takes a part of the last one at once.
LARGE = (
    "socketpair stream; sndtimeo {}; {} now; send send large; send send large; send send large; now"
)


def test_a_send_goes_on_when_there_is_room_again(board, probe):
    run = run_steps(board, probe, LARGE.format(60, "later drain;"))
    assert [line for line in lines(run) if line.startswith("send ")] == ["send 100000"] * 3
    assert 1.99 <= times(run)[1] <= 2.02


def test_a_send_that_began_ends_with_what_has_gone(board, probe):
    run = run_steps(board, probe, LARGE.format(3, ""))
    sent = [line.split()[1] for line in lines(run) if line.startswith("send ")]
    # One of them found room for a part of it, and each of those that waited did so for its limit.
    parts = [int(one) for one in sent if one not in ("100000", "EAGAIN")]
    assert len(parts) == 1 and 0 < parts[0] < 100000
    waited = len(sent) - sent.count("100000")
    assert 3 * waited - 0.01 <= times(run)[1] <= 3 * waited + 0.02


def test_a_handled_signal_ends_a_wait_with_a_limit(board, probe):
    run = run_steps(
        board, probe, "catch ALRM; socketpair stream; rcvtimeo 5; alarm 2; now; receive recv; now"
    )
    assert "recv EINTR" in lines(run)
    assert round(times(run)[1], 2) == 2


# --- calls by number, and errors ----------------------------------------------------------------------------


@pytest.mark.parametrize("speed", ["max", str(SPEED)])
def test_clocks_asked_by_number_are_the_board_s(board, probe, speed):
    run = run_steps(board, probe, "sleep 3; call_clocks", speed=speed, date=EARLY)
    assert lines(run)[-1] == "call_clocks agree"


def test_a_word_that_differs_is_not_waited_for(board, probe):
    run = run_steps(board, probe, "now; futex_differs; now")
    assert lines(run)[1] == "futex_differs EAGAIN"
    assert times(run)[1] < 0.001


def test_the_writer_of_a_lock_does_not_wait_for_itself(board, probe):
    assert lines(run_steps(board, probe, "rwlock_deadlock")) == ["rwlock_deadlock EDEADLK"]
