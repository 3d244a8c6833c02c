"""vboard's own command line: new, run, check, show, set, fault."""

import os
import re
import signal
import subprocess
import sysconfig

import pytest

from conftest import HANGS_AFTER_SECONDS, environment, storm, word_size


@pytest.fixture
def vboard(build, tmp_path):
    """Runs vboard itself; status, standard output and standard error."""

    def run(*words, cwd=tmp_path, env=None, stdin=b""):
        done = subprocess.run(
            [build / "bin/vboard", *map(str, words)],
            capture_output=True,
            cwd=cwd,
            input=stdin,
            timeout=HANGS_AFTER_SECONDS,
            check=False,
            env=environment() | (env or {}),
        )
        return done.returncode, done.stdout, done.stderr

    return run


@pytest.fixture
def probe(build):
    return build / "tests/probes/probe"


def assert_refused(result, status=None):
    """vboard itself failed: a reason on standard error and nothing on standard output."""
    assert result[1] == b""
    assert result[2].strip() != b""
    assert result[0] == status if status is not None else result[0] != 0


def refusal(result):
    """The one line of a command that was refused."""
    status, stdout, stderr = result
    assert (status, stdout, stderr.count(b"\n")) == (125, b"", 1)
    assert stderr.startswith(b"vboard: ") and stderr.endswith(b"\n")
    return stderr[len(b"vboard: ") : -1].decode()


# --- help and wrong command lines -----------------------------------------------------------------


@pytest.mark.parametrize(
    "words, tells",
    [
        (["--help"], [b"new", b"run", b"check", b"show", b"set", b"fault"]),
        (["new", "--help"], [b"--gyro", b"--bare", b"--from"]),
        (
            ["run", "--help"],
            [
                *(b"--board", b"--speed", b"--trace", b"--fault", b"--signal", b"--for", b"--date"),
                *(b"--power-cut", b'82 after "power cut"', b"--tty", b"--type"),
            ],
        ),
        (["check", "--help"], [b"FILE:LINE", b"1 when"]),
        (["show", "--help"], [b"--png"]),
        (["set", "--help"], [b"NODE", b"/sys/"]),
        (["fault", "--help"], [b"add", b"list", b"clear", b"power-cut"]),
    ],
)
def test_help_goes_to_standard_output_with_status_0(vboard, words, tells):
    status, stdout, stderr = vboard(*words)
    assert (status, stderr) == (0, b"")
    for text in tells:
        assert text in stdout


@pytest.mark.parametrize(
    "words",
    [
        [],
        ["nonsense"],
        ["--nonsense"],
        ["new"],
        ["new", "one", "two"],
        ["check"],
        ["check", "board", "board"],
        ["check", "--nonsense"],
        ["show"],
        ["set"],
        ["set", "board"],
        ["set", "board", "/dev/lcd"],
        ["set", "board", "/dev/lcd", "returns"],
        ["fault"],
        ["fault", "board"],
        ["fault", "board", "nonsense"],
        ["fault", "board", "add"],
    ],
)
def test_wrong_command_lines_are_refused(vboard, tmp_path, words):
    assert vboard("new", tmp_path / "board")[0] == 0
    assert_refused(vboard(*words))


@pytest.mark.parametrize(
    "words",
    [
        [],
        ["--"],
        ["--nonsense", "--", "true"],
        ["--speed", "fast", "--", "true"],
        ["--speed", "0", "--", "true"],
        ["--speed", "-3", "--", "true"],
        ["--speed"],
        ["--signal", "TERM", "--", "true"],
        ["--signal", "NOSUCH@1", "--", "true"],
        ["--signal", "TERM@soon", "--", "true"],
        ["--for", "long", "--", "true"],
        ["--date", "yesterday", "--", "true"],
        ["--date", "2024-13-01 00:00:00", "--", "true"],
        ["--fault", "/dev/lcd explodes", "--", "true"],
        ["--fault", "/dev/lcd write", "--", "true"],
        ["--fault", "/dev/lcd write errno=ENOSUCH", "--", "true"],
        ["--fault", "/dev/lcd write errno=EIO nth=often", "--", "true"],
        ["--board", "no-such-board", "--", "true"],
        ["--trace", "no-such-directory/trace", "--", "true"],
    ],
)
def test_run_refuses_a_wrong_option_with_125(vboard, words):
    assert_refused(vboard("run", *words), 125)


def test_run_refuses_a_directory_that_is_no_board(vboard, tmp_path):
    (tmp_path / "plain").mkdir()
    assert_refused(vboard("run", "--board", tmp_path / "plain", "--", "true"), 125)


def test_run_refuses_a_board_of_another_format(vboard, tmp_path):
    assert vboard("new", tmp_path / "board")[0] == 0
    (tmp_path / "board/board").write_text("vboard board, format 2\n")
    assert_refused(vboard("run", "--board", tmp_path / "board", "--", "true"), 125)


def test_run_refuses_a_faults_file_that_it_cannot_read(vboard, tmp_path):
    # A fault that is silently left out would make a test pass that cannot fail.
    assert vboard("new", tmp_path / "board")[0] == 0
    (tmp_path / "board/faults").write_text("/dev/lcd write explodes\n")
    assert_refused(vboard("run", "--board", tmp_path / "board", "--", "true"), 125)


# --- run: what becomes of the command -------------------------------------------------------------


@pytest.mark.parametrize("status", [0, 1, 3, 79, 124, 255])
def test_run_ends_with_the_command_s_status(vboard, probe, status):
    assert vboard("run", "--", probe, "exit", status) == (status, b"", b"")


@pytest.mark.parametrize("name", ["TERM", "KILL", "HUP"])
def test_run_ends_with_128_and_the_number_of_the_signal_that_ended_the_command(vboard, name):
    status, stdout, _ = vboard("run", "--", "sh", "-c", f"kill -{name} $$")
    assert status == 128 + getattr(signal, "SIG" + name)
    assert stdout == b""


