"""The files of a board: where they lie, and who changes them at the same time."""

import os
import subprocess
import sys

import pytest

from conftest import HANGS_AFTER_SECONDS, environment, storm

WRITERS = 40


def start(build, *words, **variables):
    return subprocess.Popen(
        [str(word) for word in (build / "bin/vboard", *words)],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        env=environment() | variables,
    )


def finish(processes):
    """Status and outputs of each."""
    ended = [process.communicate(timeout=HANGS_AFTER_SECONDS) for process in processes]
    return [(process.returncode, *texts) for process, texts in zip(processes, ended)]


def settings(file):
    lines = [line.split("#")[0] for line in file.read_text(encoding="utf-8").splitlines()]
    pairs = [line.split("=", 1) for line in lines if "=" in line]
    return {key.strip(): value.strip() for key, value in pairs}


# --- many writers ---------------------------------------------------------------------------------


def test_no_change_of_many_at_once_is_lost(board):
    before = settings(board.path("dev/korcmem"))
    changes = {f"alias{i}": str(i) for i in range(WRITERS)}
    writers = [
        start(board.build, "set", board.directory, "/dev/korcmem", *change)
        for change in changes.items()
    ]
    assert finish(writers) == [(0, b"", b"")] * WRITERS
    assert settings(board.path("dev/korcmem")) == before | changes


def test_one_setting_of_many_writers_is_one_of_theirs(board):
    writers = [
        start(board.build, "set", board.directory, "/dev/lcd", "contrast", i)
        for i in range(WRITERS)
    ]
    assert finish(writers) == [(0, b"", b"")] * WRITERS
    text = board.path("dev/lcd").read_text(encoding="utf-8")
    assert text.count("contrast =") == 1
    assert int(settings(board.path("dev/lcd"))["contrast"]) in range(WRITERS)


def test_no_fault_of_many_at_once_is_lost(board):
    kept = board.path("faults").read_text(encoding="utf-8")
    lines = [f"/dev/lcd write errno=EIO nth={i + 1}" for i in range(WRITERS)]
    writers = [start(board.build, "fault", board.directory, "add", *line.split()) for line in lines]
    assert finish(writers) == [(0, b"", b"")] * WRITERS
    text = board.path("faults").read_text(encoding="utf-8")
    assert text.startswith(kept)
    assert sorted(text[len(kept) :].splitlines()) == sorted(lines)


@pytest.mark.parametrize(
    "file, words",
    [
        ("dev/lcd", ["set", "/dev/lcd", "contrast", "7"]),
        ("faults", ["fault", "add", "/dev/lcd", "absent"]),
    ],
)
def test_a_reader_on_the_way_gets_all_of_the_old_file(board, file, words):
    before = board.path(file).read_bytes()
    with open(board.path(file), "rb") as reader:
        board.vboard(words[0], board.directory, *words[1:])
        assert reader.read() == before
    assert board.path(file).read_bytes() != before


def test_a_program_that_keeps_an_attribute_open_reads_its_new_value(board, build):
    state = "/sys/devices/system/memory/memory2/state"
    text = f"exec 3<{state}; echo offline >{state}; cat <&3"
    run = board.run_command(["sh", "-c", text])
    assert (run.status, run.stdout, run.stderr) == (0, b"offline\n", b"")


def test_a_device_in_use_stays_so_when_its_settings_change(board):
    """The real-time clock lets one program in at a time."""
    text = """exec 3<>/dev/rtc0 && "$0" set "$VBOARD_DIR" /dev/rtc0 rate 2.0
        (exec 4<>/dev/rtc0) 2>/dev/null && echo open || echo busy
        exec 3>&-; (exec 4<>/dev/rtc0) && echo open"""
    run = board.run_command(["sh", "-c", text, board.build / "bin/vboard"])
    assert (run.status, run.stdout, run.stderr) == (0, b"busy\nopen\n", b"")
    assert settings(board.path("dev/rtc0"))["rate"] == "2.0"


# Blocks of /dev/korcmem that "korcmem -g" takes.
BLOCKS = range(10, 16)


@pytest.mark.parametrize("layered", [True, False])
def test_no_change_of_many_programs_is_lost(board, layered):
    """On a board of one run, the first of them also copies the file from the template."""
    text = "".join(f'"$0" bt2 korcmem -g {block} >&2 & ' for block in BLOCKS)
    options = [] if layered else ["--board", board.directory]
    command = [
        "sh",
        "-c",
        text + 'wait; cat "$VBOARD_DIR/dev/korcmem"',
        board.build / "bin/benchrig",
    ]
    for _ in range(storm(10)):
        runner = start(board.build, "run", *options, "--", *command, TMPDIR=str(board.scratch))
        ((status, stdout, stderr),) = finish([runner])
        assert status == 0, stderr
        file = board.scratch / "korcmem"
        file.write_bytes(stdout)
        found = settings(file)
        assert {block: found.get(f"state{block}") for block in BLOCKS} == {
            block: "freed" for block in BLOCKS
        }


def test_a_link_to_a_node_file_stays_one(board):
    board.path("dev/screen").symlink_to("lcd")
    board.set("/dev/screen", "contrast", "11")
    assert os.readlink(board.path("dev/screen")) == "lcd"
    assert settings(board.path("dev/lcd"))["contrast"] == "11"


def test_a_changed_file_keeps_its_mode(board):
    board.path("dev/lcd").chmod(0o640)
    board.set("/dev/lcd", "contrast", "11")
    assert board.path("dev/lcd").stat().st_mode & 0o777 == 0o640


