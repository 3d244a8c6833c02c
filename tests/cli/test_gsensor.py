"""bt1 gsensor: the motion sensor's tool, its options one by one."""

import dataclasses
import struct

import pytest

from conftest import err, out
from gyro_reference import (
    CLOSE,
    CONFIG,
    ICM,
    ICM690,
    INIT,
    KILLED_BY_TERM,
    KXTJ,
    LIS2DH,
    LIS2DW,
    LSM,
    OPEN,
    READ,
    WAIT,
    answers,
    assert_run,
    head,
    loop_start,
    ranges,
    requests,
    set_range,
    set_timer,
)

USAGE = out(
    b"usage\n"
    b" -h                   : print help menu\n"
    b" -i                   : init gsensor\n"
    b" -t polltime          : set the poll time\n"
    b" -s accel gyro        : set the accel & gyro full scale\n"
    b" -g                   : get the accel & gyro full scale\n"
    b" -r                   : read the gyro data\n"
    b" -c                   : read the Pitch & Roll & Yaw\n"
    b" -w                   : enable the wake on motion mode\n"
)


def recorded(board, *words, **options):
    """Runs the applet and records its story."""
    return board.run("bt1", "gsensor", *words, story=True, **options)


# --- arguments ----------------------------------------------------------------------------------


def test_without_argument_opens_closes_and_returns_zero(board):
    assert_run(recorded(board), 0, OPEN, CLOSE)


@pytest.mark.parametrize("words", [["read"], ["read", "autotest"]])
def test_a_word_that_is_no_option_does_nothing(board, words):
    assert_run(recorded(board, *words), 0, OPEN, CLOSE)


@pytest.mark.parametrize("option", ["-h", "-H"])
def test_help_prints_the_usage_and_returns_zero(board, option):
    assert_run(recorded(board, option), 0, OPEN, USAGE, CLOSE)


def test_help_does_not_end_the_option_walk(board):
    assert_run(
        recorded(board, "-h", "-t", "100"),
        0,
        OPEN,
        USAGE,
        set_timer(100),
        timer_set(100),
        CLOSE,
    )


def assert_complaint(run, complaint):
    """The usage after getopt's own complaint, whose place in the story is libc's business."""
    assert run.stderr == complaint
    story = [line for line in run.story if not line.startswith("err ")]
    assert_run(dataclasses.replace(run, story=story), 0, OPEN, USAGE, CLOSE)


@pytest.mark.parametrize("words", [["-w", "1"], ["-w"]])
def test_dash_w_gives_getopt_s_complaint_and_the_usage(board, words):
    # The usage offers it, the option string does not have it.
    assert_complaint(recorded(board, *words), b"gsensor: invalid option -- 'w'\n")


def test_an_unknown_option_gives_getopt_s_complaint_and_the_usage(board):
    assert_complaint(recorded(board, "-x"), b"gsensor: invalid option -- 'x'\n")


@pytest.mark.parametrize("letter", "tsTS")
def test_an_option_without_its_value_gives_getopt_s_complaint_and_the_usage(board, letter):
    assert_complaint(
        recorded(board, "-" + letter),
        b"gsensor: option requires an argument -- '%b'\n" % letter.encode(),
    )


# --- the device ---------------------------------------------------------------------------------


@pytest.mark.parametrize("words", [[], ["-h"], ["-i"], ["-r"], ["autotest"]])
def test_a_missing_device_is_reported_with_errno_and_returned(board, words, tmp_path):
    board.fault("/dev/gyro absent")
    work = tmp_path / "work"
    work.mkdir()
    assert_run(
        recorded(board, *words, cwd=work),
        255,
        "open /dev/gyro RDWR = ENOENT",
        out("gsensor_main:599 no find /dev/gyro err[2]\n"),
    )
    assert not (work / "gsensor_log").exists()


def test_a_device_that_does_not_open_is_reported_with_errno(board):
    board.fault("/dev/gyro open errno=EBUSY")
    assert_run(
        recorded(board, "-i"),
        255,
        "open /dev/gyro RDWR = EBUSY",
        out("gsensor_main:599 no find /dev/gyro err[16]\n"),
    )


# --- -i -----------------------------------------------------------------------------------------


@pytest.mark.parametrize("option", ["-i", "-I"])
@pytest.mark.parametrize("chip", [LSM, ICM, ICM690, KXTJ, LIS2DH, LIS2DW])
def test_init_prints_the_chip_s_name_and_type(make_board, option, chip):
    run = recorded(make_board(gyro=chip), option)
    (identity,) = answers(run, "ioctl /dev/gyro HAT_GYRO_INIT")
    assert identity[:32] == chip.encode().ljust(32, b"\0")
    kind = struct.unpack_from("<I", identity, 32)[0]
    text = f"HAT_GYRO_INIT sucess, name = {chip}. type = {kind:x}\n"
    assert_run(run, 0, OPEN, INIT, out(text), CLOSE)


