"""bt2 apinet: prints the address of ppp0 once a second until it is stopped."""

import re
import struct

import pytest

from device_trace import unpacked

ADDRESS = b"get ppp0 ipaddr:10.64.0.2.\n"


def failed(errno):
    return b"1get_ipaddr ioctl error and errno=%d\n" % errno


def test_prints_the_address_once_a_second_until_killed(board):
    run = board.run("bt2", "apinet", seconds=3.5)
    assert (run.status, run.stdout, run.stderr) == (143, ADDRESS * 4, b"")


def test_ctrl_c_ends_it(board):
    run = board.run("bt2", "apinet", signals=["INT@2.5", "TERM@9"])
    assert (run.status, run.stdout, run.stderr) == (130, ADDRESS * 3, b"")


@pytest.mark.parametrize("words", [("-h",), ("autotest",), ("a", "b", "c")])
def test_ignores_its_arguments(board, words):
    run = board.run("bt2", "apinet", *words, seconds=1.5)
    assert (run.status, run.stdout, run.stderr) == (143, ADDRESS * 2, b"")


def test_each_round_opens_asks_closes_and_sleeps(board):
    run = board.run("bt2", "apinet", seconds=1.5)
    steps = [line.split()[0] for line in run.requests]
    assert steps == ["socket", "ioctl", "close", "sleep"] * 2
    assert run.sleeps == [1.0, 1.0]
    # AF_INET, SOCK_STREAM
    assert "INET" in run.requests[0] and "STREAM" in run.requests[0]
    asked = run.requests[1]
    assert " SIOCGIFADDR " in asked
    # The name in a zero-filled 16-byte field.
    sent = re.search(r" in=(\S+)", asked)
    assert sent is None or unpacked(sent[1])[:16] == struct.pack("16s", b"ppp0")


def test_keeps_asking_an_interface_that_has_no_address(board):
    board.fault("net:ppp0 ioctl:SIOCGIFADDR errno=EADDRNOTAVAIL")
    run = board.run("bt2", "apinet", seconds=2.5)
    assert (run.status, run.stdout, run.stderr) == (143, failed(99) * 3, b"")
    assert [line.split()[0] for line in run.requests] == ["socket", "ioctl", "close", "sleep"] * 3


def test_prints_the_address_again_when_it_comes_back(board):
    board.fault("net:ppp0 ioctl:SIOCGIFADDR errno=EIO nth=2")
    run = board.run("bt2", "apinet", seconds=2.5)
    assert (run.status, run.stdout, run.stderr) == (143, ADDRESS + failed(5) + ADDRESS, b"")


def test_prints_the_address_that_the_interface_has(board):
    board.path("net/ppp0").write_text("ipv4 = 203.0.113.254\n", encoding="utf-8")
    run = board.run("bt2", "apinet", seconds=0.5)
    assert (run.status, run.stdout, run.stderr) == (143, b"get ppp0 ipaddr:203.0.113.254.\n", b"")


def test_interface_missing(board):
    board.fault("net:ppp0 absent")
    run = board.run("bt2", "apinet", seconds=1.5)
    assert (run.status, run.stdout, run.stderr) == (143, failed(19) * 2, b"")


def test_waits_for_the_next_round_when_no_socket_is_to_be_had(board):
    board.fault("socket socket errno=EMFILE nth=2")
    run = board.run("bt2", "apinet", seconds=2.5)
    assert (run.status, run.stdout, run.stderr) == (143, ADDRESS * 2, b"")
    assert [line.split()[0] for line in run.requests] == [
        "socket",
        "ioctl",
        "close",
        "sleep",
        "socket",
        "sleep",
        "socket",
        "ioctl",
        "close",
        "sleep",
    ]
