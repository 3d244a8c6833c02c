"""A program that overruns the memory which it shares with vboard harms nobody but its own run."""

import os
import random
import struct
import subprocess
import time

import pytest

from conftest import HANGS_AFTER_SECONDS, environment, read_story

OVERWRITTEN = b"vboard: the run's memory was overwritten\n"
PAGE = 4096

# A command says where the memory is, and goes on when there is a file "go". It does not wait until
# then: at --speed max waiting lets board time pass.
BEGIN = 'echo "$VBOARD_RUN"; until [ -e go ]; do :; done; '
# Calls that reach the board follow the overrun, if the run lasts until then; a loop without any at
# the end, so that nothing but vboard ends it.
COMMAND = """
cat /sys/class/leds/buzzer/brightness; echo 1 >/sys/class/leds/buzzer/brightness; sleep 1; date
while :; do :; done"""


def children_of(process):
    with open(f"/proc/{process}/task/{process}/children", encoding="ascii") as file:
        return list(map(int, file.read().split()))


class Shared:
    """A run whose command waits for a line, and the memory of its processes."""

    def __init__(self, build, place, options, command=("sh", "-c", BEGIN + COMMAND)):
        self.go = place / "go"
        self.process = subprocess.Popen(
            list(map(str, [build / "bin/vboard", "run", *options, "--", *command])),
            stdin=subprocess.DEVNULL,
            cwd=place,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            env={**environment(), "TMPDIR": str(place)},
            start_new_session=True,
        )
        file = self.process.stdout.readline().decode().strip()
        self.fd = os.open(file, os.O_RDWR)
        self.size = os.fstat(self.fd).st_size
        self.keeper = int(file.split("/")[2])
        (self.command,) = children_of(self.keeper)

    def end(self, text=""):
        """Lets the command go on: the status and what was written to standard error."""
        new = self.go.with_name("new")
        new.write_text(text)
        new.rename(self.go)
        _, stderr = self.process.communicate(timeout=HANGS_AFTER_SECONDS)
        return self.process.returncode, stderr


@pytest.fixture
def shared(build, tmp_path):
    begun = []

    def begin(*options, **others):
        begun.append(Shared(build, tmp_path, options, **others))
        return begun[-1]

    yield begin
    for run in begun:
        run.process.kill()
        run.process.communicate()
        os.close(run.fd)


@pytest.fixture
def bystander():
    """A process that is not of the run."""
    with subprocess.Popen(["sleep", "1000"]) as process:
        yield process
        process.kill()


PATTERNS = {
    "ones": lambda size: b"\xff" * size,
    "zeros": bytes,
    "random": random.Random(1).randbytes,
    "text": lambda size: (b"overrun " * size)[:size],
}
# Of the page, or of all that the processes share; an overrun from behind leaves the front.
PARTS = [(0, PAGE), (0, None), (12, PAGE), (40, PAGE), (128, 512)]


@pytest.mark.parametrize("speed", ["1", "max"])
@pytest.mark.parametrize("pattern", PATTERNS.values(), ids=PATTERNS)
@pytest.mark.parametrize("first, last", PARTS)
def test_an_overrun_ends_the_run(shared, bystander, tmp_path, first, last, pattern, speed):
    signals = [word for at in range(15) for word in ("--signal", f"WINCH@{500 + at}")]
    run = shared("--speed", speed, "--for", "1000", *signals)
    begun = time.monotonic()
    os.pwrite(run.fd, pattern((last or run.size) - first), first)
    status, stderr = run.end()
    assert status == 125
    assert stderr.endswith(OVERWRITTEN)
    assert time.monotonic() - begun < 30
    assert list(tmp_path.iterdir()) == [run.go]
    assert bystander.poll() is None


REBOOT = "ctypes.CDLL(None).reboot(0x1234567)"


# The first signal's time, number and mark on the page, and the number of signals in front of it.
@pytest.mark.parametrize("offset", [0, 8, 12, -8])
def test_a_planned_signal_is_not_overwritten_unseen(shared, offset):
    signals = ("--signal", "WINCH@1000", "--signal", "URG@1001")
    run = shared("--speed", "max", *signals, command=("sh", "-c", BEGIN + "exit 7"))
    at = os.pread(run.fd, PAGE, 0).index(struct.pack("q", 1000 * 10**9))
    os.pwrite(run.fd, b"\x0b", at + offset)
    assert run.end() == (125, OVERWRITTEN)