# --- long names -----------------------------------------------------------------------------------


@pytest.fixture
def far_board(tmp_path, build):
    """A board whose path has more than 900 characters."""
    folder = tmp_path
    while len(str(folder)) < 900:
        folder /= "d" * 150
    folder.mkdir(parents=True)
    return folder / "board"


def test_a_board_may_lie_deep(build, far_board):
    def vboard(*words):
        ((status, stdout, stderr),) = finish([start(build, *words)])
        assert (status, stderr) == (0, b""), (words, stdout)
        return stdout

    vboard("new", far_board)
    assert vboard("show", far_board).startswith(str(far_board).encode() + b": vboard board")
    vboard("set", far_board, "/dev/lcd", "contrast", "11")
    assert settings(far_board / "dev/lcd")["contrast"] == "11"
    assert b"\n* contrast         11 " in vboard("show", far_board, "/dev/lcd")
    vboard("set", far_board, "/sys/class/leds/buzzer/brightness", "1")
    assert (far_board / "sys/class/leds/buzzer/brightness").read_text() == "1\n"
    vboard("set", far_board, "net:ppp0", "ipv4", "10.1.2.3")
    assert settings(far_board / "net/ppp0")["ipv4"] == "10.1.2.3"
    vboard("fault", far_board, "add", "/dev/lcd", "absent")
    assert vboard("fault", far_board, "list") == b"/dev/lcd absent\n"
    vboard("fault", far_board, "clear")
    rtc = vboard(
        "run", "--board", far_board, "--speed", "max", "--", build / "bin/benchrig", "bt1", "rtc"
    )
    assert rtc.endswith(b"\nRTC TEST FINISH!\n")
    run = ("run", "--board", far_board, "--", "sh", "-c")
    assert vboard(*run, "cat /sys/class/leds/buzzer/brightness; ls /dev/lcd") == b"1\n/dev/lcd\n"


# --- listings -------------------------------------------------------------------------------------

NAMES = ["zeta", "alpha", "Beta", "a-2", "a-10", "m", "y1", "c3"]
IN_ORDER = ["Beta", "a-10", "a-2", "alpha", "c3", "m", "y1", "zeta"]


@pytest.mark.parametrize("made", [NAMES, NAMES[::-1]])
def test_a_directory_lists_its_names_in_order(board, made):
    folder = board.path("sys/class/many")
    folder.mkdir()
    for name in made:
        (folder / name).write_text("1\n", encoding="utf-8")
    (folder / ".m.123.vboard-new").write_text("half", encoding="utf-8")
    run = board.run_command(["find", "/sys/class/many", "-type", "f"])
    assert run.stderr == b""
    assert run.stdout.decode().split() == [f"/sys/class/many/{name}" for name in IN_ORDER]
    run = board.run_command(["ls", "-U", "/sys/class/many"])
    assert run.stdout.decode().split() == IN_ORDER


def test_a_fresh_board_lists_its_own_names_among_those_of_its_template(build, tmp_path):
    text = "D=/sys/class/gpio; ls -U $D; echo 1 >$D/gpio43/value; ls -U $D; ls -U /dev"
    runner = start(build, "run", "--", "sh", "-c", text, TMPDIR=str(tmp_path))
    ((status, stdout, stderr),) = finish([runner])
    assert (status, stderr) == (0, b"")
    pins = [f"gpio{number}" for number in range(40, 49)]
    names = stdout.decode().split()
    assert names[: 2 * len(pins)] == pins * 2
    nodes = names[2 * len(pins) :]
    assert nodes == sorted(nodes) and "lcd" in nodes


def test_a_stream_goes_back_to_a_place_and_to_its_beginning(board):
    folder = board.path("sys/class/many")
    folder.mkdir()
    for name in ("c", "a", "b"):
        (folder / name).write_text("1\n", encoding="utf-8")
    text = r"""opendir $d, "/sys/class/many"; readdir $d; readdir $d; $a = readdir $d; $at = telldir $d;
        print "$a ", join(" ", readdir $d), "\n"; seekdir $d, $at; print join(" ", readdir $d), "\n";
        rewinddir $d; print join(" ", readdir $d), "\n";"""
    run = board.run_command(["perl", "-e", text])
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout == b"a b c\nb c\n. .. a b c\n"


# --- memory with a size ---------------------------------------------------------------------------


@pytest.mark.parametrize("through", ["/sys/bus/i2c/devices/0-0050", "/sys/devices/i2c-0/0-0050"])
def test_an_eeprom_keeps_its_size(board, through):
    device = board.path("sys/devices/i2c-0/0-0050")
    device.mkdir(parents=True)
    (device / "eeprom").write_bytes(bytes(range(16)))
    board.path("sys/bus/i2c/devices").mkdir(parents=True)
    board.path("sys/bus/i2c/devices/0-0050").symlink_to("../../../devices/i2c-0/0-0050")
    script = f"""
import os
open("{through}/eeprom", "wb").write(b"A")
fd = os.open("{through}/eeprom", os.O_WRONLY)
print(os.pwrite(fd, b"BC", 14))
try:
    os.pwrite(fd, b"D", 16)
except OSError as error:
    print(error.strerror)
"""
    run = board.run_command([sys.executable, "-S", "-c", script])
    assert (run.status, run.stdout, run.stderr) == (0, b"2\nNo space left on device\n", b"")
    assert (device / "eeprom").read_bytes() == b"A" + bytes(range(1, 14)) + b"BC"