def test_run_ends_with_134_when_the_command_aborts(vboard, probe):
    assert vboard("run", "--", probe, "abort")[0] == 128 + signal.SIGABRT


def test_run_ends_with_127_when_the_command_is_not_found(vboard):
    assert_refused(vboard("run", "--", "no-such-command-anywhere"), 127)


def test_run_ends_with_127_when_the_command_s_path_does_not_exist(vboard):
    assert_refused(vboard("run", "--", "/no/such/command"), 127)


def test_run_ends_with_126_when_the_command_cannot_be_run(vboard, tmp_path):
    file = tmp_path / "text"
    file.write_text("no program\n")
    file.chmod(0o644)
    assert_refused(vboard("run", "--", file), 126)


def test_run_leaves_the_three_standard_streams_to_the_command(vboard):
    status, stdout, stderr = vboard("run", "--", "sh", "-c", "cat; echo told >&2", stdin=b"asked")
    assert (status, stdout, stderr) == (0, b"asked", b"told\n")


def test_run_leaves_working_directory_arguments_and_variables_to_the_command(vboard, tmp_path):
    status, stdout, _ = vboard(
        "run",
        "--",
        "sh",
        "-c",
        'pwd; printf "<%s>" "$@"; echo "$COLOUR"',
        "sh",
        "a b",
        "",
        "--board",
        cwd=tmp_path,
        env={"COLOUR": "blue"},
    )
    assert status == 0
    assert stdout == f"{tmp_path}\n<a b><><--board>blue\n".encode()


def test_run_gives_the_command_descriptor_3(vboard, probe):
    assert (
        vboard("run", "--trace", "trace", "--", probe, "open", "/dev/null", "rdonly")[1]
        == b"open 3\n"
    )


def test_run_without_a_board_makes_a_healthy_one_and_leaves_nothing(vboard, probe, tmp_path):
    temporary = tmp_path / "temporary"
    temporary.mkdir()
    status, stdout, stderr = vboard(
        "run",
        "--",
        probe,
        "open",
        "/dev/lcd",
        "rdwr",
        "write",
        "ff*1024",
        "access",
        "/dev/watchdog",
        "rw",
        env={"TMPDIR": str(temporary)},
    )
    assert (status, stdout, stderr) == (0, b"open 3\nwrite 0\naccess 0\n", b"")
    assert os.listdir(temporary) == []


def test_run_takes_the_fault_of_the_command_line_for_this_run_only(vboard, probe, tmp_path):
    vboard("new", "board")
    words = ["run", "--board", "board"]
    faults = ["--fault", "/dev/lcd absent", "--fault", "/dev/rtc0 open errno=EBUSY"]
    steps = ["--", probe, "open", "/dev/lcd", "rdwr", "open", "/dev/rtc0", "rdwr"]
    assert vboard(*words, *faults, *steps)[1] == b"open ENOENT\nopen EBUSY\n"
    assert vboard(*words, *steps)[1] == b"open 3\nopen 4\n"


def test_run_adds_the_faults_of_the_command_line_to_those_of_the_board(vboard, probe):
    vboard("new", "board")
    vboard("fault", "board", "add", "/dev/lcd", "absent")
    assert (
        vboard(
            "run",
            "--board",
            "board",
            "--fault",
            "/dev/rtc0 absent",
            "--",
            probe,
            "access",
            "/dev/lcd",
            "f",
            "access",
            "/dev/rtc0",
            "f",
        )[1]
        == b"access ENOENT\naccess ENOENT\n"
    )


def test_run_sets_the_calendar_clock(vboard, probe):
    assert (
        vboard(
            "run",
            "--date",
            "2031-02-03 04:05:06",
            "--speed",
            "max",
            "--",
            probe,
            "date",
            "sleep",
            "10",
            "date",
        )[1]
        == b"date 2031-02-03 04:05:06\nsleep 0\ndate 2031-02-03 04:05:16\n"
    )


# --- new ----------------------------------------------------------------------------------------


def test_new_makes_a_board_of_readable_files(vboard, tmp_path):
    assert vboard("new", "board") == (0, b"", b"")
    board = tmp_path / "board"
    assert (board / "board").read_text() == "vboard board, format 1\n"
    assert (board / "faults").read_text().replace("\n", "") == "" or all(
        line.startswith("#") or not line.strip()
        for line in (board / "faults").read_text().splitlines()
    )
    for node in ("lcd", "iccard", "gyro", "rtc0", "watchdog"):
        text = (board / "dev" / node).read_text()
        assert re.search(r"^model = \S+$", text, re.MULTILINE), node
    assert len((board / "media/lcd.frame").read_bytes()) == 1024


def test_new_can_be_run_and_copied_anywhere(vboard, probe, tmp_path):
    vboard("new", "first")
    os.rename(tmp_path / "first", tmp_path / "moved")
    assert (
        vboard("run", "--board", "moved", "--", probe, "open", "/dev/lcd", "rdwr")[1] == b"open 3\n"
    )


@pytest.mark.parametrize(
    "chip",
    [
        "GYRO_LSM6DS3TR",
        "GYRO_ICM20602",
        "GYRO_KXTJ1900",
        "GYRO_ICM20690",
        "GYRO_LIS2DH12",
        "GYRO_LIS2DW12",
    ],
)
def test_new_takes_the_motion_sensor(vboard, tmp_path, chip):
    assert vboard("new", "board", "--gyro", chip) == (0, b"", b"")
    assert f"chip = {chip}\n" in (tmp_path / "board/dev/gyro").read_text()


