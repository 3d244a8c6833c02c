"""bt1 vgadet: is a monitor plugged in."""

import pytest

USAGE = b"\nUsage: vgadet\n\n\n\n"
STATUS = "/sys/class/drm/card0-VGA-1/status"


@pytest.mark.parametrize("words", [("autotest",), ("-h",), ("",), ("1", "2")])
def test_any_argument_prints_usage_and_fails(board, words):
    run = board.run("bt1", "vgadet", *words, rigcore=[])
    assert (run.status, run.stdout, run.stderr) == (255, b"", USAGE)
    assert run.requests == []


@pytest.mark.parametrize("result", [1, 0, -1, 17, -2147483648])
def test_prints_what_the_library_detected_and_succeeds(board, result):
    run = board.run("bt1", "vgadet", rigcore=[f"rig_detect_vga = {result}"])
    assert (run.status, run.stdout, run.stderr) == (0, b"vga detect %d\n" % result, b"")


def test_sees_the_monitor_of_the_board(board):
    board.set(STATUS, "connected")
    run = board.run("bt1", "vgadet")
    assert (run.status, run.stdout, run.stderr) == (0, b"vga detect 1\n", b"")
    board.set(STATUS, "disconnected")
    run = board.run("bt1", "vgadet")
    assert (run.status, run.stdout, run.stderr) == (0, b"vga detect 0\n", b"")


@pytest.mark.parametrize("fault", ["absent", "read errno=EIO"])
def test_prints_minus_one_without_a_connector(board, fault):
    board.fault(f"{STATUS} {fault}")
    run = board.run("bt1", "vgadet")
    assert (run.status, run.stdout, run.stderr) == (0, b"vga detect -1\n", b"")
