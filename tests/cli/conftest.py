"""The executable on a virtual board.

A test takes the fixture `board`, breaks or sets what it needs, runs one command line and compares
exit status, both streams and the list of requests:

    def test_rtc_that_does_not_open(board):
        board.fault("/dev/rtc0 open errno=EIO")
        run = board.run("bt1", "rtc", "autotest")
        assert run.status == 255

A story holds the requests, the waits and the texts in one order, so that a text before a wait and
one after it are different results:

    run = board.run("bt1", "beep", "2", story=True)
    assert_story(run, out("buzzer on\n"), "sleep 2.000000", out("buzzer off\n"), only=("sleep",))

Time is virtual: a run of minutes takes milliseconds. BENCHRIG_BUILD names the build directory
(CTest sets it); executables are in its bin/, libraries in its lib/. A build for another machine has
the words of its emulator in BENCHRIG_EMULATOR: the virtual board uses it by itself, a test that
starts an executable on its own asks program() for the words. BENCHRIG_STORM=all makes the tests that
repeat something do so as often as storm() is asked, instead of ten times.
"""

import itertools
import os
import pathlib
import re
import shlex
import signal
import subprocess
from dataclasses import dataclass, field

import pytest

from device_trace import tidy

# Far above what any run takes: a run that reaches it hangs.
HANGS_AFTER_SECONDS = 60

# A background job of a shell inherits an ignored SIGINT; programs are tested as started from a terminal.
# A handler of this process is none of theirs, and costs less than preexec_fn for each of them.
signal.signal(signal.SIGINT, signal.default_int_handler)

EMULATOR = shlex.split(os.environ.get("BENCHRIG_EMULATOR", ""))


def program(file):
    """The words that start an executable of the build without a virtual board."""
    return [*EMULATOR, file]


def build_directory():
    name = os.environ.get("BENCHRIG_BUILD")
    if not name:
        pytest.exit("BENCHRIG_BUILD must name the build directory", returncode=2)
    return pathlib.Path(name).resolve()


def storm(times):
    """How often to repeat what takes hundreds of times to go wrong by chance."""
    return times if os.environ.get("BENCHRIG_STORM") == "all" else min(times, 10)


def word_size():
    """The bytes of a pointer in the programs of the build."""
    with open(build_directory() / "bin/benchrig", "rb") as file:
        return {1: 4, 2: 8}[file.read(5)[4]]  # an ELF file's class


@dataclass
class Run:
    """What one command did: its streams, its exit status and its calls on the board."""

    stdout: bytes
    stderr: bytes
    status: int
    trace: list = field(default_factory=list)  # (board time in seconds, line without the time)
    story: list = field(default_factory=list)  # its lines, repeats written out

    @property
    def requests(self):
        return [line for _, line in self.trace]

    def requests_on(self, *nodes):
        """The requests whose node is one of `nodes`, in order; "sleep" and "select" name waits."""
        return [
            line for line in self.requests if line.split()[1] in nodes or line.split()[0] in nodes
        ]

    @property
    def sleeps(self):
        """The seconds of every sleep, in order."""
        return [float(line.split()[1]) for line in self.requests if line.startswith("sleep ")]