def test_init_prints_the_type_in_lower_case(board):
    board.set("/dev/gyro", "chip_type", 0xABCDEF09)
    text = f"HAT_GYRO_INIT sucess, name = {LSM}. type = abcdef09\n"
    assert_run(recorded(board, "-i"), 0, OPEN, INIT, out(text), CLOSE)


def test_a_name_that_fills_its_field_ends_with_it(board):
    # 32 bytes have no room for a NUL, and the type that follows them would go on in letters.
    name = "GYRO_ABCDEFGHIJKLMNOPQRSTUVWXYZ1"
    assert len(name) == 32
    board.set("/dev/gyro", "chip", name)
    board.set("/dev/gyro", "chip_type", 0x64636261)
    text = f"HAT_GYRO_INIT sucess, name = {name}. type = 64636261\n"
    unknown = out(f"no support gsensor, name is {name}\n")
    assert_run(recorded(board, "-i"), 0, OPEN, INIT, out(text), CLOSE)
    assert_run(recorded(board, "-r"), 0, OPEN, *loop_start(name), WAIT, READ, unknown, CLOSE)


def test_init_that_fails_is_reported_and_is_no_failure_of_the_tool(board):
    board.fault("/dev/gyro ioctl:HAT_GYRO_INIT errno=EIO")
    assert_run(
        recorded(board, "-i"),
        0,
        OPEN,
        "ioctl /dev/gyro HAT_GYRO_INIT = EIO",
        err("HAT_GYRO_INIT set failure.\n: Input/output error\n"),
        CLOSE,
    )


def test_a_positive_result_of_a_request_is_a_success(board):
    for request in ("INIT", "TMR_SET", "READ_CONFIG", "SET_RNG"):
        board.fault(f"/dev/gyro ioctl:HAT_GYRO_{request} result=1")
    run = recorded(board, "-i", "-t", "50", "-s", "4", "500", "-g", "-c", seconds=0.075)
    assert run.status == KILLED_BY_TERM
    assert run.stderr == b""
    (identity,) = {answer for answer in answers(run, "ioctl /dev/gyro HAT_GYRO_INIT")}
    kind = struct.unpack_from("<I", identity, 32)[0]
    texts = [
        *out(f"HAT_GYRO_INIT sucess, name = {LSM}. type = {kind:x}\n"),
        *timer_set(50),
        *asked(4, 500),
        *taken(4, 500),
        *shown(4, 500),
        *out(head(LSM, 4, 500)),
    ]
    printed = [line for line in run.story if line.startswith("out ")]
    assert printed[: len(texts)] == texts
    assert printed[len(texts)].startswith('out "[Pitch:')


# --- -t -----------------------------------------------------------------------------------------


def timer_set(poll_ms):
    return out(f"HAT_GYRO_TMR_SET sucess, poll the gyro time is = ({poll_ms})ms.\n")


@pytest.mark.parametrize("option", ["-t", "-T"])
@pytest.mark.parametrize(
    "word, poll_ms",
    [
        ("100", 100),
        ("0x64", 100),
        ("0x1F4", 500),
        ("0xfff", 4095),
        ("10x64", 100),  # the digits after "0x" count, wherever it stands
        ("010", 10),  # decimal, never octal
        ("64h", 64),
        ("10X64", 10),  # only a small "x" makes a number hexadecimal
    ],
)
def test_poll_time_is_decimal_or_hexadecimal_after_0x(board, option, word, poll_ms):
    assert_run(
        recorded(board, option, word), 0, OPEN, set_timer(poll_ms), timer_set(poll_ms), CLOSE
    )


@pytest.mark.parametrize("word, poll_ms", [("0", 0), ("0x", 0), ("fast", 0), ("-5", -5)])
def test_poll_time_that_is_not_positive_is_left_to_the_driver(board, word, poll_ms):
    run = recorded(board, "-t", word)
    assert_run(
        run,
        0,
        OPEN,
        set_timer(poll_ms, "EINVAL"),
        err("HAT_GYRO_TMR_SET set failure.\n: Invalid argument\n"),
        CLOSE,
    )


def test_poll_time_that_the_driver_refuses_is_reported(board):
    board.fault("/dev/gyro ioctl:HAT_GYRO_TMR_SET errno=EIO")
    assert_run(
        recorded(board, "-t", "100"),
        0,
        OPEN,
        set_timer(100, "EIO"),
        err("HAT_GYRO_TMR_SET set failure.\n: Input/output error\n"),
        CLOSE,
    )


