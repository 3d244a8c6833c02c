"""bt1 gsensor: the motion sensor's tool, its options one by one."""

import struct

import pytest

from gyro_reference import (
    CLOSE,
    CONFIG,
    ICM,
    ICM690,
    INIT,
    KXTJ,
    LIS2DH,
    LIS2DW,
    LSM,
    OPEN,
    answers,
    assert_run,
    ranges,
    requests,
    set_range,
    set_timer,
)

USAGE = (
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


# --- arguments ----------------------------------------------------------------------------------


def test_without_argument_opens_closes_and_returns_zero(board):
    assert_run(board.run("bt1", "gsensor"), 0, b"", [OPEN, CLOSE])


def test_a_word_that_is_no_option_does_nothing(board):
    assert_run(board.run("bt1", "gsensor", "read"), 0, b"", [OPEN, CLOSE])


@pytest.mark.parametrize("option", ["-h", "-H"])
def test_help_prints_the_usage_and_returns_zero(board, option):
    assert_run(board.run("bt1", "gsensor", option), 0, USAGE, [OPEN, CLOSE])


def test_help_does_not_end_the_option_walk(board):
    run = board.run("bt1", "gsensor", "-h", "-t", "100")
    assert_run(
        run,
        0,
        USAGE + b"HAT_GYRO_TMR_SET sucess, poll the gyro time is = (100)ms.\n",
        [OPEN, set_timer(100), CLOSE],
    )


@pytest.mark.parametrize("words", [["-w", "1"], ["-w"]])
def test_dash_w_gives_getopt_s_complaint_and_the_usage(board, words):
    # The usage offers it, the option string does not have it.
    assert_run(
        board.run("bt1", "gsensor", *words),
        0,
        USAGE,
        [OPEN, CLOSE],
        stderr=b"gsensor: invalid option -- 'w'\n",
    )


def test_an_unknown_option_gives_getopt_s_complaint_and_the_usage(board):
    assert_run(
        board.run("bt1", "gsensor", "-x"),
        0,
        USAGE,
        [OPEN, CLOSE],
        stderr=b"gsensor: invalid option -- 'x'\n",
    )


@pytest.mark.parametrize("letter", "tsTS")
def test_an_option_without_its_value_gives_getopt_s_complaint_and_the_usage(board, letter):
    assert_run(
        board.run("bt1", "gsensor", "-" + letter),
        0,
        USAGE,
        [OPEN, CLOSE],
        stderr=b"gsensor: option requires an argument -- '%b'\n" % letter.encode(),
    )


# --- the device ---------------------------------------------------------------------------------


@pytest.mark.parametrize("words", [[], ["-h"], ["-i"], ["-r"], ["autotest"]])
def test_a_missing_device_is_reported_with_errno_and_returned(board, words, tmp_path):
    board.fault("/dev/gyro absent")
    work = tmp_path / "work"
    work.mkdir()
    assert_run(
        board.run("bt1", "gsensor", *words, cwd=work),
        255,
        b"gsensor_main:599 no find /dev/gyro err[2]\n",
        ["open /dev/gyro RDWR = ENOENT"],
    )
    assert not (work / "gsensor_log").exists()


def test_a_device_that_does_not_open_is_reported_with_errno(board):
    board.fault("/dev/gyro open errno=EBUSY")
    assert_run(
        board.run("bt1", "gsensor", "-i"),
        255,
        b"gsensor_main:599 no find /dev/gyro err[16]\n",
        ["open /dev/gyro RDWR = EBUSY"],
    )


# --- -i -----------------------------------------------------------------------------------------


@pytest.mark.parametrize("option", ["-i", "-I"])
@pytest.mark.parametrize("chip", [LSM, ICM, ICM690, KXTJ, LIS2DH, LIS2DW])
def test_init_prints_the_chip_s_name_and_type(make_board, option, chip):
    run = make_board(gyro=chip).run("bt1", "gsensor", option)
    (identity,) = answers(run, "ioctl /dev/gyro HAT_GYRO_INIT")
    assert identity[:32] == chip.encode().ljust(32, b"\0")
    kind = struct.unpack_from("<I", identity, 32)[0]
    assert_run(
        run,
        0,
        b"HAT_GYRO_INIT sucess, name = %b. type = %x\n" % (chip.encode(), kind),
        [OPEN, INIT, CLOSE],
    )


def test_init_that_fails_is_reported_and_is_no_failure_of_the_tool(board):
    board.fault("/dev/gyro ioctl:HAT_GYRO_INIT errno=EIO")
    assert_run(
        board.run("bt1", "gsensor", "-i"),
        0,
        b"",
        [OPEN, "ioctl /dev/gyro HAT_GYRO_INIT = EIO", CLOSE],
        stderr=b"HAT_GYRO_INIT set failure.\n: Input/output error\n",
    )


# --- -t -----------------------------------------------------------------------------------------


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
    ],
)
def test_poll_time_is_decimal_or_hexadecimal_after_0x(board, option, word, poll_ms):
    assert_run(
        board.run("bt1", "gsensor", option, word),
        0,
        b"HAT_GYRO_TMR_SET sucess, poll the gyro time is = (%d)ms.\n" % poll_ms,
        [OPEN, set_timer(poll_ms), CLOSE],
    )