class Board:
    """One board directory, and the commands that run on it."""

    def __init__(self, directory, scratch, build):
        self.directory = directory
        self.scratch = scratch
        self.build = build
        self.runs = 0

    def path(self, name):
        return self.directory / name

    def vboard(self, *arguments):
        """A command of vboard itself that must succeed; its standard output."""
        done = subprocess.run(
            [self.build / "bin/vboard", *map(str, arguments)],
            capture_output=True,
            timeout=HANGS_AFTER_SECONDS,
            check=False,
            env=environment(),
        )
        assert done.returncode == 0, (arguments, done.stdout, done.stderr)
        return done.stdout

    def set(self, *words):
        """set("/dev/lcd", "returns", "count") or, for an attribute, set("/sys/...", "1")."""
        self.vboard("set", self.directory, *words)

    def fault(self, line):
        with open(self.path("faults"), "a", encoding="utf-8") as faults:
            faults.write(line + "\n")

    def clear_faults(self):
        self.path("faults").write_text("", encoding="utf-8")

    def run(self, *arguments, **options):
        """Runs benchrig with `arguments`; the options are run_command()'s."""
        return self.run_command([self.build / "bin/benchrig", *arguments], **options)

    def run_command(
        self,
        command,
        signals=(),
        seconds=None,
        stdin=b"",
        date=None,
        speed="max",
        cwd=None,
        rigcore=None,
        env=None,
        story=False,
        power_cut=None,
        terminal=False,
        typed=(),
    ):
        """Runs a command on the board.

        signals  "NAME@SECONDS" each, sent at that board time
        seconds  board time after which SIGTERM ends the run
        rigcore  lines of a script for the stand-in librigcore, which then takes the real one's
                 place; an operation that is missing or was not expected fails the test
        story    whether the run's story is wanted
        power_cut  board time at which the power fails
        terminal  whether the command has a terminal, with `stdin` typed on it
        typed    "TEXT@SECONDS" each, typed on a terminal at that board time
        """
        self.runs += 1
        work = self.scratch / f"run{self.runs}"
        work.mkdir()
        trace = work / "trace"
        words = [
            self.build / "bin/vboard",
            "run",
            "--board",
            self.directory,
            "--speed",
            speed,
            "--trace",
            trace,
        ]
        for one in signals:
            words += ["--signal", one]
        if terminal:
            words += ["--tty"]
        for one in typed:
            words += ["--type", one]
        if seconds is not None:
            words += ["--for", seconds]
        if date is not None:
            words += ["--date", date]
        if power_cut is not None:
            words += ["--power-cut", power_cut]
        if story:
            words += ["--story", work / "story"]
        words += ["--", *command]

        variables = environment()
        if rigcore is not None:
            (work / "script").write_text("".join(line + "\n" for line in rigcore), encoding="utf-8")
            variables["LD_LIBRARY_PATH"] = str(self.build / "tests/standin")
            variables["RIG_SCRIPT"] = str(work / "script")
            variables["RIG_REPORT"] = str(work / "report")
        variables.update(env or {})
        if "LD_PRELOAD" in variables:
            # What is preloaded comes into the launcher as well, before any sanitizer of that one.
            variables.setdefault("ASAN_OPTIONS", "verify_asan_link_order=0")
        if EMULATOR and "LD_PRELOAD" in variables:
            # What is preloaded is for the command; the launcher runs on this machine. The board's own
            # part comes first.
            preload = f"{self.build.parent}/preload/$LIB/libvboard.so:{variables.pop('LD_PRELOAD')}"
            at = words.index("--") + 1
            words[at:at] = ["env", f"LD_PRELOAD={preload}"]

        if cwd is None:
            cwd = work / "cwd"
            cwd.mkdir()
        status, stdout, stderr = run_to_end(list(map(str, words)), stdin, cwd, variables)
        if rigcore is not None:
            # The stand-in writes it as soon as it is loaded: a missing one tells of another library.
            report = (work / "report").read_text(encoding="utf-8")
            assert (report, status != 99) == ("", True), (stdout, stderr)
        return Run(stdout, stderr, status, read_trace(trace), read_story(work / "story"))


def is_instrumented(build):
    """Whether the executable brings a sanitizer, whose run time wants to come first."""
    text = (build / "bin/benchrig").read_bytes()
    return b"__asan_init" in text or b"__tsan_init" in text


def only_in_plain_builds(function):
    """Leaves out where programs are emulated or instrumented what would show nothing new there."""
    build = os.environ.get("BENCHRIG_BUILD")
    is_plain = not EMULATOR and not (build and is_instrumented(pathlib.Path(build)))
    return pytest.mark.skipif(not is_plain, reason="the plain build shows it")(function)


def little_memory(build):
    """The variables of a run in which large blocks are not to be had."""
    if is_instrumented(build):
        pytest.skip("a sanitizer's own allocator cannot be kept short of memory")
    return {"LD_PRELOAD": str(build / "tests/plugin/little_memory.so")}


