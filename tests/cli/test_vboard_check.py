"""vboard check: what is wrong with the files of a board."""

import subprocess

import pytest

from conftest import HANGS_AFTER_SECONDS, environment, word_size

CLEAN = (0, b"", b"")


@pytest.fixture
def check(board):
    """Checks the board from its parent directory; status, standard output and standard error."""

    def run(name="board"):
        done = subprocess.run(
            [board.build / "bin/vboard", "check", name],
            capture_output=True,
            cwd=board.directory.parent,
            timeout=HANGS_AFTER_SECONDS,
            check=False,
            env=environment(),
        )
        return done.returncode, done.stdout, done.stderr

    return run


def faulty(*lines):
    return 1, "".join(f"board/{line}\n" for line in lines).encode(), b""


def test_a_new_board_is_all_well(check):
    assert check() == CLEAN


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
def test_a_new_board_with_another_motion_sensor_is_all_well(make_board, chip):
    board = make_board(chip)
    board.vboard("check", board.directory)


def test_a_board_that_has_been_used_is_all_well(board, check):
    board.run("bt1", "lcd", "-i")
    board.run("bt2", "korcmem", "-g", "10")
    board.run("bt1", "wdt", seconds=1)
    board.set("/sys/devices/platform/sda-power/state", "disabled")
    assert board.path("clock").exists() and board.path("unpowered/dev/sda").exists()
    assert check() == CLEAN


def test_the_directory_is_shown_as_it_was_given(board, check):
    board.path("dev/rtc0").write_text("model = rtc\nstopped = 2\n")
    said = 'dev/rtc0:2: stopped: "2" is not allowed; it may be 0 or 1\n'
    assert check(board.directory)[1] == f"{board.directory}/{said}".encode()
    assert check("./board")[1] == f"./board/{said}".encode()


def test_no_board_is_refused(check):
    status, stdout, stderr = check("nowhere")
    assert (status, stdout) == (125, b"") and stderr.startswith(b"vboard: nowhere: ")


# --- settings -------------------------------------------------------------------------------------

COMMON = "model medium medium_size number type byte_us"


@pytest.mark.parametrize(
    "file, text, lines",
    [
        (
            "dev/rtc0",
            "# a comment = no setting\n\nmodel = rtc\nrate = banana\nstoped = 1\nstopped=1\n",
            [
                'dev/rtc0:4: rate: "banana" is not allowed; it may be a number such as 1.5, not '
                "negative",
                'dev/rtc0:5: no setting "stoped"; perhaps: stopped',
            ],
        ),
        (
            "dev/rtc0",
            "model = rtc\nstopped\n = 1\nrate = 1.0\nrate = 2.0",
            [
                'dev/rtc0:2: not "KEY = VALUE"',
                'dev/rtc0:3: not "KEY = VALUE"',
                "dev/rtc0:5: rate: line 4 says it, and counts",
            ],
        ),
        ("dev/rtc0", "rate = banana\n", ['dev/rtc0:1: no "model = NAME"']),
        (
            "dev/rtc0",
            "rate = banana\nmodel = rtcc\ntype = fifo\n",
            [
                "dev/rtc0:2: no such model: rtcc; perhaps: rtc",
                'dev/rtc0:3: type: "fifo" is not allowed; it may be one of: character block',
            ],
        ),
        (
            "dev/deep/er",
            "model = rtc\nx = 1",
            [
                f'dev/deep/er:2: no setting "x"; there is: '
                f"set_to set_at rate stopped time_valid {COMMON}"
            ],
        ),
        (
            "unpowered/dev/x",
            "model = iccard\nstuck_byte = 256\n",
            [
                "unpowered/dev/x:2: stuck_byte: "
                '"256" is not allowed; it may be a number from -1 to 255'
            ],
        ),
        (
            "net/ppp0",
            "ipv4 = 1.2.3.4\nmodel = x\n",
            ['net/ppp0:2: no setting "model"; there is: ipv4 index'],
        ),
        (
            "netlink/connector",
            "denied = no\n",
            ['netlink/connector:1: denied: "no" is not allowed; it may be 0 or 1'],
        ),
        ("netlink/other", "denied = 0\n", ["netlink/other:1: is no node: nothing reads it"]),
        (
            "firmware/cpld",
            "size = -1\n",
            ['firmware/cpld:1: size: "-1" is not allowed; it may be a ' "number of at least 0"],
        ),
        (
            "clock",
            "ahead_ns = 5\nboot = 1\nreset_at =\n",
            ['clock:2: no setting "boot"; perhaps: boots'],
        ),
        ("dev/rtc0", "#" * 4096, ["dev/rtc0:1: a node file has 4095 bytes at most"]),
    ],
)
def test_settings_that_count_as_their_default(board, check, file, text, lines):
    board.path(file).parent.mkdir(parents=True, exist_ok=True)
    board.path(file).write_text(text)
    assert check() == faulty(*lines)


def test_files_that_are_not_finished_and_libraries_are_no_nodes(board, check):
    board.path("dev/.rtc0.17.vboard-new").write_text("half of")
    board.path("dev/libmine.so").write_bytes(b"\x7fELF" * 5000)
    assert check() == CLEAN


@pytest.mark.skipif(word_size() == 4, reason="the launcher does not load the board's libraries")
def test_the_settings_of_a_model_in_a_library(board, check, build):
    library = build / "tests/plugin/buttons.so"
    board.path("dev/t").write_text(f"model = {library}\ncount = 200\n")
    assert check() == faulty(
        'dev/t:2: count: "200" is not allowed; it may be a number from 1 to 32'
    )
    board.path("dev/t").write_text("count = 200\nmodel = ./none.so\n")
    status, stdout, stderr = check()
    assert (status, stdout.count(b"\n"), stderr) == (1, 1, b"")
    assert stdout.startswith(b"board/dev/t:2: ") and b"none.so" in stdout