def test_new_refuses_an_unknown_motion_sensor(vboard, tmp_path):
    assert_refused(vboard("new", "board", "--gyro", "GYRO_NONE"))
    assert not (tmp_path / "board/board").exists()


def test_new_leaves_an_existing_board_alone(vboard, tmp_path):
    vboard("new", "board")
    vboard("set", "board", "/dev/lcd", "returns", "count")
    before = (tmp_path / "board/dev/lcd").read_bytes()
    assert_refused(vboard("new", "board"))
    assert (tmp_path / "board/dev/lcd").read_bytes() == before


def test_new_refuses_a_place_that_it_cannot_make(vboard, tmp_path):
    (tmp_path / "file").write_text("")
    assert_refused(vboard("new", "file/board"))


def tree(folder):
    """{name: what it is} of everything below a folder."""
    return {
        str(path.relative_to(folder)): (
            os.readlink(path)
            if path.is_symlink()
            else path.read_bytes()
            if path.is_file()
            else "directory"
        )
        for path in folder.rglob("*")
    }


def test_new_bare_makes_a_board_with_nothing_on_it(vboard, probe, tmp_path):
    assert vboard("new", "board", "--bare") == (0, b"", b"")
    folders = dict.fromkeys(["dev", "media", "net", "sys", "proc", "etc"], "directory")
    assert tree(tmp_path / "board") == {"board": b"vboard board, format 1\n"} | folders
    steps = ["access", "/dev/lcd", "f", "access", "/dev", "f"]
    run = vboard("run", "--board", "board", "--", probe, *steps)
    assert run == (0, b"access ENOENT\naccess 0\n", b"")
    assert vboard("check", "board") == (0, b"", b"")
    (tmp_path / "board/dev/card").write_text("model = iccard\nmedium = card\n")
    assert vboard("set", "board", "/dev/card", "protected", "1") == (0, b"", b"")
    run = vboard("run", "--board", "board", "--", probe, "open", "/dev/card", "rdwr")
    assert run == (0, b"open 3\n", b"")
    assert (tmp_path / "board/media/card").read_bytes() == bytes(256)


def test_new_from_copies_a_board_as_it_stands(vboard, tmp_path):
    vboard("new", "board")
    board = tmp_path / "board"
    vboard("set", "board", "/dev/rtc0", "stopped", "1")
    vboard("set", "board", "/sys/devices/platform/sda-power/state", "disabled")
    vboard("fault", "board", "add", "/dev/lcd", "absent")
    (board / "dev/screen").symlink_to("lcd")
    (board / "dev/gone").symlink_to("/no/such/file")
    (board / "media/iccard.bin").write_bytes(bytes(range(256)))
    (board / "media/empty").write_bytes(b"")
    (board / "clock").write_text("boots = 3\n")
    (board / "dev/.rtc0.17.vboard-new").write_text("half of")
    os.mkfifo(board / "dev/pipe")
    before = tree(board)
    assert vboard("new", "copy", "--from", "board") == (0, b"", b"")
    del before["dev/.rtc0.17.vboard-new"], before["dev/pipe"]
    assert tree(tmp_path / "copy") == before
    # Two boards: what happens to one does not happen to the other.
    vboard("set", "copy", "/dev/rtc0", "stopped", "0")
    assert "stopped = 1\n" in (board / "dev/rtc0").read_text()
    (tmp_path / "empty").mkdir()
    assert vboard("new", "empty", "--from", tmp_path / "copy") == (0, b"", b"")


def test_new_from_keeps_the_holes_of_a_medium(vboard, tmp_path):
    vboard("new", "board")
    size = 1 << 32
    memory = tmp_path / "board/media/phys_mem"
    with open(memory, "wb") as file:
        file.truncate(size)
        for at in (0, 0x18000000, size - 4):
            file.seek(at)
            file.write(b"here")
    if memory.stat().st_blocks > 2048:
        pytest.skip("a file system without holes")
    assert vboard("new", "copy", "--from", "board") == (0, b"", b"")
    copy = tmp_path / "copy/media/phys_mem"
    assert (copy.stat().st_size, copy.stat().st_blocks <= 2048) == (size, True)
    with open(copy, "rb") as file:
        for at in (0, 0x18000000, size - 4):
            file.seek(at)
            assert file.read(4) == b"here"
        file.seek(4)
        assert file.read(8192) == bytes(8192)


@pytest.mark.parametrize(
    "words",
    [
        ["--bare", "--gyro", "GYRO_KXTJ1900"],
        ["--gyro", "GYRO_KXTJ1900", "--from", "other"],
        ["--from", "other", "--bare"],
        ["--bare", "--bare"],
        ["--from", "other", "--from", "other"],
        ["--from"],
        ["--gyro"],
        ["--bare", "second"],
    ],
)
def test_new_refuses_words_that_do_not_go_together(vboard, tmp_path, words):
    vboard("new", "other")
    assert refusal(vboard("new", "board", *words)) == (
        'wrong usage; "vboard new --help" tells the right one'
    )
    assert not (tmp_path / "board").exists()


def test_new_from_refuses_what_is_no_board(vboard, tmp_path):
    (tmp_path / "plain").mkdir()
    assert refusal(vboard("new", "board", "--from", "plain")) == (
        "plain: not a board directory (No such file or directory)"
    )
    assert refusal(vboard("new", "board", "--from", "none")) == "none: No such file or directory"
    assert not (tmp_path / "board").exists()


@pytest.mark.parametrize("words", [["--bare"], ["--from", "other"]])
def test_new_of_every_kind_leaves_an_existing_directory_alone(vboard, tmp_path, words):
    vboard("new", "other")
    (tmp_path / "board").mkdir()
    (tmp_path / "board/mine").write_text("mine")
    assert refusal(vboard("new", "board", *words)) == (
        "board: exists and is not an empty directory"
    )
    assert tree(tmp_path / "board") == {"mine": b"mine"}


