"""Starting and stopping: what every applet has in common, whatever it does."""

import re
import subprocess

import pytest

from conftest import EMULATOR, program


def direct(build, *words, **options):
    """Without a virtual board: for what touches no device."""
    return subprocess.run(
        [*program(build / "bin/benchrig"), *words],
        capture_output=True,
        timeout=60,
        check=False,
        **options,
    )


def test_runs_from_any_directory(build, tmp_path):
    run = direct(build, "version", cwd=tmp_path)
    assert (run.returncode, run.stderr) == (0, b"")
    assert list(tmp_path.iterdir()) == []


def test_runs_through_a_link(build, tmp_path):
    link = tmp_path / "tool"
    link.symlink_to(build / "bin/benchrig")
    run = subprocess.run([*program(link), "version"], capture_output=True, timeout=60, check=False)
    assert run.returncode == 0
    # The program's name is its own, not the link's.
    assert re.search(rb"\nbenchrig v2\.0\.0 build ", run.stdout)


def test_runs_in_an_empty_environment(build):
    run = direct(build, "version", env={})
    assert (run.returncode, run.stderr) == (0, b"")


def test_runs_with_its_streams_closed(build):
    words = [*program(build / "bin/benchrig"), "version"]
    run = subprocess.run(
        ["sh", "-c", 'exec "$@" <&- >&- 2>&-', "sh", *words],
        capture_output=True,
        timeout=60,
        check=False,
    )
    assert (run.returncode, run.stdout, run.stderr) == (0, b"", b"")


@pytest.mark.parametrize(
    "words",
    [
        ("bt1", "rtc"),
        ("bt1", "lcd", "-p", "-i"),
        ("bt1", "gsensor", "autotest"),
        ("bt1", "iccard", "-w"),
        ("bt1", "iccard", "autotest"),
        ("bt1", "wdt"),
        ("bt2", "apinet"),
    ],
    ids="-".join,
)
def test_a_device_that_gets_the_number_of_standard_input_is_open(make_board, build, words):
    if EMULATOR:
        pytest.skip("the emulator may take the first descriptor itself")
    options = {"date": "2024-01-05 09:05:03", "seconds": 100, "story": True}
    usual = make_board().run(*words, **options)
    closed = ["sh", "-c", 'exec "$0" "$@" <&-', build / "bin/benchrig", *words]
    run = make_board().run_command(closed, **options)
    assert run.status == usual.status
    assert [line for line in usual.story if line.endswith(" = 3")]
    # The first descriptor is 0 and not 3; that is all that differs.
    assert run.story == [
        re.sub(r"^((?:open|socket) .*) = 3$", r"\1 = 0", line) for line in usual.story
    ]


@pytest.mark.parametrize(
    "words, last",
    [
        (("bt1", "wdt"), b"Wdt fed 1 times \n"),
        (("bt1", "beep", "autotest"), b"beep open!\r\n"),
        (("bt2", "apinet"), b"get ppp0 ipaddr:10.64.0.2.\n"),
    ],
)
def test_whole_lines_reach_a_pipe_at_once(board, words, last):
    run = board.run(*words, signals=["KILL@6.5"])
    assert run.stderr == b""
    if words[1] == "beep":  # has ended by itself
        assert run.status == 0
    else:
        assert run.status == 137
        assert run.stdout.endswith(last)


def test_two_runs_on_one_board_do_not_disturb_each_other(board):
    script = (
        'for n in 1 2 3 4; do "$0" bt1 bootparam set >/dev/null & done; '
        '"$0" bt1 beep autotest; wait'
    )
    run = board.run_command(["sh", "-c", script, board.build / "bin/benchrig"])
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout == b"beep open!\r\nbeep close!\r\n" * 3 + b"BEEP AUTOTEST FINISH!\n"


def test_two_boards_are_two(make_board):
    first, second = make_board(), make_board()
    first.run("bt1", "beep", "1")
    second.run("bt1", "beep", "0")
    assert int(first.path("sys/class/leds/buzzer/brightness").read_bytes()) != 0
    assert int(second.path("sys/class/leds/buzzer/brightness").read_bytes()) == 0
