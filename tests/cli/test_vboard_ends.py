"""The end of a run is the end of all its processes, and of its temporary board.

Every process of a run inherits the writing end of a pipe. Its reader finds the end of the file when
none of them is left, nor vboard itself.
"""

import os
import select
import shutil
import signal
import subprocess
import time

import pytest

from conftest import EMULATOR, HANGS_AFTER_SECONDS, environment, storm

# Long enough that nobody mistakes it for an end by itself.
LONG = 1000

# The launcher is the PC's own.
pytestmark = pytest.mark.skipif(bool(EMULATOR), reason="nothing here is emulated")


class Started:
    """A run that goes on beside the test, and its processes."""

    def __init__(self, words, env, **options):
        self.alive, inherited = os.pipe()
        self.process = subprocess.Popen(
            list(map(str, words)),
            stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE,
            stderr=subprocess.PIPE,
            pass_fds=[inherited],
            env=env,
            start_new_session=True,
            **options,
        )
        os.close(inherited)

    @property
    def launcher(self):
        return self.process.pid

    def line(self):
        """The next line that the command prints."""
        return self.process.stdout.readline().decode().rstrip("\n")

    def numbers(self):
        return [int(word) for word in self.line().split()]

    def has_processes(self, seconds=0.0):
        """Whether a process is left after so long."""
        return not select.select([self.alive], [], [], seconds)[0]

    def end(self, seconds=HANGS_AFTER_SECONDS):
        """The status of vboard, once all of its processes have ended."""
        assert not self.has_processes(seconds), "a process is left"
        status = self.process.wait(timeout=HANGS_AFTER_SECONDS)
        return 128 - status if status < 0 else status

    def clean(self):
        """Ends what a test leaves, wherever it is; a process may have begun while others were ended."""
        for _ in range(100):
            for process in self.holders():
                os.kill(process, signal.SIGKILL)
            if not self.has_processes(0.1):
                break
        self.process.communicate()
        os.close(self.alive)

    def holders(self):
        """The processes that hold the pipe."""
        pipe = f"pipe:[{os.fstat(self.alive).st_ino}]"
        for process in filter(str.isdigit, os.listdir("/proc")):
            try:
                fds = os.listdir(f"/proc/{process}/fd")
                holds = any(os.readlink(f"/proc/{process}/fd/{fd}") == pipe for fd in fds)
            except OSError:
                continue
            if holds and int(process) != os.getpid():
                yield int(process)


@pytest.fixture
def place(tmp_path):
    """TMPDIR of the runs."""
    directory = tmp_path / "place"
    directory.mkdir()
    return directory


@pytest.fixture
def start(build, place):
    """start("--for", 1, text="sleep 5"): a shell's run on a fresh board, with these options."""
    started = []

    def begin(*options, text, before=(), env=None):
        words = [*before, build / "bin/vboard", "run", *options, "--", "sh", "-c", text]
        run = Started(words, {**environment(), "TMPDIR": str(place), **(env or {})})
        started.append(run)
        return run

    yield begin
    for run in started:
        run.clean()


def parent_of(process):
    with open(f"/proc/{process}/stat", encoding="utf-8") as file:
        return int(file.read().rpartition(")")[2].split()[1])


def state_of(process):
    """A letter, or None for a process that is not there."""
    try:
        with open(f"/proc/{process}/stat", encoding="utf-8") as file:
            return file.read().rpartition(")")[2].split()[0]
    except FileNotFoundError:
        return None


def processor_time(process):
    """What a process has taken, in ticks."""
    with open(f"/proc/{process}/stat", encoding="utf-8") as file:
        return sum(map(int, file.read().rpartition(")")[2].split()[11:13]))


def wait_for(condition):
    for _ in range(HANGS_AFTER_SECONDS * 100):
        if condition():
            return
        time.sleep(0.01)
    pytest.fail("it does not come to that")