def test_new_from_refuses_a_place_in_the_board_itself(vboard, tmp_path):
    vboard("new", "board")
    (tmp_path / "board/empty").mkdir()
    before = tree(tmp_path / "board")
    for place in ("board/copy", "board/empty", "./board/dev/copy"):
        assert refusal(vboard("new", place, "--from", "board")) == (
            f"{place}: lies in the board board"
        )
    assert tree(tmp_path / "board") == before
    # A name that only begins alike is another place.
    assert vboard("new", "board2", "--from", "board") == (0, b"", b"")


# --- set ----------------------------------------------------------------------------------------


def test_set_changes_one_setting_and_keeps_the_rest(vboard, tmp_path):
    vboard("new", "board")
    file = tmp_path / "board/dev/lcd"
    file.write_text("# by hand\n" + file.read_text() + "# the end\n")
    before = file.read_text()
    assert vboard("set", "board", "/dev/lcd", "returns", "count") == (0, b"", b"")
    after = file.read_text()
    assert re.search(r"^returns = count$", after, re.MULTILINE)

    def others(text):
        return [line for line in text.splitlines() if not line.startswith("returns")]

    assert others(after) == others(before)


def test_set_adds_a_setting_that_is_missing(vboard, tmp_path):
    vboard("new", "board")
    assert vboard("set", "board", "/dev/iccard", "stuck_byte", "7") == (0, b"", b"")
    assert re.search(r"^stuck_byte = 7$", (tmp_path / "board/dev/iccard").read_text(), re.MULTILINE)


def test_set_is_seen_by_the_next_run(vboard, probe):
    vboard("new", "board")
    run = ["run", "--board", "board", "--", probe, "open", "/dev/lcd", "rdwr", "write", "00*1024"]
    assert vboard(*run)[1] == b"open 3\nwrite 0\n"
    vboard("set", "board", "/dev/lcd", "returns", "count")
    assert vboard(*run)[1] == b"open 3\nwrite 1024\n"


def test_set_changes_an_attribute_as_the_kernel_would_show_it(vboard, probe, tmp_path):
    vboard("new", "board")
    attribute = "/sys/class/leds/buzzer/brightness"
    assert vboard("set", "board", attribute, "1") == (0, b"", b"")
    assert (tmp_path / ("board" + attribute)).read_text() == "1\n"
    assert vboard(
        "run", "--board", "board", "--", probe, "open", attribute, "rdonly", "read", "16"
    )[1] == (b"open 3\nread 2 310a\n")


@pytest.mark.parametrize(
    "words",
    [
        ["board", "/dev/none", "key", "value"],
        ["board", "/sys/class/none/attribute", "1"],
        ["nowhere", "/dev/lcd", "returns", "count"],
    ],
)
def test_set_refuses_what_the_board_does_not_have(vboard, tmp_path, words):
    vboard("new", "board")
    assert_refused(vboard("set", *words))
    assert not (tmp_path / "board/dev/none").exists()
    assert not (tmp_path / "board/sys/class/none").exists()


MODELS = "gyro iccard interface korstorage korcmem lcd mtd phys_mem connector rtc sata_disk socket watchdog"


@pytest.mark.parametrize(
    "words, reason",
    [
        (["/dev/rtc0", "stoped", "1"], 'no setting "stoped"; perhaps: stopped'),
        (["/dev/rtc0", "stppd", "1"], 'no setting "stppd"; perhaps: stopped'),  # two letters
        (["/dev/rtc0", "rtae", "1"], 'no setting "rtae"; perhaps: rate'),  # in the wrong order
        (["/dev/rtc0", "time", "1"], 'no setting "time"; perhaps: time_valid'),
        (
            ["/dev/rtc0", "colour", "red"],
            'no setting "colour"; there is: set_to set_at rate stopped time_valid model medium '
            "medium_size number type byte_us",
        ),
        (["/dev/korcmem", "blokc12", "x 0 1"], 'no setting "blokc12"; perhaps: block#'),
        (["/dev/korstorage", "0.readEr", "1"], 'no setting "0.readEr"; perhaps: #.readErr'),
        (
            ["/dev/rtc0", "rate", "banana"],
            'rate: "banana" is not allowed; it may be a number such as 1.5, not negative',
        ),
        (["/dev/rtc0", "stopped", "yes"], 'stopped: "yes" is not allowed; it may be 0 or 1'),
        (
            ["/dev/rtc0", "set_to", "today"],
            'set_to: "today" is not allowed; it may be a date as YYYY-MM-DD hh:mm:ss',
        ),
        (
            ["/dev/watchdog", "timeout_s", "0"],
            'timeout_s: "0" is not allowed; it may be a number from 1 to 65535',
        ),
        (
            ["/dev/mtd1", "worn_block", "-2"],
            'worn_block: "-2" is not allowed; it may be a number of at least -1',
        ),
        (
            ["/dev/lcd", "returns", "one"],
            'returns: "one" is not allowed; it may be one of: zero count',
        ),
        (
            ["/dev/mem", "refuses", "ENOSUCH"],
            'refuses: "ENOSUCH" is not allowed; it may be the name of an error, such as EIO',
        ),
        (
            ["/dev/gyro", "medium", "../board"],
            'medium: "../board" is not allowed; it may be the name of a file in media/',
        ),
        (
            ["/dev/lcd", "type", "fifo"],
            'type: "fifo" is not allowed; it may be one of: character block',
        ),
        (["/dev/rtc0", "model", "rtcc"], "no such model: rtcc; perhaps: rtc"),
        (["/dev/rtc0", "model", "x"], f"no such model: x; there is: {MODELS}"),
        (["/dev/rtc0", "model", ""], f'no "model = NAME"; there is: {MODELS}'),
        (["net/ppp0", "ipv5", "::1"], 'no setting "ipv5"; perhaps: ipv4'),
        (["net:ppp0", "medium", "x"], 'no setting "medium"; there is: ipv4 index'),
        (
            ["net:ppp0", "index", "0"],
            'index: "0" is not allowed; it may be a number from 1 to 2147483647',
        ),
        (["netlink/connector", "denid", "1"], 'no setting "denid"; perhaps: denied'),
        (["firmware/cpld", "speed", "1"], 'no setting "speed"; there is: medium size fails'),
        (
            ["firmware/cpld", "size", "-1"],
            'size: "-1" is not allowed; it may be a number of at least 0',
        ),
        (["etc/fw_env.config", "a", "b"], "is no node, and has no settings"),
    ],
)
def test_set_refuses_what_the_device_does_not_take(vboard, tmp_path, words, reason):
    vboard("new", "board")
    file = tmp_path / "board" / words[0].lstrip("/").replace("net:", "net/")
    before = file.read_bytes()
    assert refusal(vboard("set", "board", *words)) == f"{words[0]}: {reason}"
    assert file.read_bytes() == before


