"""bt1 beep: the buzzer, through the platform library."""

import pytest

from conftest import assert_story, out

USAGE = b"\nUsage: beep [onoff]\n\n\n\nexample:\n  beep 1\n  beep 0\n"
OPEN = b"beep open!\r\n"
CLOSE = b"beep close!\r\n"
SELF_TEST = (OPEN + CLOSE) * 3 + b"BEEP AUTOTEST FINISH!\n"
BRIGHTNESS = "sys/class/leds/buzzer/brightness"


def level(board):
    return int(board.path(BRIGHTNESS).read_bytes())


@pytest.mark.parametrize("words", [(), ("1", "0"), ("autotest", "1"), ("-h", "1")])
def test_wrong_count_prints_usage_and_fails(board, words):
    run = board.run("bt1", "beep", *words, rigcore=[])
    assert (run.status, run.stdout, run.stderr) == (255, b"", USAGE)
    assert run.requests == []


@pytest.mark.parametrize(
    "word, passed, printed",
    [
        ("1", 1, b"open beep.\n"),
        ("0", 0, b"close beep.\n"),
        ("7", 7, b"open beep.\n"),  # any other number is passed as typed
        ("-1", -1, b"open beep.\n"),
        ("-h", 0, b"close beep.\n"),  # no option here: a word that is no number is 0
        ("on", 0, b"close beep.\n"),
        ("", 0, b"close beep.\n"),
        ("12x", 12, b"open beep.\n"),
        ("010", 10, b"open beep.\n"),  # decimal, never octal
        ("0x1", 0, b"close beep.\n"),
        ("2147483647", 2147483647, b"open beep.\n"),
        ("AUTOTEST", 0, b"close beep.\n"),
    ],
)
def test_passes_the_number_as_typed(board, word, passed, printed):
    run = board.run("bt1", "beep", word, rigcore=[f"rig_beep {passed} = 0"])
    assert (run.status, run.stdout, run.stderr) == (0, printed, b"")


def test_ignores_the_result_of_the_buzzer(board):
    run = board.run("bt1", "beep", "1", rigcore=["rig_beep 1 = -1 errno=19"])
    assert (run.status, run.stdout, run.stderr) == (0, b"open beep.\n", b"")


def test_autotest_beeps_three_times_a_second_each(board):
    run = board.run("bt1", "beep", "autotest", rigcore=["rig_beep 1 = 0", "rig_beep 0 = 0"] * 3)
    assert (run.status, run.stdout, run.stderr) == (0, SELF_TEST, b"")
    assert run.requests == ["sleep 1.000000"] * 6


def test_autotest_passes_with_a_buzzer_that_fails(board):
    run = board.run(
        "bt1",
        "beep",
        "autotest",
        rigcore=["rig_beep 1 = -1 errno=5", "rig_beep 0 = -1 errno=5"] * 3,
    )
    assert (run.status, run.stdout, run.stderr) == (0, SELF_TEST, b"")


def switched(level):
    return f"write /{BRIGHTNESS} in={level} = 1"  # a digit


ON, OFF = switched("31"), switched("30")
SECOND = "sleep 1.000000"


@pytest.mark.parametrize("word, write, printed", [("1", ON, "open"), ("0", OFF, "close")])
def test_switches_the_buzzer_of_the_board_then_says_so(board, word, write, printed):
    run = board.run("bt1", "beep", word, story=True)
    assert run.status == 0
    assert_story(run, write, out(f"{printed} beep.\n"), only=("write", "sleep"))
    assert level(board) == int(word)


def test_autotest_switches_the_buzzer_of_the_board_six_times(board):
    run = board.run("bt1", "beep", "autotest", story=True)
    assert run.status == 0
    assert_story(
        run,
        *[ON, out(OPEN), SECOND, OFF, out(CLOSE), SECOND] * 3,
        out("BEEP AUTOTEST FINISH!\n"),
        only=("write", "sleep"),
    )
    assert level(board) == 0


@pytest.mark.parametrize("fault", ["absent", "open errno=EACCES", "write errno=EIO"])
def test_is_silent_about_a_broken_buzzer(board, fault):
    board.fault(f"/{BRIGHTNESS} {fault}")
    run = board.run("bt1", "beep", "1")
    assert (run.status, run.stdout, run.stderr) == (0, b"open beep.\n", b"")


def test_autotest_is_not_stopped_by_ctrl_c(board):
    run = board.run("bt1", "beep", "autotest", signals=["INT@2.5"])
    assert (run.status, run.stdout, run.stderr) == (0, SELF_TEST, b"")


def test_what_was_printed_before_a_kill_is_not_lost(board):
    run = board.run("bt1", "beep", "autotest", seconds=2.5)
    assert (run.status, run.stdout, run.stderr) == (143, OPEN + CLOSE + OPEN, b"")
