"""vboard run --story: requests, waits and what the program prints, in one order."""

import subprocess

import pytest

from conftest import assert_story, environment, err, out

BRIGHTNESS = "/sys/class/leds/buzzer/brightness"


def shell(board, text, **options):
    return board.run_command(["sh", "-c", text], story=True, **options)


def test_texts_requests_and_waits_are_in_their_order(board):
    run = shell(board, f"echo first; cat {BRIGHTNESS}; echo second >&2; sleep 1.5; echo third")
    assert_story(
        run,
        out("first\n"),
        f"open {BRIGHTNESS} RDONLY = 3",
        f"read {BRIGHTNESS} out=300a = 2",
        out("0\n"),
        f"read {BRIGHTNESS} = 0",
        f"close {BRIGHTNESS} = 0",
        err("second\n"),
        "sleep 1.500000",
        out("third\n"),
    )
    assert (run.stdout, run.stderr) == (b"first\n0\nthird\n", b"second\n")


def test_a_text_on_the_other_side_of_a_wait_is_another_story(board):
    before = shell(board, "echo text; sleep 1").story
    after = shell(board, "sleep 1; echo text").story
    assert before == [*out("text\n"), "sleep 1.000000"]
    assert after == list(reversed(before))


def test_the_streams_keep_their_order_among_each_other(board):
    run = shell(board, "echo 1; echo 2 >&2; echo 3; printf 4 >&2; printf 5; echo 6 >&2")
    assert_story(run, out("1\n"), err("2\n"), out("3\n"), err("4"), out("5"), err("6\n"))
    assert (run.stdout, run.stderr) == (b"1\n3\n5", b"2\n46\n")


@pytest.mark.parametrize("program", ["prints", "prints_plain"])
def test_the_streams_of_the_c_library_keep_their_order(board, build, program):
    run = board.run_command([build / "tests/probes" / program], story=True)
    pairs = zip("acegikmoq", "bdfhjlnp")
    assert_story(
        run,
        *(line for first, second in pairs for line in (out(f"{first}\n"), err(f"{second}\n"))),
        out("q\n"),
        err("r: No such file or directory\n"),
        out("s\n"),
        err("t: Interrupt\n"),
    )


def test_a_line_in_pieces_is_one_line(board):
    assert_story(
        shell(board, "printf a; printf b; printf 'c\\nd'; sleep 1; echo e"),
        out("abc\n"),
        out("d"),
        "sleep 1.000000",
        out("e\n"),
    )


def test_bytes_are_escaped(board):
    run = shell(board, r"""printf 'q"b\\t\tr\rn\nx\001\177\303\274\n'""")
    assert run.story == [r'out "q\"b\\t\tr\rn\n"', r'out "x\x01\x7f\xc3\xbc\n"']
    assert_story(run, out(b'q"b\\t\tr\rn\nx\x01\x7f\xc3\xbc\n'))


def test_repeats_are_folded_with_a_count(board, tmp_path):
    file = tmp_path / "story"
    board.vboard(
        *("run", "--board", board.directory, "--speed", "max", "--story", file, "--", "sh", "-c"),
        "echo x; echo x; sleep 1; sleep 1; sleep 1; sleep 2; echo x",
    )
    assert file.read_text().splitlines() == [
        r'out "x\n" (2 times)',
        "sleep 1.000000 (3 times)",
        "sleep 2.000000",
        r'out "x\n"',
    ]


def test_the_trace_stays_as_it_is(make_board):
    words = ("bt1", "rtc", "autotest")
    plain = make_board().run(*words, date="2024-01-01 00:00:00")
    both = make_board().run(*words, date="2024-01-01 00:00:00", story=True)
    assert both.trace == plain.trace
    assert [line for line in both.story if not line.startswith(("out ", "err "))] == plain.requests
    assert (both.stdout, both.stderr, both.status) == (plain.stdout, plain.stderr, plain.status)
    texts = [line for line in both.story if line.startswith("out ")]
    assert texts == out(plain.stdout)


def test_a_story_is_the_same_each_time(make_board):
    words = ("bt1", "gsensor", "autotest")
    stories = [
        make_board().run(*words, date="2024-01-01 00:00:00", story=True).story for _ in range(5)
    ]
    assert stories[0] and all(one == stories[0] for one in stories)


def test_much_output_arrives_whole(board):
    run = shell(
        board, "head -c 3000000 /dev/zero | tr '\\0' x; sleep 1; head -c 70000 /dev/zero >&2"
    )
    assert (run.stdout, run.stderr) == (b"x" * 3000000, b"\0" * 70000)
    assert_story(run, out(b"x" * 3000000), "sleep 1.000000", err(b"\0" * 70000))


def test_the_status_is_the_commands(board):
    assert shell(board, "echo x; exit 7").status == 7
    assert shell(board, "kill -TERM $$").status == 128 + 15


@pytest.mark.parametrize(
    "command, status, end",
    [(["benchrig", "bt1", "wdt", "1"], 80, "board reset"), (["reboot"], 81, "board reboot")],
)
def test_the_end_of_the_board_is_the_last_line(board, build, command, status, end):
    if command[0] == "benchrig":
        command[0] = build / "bin/benchrig"
        run = board.run_command(command, story=True)
    else:
        run = shell(board, "echo before; exec reboot")
    assert run.status == status
    assert run.story[-1] == end
    assert run.stderr.endswith(end.encode() + b"\n")


def test_a_reader_that_leaves_ends_the_command(board, build, tmp_path):
    words = [build / "bin/vboard", "run", "--board", board.directory, "--story", tmp_path / "story"]
    with subprocess.Popen([*words, "--", "yes"], stdout=subprocess.PIPE, env=environment()) as run:
        assert run.stdout.readline() == b"y\n"
        run.stdout.close()
        assert run.wait(timeout=60) == 128 + 13


def test_a_story_that_cannot_be_written_is_refused(board, build, tmp_path):
    words = [build / "bin/vboard", "run", "--story", tmp_path / "none/story", "--", "echo", "x"]
    done = subprocess.run(words, capture_output=True, env=environment(), timeout=60, check=False)
    assert (done.returncode, done.stdout) == (125, b"")
    assert b"none/story: No such file or directory" in done.stderr


def test_processes_side_by_side_tell_one_story(board):
    run = shell(
        board, "for i in 1 2 3; do cat /sys/class/leds/buzzer/brightness & done; wait; echo end"
    )
    lines = [line for line in run.story if line.startswith("read") and "out=" in line]
    assert len(lines) == 3
    assert run.story.count(r'out "0\n"') == 3
    assert run.story[-1] == r'out "end\n"'