@pytest.mark.parametrize(
    "words",
    [
        ["/dev/rtc0", "rate", "0.5"],
        ["/dev/rtc0", "rate", ""],
        ["/dev/rtc0", "number", "254:1"],
        ["/dev/rtc0", "model", "watchdog"],
        ["/dev/watchdog", "options", "0x8180"],
        ["/dev/korcmem", "block63", "video 0x18000000 0x00400000"],
        ["firmware/cpld", "fails", "programming:timeout"],
        ["firmware/cpld", "fails", "programming:something-else"],
        ["net:eth0", "index", "2147483647"],
        ["netlink/connector", "denied", "1"],
    ],
)
def test_set_takes_what_the_device_takes(vboard, tmp_path, words):
    vboard("new", "board")
    assert vboard("set", "board", *words) == (0, b"", b"")
    file = tmp_path / "board" / words[0].lstrip("/").replace("net:", "net/")
    assert f"{words[1]} = {words[2]}".rstrip() in file.read_text().splitlines()


def test_set_knows_the_settings_of_the_clock_file(vboard, tmp_path):
    vboard("new", "board")
    (tmp_path / "board/clock").write_text("boots = 3\n")
    assert vboard("set", "board", "clock", "ahead_ns", "-5") == (0, b"", b"")
    assert refusal(vboard("set", "board", "clock", "boot", "4")) == (
        'clock: no setting "boot"; perhaps: boots'
    )
    assert (tmp_path / "board/clock").read_text() == "boots = 3\nahead_ns = -5\n"


def test_set_finds_a_device_that_is_switched_off(vboard, tmp_path):
    vboard("new", "board")
    vboard("set", "board", "/sys/devices/platform/sda-power/state", "disabled")
    assert vboard("set", "board", "/dev/sda", "standby", "1") == (0, b"", b"")
    assert refusal(vboard("set", "board", "/dev/sda", "standy", "1")) == (
        '/dev/sda: no setting "standy"; perhaps: standby'
    )
    assert "\nstandby = 1\n" in (tmp_path / "board/unpowered/dev/sda").read_text()


@pytest.fixture
def buttons(build, vboard, tmp_path):
    """A board with a device whose model is in a library beside its node file; the node file."""
    if word_size() == 4:
        pytest.skip("the launcher is the PC's and does not load the board's libraries")
    vboard("new", "board")
    node = tmp_path / "board/dev/buttons"
    node.write_text("model = ./buttons.so\n")
    (tmp_path / "board/dev/buttons.so").symlink_to(build / "tests/plugin/buttons.so")
    return node


def test_set_knows_the_settings_of_a_model_in_a_library(vboard, build, buttons):
    assert vboard("set", "board", "/dev/buttons", "count", "32") == (0, b"", b"")
    assert refusal(vboard("set", "board", "/dev/buttons", "count", "33")) == (
        '/dev/buttons: count: "33" is not allowed; it may be a number from 1 to 32'
    )
    assert refusal(vboard("set", "board", "/dev/buttons", "cuont", "1")) == (
        '/dev/buttons: no setting "cuont"; perhaps: count'
    )
    absolute = build / "tests/plugin/buttons.so"
    assert vboard("set", "board", "/dev/buttons", "model", absolute) == (0, b"", b"")
    assert vboard("set", "board", "/dev/buttons", "name", "front") == (0, b"", b"")
    assert buttons.read_text() == f"model = {absolute}\ncount = 32\nname = front\n"


def test_set_refuses_a_library_that_holds_no_model(vboard, build, buttons):
    missing = refusal(vboard("set", "board", "/dev/buttons", "model", "./none.so"))
    assert missing.startswith("/dev/buttons: ") and "./none.so" in missing
    library = build / "tests/plugin/plugin.so"
    assert refusal(vboard("set", "board", "/dev/buttons", "model", library)) == (
        f"/dev/buttons: {library}: has no vboard_model()"
    )
    assert buttons.read_text() == "model = ./buttons.so\n"
    # Of a node without a model nobody knows what its settings are, but for the common ones.
    buttons.write_text("model = botons\n")
    assert refusal(vboard("set", "board", "/dev/buttons", "count", "1")) == (
        '/dev/buttons: no setting "count": no such model: botons'
    )
    assert vboard("set", "board", "/dev/buttons", "medium_size", "16") == (0, b"", b"")


# --- fault --------------------------------------------------------------------------------------