# What a command leaves in the background. Each says that it is there.
LEFT = {
    "a job": f"sleep {LONG} & echo ready",
    "a job that ignores signals": f"(trap '' TERM HUP INT; echo ready; sleep {LONG}) &",
    "a stopped job": f"sleep {LONG} & kill -STOP $!; echo ready",
    "a session": f"setsid sh -c 'echo ready; sleep {LONG}; :' &",
    "a daemon": f"(setsid sh -c '(echo ready; sleep {LONG}; :) &' &)",
    "many": f"for i in 1 2 3 4 5 6 7 8; do setsid sleep {LONG} & done; echo ready",
    "a chain": f'(sh -c "sh -c \'setsid sh -c \\"echo ready; sleep {LONG}; :\\" &\' & sleep {LONG}" &)',
    "a fork storm": "(echo ready; while :; do (sleep 0.01; sleep 0.01) & done) 2>/dev/null &",
}


@pytest.fixture(params=LEFT.values(), ids=LEFT)
def left(request):
    return request.param + "\n"


# --- The ends of a run -----------------------------------------------------------------------------


def test_nothing_outlives_the_command(start, place, left):
    run = start(text=f"{left}sleep 0.2; exit 7")
    assert run.line() == "ready"
    assert run.end() == 7
    assert list(place.iterdir()) == []


def test_a_command_that_ends_at_once_leaves_nothing_that_has_just_begun(start, place, left):
    assert start(text=f"{left}exit 7").end() == 7
    assert list(place.iterdir()) == []


def test_nothing_outlives_for(start, place, left):
    run = start("--for", "0.5", text=f"{left}exec sleep {LONG}")
    assert run.end() == 128 + signal.SIGTERM
    assert list(place.iterdir()) == []


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGHUP])
def test_nothing_outlives_a_signal_to_vboard(start, place, left, number):
    run = start(text=f"{left}exec sleep {LONG}")
    assert run.line() == "ready"
    os.kill(run.launcher, number)
    assert run.end() == 128 + number
    assert list(place.iterdir()) == []


def test_nothing_outlives_a_vboard_that_is_killed(start, place, left):
    run = start(text=f"{left}sleep {LONG}")
    assert run.line() == "ready"
    os.kill(run.launcher, signal.SIGKILL)
    assert run.end() == 128 + signal.SIGKILL
    assert list(place.iterdir()) == []


def test_nothing_outlives_a_process_group_that_is_killed(start, place, left):
    run = start(text=f"{left}sleep {LONG}")
    assert run.line() == "ready"
    os.killpg(run.launcher, signal.SIGKILL)
    assert run.end() == 128 + signal.SIGKILL
    assert list(place.iterdir()) == []


def test_nothing_outlives_the_keeper(start, place, left):
    run = start(text=f"echo $PPID; {left}sleep {LONG}")
    keeper = int(run.line())
    assert run.line() == "ready"
    os.kill(keeper, signal.SIGKILL)
    assert run.end() == 125
    assert run.process.stderr.read() == b"vboard: the keeper of the run was killed by signal 9\n"
    assert list(place.iterdir()) == []


def test_nothing_outlives_a_reboot(start, left):
    run = start(text=f"{left}sleep 0.1; reboot; sleep {LONG}")
    assert run.line() == "ready"
    assert run.end() == 81


def test_killing_by_name_leaves_the_keeper(start):
    run = start(text=f"echo $PPID; sleep {LONG}")
    keeper = run.line()
    with open(f"/proc/{keeper}/comm", encoding="utf-8") as file:
        assert file.read() == "keeper\n"


@pytest.mark.parametrize("how", ["--for", "signal"])
def test_a_command_that_does_not_mind_is_killed_five_seconds_later(start, how):
    options = ["--for", "0.2"] if how == "--for" else []
    run = start(*options, text=f"trap '' TERM; echo ready; sleep {LONG} & wait; sleep {LONG}")
    assert run.line() == "ready"
    begun = time.monotonic()
    if how == "signal":
        os.kill(run.launcher, signal.SIGTERM)
    assert run.has_processes(4)
    assert run.end() == 128 + signal.SIGKILL
    assert time.monotonic() - begun < 15


