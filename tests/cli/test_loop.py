"""bt2 loop: keeps a processor busy for ever, as a real-time task with -r."""

import pathlib

import pytest

CPUINFO = pathlib.Path(__file__).resolve().parents[1] / "data/proc/cpuinfo"

USAGE = (
    b"\nUsage: loop [option]\n\noption: -h help\n"
    b"        -r runtime task\n"
    b"        -n normal task\n"
    b"example:\n"
    b"  loop -r\n\n"
)

# A loop never waits, so that these seconds pass on the PC too.
SECONDS = 0.3
ENDED = 128 + 15


def loop(board, *words, **options):
    return board.run("bt2", "loop", *words, **options)


def cpuinfo(board, text):
    board.path("proc/cpuinfo").write_text(text, encoding="utf-8")


def processors(count):
    return "".join(f"processor\t: {i}\nmodel name\t: ARMv7\n\n" for i in range(count))


def scheduling(run):
    return [line for line in run.requests if line.startswith("sched_")]


@pytest.mark.parametrize(
    "words",
    [(), ("-h",), ("-r", "-h"), ("-n", "-h"), ("-nh",), ("word", "-h"), ("-r", "word", "-h")],
)
def test_help_or_nothing_prints_the_usage(board, words):
    run = loop(board, *words, rigcore=[])
    assert (run.stdout, run.stderr, run.status) == (b"", USAGE, 255)
    assert scheduling(run) == []


@pytest.mark.parametrize("words", [("-n",), ("-nn",), ("word",), ("--",), ("-",)])
def test_normal_loop_runs_until_it_is_killed(board, words):
    run = loop(board, *words, seconds=SECONDS, rigcore=[])
    assert (run.stdout, run.stderr, run.status) == (b"", b"", ENDED)
    assert scheduling(run) == []


def test_ctrl_c_ends_it(board):
    run = loop(board, "-n", signals=[f"INT@{SECONDS}"])
    assert (run.stdout, run.stderr, run.status) == (b"", b"", 128 + 2)


def test_unknown_option_is_complained_about_and_loops(board):
    run = loop(board, "-x", seconds=SECONDS, rigcore=[])
    assert run.stdout == b""
    assert run.stderr.startswith(b"loop: ") and run.stderr.count(b"\n") == 1
    assert b"'x'" in run.stderr
    assert run.status == ENDED


@pytest.mark.parametrize("words", [("-r",), ("-nr",), ("-r", "-n"), ("word", "-r")])
@pytest.mark.parametrize("name, last", [("raspberrypi2.txt", 3), ("odroid-u2.txt", 3)])
def test_realtime_task_is_pinned_to_the_last_processor(board, words, name, last):
    cpuinfo(board, (CPUINFO / name).read_text(encoding="utf-8"))
    run = loop(board, *words, seconds=SECONDS, rigcore=[f'rig_thread_set_cpu "self" {last} = 0'])
    assert (run.stdout, run.stderr, run.status) == (b"", b"", ENDED)
    assert scheduling(run) == ["sched_setscheduler RR 10 = 0"]
    assert run.requests.index("close /proc/cpuinfo = 0") < run.requests.index(scheduling(run)[0])


def test_two_processors_suffice(board):
    cpuinfo(board, processors(2))
    run = loop(board, "-r", seconds=SECONDS, rigcore=['rig_thread_set_cpu "self" 1 = 0'])
    assert (run.stdout, run.status) == (b"", ENDED)


def test_pinning_that_fails_does_not_matter(board):
    cpuinfo(board, processors(64))
    run = loop(board, "-r", seconds=SECONDS, rigcore=['rig_thread_set_cpu "self" 63 = -1 errno=22'])
    assert (run.stdout, run.stderr, run.status) == (b"", b"", ENDED)
    assert scheduling(run) == ["sched_setscheduler RR 10 = 0"]


@pytest.mark.parametrize(
    "text, count",
    [
        ((CPUINFO / "beagleboard-xm.txt").read_text(encoding="utf-8"), 1),
        (processors(1), 1),
        ("Processor: 0\n processor: 1\n", 0),
        ("", 0),
    ],
)
def test_realtime_task_needs_two_processors(board, text, count):
    cpuinfo(board, text)
    run = loop(board, "-r", rigcore=[])
    assert run.stdout == b"Get CPU number fail! cpu_number[%d]\n" % count
    assert (run.stderr, run.status) == (b"", 255)
    assert scheduling(run) == []
    assert run.requests[-1] == "close /proc/cpuinfo = 0"


def test_processors_that_cannot_be_counted_are_reported(board):
    board.fault("/proc/cpuinfo open errno=EACCES")
    cpuinfo(board, processors(4))
    run = loop(board, "-r", rigcore=[])
    assert run.stdout == (
        b"Open /proc/cpuinfo faild[13]!\n" b"Get CPU number fail! cpu_number[-1]\n"
    )
    assert (run.stderr, run.status) == (b"", 255)