@pytest.mark.parametrize("poll_ms", [20, 100, 500])
def test_poll_time_is_the_time_from_sample_to_sample(board, poll_ms):
    run = board.run("bt1", "gsensor", "-t", str(poll_ms), "-r", seconds=poll_ms * 5.5 / 1000)
    times = [time for time, line in run.trace if line.startswith("read /dev/gyro")]
    assert len(times) == 5
    for early, late in zip(times, times[1:]):
        assert abs(late - early - poll_ms / 1000) < 0.001


# --- -g -----------------------------------------------------------------------------------------


def shown(accel, gyro):
    return out(f"Accel Full Scale is {accel} g,\n Gyro Full Scale is {gyro} \n")


@pytest.mark.parametrize("option", ["-g", "-G"])
@pytest.mark.parametrize("accel, gyro", [(2, 250), (4, 500), (8, 1000), (16, 2000)])
def test_get_prints_both_ranges_with_a_blank_before_gyro(board, option, accel, gyro):
    ranges(board, accel, gyro)
    assert_run(recorded(board, option), 0, OPEN, CONFIG, shown(accel, gyro), CLOSE)


def test_get_that_fails_is_reported(board):
    board.fault("/dev/gyro ioctl:HAT_GYRO_READ_CONFIG errno=EIO")
    assert_run(
        recorded(board, "-g"),
        0,
        OPEN,
        CONFIG_EIO,
        out("get Accel Full Scale & Gyro Full Scale error\n"),
        CLOSE,
    )


# --- -s -----------------------------------------------------------------------------------------


def asked(accel, gyro):
    return out(f"gsensor_main:675 input param accel_rng={accel} gyro_rng={gyro}\n")


def taken(accel, gyro):
    return out(
        f"HAT_GYRO_SET_RNG sucess, set the accel full scale is = ({accel})."
        f"set the gyro full scale is = ({gyro}).\n"
    )


CONFIG_EIO = "ioctl /dev/gyro HAT_GYRO_READ_CONFIG = EIO"
CONFIG_FAILED = err("HAT_GYRO_READ_CONFIG get failure.\n: Input/output error\n")
SET_RNG_FAILED = err("HAT_GYRO_SET_RNG set failure.\n: Input/output error\n")


def checks(comparison):
    """Five checks of the ranges, each with the same complaint."""
    return [
        step
        for n in range(5)
        for step in (CONFIG, out(f"[{n}]set Accel Full Scale err, {comparison}\n"))
    ]


@pytest.mark.parametrize("option", ["-s", "-S"])
@pytest.mark.parametrize("accel, gyro", [(4, 500), (2, 250), (8, 2000), (16, 1000)])
def test_set_range_that_holds_is_checked_five_times_in_silence(board, option, accel, gyro):
    assert_run(
        recorded(board, option, str(accel), str(gyro)),
        0,
        OPEN,
        asked(accel, gyro),
        set_range(accel, gyro),
        taken(accel, gyro),
        *[CONFIG] * 5,
        CLOSE,
    )


@pytest.mark.parametrize(
    "keeps, before, comparison",
    [
        ("accel", (2, 500), "2 != 4, 500 == 500"),
        ("gyro", (4, 250), "4 == 4, 250 != 500"),
        ("1", (8, 1000), "8 != 4, 1000 != 500"),
    ],
)
def test_set_range_with_a_driver_that_keeps_its_ranges(board, keeps, before, comparison):
    ranges(board, *before)
    board.set("/dev/gyro", "keeps_range", keeps)
    assert_run(
        recorded(board, "-s", "4", "500"),
        0,
        OPEN,
        asked(4, 500),
        set_range(4, 500),
        taken(4, 500),
        *checks(comparison),
        CLOSE,
    )


def test_set_range_that_fails_is_reported_and_checked_all_the_same(board):
    ranges(board, 2, 250)
    board.fault("/dev/gyro ioctl:HAT_GYRO_SET_RNG errno=EIO")
    assert_run(
        recorded(board, "-s", "16", "2000"),
        0,
        OPEN,
        asked(16, 2000),
        set_range(16, 2000, "EIO"),
        SET_RNG_FAILED,
        *checks("2 != 16, 250 != 2000"),
        CLOSE,
    )


def test_set_range_that_already_stands_needs_no_success(board):
    ranges(board, 4, 500)
    board.fault("/dev/gyro ioctl:HAT_GYRO_SET_RNG errno=EIO")
    assert_run(
        recorded(board, "-s", "4", "500"),
        0,
        OPEN,
        asked(4, 500),
        set_range(4, 500, "EIO"),
        SET_RNG_FAILED,
        *[CONFIG] * 5,
        CLOSE,
    )