def test_a_command_has_its_time_to_tidy_up(start):
    run = start(text=f"trap 'sleep 0.5; echo tidy; exit 3' TERM; echo ready; sleep {LONG} & wait")
    assert run.line() == "ready"
    os.kill(run.launcher, signal.SIGTERM)
    assert run.line() == "tidy"
    assert run.end() == 3


def test_a_run_is_ended_before_it_has_begun(start, place):
    for pause in range(storm(100)):
        run = start(text=f"sleep {LONG}")
        time.sleep(pause / 10000)
        os.kill(run.launcher, signal.SIGKILL)
        assert run.end() == 128 + signal.SIGKILL
    # One that was killed while it made its board may have left an empty directory.
    assert all(list(board.iterdir()) == [] for board in place.iterdir())


def test_nothing_outlives_a_vboard_that_is_killed_when_nobody_reads_its_output(start, tmp_path):
    text = f"echo $PPID; exec yes {'x' * 1000}"
    run = start("--story", tmp_path / "story", text=text)
    keeper = int(run.line())
    wait_for(lambda: processor_time(keeper) == (time.sleep(0.3) or processor_time(keeper)))
    os.kill(run.launcher, signal.SIGKILL)
    assert run.end() == 128 + signal.SIGKILL


# --- What the processes are to each other, and to the caller's -------------------------------------


def test_the_command_stays_in_the_session_of_vboard(start):
    run = start(text=f"echo $PPID $$; sleep {LONG}")
    keeper, command = run.numbers()
    assert (os.getsid(command), os.getpgid(command)) == (run.launcher, run.launcher)
    assert parent_of(keeper) == run.launcher
    assert os.getsid(keeper) == keeper


def test_signals_are_to_the_command_as_vboard_found_them(build):
    before = ["env", "--ignore-signal=QUIT", "--default-signal=INT", "--block-signal=USR1"]
    words = [*before, build / "bin/vboard", "run", "--", "grep", "-E", "^Sig(Blk|Ign)"]
    done = subprocess.run(
        [*words, "/proc/self/status"], capture_output=True, env=environment(), check=True
    )
    told = dict(line.split(":\t") for line in done.stdout.decode().splitlines())
    assert int(told["SigBlk"], 16) == 1 << signal.SIGUSR1 - 1
    assert int(told["SigIgn"], 16) & (1 << signal.SIGQUIT - 1) != 0
    assert int(told["SigIgn"], 16) & (1 << signal.SIGINT - 1) == 0


def test_children_that_vboard_found_are_not_the_runs(start, build):
    words = f'sleep {LONG} & echo $!; exec "$@"'
    run = start(text=f"echo $PPID; sleep {LONG}", before=["sh", "-c", words, "sh"])
    other, keeper = int(run.line()), int(run.line())
    os.kill(keeper, signal.SIGKILL)
    assert run.process.wait(timeout=HANGS_AFTER_SECONDS) == 125
    assert state_of(other) == "S"


def test_the_end_of_such_a_child_is_not_the_runs(start):
    run = start(text="sleep 0.5; exit 7", before=["sh", "-c", 'sleep 0.1 & exec "$@"', "sh"])
    assert run.end() == 7


@pytest.mark.parametrize("number", [signal.SIGTERM, signal.SIGKILL])
def test_a_run_in_a_run_ends_with_it(start, build, number):
    run = start(text=f'echo ready; "{build}/bin/vboard" run -- sleep {LONG}; :')
    assert run.line() == "ready"
    os.kill(run.launcher, number)
    assert run.end() == 128 + number


# --- Boards that nobody uses any more ---------------------------------------------------------------


