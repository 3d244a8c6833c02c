"""bt2 apinet: prints the address of ppp0 once a second until it is stopped."""

import dataclasses
import re

import pytest

from conftest import assert_story, out, word_size
from device_trace import packed

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


SOCKET = "socket socket INET STREAM = 3"
CLOSE = "close socket = 0"
SECOND = "sleep 1.000000"

# The name in a zero-filled field of 16 bytes, and nothing in the rest of the record, whose size
# depends on the machine's pointers.
RECORD = b"ppp0".ljust(24 + 2 * word_size(), b"\0")
ASKED = f"ioctl net:ppp0 SIOCGIFADDR in={packed(RECORD)}"


def assert_rounds(run, *expected):
    """Compares the story; what the interface answered is seen in the text."""
    story = [re.sub(r" out=\S+", "", line) for line in run.story]
    assert_story(dataclasses.replace(run, story=story), *expected)


def test_each_round_opens_asks_prints_closes_and_sleeps(board):
    run = board.run("bt2", "apinet", seconds=1.5, story=True)
    assert_rounds(run, *[SOCKET, f"{ASKED} = 0", out(ADDRESS), CLOSE, SECOND] * 2)


def test_keeps_asking_an_interface_that_has_no_address(board):
    board.fault("net:ppp0 ioctl:SIOCGIFADDR errno=EADDRNOTAVAIL")
    run = board.run("bt2", "apinet", seconds=2.5, story=True)
    assert run.status == 143
    assert_rounds(run, *[SOCKET, f"{ASKED} = EADDRNOTAVAIL", out(failed(99)), CLOSE, SECOND] * 3)


def test_a_positive_result_is_no_failure(board):
    board.fault("net:ppp0 ioctl:SIOCGIFADDR result=1")
    run = board.run("bt2", "apinet", seconds=0.5)
    assert (run.status, run.stdout, run.stderr) == (143, ADDRESS, b"")


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
    run = board.run("bt2", "apinet", seconds=2.5, story=True)
    assert run.status == 143
    round = [SOCKET, f"{ASKED} = 0", out(ADDRESS), CLOSE, SECOND]
    assert_rounds(run, *round, "socket socket INET STREAM = EMFILE", SECOND, *round)