def untraced(board):
    """Options of a run that tells on standard error of munmap(), fsync(), pathconf() and wrong close()."""
    if is_instrumented(board.build):
        pytest.skip("a sanitizer has calls of its own")
    return {"env": {"LD_PRELOAD": str(board.build / "tests/plugin/untraced.so")}}


def environment():
    """The caller's, without what would change a run's texts or load other libraries."""
    kept = {
        name: value
        for name, value in os.environ.items()
        if not name.startswith(("LC_", "LD_", "RIG_", "VBOARD_")) and name != "LANG"
    }
    kept.update(LC_ALL="C", TZ="UTC")
    return kept


def run_to_end(words, stdin, cwd, variables):
    # A group of its own, so that a run that hangs is ended whole.
    with subprocess.Popen(
        words,
        stdin=subprocess.PIPE,
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        cwd=cwd,
        env=variables,
        start_new_session=True,
    ) as process:
        try:
            stdout, stderr = process.communicate(stdin, timeout=HANGS_AFTER_SECONDS)
        except subprocess.TimeoutExpired:
            os.killpg(process.pid, signal.SIGKILL)
            stdout, stderr = process.communicate()
            pytest.fail(f"{words} hangs; stdout {stdout[-400:]!r}, stderr {stderr[-400:]!r}")
    status = process.returncode
    return (128 - status if status < 0 else status), stdout, stderr


def read_trace(file):
    if not file.exists():
        return []
    rows = []
    for line in file.read_text(encoding="utf-8", errors="surrogateescape").splitlines():
        time, _, rest = line.partition(" ")
        rows.append((float(time), rest))
    return rows


REPEATED = re.compile(r" \((\d+) times\)$")


def read_story(file):
    if not file.exists():
        return []
    lines = []
    for line in file.read_text(encoding="utf-8", errors="surrogateescape").splitlines():
        times = REPEATED.search(line)
        lines += int(times[1]) * [REPEATED.sub("", line)] if times else [line]
    return lines


ESCAPES = {ord("\n"): "\\n", ord("\r"): "\\r", ord("\t"): "\\t", ord('"'): '\\"', ord("\\"): "\\\\"}


def text_lines(word, text):
    """The lines of a story for a text: one for each line of it, and for the rest."""
    data = text.encode() if isinstance(text, str) else bytes(text)
    return [
        f'{word} "'
        + "".join(ESCAPES.get(b, chr(b) if 32 <= b < 127 else f"\\x{b:02x}") for b in line)
        + '"'
        for line in re.findall(rb"[^\n]*\n|[^\n]+", data)
    ]


def out(text):
    """What a program writes to standard output, for assert_story()."""
    return text_lines("out", text)


def err(text):
    """The same for standard error."""
    return text_lines("err", text)


def assert_story(run, *expected, only=None):
    """Compares a run's story: lines of requests and waits, out() and err(), in order.

    only   calls ("sleep", "ioctl") and nodes ("/dev/rtc0") whose lines count beside the texts
    """

    def counts(line):
        words = line.split()
        return only is None or words[0] in ("out", "err", *only) or words[1:2] and words[1] in only

    wanted = [line for one in expected for line in ([tidy(one)] if isinstance(one, str) else one)]
    got = [line if line.startswith(("out ", "err ")) else tidy(line) for line in run.story]
    assert [line for line in got if counts(line)] == wanted


@pytest.fixture(scope="session")
def build():
    return build_directory()


@pytest.fixture(scope="session")
def make_board(tmp_path_factory, build):
    """make_board(gyro="GYRO_ICM20690"): a fresh healthy board; each call makes another one."""
    # mktemp() looks through all that it has made: asked once, not for each board.
    benches = tmp_path_factory.mktemp("benches")
    numbers = itertools.count()

    def make(gyro=None):
        parent = benches / str(next(numbers))
        parent.mkdir()
        board = Board(parent / "board", parent, build)
        board.vboard("new", board.directory, *(("--gyro", gyro) if gyro else ()))
        return board

    return make


@pytest.fixture
def board(make_board):
    """A fresh healthy board."""
    return make_board()