def test_fault_add_list_and_clear(vboard, probe, tmp_path):
    vboard("new", "board")
    run = [
        "run",
        "--board",
        "board",
        "--",
        probe,
        "access",
        "/dev/lcd",
        "f",
        "open",
        "/dev/rtc0",
        "rdwr",
    ]
    assert vboard("fault", "board", "list") == (0, b"", b"")
    assert vboard("fault", "board", "add", "/dev/lcd", "absent") == (0, b"", b"")
    assert vboard("fault", "board", "add", "/dev/rtc0", "open", "errno=EBUSY", "nth=1") == (
        0,
        b"",
        b"",
    )
    status, listed, stderr = vboard("fault", "board", "list")
    assert (status, stderr) == (0, b"")
    assert [b" ".join(line.split()) for line in listed.splitlines()] == [
        b"/dev/lcd absent",
        b"/dev/rtc0 open errno=EBUSY nth=1",
    ]
    assert vboard(*run)[1] == b"access ENOENT\nopen EBUSY\n"
    assert vboard("fault", "board", "clear") == (0, b"", b"")
    assert vboard("fault", "board", "list") == (0, b"", b"")
    assert vboard(*run)[1] == b"access 0\nopen 3\n"


@pytest.mark.parametrize(
    "words",
    [
        ["/dev/lcd"],
        ["/dev/lcd", "explodes"],
        ["/dev/lcd", "write"],
        ["/dev/lcd", "write", "errno=ENOSUCH"],
        ["/dev/lcd", "write", "errno=EIO", "nth=0"],
        ["/dev/lcd", "write", "errno=EIO", "time=x..y"],
        ["/dev/lcd", "write", "errno=EIO", "sometimes"],
        ["/dev/lcd", "read", "short=many"],
    ],
)
def test_fault_add_refuses_a_wrong_line(vboard, tmp_path, words):
    vboard("new", "board")
    before = (tmp_path / "board/faults").read_bytes()
    assert_refused(vboard("fault", "board", "add", *words))
    assert (tmp_path / "board/faults").read_bytes() == before


DEVICES = "/dev/gyro /dev/iccard /dev/korcmem /dev/korstorage /dev/lcd /dev/mem /dev/mtd1 /dev/rtc0 /dev/sda /dev/watchdog"
WATCHDOG_REQUESTS = " ".join(
    "WDIOC_" + name
    for name in "GETSUPPORT GETSTATUS GETBOOTSTATUS SETOPTIONS KEEPALIVE SETTIMEOUT GETTIMEOUT "
    "GETTIMELEFT".split()
)


NOT_ON_THE_BOARD = [
    ("/dev/rtc absent", "the board has no /dev/rtc; perhaps: /dev/rtc0"),
    (
        "/dev/nothing write errno=EIO",
        f"the board has no /dev/nothing; there is: {DEVICES} net:eth0 net:ppp0 socket",
    ),
    ("net:ppp1 ioctl errno=EIO", "the board has no net:ppp1; perhaps: net:ppp0"),
    (
        "/etc/none open errno=EIO",
        f"the board has no /etc/none; there is: {DEVICES} net:eth0 net:ppp0 socket",
    ),
    (
        "/dev/watchdog ioctl:WDIOC_KEEPALVE errno=EIO",
        "/dev/watchdog has no request WDIOC_KEEPALVE; perhaps: WDIOC_KEEPALIVE",
    ),
    (
        "/dev/watchdog ioctl:RTC_RD_TIME errno=EIO",
        f"/dev/watchdog has no request RTC_RD_TIME; there is: {WATCHDOG_REQUESTS}",
    ),
    ("/dev/mem ioctl:ANY errno=EIO", "/dev/mem has no request ANY"),
    (
        "net:ppp0 ioctl:SIOCGIFNETMASK errno=EIO",
        "net:ppp0 has no request SIOCGIFNETMASK; there is: SIOCGIFADDR",
    ),
    (
        "socket ioctl:SIOCGIFNETMASK errno=EIO",
        "socket has no request SIOCGIFNETMASK; there is: SIOCGIFADDR bind",
    ),
    ("/sys/class/x ioctl:ANY errno=EIO", "/sys/class/x has no request ANY"),
]


@pytest.mark.parametrize("line, reason", NOT_ON_THE_BOARD)
def test_fault_add_refuses_what_the_board_does_not_have(vboard, tmp_path, line, reason):
    vboard("new", "board")
    before = (tmp_path / "board/faults").read_bytes()
    assert refusal(vboard("fault", "board", "add", *line.split())) == f"fault:1: {reason}"
    assert (tmp_path / "board/faults").read_bytes() == before


@pytest.mark.parametrize(
    "line, command, shows",
    [
        ("/dev/lcd open errno=EIO", "cat /dev/lcd", True),
        ("/dev/lcd open errno=EIO nth=2", "cat /dev/lcd", False),
        ("/dev/lcd open errno=EIO nth=2", "cat /dev/lcd /dev/lcd", True),
        ("/dev/lcd absent", "ls /dev/lcd", True),
        ("/dev/lcd absent", "ls /dev/rtc0", False),
        ("/dev/lcd absent time=100..", "ls /dev/lcd", False),
        ("/dev/nothing open errno=EIO", "true", False),
    ],
)
def test_a_fault_that_did_not_show_is_reported(vboard, line, command, shows):
    _, _, stderr = vboard("run", "--fault", line, "--", "sh", "-c", f"{command}; true")
    report = f"vboard: this fault did not show: {line}\n"
    assert (report in stderr.decode()) is not shows


def test_only_the_faults_that_did_not_show_are_reported(vboard):
    lines = ["/dev/lcd absent", "/dev/rtc0 absent", "/dev/iccard absent"]
    words = [word for line in lines for word in ("--fault", line)]
    _, _, stderr = vboard("run", *words, "--", "test", "-e", "/dev/rtc0")
    assert stderr.decode().splitlines() == [
        f"vboard: this fault did not show: {line}" for line in (lines[0], lines[2])
    ]


