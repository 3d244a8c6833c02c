"""One clock for all processes of a run at --speed max: whoever waits for another gets a right answer."""

import shutil
import time

import pytest

from conftest import EMULATOR, is_instrumented, program
from probes import one_probe, probe

# Programs of the PC, which an emulated run has none of.
natively = pytest.mark.skipif(bool(EMULATOR), reason="the PC's programs are of another kind")
PYTHON = "/usr/bin/python3"


@pytest.fixture(autouse=True)
def no_sanitizer(board):
    if is_instrumented(board.build):
        pytest.skip("the PC's programs are not instrumented")


def shell(board, text, **options):
    return board.run_command(["bash", "-c", text], **options)


def python(board, text, **options):
    return board.run_command([PYTHON, "-c", text], **options)


@natively
@pytest.mark.parametrize(
    "text, output",
    [
        ("read -t 5 x < <(sleep 1; echo hi); echo $x", "hi\n"),
        ("read -t 5 x < <(sleep 6; echo hi) || echo late", "late\n"),
        ("(sleep 3; echo b) & (sleep 1; echo a) & wait; echo done", "a\nb\ndone\n"),
        ("sleep 5 & sleep 2; echo $(jobs -r | wc -l); wait; jobs", "1\n"),
        ("(sleep 2; echo x) | (read -t 1 y || echo none; read z; echo $z)", "none\nx\n"),
        ("for i in 3 1 2; do (sleep $i; echo $i) & done; wait", "1\n2\n3\n"),
        ("(sleep 1; echo one; sleep 2; echo two) | sed s/o/0/ | tr e E", "0nE\ntw0\n"),
        ("timeout 5 sleep 4; echo $?; timeout 4 sleep 5; echo $?", "0\n124\n"),
        ("sleep 100 & p=$!; sleep 1; kill $p; wait $p; echo $?", "143\n"),
        ("sleep 100 & p=$!; sleep 1; kill -9 $p; wait $p 2>&-; echo $?", "137\n"),
        ("trap 'echo caught' USR1; (sleep 2; kill -USR1 $$) & sleep 3; echo end", "caught\nend\n"),
        ("dd if=/dev/zero bs=300000 count=1 status=none | (sleep 2; wc -c)", "300000\n"),
    ],
    ids=range(12),
)
def test_a_shell_s_processes_share_one_clock(board, text, output):
    run = shell(board, text)
    assert (run.stdout.decode(), run.stderr, run.status) == (output, b"", 0)


@natively
@pytest.mark.skipif(shutil.which("smartctl") is None, reason="no smartctl here")
def test_a_limit_does_not_end_a_program_that_needs_no_board_time(board):
    run = board.run_command(["timeout", "60", "smartctl", "-i", "/dev/sda"])
    assert run.status == 0
    assert b"SMART support is: Enabled" in run.stdout


def test_a_limit_ends_an_applet_that_takes_longer(board):
    benchrig = " ".join(str(word) for word in program(board.build / "bin/benchrig"))
    assert shell(board, f"timeout 5 {benchrig} bt1 rtc").status == 124
    assert shell(board, f"timeout 60 {benchrig} bt1 rtc").status != 124


@natively
@pytest.mark.parametrize(
    "text, output",
    [
        ("print(subprocess.run(['sleep', '30'], timeout=60).returncode)", "0\n"),
        (
            "try: subprocess.run(['sleep', '70'], timeout=60)\n"
            "except subprocess.TimeoutExpired: print('late')",
            "late\n",
        ),
        ("print(subprocess.check_output(['sh', '-c', 'sleep 5; echo x'], timeout=6))", "b'x\\n'\n"),
    ],
)
def test_limits_of_python_s_subprocess(board, text, output):
    run = python(board, "import subprocess\n" + text)
    assert (run.stdout.decode(), run.status) == (output, 0)


@natively
def test_limits_hold_whatever_else_the_pc_does(board):
    text = "read -t 5 x < <(sleep 1; echo hi); echo $x; timeout 5 sleep 4; echo $?"
    answers = [shell(board, text).stdout for _ in range(25)]
    assert answers == [b"hi\n0\n"] * 25


