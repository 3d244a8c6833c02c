"""vboard run --tty and --type: a terminal for the command, and keys at a board time."""

import fcntl
import os
import pty
import re
import select
import signal
import struct
import subprocess
import termios

import pytest

from conftest import EMULATOR, HANGS_AFTER_SECONDS, environment

BRIGHTNESS = "/sys/class/leds/buzzer/brightness"
READ_KEY = 'read -n 1 -t 5 x; echo " $? [$x]"'

# The launcher is the PC's own.
pytestmark = pytest.mark.skipif(bool(EMULATOR), reason="nothing here is emulated")


def shell(board, text, **options):
    return board.run_command(["bash", "-c", text], **options)


def results(run):
    return run.status, run.stdout, run.stderr


# --- the terminal ---------------------------------------------------------------------------------


def test_all_standard_streams_are_a_terminal(board):
    run = shell(board, "test -t 0 && test -t 1 && test -t 2 && echo yes", terminal=True)
    assert results(run) == (0, b"yes\r\n", b"")


def test_without_the_option_there_is_no_terminal(board):
    assert results(shell(board, "test -t 0 || test -t 1 || test -t 2")) == (1, b"", b"")


def test_the_terminal_has_a_name(board):
    run = board.run_command(["tty"], terminal=True)
    assert (run.status, run.stderr) == (0, b"")
    assert re.fullmatch(rb"/dev/pts/[0-9]+\r\n", run.stdout)


def test_the_terminal_has_24_lines_of_80_columns(board):
    assert results(board.run_command(["stty", "size"], terminal=True)) == (0, b"24 80\r\n", b"")


def test_it_controls_a_session_that_the_command_leads(board):
    run = shell(
        board,
        "read -r pid _ _ _ _ session _ < /proc/$$/stat; echo $((pid - session)); tty </dev/tty"
        "; echo said >/dev/tty",
        terminal=True,
    )
    assert results(run) == (0, b"0\r\n/dev/tty\r\nsaid\r\n", b"")


def test_standard_error_is_printed_in_its_order(board):
    run = shell(board, "echo 1; echo 2 >&2; echo 3", terminal=True)
    assert results(run) == (0, b"1\r\n2\r\n3\r\n", b"")


def test_messages_of_the_launcher_are_not_printed_on_it(board):
    run = shell(board, "echo text; sleep 10; echo more", terminal=True, power_cut=1)
    assert results(run) == (82, b"text\r\n", b"power cut\n")


@pytest.mark.parametrize("speed", ["max", "1"])
def test_much_that_is_printed_is_printed_whole(board, speed):
    run = board.run_command(["seq", "20000"], terminal=True, speed=speed)
    lines = b"".join(b"%d\r\n" % number for number in range(1, 20001))
    assert results(run) == (0, lines, b"")


def test_standard_input_is_typed(board):
    run = shell(board, 'read -r x; echo "<$x>"', terminal=True, stdin=b"two words\n")
    assert results(run) == (0, b"two words\r\n<two words>\r\n", b"")


def test_the_end_of_standard_input_types_nothing(board):
    run = shell(board, f"read -r -t 2 x; echo $?; cat {BRIGHTNESS}", terminal=True)
    assert run.stdout == b"142\r\n0\r\n"
    assert run.trace[-2][0] == pytest.approx(2, abs=0.01)


WAITS_FOR_EVER = b"vboard: waits for ever: read descriptor 0\n"


@pytest.mark.parametrize(
    "options, printed",
    [
        ({"terminal": True}, b""),
        ({"stdin": b"one\n", "terminal": True}, b"one\r\n<one>\r\n"),
        ({"typed": ["one\\n@2"]}, b"one\r\n<one>\r\n"),
    ],
)
def test_a_read_for_which_nobody_types_waits_for_ever(board, options, printed):
    run = shell(board, 'read -r x; echo "<$x>"; read -r x </dev/stdin; echo more', **options)
    assert results(run) == (83, printed, WAITS_FOR_EVER)


