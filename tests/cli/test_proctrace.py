"""btdbg proctrace: process events of the kernel's connector.

The board's events are the time line media/process-events.timeline, which begins with the
subscription.
"""

import re

import pytest

from device_trace import bytes_of, calls

LISTEN, IGNORE = 1, 2
INTERRUPTED = b"[proctrace_main:235]WARN:poll socket fail[4]\n"


def events(board, *lines):
    board.path("media/process-events.timeline").write_text(
        "\n".join(lines) + "\n", encoding="utf-8"
    )


def proctrace(board, *words, **options):
    return board.run("btdbg", "proctrace", *words, **options)


def subscription(line, operation):
    """True for the 40 bytes of a subscription with the pid that the bind has told."""
    data = bytes_of(line, "in")
    words = [int.from_bytes(data[i : i + 4], "little") for i in range(0, len(data), 4)]
    assert len(data) == 40
    return words[:3] == [40, 3, 0] and words[4:9] == [1, 1, 0, 0, 4] and words[9] == operation


def pid_of(line):
    return int.from_bytes(bytes_of(line, "in")[12:16], "little")


def assert_session(run, reads):
    """The calls of a run: opened, bound, subscribed, so many datagrams, unsubscribed, closed."""
    lines = calls(run)
    assert lines[0] == "socket socket NETLINK DGRAM 11 = 3"
    bind = re.fullmatch(r"bind socket in=\S+ = 0", lines[1])
    assert bind, lines[1]
    address = bytes_of(lines[1], "in")
    assert len(address) == 12
    assert address[:4] == b"\x10\0\0\0"
    assert address[8:] == b"\x01\0\0\0"
    assert lines[2].startswith("write socket ") and lines[2].endswith(" = 40")
    assert subscription(lines[2], LISTEN)
    assert pid_of(lines[2]) == int.from_bytes(address[4:8], "little") > 0
    middle = [line.split(" ")[0] for line in lines[3:-2]]
    assert middle[: 2 * reads] == ["poll", "read"] * reads
    assert set(middle[2 * reads :]) <= {"poll"}
    assert subscription(lines[-2], IGNORE)
    assert lines[-1] == "close socket = 0"


def test_prints_every_kind_of_event_on_standard_error(board):
    events(
        board,
        "0.1 fork 10 11 12 13",
        "0.2 exec 12 13",
        "0.3 uid 12 13 1000 0",
        "0.4 gid 12 13 100 -1",
        "0.5 session 12 13",
        "0.6 comm 12 13 kworker/0:1",
        "0.7 coredump 12 13",
        "0.8 exit 12 13",
    )
    run = proctrace(board, signals=["INT@2"])
    assert run.stderr == (
        b"fork pid=10/tgid=11 -> pid=12/tgid=13\n"
        b"exec pid=12/tgid=13\n"
        b"uid pid=12/tgid=13 -> ruid=1000/euid=0\n"
        b"gid pid=12/tgid=13 -> rgid=100/egid=-1\n"
        b"session pid=12/tgid=13\n"
        b"comm pid=12/tgid=13: 'kworker/0:1'\n"
        b"coredump pid=12/tgid=13\n"
        b"exit pid=12/tgid=13\n"
    )
    assert run.stdout == INTERRUPTED
    assert run.status == 0
    assert_session(run, 1 + 8)  # the answer to the subscription, and the events


def test_acknowledgement_prints_nothing(board):
    events(board)
    run = proctrace(board, signals=["INT@1"])
    assert (run.stdout, run.stderr, run.status) == (INTERRUPTED, b"", 0)
    assert_session(run, 1)


@pytest.mark.parametrize("words", [("-h",), ("anything", "at", "all")])
def test_arguments_are_ignored(board, words):
    events(board, "0.1 exec 1 2")
    run = proctrace(board, *words, signals=["INT@1"])
    assert (run.stdout, run.stderr, run.status) == (INTERRUPTED, b"exec pid=1/tgid=2\n", 0)


@pytest.mark.parametrize(
    "line, text",
    [
        ("0.2 ptrace 5 6", b"unhandled event: 0x     100\n"),
        ("0.2 event 0x20000000 5 6", b"unhandled event: 0x20000000\n"),
    ],
)
def test_unknown_event_ends_the_trace(board, line, text):
    events(board, "0.1 exec 1 2", line, "0.3 exec 3 4")
    run = proctrace(board)
    assert (run.stdout, run.stderr, run.status) == (b"", b"exec pid=1/tgid=2\n" + text, 0)
    assert_session(run, 3)


def test_waits_without_limit(board):
    events(board, "3600 exec 1 2")
    run = proctrace(board, signals=["INT@4000"])
    assert run.stderr == b"exec pid=1/tgid=2\n"
    assert "poll forever" in run.requests
    assert run.trace[-1][0] >= 4000


def test_ends_on_sigterm_as_any_program(board):
    run = proctrace(board, seconds=10)
    assert run.status == 128 + 15