@pytest.mark.parametrize("word, poll_ms", [("0", 0), ("0x", 0), ("fast", 0), ("-5", -5)])
def test_poll_time_that_is_not_positive_is_the_driver_s_business(board, word, poll_ms):
    run = board.run("bt1", "gsensor", "-t", word)
    made = requests(run)
    assert made[:1] + made[2:] == [OPEN, CLOSE]
    assert made[1].startswith(set_timer(poll_ms, ""))
    if made[1].endswith(" = 0"):
        assert run.stdout == b"HAT_GYRO_TMR_SET sucess, poll the gyro time is = (%d)ms.\n" % poll_ms
    else:
        assert run.stderr.startswith(b"HAT_GYRO_TMR_SET set failure.\n: ")
    assert run.status == 0


def test_poll_time_that_the_driver_refuses_is_reported(board):
    board.fault("/dev/gyro ioctl:HAT_GYRO_TMR_SET errno=EIO")
    assert_run(
        board.run("bt1", "gsensor", "-t", "100"),
        0,
        b"",
        [OPEN, set_timer(100, "EIO"), CLOSE],
        stderr=b"HAT_GYRO_TMR_SET set failure.\n: Input/output error\n",
    )


@pytest.mark.parametrize("poll_ms", [20, 100, 500])
def test_poll_time_is_the_time_from_sample_to_sample(board, poll_ms):
    run = board.run("bt1", "gsensor", "-t", str(poll_ms), "-r", seconds=poll_ms * 5.5 / 1000)
    times = [time for time, line in run.trace if line.startswith("read /dev/gyro")]
    assert len(times) == 5
    for early, late in zip(times, times[1:]):
        assert abs(late - early - poll_ms / 1000) < 0.001


# --- -g -----------------------------------------------------------------------------------------


@pytest.mark.parametrize("option", ["-g", "-G"])
@pytest.mark.parametrize("accel, gyro", [(2, 250), (4, 500), (8, 1000), (16, 2000)])
def test_get_prints_both_ranges_with_a_blank_before_gyro(board, option, accel, gyro):
    ranges(board, accel, gyro)
    assert_run(
        board.run("bt1", "gsensor", option),
        0,
        b"Accel Full Scale is %d g,\n Gyro Full Scale is %d \n" % (accel, gyro),
        [OPEN, CONFIG, CLOSE],
    )


def test_get_that_fails_is_reported(board):
    board.fault("/dev/gyro ioctl:HAT_GYRO_READ_CONFIG errno=EIO")
    assert_run(
        board.run("bt1", "gsensor", "-g"),
        0,
        b"get Accel Full Scale & Gyro Full Scale error\n",
        [OPEN, "ioctl /dev/gyro HAT_GYRO_READ_CONFIG = EIO", CLOSE],
    )


# --- -s -----------------------------------------------------------------------------------------


def asked(accel, gyro):
    return b"gsensor_main:675 input param accel_rng=%d gyro_rng=%d\n" % (accel, gyro)


def taken(accel, gyro):
    return (
        b"HAT_GYRO_SET_RNG sucess, set the accel full scale is = (%d)."
        b"set the gyro full scale is = (%d).\n" % (accel, gyro)
    )


SET_RNG_FAILED = b"HAT_GYRO_SET_RNG set failure.\n: Input/output error\n"


@pytest.mark.parametrize("option", ["-s", "-S"])
@pytest.mark.parametrize("accel, gyro", [(4, 500), (2, 250), (8, 2000), (16, 1000)])
def test_set_range_that_holds_is_checked_five_times_in_silence(board, option, accel, gyro):
    assert_run(
        board.run("bt1", "gsensor", option, str(accel), str(gyro)),
        0,
        asked(accel, gyro) + taken(accel, gyro),
        [OPEN, set_range(accel, gyro), *[CONFIG] * 5, CLOSE],
    )


def test_set_range_with_a_driver_that_keeps_2_g(board):
    ranges(board, 2, 500)
    board.set("/dev/gyro", "keeps_range", "accel")
    assert_run(
        board.run("bt1", "gsensor", "-s", "4", "500"),
        0,
        asked(4, 500)
        + taken(4, 500)
        + b"".join(b"[%d]set Accel Full Scale err, 2 != 4, 500 == 500\n" % n for n in range(5)),
        [OPEN, set_range(4, 500), *[CONFIG] * 5, CLOSE],
    )


def test_set_range_with_a_driver_that_keeps_250_dps(board):
    ranges(board, 4, 250)
    board.set("/dev/gyro", "keeps_range", "gyro")
    assert_run(
        board.run("bt1", "gsensor", "-s", "4", "500"),
        0,
        asked(4, 500)
        + taken(4, 500)
        + b"".join(b"[%d]set Accel Full Scale err, 4 == 4, 250 != 500\n" % n for n in range(5)),
        [OPEN, set_range(4, 500), *[CONFIG] * 5, CLOSE],
    )