@natively
def test_two_processes_give_the_same_story_each_time(board):
    text = (
        "(for i in 1 2 3; do cat /sys/class/leds/buzzer/brightness; sleep 0.5; done) & "
        "for i in 1 2 3; do head -c 28 /dev/gyro | wc -c; sleep 0.3; done; wait"
    )
    board.set("/dev/gyro", "poll_ms", "100")

    def story():
        run = shell(board, text, story=True, date="2024-01-05 09:05:03")
        assert run.stderr == b""
        return run.story

    first = story()
    assert len(first) > 12
    for _ in range(24):
        assert story() == first


# --- Who computes, who prints, who polls ------------------------------------------------------------


def seconds_of(work):
    start = time.monotonic()
    result = work()
    return time.monotonic() - start, result


@natively
@pytest.mark.parametrize(
    "text, status",
    [
        ("while :; do :; done", 143),
        ("while :; do echo x; done", 143),
        ("while :; do :; done & sleep 59; kill %1; sleep 10", 143),
        ("yes", 143),
        ("while :; do read -t 0 x < /dev/null; done", 143),
    ],
    ids=["endless", "prints", "beside", "yes", "polls"],
)
def test_a_minute_beside_one_that_never_waits_is_soon_over(board, text, status):
    took, run = seconds_of(lambda: shell(board, text, seconds=60))
    assert run.status == status
    assert took < 20


@natively
def test_who_computes_is_named_once(board):
    run = shell(board, "while :; do :; done & sleep 600; sleep 600; kill %1; echo end")
    assert run.stdout == b"end\n"
    line = b"vboard: board time goes on without bash, which computes without a call\n"
    assert run.stderr == line


@natively
def test_the_story_says_that_order_is_lost(board):
    run = shell(board, "while :; do :; done & sleep 60; kill %1", story=True)
    assert (
        "board time goes on without bash, which computes without a call: "
        "the order is not promised any more"
    ) in run.story


@natively
def test_who_polls_the_clock_gets_on(board):
    text = "import time\nend = time.time() + 30\nwhile time.time() < end: pass\nprint('over')"
    took, run = seconds_of(lambda: python(board, text))
    assert run.stdout == b"over\n"
    assert took < 15


@natively
def test_an_alarm_reaches_a_program_that_computes(board):
    text = "import signal\nsignal.alarm(30)\nwhile True: pass"
    took, run = seconds_of(lambda: python(board, text))
    assert run.status == 128 + 14
    assert took < 20


def test_a_short_piece_of_work_costs_no_board_time(board, one_probe):
    run = board.run_command([one_probe, "busy"])
    assert run.stdout.decode().splitlines()[0] == "0.0 worked"


@natively
@pytest.mark.skipif(shutil.which("gdb") is None, reason="no debugger here")
def test_a_debugger_works(board):
    commands = ["set breakpoint pending on", "break ioctl", "run", "delete", "continue"]
    words = [word for one in commands for word in ("-ex", one)]
    benchrig = board.build / "bin/benchrig"
    run = board.run_command(
        ["gdb", "-q", "-batch", *words, "--args", benchrig, "bt1", "rtc", "autotest"]
    )
    assert b"Breakpoint 1" in run.stdout
    assert b"RTC AUTOTEST FINISH!" in run.stdout
    assert b"exited normally" in run.stdout


# --- Nothing left to wait for -----------------------------------------------------------------------


@pytest.mark.parametrize(
    "steps, what",
    [
        (["open", "/dev/rtc0", "rdwr", "read", "4"], "read /dev/rtc0"),
        (["open", "/dev/rtc0", "rdwr", "poll", "-1"], "poll /dev/rtc0"),
        (["pause"], "a signal"),
    ],
)
def test_a_wait_for_ever_ends_the_run(board, one_probe, steps, what):
    run = board.run_command([one_probe, *steps])
    assert run.status == 83
    assert run.stderr.decode() == f"vboard: waits for ever: {what}\n"


@natively
def test_several_waits_for_ever_are_all_named(board):
    run = shell(board, "sleep infinity & cat /dev/rtc0")
    assert run.status == 83
    assert run.stderr == b"vboard: waits for ever: a child, a signal, read /dev/rtc0\n"


@natively
def test_a_wait_for_something_outside_goes_on(board):
    # The other end of its standard input is the test's.
    run = board.run_command(["bash", "-c", "read x; echo $x"], stdin=b"hello\n")
    assert (run.stdout, run.status) == (b"hello\n", 0)