@pytest.fixture
def left_over(start, place):
    """left_over(): a temporary board of which launcher and keeper were killed at once."""

    def make():
        before = set(place.iterdir())
        run = start(
            text=f"echo 1 >/sys/class/leds/buzzer/brightness; echo $PPID; exec sleep {LONG}"
        )
        keeper = int(run.line())
        os.kill(run.launcher, signal.SIGSTOP)
        wait_for(lambda: state_of(run.launcher) == "T")
        os.kill(keeper, signal.SIGKILL)
        os.kill(run.launcher, signal.SIGKILL)
        run.clean()
        run.clean = lambda: None
        (board,) = set(place.iterdir()) - before
        assert (board / "sys/class/leds/buzzer/brightness").exists()
        return board

    return make


def test_a_later_run_sweeps_what_is_left_over(start, place, left_over):
    for _ in range(3):
        left_over()
    assert start(text=":").end() == 0
    assert list(place.iterdir()) == []


def test_a_run_on_a_board_of_its_own_sweeps_nothing(start, place, left_over, board):
    stale = left_over()
    assert start("--board", board.directory, text=":").end() == 0
    assert list(place.iterdir()) == [stale]


def test_a_board_in_use_is_not_swept(start, place):
    brightness = "/sys/class/leds/buzzer/brightness"
    using = start(text=f"echo 1 >{brightness}; echo ready; sleep 1; cat {brightness}")
    assert using.line() == "ready"
    for _ in range(3):
        assert start(text=":").end() == 0
    assert len(list(place.iterdir())) == 1
    assert using.line() == "1"
    assert using.end() == 0


def test_only_what_vboard_made_is_swept(start, place, left_over, tmp_path, build):
    stale = left_over()
    shutil.copytree(stale, place / "vboard.backup", symlinks=True)
    shutil.copytree(stale, place / "vboard.longer-name", symlinks=True)
    (place / "vboard.letter").write_text("x")
    (place / "vboard.folder").mkdir()
    (place / "vboard.folder/kept").write_text("x")
    # Another's directory, by a link of the right name.
    elsewhere = tmp_path / "vboard.linked"
    elsewhere.mkdir()
    (elsewhere / ".vboard.linked").write_text("")
    (elsewhere / "kept").write_text("x")
    (place / "vboard.linked").symlink_to(elsewhere)
    subprocess.run(
        [build / "bin/vboard", "new", place / "vboard.boards"], check=True, env=environment()
    )
    before = sorted(place.rglob("*"))
    assert start(text=":").end() == 0
    assert sorted(place.rglob("*")) == [
        file for file in before if file != stale and stale not in file.parents
    ]
    assert (elsewhere / "kept").exists()


def test_a_left_over_board_of_another_user_stays(start, place, left_over):
    if os.getuid() != 0:
        pytest.skip("only root makes files of another user")
    stale = left_over()
    os.chown(stale, 65534, 65534)
    assert start(text=":").end() == 0
    assert list(place.iterdir()) == [stale]


def test_a_link_in_a_left_over_board_is_removed_and_not_followed(start, place, left_over, tmp_path):
    stale = left_over()
    (tmp_path / "kept").mkdir()
    (tmp_path / "kept/file").write_text("x")
    (stale / "link").symlink_to(tmp_path / "kept")
    assert start(text=":").end() == 0
    assert list(place.iterdir()) == []
    assert (tmp_path / "kept/file").exists()


def test_folders_without_rights_are_removed(start, place):
    text = 'mkdir -p "$VBOARD_DIR/a/b" && touch "$VBOARD_DIR/a/b/c" && chmod 0 "$VBOARD_DIR/a/b" "$VBOARD_DIR/a"'
    assert start(text=text).end() == 0
    assert list(place.iterdir()) == []


def test_runs_that_sweep_side_by_side_do_not_disturb_each_other(start, place, left_over):
    for _ in range(storm(20)):
        left_over()
        left_over()
        runs = [
            start(text="echo 1 >/sys/class/leds/buzzer/brightness; cat /etc/fw_env.config")
            for _ in range(6)
        ]
        for run in runs:
            assert run.end() == 0
            assert b"/dev/mtd" in run.process.stdout.read()
        assert list(place.iterdir()) == []