def test_a_read_waits_for_standard_input_that_is_open(board):
    words = [board.build / "bin/vboard", "run", "--board", board.directory, "--speed", "max"]
    with subprocess.Popen(
        [*map(str, words), "--tty", "--", "bash", "-c", 'echo a; read -r x </dev/tty; echo "<$x>"'],
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        env=environment(),
    ) as process:
        assert process.stdout.read(3) == b"a\r\n"
        with pytest.raises(subprocess.TimeoutExpired):
            process.wait(timeout=0.5)
        stdout, stderr = process.communicate(b"late\n", timeout=HANGS_AFTER_SECONDS)
    assert (process.returncode, stdout, stderr) == (0, b"late\r\n<late>\r\n", b"")


def test_the_exit_status_is_the_commands(board):
    assert results(shell(board, "exit 7", terminal=True)) == (7, b"", b"")


# --- keys at a time -------------------------------------------------------------------------------


@pytest.mark.parametrize("speed", ["max", "20"])
def test_a_key_ends_a_read_at_its_moment(board, speed):
    run = shell(board, f"{READ_KEY}; cat {BRIGHTNESS}", typed=["q@3"], speed=speed)
    assert results(run) == (0, b"q 0 [q]\r\n0\r\n", b"")
    assert run.trace[0][0] >= 3
    assert run.trace[-1][0] < (3.01 if speed == "max" else 4.9)


def test_a_key_at_the_end_of_a_wait_still_counts(board):
    # The shell's clock has used some microseconds when it begins to wait.
    run = shell(board, READ_KEY, typed=["q@5"])
    assert results(run) == (0, b"q 0 [q]\r\n", b"")


def test_a_key_that_comes_late_is_there_for_the_next_read(board):
    run = shell(board, f"{READ_KEY}; {READ_KEY}", typed=["q@6"])
    assert results(run) == (0, b" 142 []\r\nq 0 [q]\r\n", b"")


def test_keys_at_one_moment_stay_in_order(board):
    run = shell(board, f"{READ_KEY}; {READ_KEY}", typed=["a@2", "b@2"])
    assert results(run) == (0, b"ab 0 [a]\r\n 0 [b]\r\n", b"")


def test_keys_are_typed_in_the_order_of_their_times(board):
    run = shell(board, f"{READ_KEY}; {READ_KEY}", typed=["b@3.5", "a@2"])
    assert results(run) == (0, b"a 0 [a]\r\nb 0 [b]\r\n", b"")


@pytest.mark.parametrize(
    "text, read",
    [
        ("one\\ntwo\\n", b"one\ntwo\n"),
        ("a@b\\n", b"a@b\n"),
        ("\\\\n\\n", b"\\n\n"),
        ("a\\tb\\n", b"a\tb\n"),
        ("a\\e[A\\n", b"a\x1b[A\n"),
        ("carriage\\r", b"carriage\n"),
        ("\\x41\\x7a\\xe9\\xFF\\n", b"Az\xe9\xff\n"),
        ("x" * 255 + "\\n", b"x" * 255 + b"\n"),
    ],
)
def test_a_text_may_have_escapes(board, text, read, tmp_path):
    run = shell(board, f"stty -echo; cat > {tmp_path}/read", typed=[f"{text}@1", "\\x04@2"])
    assert results(run) == (0, b"", b"")
    assert (tmp_path / "read").read_bytes() == read


@pytest.mark.parametrize("speed", ["max", "20"])
def test_an_interrupt_key_ends_a_command(board, speed):
    run = board.run_command(["sleep", "600"], typed=["\\x03@2.5"], speed=speed)
    assert results(run) == (128 + signal.SIGINT, b"^C", b"")
    if speed == "max":
        assert run.trace == [(2.5, "sleep 600.000000")]


def test_an_interrupt_key_runs_a_handler(board):
    run = shell(board, f"trap 'echo; cat {BRIGHTNESS}; exit 4' INT; sleep 9", typed=["\\x03@2.5"])
    assert results(run) == (4, b"^C\r\n0\r\n", b"")
    assert run.trace[-1][0] == pytest.approx(2.5, abs=0.01)