def test_set_range_with_a_driver_that_keeps_both(board):
    ranges(board, 8, 1000)
    board.set("/dev/gyro", "keeps_range", "1")
    assert_run(
        board.run("bt1", "gsensor", "-s", "4", "500"),
        0,
        asked(4, 500)
        + taken(4, 500)
        + b"".join(b"[%d]set Accel Full Scale err, 8 != 4, 1000 != 500\n" % n for n in range(5)),
        [OPEN, set_range(4, 500), *[CONFIG] * 5, CLOSE],
    )


def test_set_range_that_fails_is_reported_and_checked_all_the_same(board):
    ranges(board, 2, 250)
    board.fault("/dev/gyro ioctl:HAT_GYRO_SET_RNG errno=EIO")
    assert_run(
        board.run("bt1", "gsensor", "-s", "16", "2000"),
        0,
        asked(16, 2000)
        + b"".join(b"[%d]set Accel Full Scale err, 2 != 16, 250 != 2000\n" % n for n in range(5)),
        [OPEN, set_range(16, 2000, "EIO"), *[CONFIG] * 5, CLOSE],
        stderr=SET_RNG_FAILED,
    )


def test_set_range_that_already_stands_needs_no_success(board):
    ranges(board, 4, 500)
    board.fault("/dev/gyro ioctl:HAT_GYRO_SET_RNG errno=EIO")
    assert_run(
        board.run("bt1", "gsensor", "-s", "4", "500"),
        0,
        asked(4, 500),
        [OPEN, set_range(4, 500, "EIO"), *[CONFIG] * 5, CLOSE],
        stderr=SET_RNG_FAILED,
    )


def test_set_range_compares_even_when_the_ranges_cannot_be_read(board):
    # The record is zeroed before each request, so a request that fails leaves zeros to compare with.
    board.fault("/dev/gyro ioctl:HAT_GYRO_READ_CONFIG errno=EIO nth=1")
    board.fault("/dev/gyro ioctl:HAT_GYRO_READ_CONFIG errno=EIO nth=4")
    broken = "ioctl /dev/gyro HAT_GYRO_READ_CONFIG = EIO"
    assert_run(
        board.run("bt1", "gsensor", "-s", "4", "500"),
        0,
        asked(4, 500)
        + taken(4, 500)
        + b"[0]set Accel Full Scale err, 0 != 4, 0 != 500\n"
        + b"[3]set Accel Full Scale err, 0 != 4, 0 != 500\n",
        [OPEN, set_range(4, 500), broken, CONFIG, CONFIG, broken, CONFIG, CLOSE],
        stderr=b"HAT_GYRO_READ_CONFIG get failure.\n: Input/output error\n" * 2,
    )


@pytest.mark.parametrize("words", [["4"], ["4", ""], ["4", "  "]])
def test_set_range_without_a_second_word_is_an_error(board, words):
    run = board.run("bt1", "gsensor", "-s", *words)
    assert run.stdout == b"gsensor_main:669 input param gyro_rng err\n"
    assert run.stderr == b""
    assert requests(run) == [OPEN, CLOSE]
    assert run.status == 255


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
    run = board.run("bt1", "gsensor", "-s", *words)
    assert run.stdout.startswith(asked(accel, gyro))
    made = requests(run)
    # Whether the driver takes such a range is its business.
    assert made[1].startswith(set_range(accel, gyro, ""))
    assert made[:1] + made[2:] == [OPEN, *[CONFIG] * 5, CLOSE]
    assert run.status == 0


def test_set_range_s_second_word_does_not_end_the_option_walk(board):
    assert_run(
        board.run("bt1", "gsensor", "-s", "8", "1000", "-g"),
        0,
        asked(8, 1000) + taken(8, 1000) + b"Accel Full Scale is 8 g,\n Gyro Full Scale is 1000 \n",
        [OPEN, set_range(8, 1000), *[CONFIG] * 5, CONFIG, CLOSE],
    )


def test_set_range_takes_the_next_word_whatever_it_is(board):
    run = board.run("bt1", "gsensor", "-s", "4", "-g")
    assert run.stdout.startswith(asked(4, 0))
    made = requests(run)
    assert made[1].startswith(set_range(4, 0, ""))
    # "-g" is still an option as well.
    assert made[:1] + made[2:] == [OPEN, *[CONFIG] * 6, CLOSE]
    assert run.status == 0


def test_options_run_in_their_order_on_one_descriptor(board):
    run = board.run("bt1", "gsensor", "-g", "-s", "4", "500", "-t", "0x64", "-g", "-i")
    assert requests(run) == [
        OPEN,
        CONFIG,
        set_range(4, 500),
        *[CONFIG] * 5,
        set_timer(100),
        CONFIG,
        INIT,
        CLOSE,
    ]
    assert run.status == 0