def test_set_range_compares_even_when_the_ranges_cannot_be_read(board):
    # The record is zeroed before each request, so a request that fails leaves zeros to compare with.
    board.fault("/dev/gyro ioctl:HAT_GYRO_READ_CONFIG errno=EIO nth=1")
    board.fault("/dev/gyro ioctl:HAT_GYRO_READ_CONFIG errno=EIO nth=4")
    assert_run(
        recorded(board, "-s", "4", "500"),
        0,
        OPEN,
        asked(4, 500),
        set_range(4, 500),
        taken(4, 500),
        CONFIG_EIO,
        CONFIG_FAILED,
        out("[0]set Accel Full Scale err, 0 != 4, 0 != 500\n"),
        CONFIG,
        CONFIG,
        CONFIG_EIO,
        CONFIG_FAILED,
        out("[3]set Accel Full Scale err, 0 != 4, 0 != 500\n"),
        CONFIG,
        CLOSE,
    )


@pytest.mark.parametrize("words", [["4"], ["4", ""], ["4", "  "], ["4", "", "-g"]])
def test_set_range_without_a_second_word_ends_the_tool(board, words):
    refusal = out("gsensor_main:669 input param gyro_rng err\n")
    assert_run(recorded(board, "-s", *words), 255, OPEN, refusal, CLOSE)


@pytest.mark.parametrize(
    "words, accel, gyro",
    [
        (["4", "much"], 4, 0),
        (["much", "500"], 0, 500),
        (["much", "more"], 0, 0),
        (["4", "\udca0\udc85"], 4, 0),  # bytes A0 and 85: characters above 127 are no blanks
        (["4", " \udcff"], 4, 0),
        (["4", "500dps"], 4, 500),
        (["0x4", "500"], 0, 500),  # decimal: reads as 0
    ],
)
def test_set_range_with_a_word_that_is_no_number_is_not_reported(board, words, accel, gyro):
    run = recorded(board, "-s", *words)
    assert run.story[:2] == [OPEN, *asked(accel, gyro)]
    made = requests(run)
    # Whether the driver takes such a range is its business.
    assert made[1].startswith(set_range(accel, gyro, ""))
    assert made[:1] + made[2:] == [OPEN, *[CONFIG] * 5, CLOSE]
    assert run.status == 0


@pytest.mark.parametrize(
    "accel, gyro",
    [(128, 250), (260, 500), (-1, 65786), (65540, 128), (-2147483648, 2147483647)],
)
def test_set_range_takes_numbers_of_32_bits(board, accel, gyro):
    # Each of the two is another number in 8 or 16 bits. Which ranges there are is the driver's business.
    assert_run(
        recorded(board, "-s", str(accel), str(gyro)),
        0,
        OPEN,
        asked(accel, gyro),
        set_range(accel, gyro, "EINVAL"),
        err("HAT_GYRO_SET_RNG set failure.\n: Invalid argument\n"),
        *checks(f"2 != {accel}, 250 != {gyro}" if gyro != 250 else f"2 != {accel}, 250 == 250"),
        CLOSE,
    )


def test_set_range_s_second_word_does_not_end_the_option_walk(board):
    assert_run(
        recorded(board, "-s", "8", "1000", "-g"),
        0,
        OPEN,
        asked(8, 1000),
        set_range(8, 1000),
        taken(8, 1000),
        *[CONFIG] * 5,
        CONFIG,
        shown(8, 1000),
        CLOSE,
    )


def test_set_range_takes_the_next_word_whatever_it_is(board):
    run = recorded(board, "-s", "4", "-g")
    assert run.story[:2] == [OPEN, *asked(4, 0)]
    made = requests(run)
    assert made[1].startswith(set_range(4, 0, ""))
    # "-g" is still an option as well.
    assert made[:1] + made[2:] == [OPEN, *[CONFIG] * 6, CLOSE]
    assert run.status == 0


def test_options_run_in_their_order_on_one_descriptor(board):
    run = recorded(board, "-g", "-s", "4", "500", "-t", "0x64", "-g", "-i")
    (identity,) = answers(run, "ioctl /dev/gyro HAT_GYRO_INIT")
    kind = struct.unpack_from("<I", identity, 32)[0]
    assert_run(
        run,
        0,
        OPEN,
        CONFIG,
        shown(2, 250),
        asked(4, 500),
        set_range(4, 500),
        taken(4, 500),
        *[CONFIG] * 5,
        set_timer(100),
        timer_set(100),
        CONFIG,
        shown(4, 500),
        INIT,
        out(f"HAT_GYRO_INIT sucess, name = {LSM}. type = {kind:x}\n"),
        CLOSE,
    )