def test_a_quit_key_works_where_the_launcher_ignores_it(board):
    word = ["bash", "-c", "trap '' INT QUIT; exec \"$@\"", "bash"]
    words = [*word, board.build / "bin/vboard", "run", "--board", board.directory, "--speed", "max"]
    done = subprocess.run(
        [*map(str, words), "--type", "\\x1c@1", "--", "sleep", "600"],
        stdin=subprocess.DEVNULL,
        capture_output=True,
        env=environment(),
        timeout=HANGS_AFTER_SECONDS,
        check=False,
    )
    assert (done.returncode, done.stdout, done.stderr) == (128 + signal.SIGQUIT, b"^\\", b"")


def test_a_sleep_goes_on_when_another_key_comes(board):
    run = board.run_command(["sleep", "600"], typed=["q@2.5"])
    assert results(run) == (0, b"q", b"")
    assert run.trace == [(600, "sleep 600.000000")]


def test_runs_with_keys_are_equal(board):
    text = (
        "(for i in 1 2 3 4; do sleep 0.5; cat /sys/class/leds/buzzer/brightness; done) & "
        "(sleep 1; echo b; sleep 1; echo d) & trap 'echo int' INT; "
        f"{READ_KEY}; {READ_KEY}; {READ_KEY}; wait"
    )
    runs = [shell(board, text, typed=["x@1", "y@1.5", "z@2", "\\x03@2.25"]) for _ in range(25)]
    for run in runs:
        assert (results(run), run.trace) == (results(runs[0]), runs[0].trace)
    assert b"x 0 [x]\r\n" in runs[0].stdout


# --- wrong options --------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "word",
    [
        *("x", "x@", "@1", "x@y", "x@-1", "\\q@1", "\\@1", "\\x@1", "\\x4@1", "\\x4g@1"),
        "x" * 257 + "@1",
    ],
)
def test_a_wrong_text_is_refused(board, word):
    run = shell(board, "echo ran", typed=[word])
    assert results(run) == (125, b"", b"vboard: --type: wrong value '%s'\n" % word.encode())


def test_64_texts_are_the_most(board):
    run = shell(board, "stty -echo; head -c 64", typed=["\\n@1"] * 64)
    assert results(run) == (0, b"\r\n" * 64, b"")
    run = shell(board, "echo ran", typed=["x@1"] * 65)
    assert results(run) == (125, b"", b"vboard: --type: wrong value 'x@1'\n")


@pytest.mark.parametrize("options", [{"terminal": True}, {"typed": ["x@1"]}])
def test_a_story_of_a_terminal_is_refused(board, options):
    run = shell(board, "echo ran", story=True, **options)
    assert (run.status, run.stdout, run.story) == (125, b"", [])
    assert run.stderr.startswith(b"vboard: --story: ")


# --- a person's terminal --------------------------------------------------------------------------


def test_the_launchers_own_terminal_passes_keys_on_and_is_restored(board):
    master, slave = pty.openpty()
    fcntl.ioctl(slave, termios.TIOCSWINSZ, struct.pack("4H", 30, 100, 0, 0))
    before = termios.tcgetattr(slave)
    text = 'stty size; read -r x; echo "<$x>"; exec sleep 600'
    words = [board.build / "bin/vboard", "run", "--board", board.directory, "--tty", "--"]
    with subprocess.Popen(
        [*map(str, words), "bash", "-c", text],
        stdin=slave,
        stdout=slave,
        stderr=slave,
        env=environment(),
        start_new_session=True,
        preexec_fn=lambda: fcntl.ioctl(0, termios.TIOCSCTTY, 0),
    ) as process:
        shown = b""

        def show_until(end):
            nonlocal shown
            while not shown.endswith(end):
                assert select.select([master], [], [], HANGS_AFTER_SECONDS)[0], shown
                shown += os.read(master, 4096)

        show_until(b"30 100\r\n")
        assert termios.tcgetattr(slave)[3] & (termios.ECHO | termios.ISIG | termios.ICANON) == 0
        os.write(master, b"key\r")
        show_until(b"<key>\r\n")
        os.write(master, b"\x03")
        show_until(b"^C")
        assert process.wait(timeout=HANGS_AFTER_SECONDS) == 128 + signal.SIGINT
    assert shown == b"30 100\r\nkey\r\n<key>\r\n^C"
    assert termios.tcgetattr(slave) == before
    os.close(master)
    os.close(slave)