# --- media ----------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "node, key, size, wrong",
    [
        ("dev/gyro", "medium", None, "is missing"),
        ("dev/gyro", "medium", 0, "has 0 bytes and must have at least 1"),
        ("dev/korstorage", "medium", None, "is missing"),
        ("netlink/connector", "events", None, "is missing"),
        ("dev/sda", "identify", None, "is missing"),
        ("dev/sda", "identify", 511, "has 511 bytes and must have at least 512"),
        ("dev/sda", "smart_values", 511, "has 511 bytes and must have at least 512"),
        ("dev/sda", "smart_thresholds", 511, "has 511 bytes and must have at least 512"),
        ("dev/sda", "ram", None, "is missing"),
        ("dev/iccard", "medium", 255, "has 255 bytes and must have at least 256"),
        ("dev/lcd", "medium", 1023, "has 1023 bytes and must have at least 1024"),
        ("dev/mtd1", "medium", 65535, "has 65535 bytes and must have at least 65536"),
        # The first program that opens the device, or uses it, makes these.
        ("dev/iccard", "medium", None, None),
        ("dev/mtd1", "medium", None, None),
        ("dev/mem", "medium", None, None),
        ("dev/mem", "medium", 1, None),
        ("dev/sda", "firmware", None, None),
        ("firmware/cpld", "medium", None, None),
        # Enough.
        ("dev/gyro", "medium", 1, None),
        ("dev/sda", "identify", 512, None),
        ("dev/iccard", "medium", 256, None),
        ("dev/lcd", "medium", 1024, None),
    ],
)
def test_media_that_are_missing_or_too_short(board, check, node, key, size, wrong):
    board.set(node if node.startswith(("net", "firm")) else f"/{node}", key, "m")
    if size is not None:
        board.path("media/m").write_bytes(bytes(size))
    text = board.path(node).read_text().splitlines()
    line = text.index(f"{key} = m") + 1
    assert check() == (CLEAN if wrong is None else faulty(f"{node}:{line}: {key}: media/m {wrong}"))


def test_a_medium_of_a_size_of_its_own(board, check):
    board.path("media/m").write_bytes(bytes(4096))
    board.path("dev/mtd1").write_text("model = mtd\nmedium = m\nmedium_size = 4096\n")
    assert check() == CLEAN
    board.path("dev/mtd1").write_text("model = mtd\nmedium = m\nmedium_size = 4097\n")
    assert check() == faulty(
        "dev/mtd1:2: medium: media/m has 4096 bytes and must have at least 4097"
    )


# --- faults and wires -----------------------------------------------------------------------------


def test_faults_that_never_show(board, check):
    board.path("faults").write_text(
        "# /dev/rtc absent\n"
        "/dev/rtc absent\n"
        "/dev/rtc0 write errno=ENOSUCH\n"
        "/dev/rtc0 ioctl:RTC_RD_TIM errno=EIO # a comment\n"
        "/dev/rtc0 absent\n"
        "/dev/none* absent\n"
    )
    assert check() == faulty(
        "faults:2: the board has no /dev/rtc; perhaps: /dev/rtc0",
        "faults:3: wrong effect 'errno=ENOSUCH'",
        "faults:4: /dev/rtc0 has no request RTC_RD_TIM; perhaps: RTC_RD_TIME",
    )


def test_faults_that_are_too_long(board, check):
    board.path("faults").write_text("#" * 65536)
    assert check() == faulty("faults:1: is too long")


def test_wires_without_an_end(board, check):
    value = "/sys/class/gpio/gpio{}/value".format
    board.path("sys.wires").write_text(
        f"# {value(1)} -> {value(2)}\n\n"
        f"{value(48)} -> {value(40)}  # a comment\n"
        f"{value(48)} -> {value(9)}\n"
        f"{value(8)} -> {value(40)}\n"
        f"{value(48)} {value(40)}\n"
        f"{value(48)} -> {value(40)} {value(41)}\n"
        f"{value(48)} -> gpio40\n"
        f"gpio48 -> {value(40)}\n"
    )
    form = 'not "/sys/FROM -> /sys/TO"'
    assert check() == faulty(
        f"sys.wires:4: the board has no {value(9)}",
        f"sys.wires:5: the board has no {value(8)}",
        f"sys.wires:6: {form}",
        f"sys.wires:7: {form}",
        f"sys.wires:8: {form}",
        f"sys.wires:9: {form}",
    )


def test_a_board_without_faults_and_wires(board, check):
    board.path("faults").unlink()
    board.path("sys.wires").unlink()
    assert check() == CLEAN


def test_lines_come_in_the_same_order_every_time(board, check):
    """Devices in the order of their names, numbers by value; then what is no device."""
    for name in ("dev/x10", "dev/x9", "net/a", "firmware/b"):
        board.path(name).write_text("wrong\n")
    board.path("clock").write_text("wrong\n")
    board.path("faults").write_text("wrong\n")
    board.path("sys.wires").write_text("wrong\n")
    lines = check()[1].decode().splitlines()
    files = [line.split(":")[0] for line in lines]
    assert list(dict.fromkeys(files)) == [
        f"board/{name}"
        for name in ("dev/x9", "dev/x10", "net/a", "firmware/b", "clock", "faults", "sys.wires")
    ]