def test_runs_without_standard_input(board):
    events(board, "0.1 exec 1 2")
    program = board.build / "bin/benchrig"
    run = board.run_command(
        ["sh", "-c", 'exec "$@" <&-', "sh", program, "btdbg", "proctrace"], signals=["INT@1"]
    )
    assert (run.stdout, run.stderr, run.status) == (INTERRUPTED, b"exec pid=1/tgid=2\n", 0)
    assert "socket socket NETLINK DGRAM 11 = 0" in run.requests


def test_socket_that_is_not_made_is_reported(board):
    board.fault("socket socket errno=EMFILE")
    run = proctrace(board)
    assert run.stdout == b"[proctrace_main:212]RETURN:Create socket fail[24]\n"
    assert run.stderr == b""
    assert run.status == 6  # the low byte of 0xB8090006
    assert calls(run) == ["socket socket NETLINK DGRAM 11 = EMFILE"]


def test_kernel_without_the_connector_is_reported(board):
    board.path("netlink/connector").unlink()
    run = proctrace(board)
    assert run.stdout == b"[proctrace_main:212]RETURN:Create socket fail[93]\n"
    assert run.status == 6


def test_bind_that_is_refused_is_reported_and_the_socket_closed(board):
    text = board.path("netlink/connector").read_text(encoding="utf-8")
    board.path("netlink/connector").write_text(
        text.replace("denied = 0", "denied = 1"), encoding="utf-8"
    )
    run = proctrace(board)
    assert run.stdout == b"[proctrace_main:220]WARN:bind socket fail[1]\n"
    assert run.stderr == b""
    assert run.status == 7
    lines = calls(run)
    assert len(lines) == 3  # and no subscription is taken back
    assert lines[1].endswith(" = EPERM")
    assert lines[2] == "close socket = 0"


def test_subscription_that_is_not_sent_is_not_reported(board):
    board.fault("socket write errno=ECONNREFUSED nth=1")
    run = proctrace(board, signals=["INT@1"])
    assert (run.stdout, run.stderr, run.status) == (INTERRUPTED, b"", 0)
    assert calls(run)[2].endswith(" = ECONNREFUSED")
    assert_closed(run)


def assert_closed(run):
    lines = calls(run)
    assert subscription(lines[-2], IGNORE)
    assert lines[-1] == "close socket = 0"


def test_receive_that_fails_ends_the_trace(board):
    events(board, "0.1 exec 1 2", "0.2 exec 3 4")
    board.fault("socket read errno=ENOBUFS nth=2")
    run = proctrace(board)
    assert run.stdout == b"[recv_proc_event:139]WARN:netlink recvmsg fail[105]\n"
    assert run.stderr == b""
    assert run.status == 0
    assert_closed(run)


def message(what, words, connector=(1, 1), length=76):
    data = b"".join(
        word.to_bytes(4, "little")
        for word in [length, 3, 0, 0, *connector, 0, 0, 40, what, 0, 0, 0, *words]
    )
    return data.ljust(76, b"\0")


def raw(seconds, data):
    return f"{seconds} raw {data.hex()}"


def test_datagram_may_hold_several_messages(board):
    events(
        board, raw(0.1, message(2, [1, 2]) + message(1, [3, 4, 5, 6]) + message(0x80000000, [7, 8]))
    )
    run = proctrace(board, signals=["INT@1"])
    assert run.stderr == (
        b"exec pid=1/tgid=2\n" b"fork pid=3/tgid=4 -> pid=5/tgid=6\n" b"exit pid=7/tgid=8\n"
    )


def test_datagram_is_read_up_to_256_bytes(board):
    # Of a fourth message only 28 bytes arrive: its length does not fit them.
    events(board, raw(0.1, message(2, [1, 2]) * 3 + message(2, [9, 9])), "0.2 exec 3 4")
    run = proctrace(board, signals=["INT@1"])
    assert run.stderr == b"exec pid=1/tgid=2\n" * 3 + b"exec pid=3/tgid=4\n"
    assert run.status == 0


@pytest.mark.parametrize(
    "data",
    [
        b"\x10\0\0\0",  # shorter than a header
        message(2, [1, 2], length=15),
        message(2, [1, 2], length=77),
        message(2, [1, 2], connector=(2, 1)),  # another connector
        message(2, [1, 2], connector=(1, 2)),
    ],
)
def test_datagram_that_is_none_is_skipped(board, data):
    events(board, raw(0.1, data), "0.2 exec 3 4")
    run = proctrace(board, signals=["INT@1"])
    assert (run.stdout, run.stderr, run.status) == (INTERRUPTED, b"exec pid=3/tgid=4\n", 0)
    assert_session(run, 3)


def test_name_of_16_characters_needs_no_end(board):
    events(board, "0.1 comm 1 2 0123456789abcdef")
    assert proctrace(board, signals=["INT@1"]).stderr == b"comm pid=1/tgid=2: '0123456789abcdef'\n"


def test_second_run_begins_anew(board):
    events(board, "0.1 exec 1 2")
    for _ in range(2):
        assert proctrace(board, signals=["INT@1"]).stderr == b"exec pid=1/tgid=2\n"