# The program has the page in its own memory; who stands in a place of the page is replaced.
OVERRUN_AND_WAIT = """
import ctypes, os, struct, time
print(os.environ["VBOARD_RUN"], flush=True)
while not os.path.exists("go"):
    pass
old, new = map(int, open("go").read().split())
with open("/proc/self/maps") as maps:
    address = next(int(line.split("-")[0], 16) for line in maps if "vboard-run" in line)
page = (ctypes.c_char * 4096).from_address(address)
at = page.raw.index(struct.pack("i", old))
page[at:at + 4] = struct.pack("i", new)
time.sleep(10000)
"""


@pytest.mark.parametrize("speed", ["1", "max"])
@pytest.mark.parametrize("field", ["keeper", "command"])
def test_the_page_does_not_say_who_is_signalled(shared, bystander, speed, field):
    """Neither to vboard nor, at --speed max, to the programs themselves."""
    signals = ("--signal", "WINCH@1000", "--signal", "KILL@1001", "--for", "1002")
    command = ("/usr/bin/python3", "-c", OVERRUN_AND_WAIT)
    run = shared("--speed", speed, *signals, command=command)
    assert run.end(f"{getattr(run, field)} {bystander.pid}") == (125, OVERWRITTEN)
    assert bystander.poll() is None


def test_a_reset_is_not_reported_to_another_process(shared, bystander):
    """The program's side: it reports a reset to the process that it found on the page."""
    command = ("/usr/bin/python3", "-c", OVERRUN_AND_WAIT.replace("time.sleep(10000)", REBOOT))
    run = shared("--speed", "max", command=command)
    assert run.end(f"{run.keeper} {bystander.pid}") == (125, OVERWRITTEN)
    assert bystander.poll() is None


def test_the_memory_keeps_its_size(shared):
    run = shared(command=("sh", "-c", BEGIN + "exit 7"))
    for size in (0, PAGE, run.size + PAGE):
        with pytest.raises(PermissionError):
            os.ftruncate(run.fd, size)
    assert run.end() == (7, b"")


def test_a_hole_in_the_memory_is_an_overrun(shared):
    run = shared(command=("sh", "-c", BEGIN + "exit 7"))
    words = ["fallocate", "--punch-hole", "--offset", "0", "--length", str(run.size)]
    subprocess.run([*words, f"/proc/self/fd/{run.fd}"], check=True, pass_fds=[run.fd])
    assert run.end() == (125, OVERWRITTEN)


def test_an_overrun_is_noticed_at_the_end_at_the_latest(shared):
    run = shared("--speed", "max", command=("sh", "-c", BEGIN + "exit 7"))
    os.pwrite(run.fd, b"x", 0)
    assert run.end() == (125, OVERWRITTEN)


@pytest.mark.parametrize("pattern", PATTERNS.values(), ids=PATTERNS)
def test_a_story_outlasts_an_overrun(shared, tmp_path, pattern):
    file = tmp_path / "story"
    text = "echo before >&2; " + BEGIN + "echo after; exit 7"
    run = shared("--story", file, command=("sh", "-c", text))
    os.pwrite(run.fd, pattern(run.size), 0)
    status, stderr = run.end()
    assert status == 125
    assert stderr.startswith(b"before\n") and stderr.endswith(OVERWRITTEN)
    assert 'err "before\\n"' in read_story(file)


def test_a_board_keeps_its_clock_when_the_memory_is_overwritten(shared, board):
    words = ("--board", board.directory, "--speed", "max")
    board.run_command(["sh", "-c", "sleep 3600"])
    before = board.path("clock").read_text()
    run = shared(*words)
    os.pwrite(run.fd, b"\x7f" * PAGE, 0)
    status, stderr = run.end()
    assert (status, stderr[-len(OVERWRITTEN) :]) == (125, OVERWRITTEN)
    assert board.path("clock").read_text() == before