@pytest.mark.parametrize(
    "line",
    [
        "/dev/no* absent",
        "/dev/* ioctl:ANY errno=EIO",
        "net:* ioctl:ANY errno=EIO",
        "net:ppp0 ioctl:SIOCGIFADDR errno=EIO",
        "net:ppp0 ioctl errno=EIO",
        "socket ioctl:SIOCGIFADDR errno=EIO",
        "socket ioctl:bind errno=EIO",
        "socket socket errno=EMFILE",
        "/dev/watchdog ioctl:0x1234 errno=EIO",
        "/dev/watchdog ioctl errno=EIO",
        "/dev absent",
        "/sys/class/none/yet write errno=EIO",
        "/etc/os-release open errno=EIO",
        "/proc/self open errno=EIO",
    ],
)
def test_fault_add_takes_what_may_show(vboard, tmp_path, line):
    vboard("new", "board")
    assert vboard("fault", "board", "add", *line.split()) == (0, b"", b"")
    assert (tmp_path / "board/faults").read_text().endswith(f"\n{line}\n")


def test_fault_add_tells_the_pc_s_devices_from_the_board_s(vboard):
    assert os.path.exists("/dev/ptmx")
    vboard("new", "board")
    assert vboard("fault", "board", "add", "/dev/null", "open", "errno=EIO") == (0, b"", b"")
    assert refusal(vboard("fault", "board", "add", "/dev/ptmx", "absent")).startswith(
        "fault:1: the board has no /dev/ptmx; "
    )


def test_fault_add_takes_a_device_that_is_switched_off(vboard):
    vboard("new", "board")
    vboard("set", "board", "/sys/devices/platform/sda-power/state", "disabled")
    assert vboard("fault", "board", "add", "/dev/sda", "absent") == (0, b"", b"")
    assert vboard("fault", "board", "add", "/dev/sda", "ioctl:SG_IO", "errno=EIO") == (0, b"", b"")
    assert refusal(vboard("fault", "board", "add", "/dev/sdb", "absent")) == (
        "fault:1: the board has no /dev/sdb; perhaps: /dev/sda"
    )


def test_fault_add_knows_the_requests_of_a_model_in_a_library(vboard, buttons):
    words = ["fault", "board", "add", "/dev/buttons"]
    assert vboard(*words, "ioctl:GET_COUNT", "errno=EIO") == (0, b"", b"")
    assert refusal(vboard(*words, "ioctl:GET_COUNTS", "errno=EIO")) == (
        "fault:1: /dev/buttons has no request GET_COUNTS; perhaps: GET_COUNT"
    )
    buttons.write_text("model = x\n")
    assert refusal(vboard(*words, "ioctl:GET_COUNT", "errno=EIO")) == (
        "fault:1: /dev/buttons has no request GET_COUNT: no such model: x"
    )


# --- state ----------------------------------------------------------------------------------------


def test_state_persists_from_run_to_run(board):
    board.run("bt1", "lcd", "-q")
    board.run("bt1", "iccard", "-w")
    assert board.path("media/lcd.frame").read_bytes() == b"\xff" * 1024
    run = board.run("bt1", "iccard", "-r")
    assert run.stdout.endswith(b"5    " * 256)


def test_two_directories_are_two_boards(make_board):
    first, second = make_board(), make_board()
    first.run("bt1", "lcd", "-q")
    first.fault("/dev/iccard absent")
    assert second.path("media/lcd.frame").read_bytes() == bytes(1024)
    assert second.run("bt1", "iccard", "-w").stdout == b"HAL_ICCARD_WRITE sucess\n"
    assert first.run("bt1", "iccard", "-w").stdout.startswith(b"open /dev/iccard error\n")


def test_runs_side_by_side_on_one_board_lose_nothing(build, probe, tmp_path):
    """Each run changes settings of one node file and the card, many times, at the same time."""
    subprocess.run([build / "bin/vboard", "new", tmp_path / "board"], check=True, env=environment())
    times = storm(200)
    set_ranges = []
    for accel, gyro in ((4, 500), (8, 1000)):
        record = f"{0:08x}{accel:02x}000000{gyro & 255:02x}{gyro >> 8:02x}0000" + "0" * 16
        set_ranges.append(["open", "/dev/gyro", "rdwr"] + ["ioctl", "0x40045906", record] * times)
    cards = [
        ["open", "/dev/iccard", "rdwr"] + ["ioctl", "0x40044902", f"{byte}*256"] * times
        for byte in ("11", "ee")
    ]
    runs = [
        subprocess.Popen(
            [
                build / "bin/vboard",
                "run",
                "--board",
                tmp_path / "board",
                "--speed",
                "max",
                "--",
                probe,
                *steps,
            ],
            stdout=subprocess.PIPE,
            env=environment(),
        )
        for steps in set_ranges + cards
    ]
    for run in runs:
        stdout, _ = run.communicate(timeout=HANGS_AFTER_SECONDS)
        assert run.returncode == 0
        assert stdout.startswith(b"open 3\nioctl 0 ")
        assert stdout.count(b"ioctl 0 ") == times
    node = (tmp_path / "board/dev/gyro").read_text()
    assert re.search(r"^model = gyro$", node, re.MULTILINE)
    kept = tuple(
        re.search(rf"^{key} = (\d+)$", node, re.MULTILINE)[1] for key in ("accel_g", "gyro_dps")
    )
    assert kept[0] in ("4", "8") and kept[1] in ("500", "1000")
    assert len(re.findall(r"^accel_g =", node, re.MULTILINE)) == 1
    status = subprocess.run(
        [
            build / "bin/vboard",
            "run",
            "--board",
            tmp_path / "board",
            "--",
            probe,
            "open",
            "/dev/iccard",
            "rdwr",
            "ioctl",
            "0x40044901",
            "00*256",
        ],
        capture_output=True,
        check=True,
        env=environment(),
    )
    card = status.stdout.split()[-1]
    assert card in (b"11" * 256, b"ee" * 256)


# --- programs for 32-bit ARM --------------------------------------------------------------------------

# What an emulator makes of a program is the whole suite in a build for ARM. Its launcher always has what
# these cases lack or replace.
without_arm = pytest.mark.skipif(
    word_size() == 4, reason="this launcher is set up for ARM programs"
)


@pytest.fixture
def arm_program(tmp_path):
    """Begins like an ELF executable of 32 bits, little-endian, for ARM, which is all that is looked at."""
    program = tmp_path / "program"
    program.write_bytes(b"\x7fELF\x01\x01\x01" + bytes(9) + b"\x02\x00\x28\x00" + bytes(32))
    program.chmod(0o755)
    return program


@pytest.fixture(params=["bench", "a bench: 2"])
def set_up(build, tmp_path, request):
    """What sets a run up for ARM programs; the emulator prints its arguments. The loader splits LD_PRELOAD at
    blanks and colons."""
    folder = tmp_path / request.param
    for kind in (sysconfig.get_config_var("MULTIARCH"), "arm-linux-gnueabihf"):
        (folder / "lib" / kind).mkdir(parents=True)
        (folder / "lib" / kind / "libvboard.so").symlink_to(build / "lib/libvboard.so")
    emulator = folder / "emulator"
    emulator.write_text("#!/bin/sh\nprintf '%s\\n' \"$@\"\n")
    emulator.chmod(0o755)
    return {"VBOARD_PRELOAD": f"{folder}/$LIB/libvboard.so", "VBOARD_EMULATOR": str(emulator)}


@without_arm
def test_an_arm_program_without_an_interposer_of_its_kind_is_refused(vboard, arm_program):
    assert_refused(vboard("run", "--", arm_program), 125)


@without_arm
@pytest.mark.parametrize(
    "preload", ["/none/$LIB/libvboard.so", "$LIB/libvboard.so", "/none/libvboard.so"]
)
def test_a_missing_interposer_is_refused_and_not_gone_without(vboard, preload):
    assert_refused(vboard("run", "--", "true", env={"VBOARD_PRELOAD": preload}), 125)


@without_arm
@pytest.mark.parametrize("kind", [sysconfig.get_config_var("MULTIARCH"), "arm-linux-gnueabihf"])
def test_one_of_two_interposers_is_not_enough(vboard, set_up, kind):
    os.unlink(set_up["VBOARD_PRELOAD"].replace("$LIB", f"lib/{kind}"))
    assert_refused(vboard("run", "--", "true", env=set_up), 125)


@without_arm
def test_a_missing_emulator_is_refused(vboard, set_up):
    assert_refused(vboard("run", "--", "true", env=set_up | {"VBOARD_EMULATOR": "/none"}), 127)


@without_arm
def test_the_pc_s_own_programs_stay_on_the_board_beside_arm_ones(vboard, build, set_up):
    assert vboard(
        "run", "--speed", "max", "--", build / "bin/benchrig", "bt1", "beep", "1", env=set_up
    ) == (0, b"open beep.\n", b"")


# By the launcher, execve(), execvp(), posix_spawn() and posix_spawnp(): the words in front of the program's,
# and the name under which it is to know itself.
SPAWN = (
    "import os; _, s = os.waitpid(os.{}({!r}, [{!r}, 'a', 'b c'], os.environ), 0); os._exit(s >> 8)"
)


@without_arm
@pytest.mark.parametrize(
    "command, name",
    [
        (["{path}", "a", "b c"], "{path}"),
        (["sh", "-c", 'exec "$@"', "sh", "{path}", "a", "b c"], "{path}"),
        (["env", "program", "a", "b c"], "program"),
        (["/usr/bin/python3", "-c", SPAWN.format("posix_spawn", "{path}", "other")], "other"),
        (["/usr/bin/python3", "-c", SPAWN.format("posix_spawnp", "program", "other")], "other"),
    ],
)
def test_an_arm_program_goes_to_the_emulator_however_it_is_started(
    vboard, arm_program, set_up, command, name
):
    words = [word.replace("{path}", str(arm_program)) for word in command]
    env = set_up | {"PATH": f"/none:{arm_program.parent}:{os.environ['PATH']}"}
    told = f"-0\n{name}\n{arm_program}\na\nb c\n".replace("{path}", str(arm_program))
    assert vboard("run", "--", *words, env=env) == (0, told.encode(), b"")


@without_arm
@pytest.mark.parametrize("command", [["env", "echo", "a"], ["sh", "-c", "exec echo a"]])
@pytest.mark.parametrize(
    "mode, on_path",
    [
        (0o644, True),  # cannot be executed: the next one of that name is
        (0o755, False),  # a name is not looked up in the working directory
    ],
)
def test_other_programs_do_not_go_to_the_emulator(
    vboard, arm_program, set_up, command, mode, on_path
):
    arm_program.rename(arm_program.with_name("echo")).chmod(mode)
    path = [str(arm_program.parent)] if on_path else []
    env = set_up | {"PATH": ":".join([*path, os.environ["PATH"]])}
    assert vboard("run", "--", *command, env=env, cwd=arm_program.parent) == (0, b"a\n", b"")


@without_arm
def test_an_arm_program_that_cannot_be_executed_is_refused_as_any_other(
    vboard, arm_program, set_up
):
    arm_program.chmod(0o644)
    assert_refused(vboard("run", "--", arm_program, env=set_up), 126)
    status, stdout, _ = vboard("run", "--", "env", arm_program, env=set_up)
    assert (status, stdout) == (126, b"")
