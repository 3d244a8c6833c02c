"""bt1 gsensor -r and -c: samples, and the angles that the attitude filter makes of them."""

import pytest

from conftest import err, out
from gyro_reference import (
    ANGLES,
    CLOSE,
    ICM,
    ICM690,
    KILLED_BY_TERM,
    KXTJ,
    LIS2DH,
    LIS2DW,
    LSM,
    OPEN,
    READ,
    SIX_AXES,
    WAIT,
    acceleration,
    assert_angles,
    assert_data_line,
    assert_run,
    data_lines,
    head,
    loop_samples,
    loop_start,
    ranges,
    rate,
    samples,
    set_timer,
    timeline,
)

# --- -r: data lines -------------------------------------------------------------------------------

# Two of everything: both signs on every axis.
SWAYING = [(0, 0.25, -0.5, 0.9, 100.5, -200.25, 30), (0.12, -0.3, 0.7, -0.8, -12.5, 55, -240)]


def read_samples(board, *words, seconds=0.275):
    return board.run("bt1", "gsensor", *words, "-r", seconds=seconds, story=True)


@pytest.mark.parametrize("option", ["-r", "-R"])
@pytest.mark.parametrize("chip", [LSM, ICM, KXTJ])
def test_read_prints_name_ranges_and_each_sample_as_it_comes(make_board, chip, option):
    board = make_board(gyro=chip)
    timeline(board, *SWAYING)
    run = board.run("bt1", "gsensor", "-t", "50", option, seconds=0.275, story=True)
    lines = data_lines(run.stdout)
    delivered = samples(run)
    assert len(lines) == len(delivered) == 5
    for line, sample in zip(lines, delivered):
        assert_data_line(line, chip, sample, 2, 250)
    assert_run(
        run,
        KILLED_BY_TERM,
        OPEN,
        set_timer(50),
        out("HAT_GYRO_TMR_SET sucess, poll the gyro time is = (50)ms.\n"),
        *loop_start(chip),
        *loop_samples(lines),
    )


@pytest.mark.parametrize("chip", [LSM, ICM, ICM690, KXTJ, LIS2DH, LIS2DW])
@pytest.mark.parametrize("accel, gyro", [(2, 250), (4, 500), (8, 1000), (16, 2000)])
def test_read_converts_each_chip_at_each_range(make_board, chip, accel, gyro):
    board = make_board(gyro=chip)
    timeline(board, *SWAYING)
    ranges(board, accel, gyro)
    run = read_samples(board)
    lines = data_lines(run.stdout)
    delivered = samples(run)
    assert b"".join([head(chip, accel, gyro), *lines]) == run.stdout
    assert len(lines) == len(delivered) > 2
    for line, sample in zip(lines, delivered):
        assert_data_line(line, chip, sample, accel, gyro)
    # The samples are those of the time line: the tool's numbers are the motion's.
    axes = 6 if chip in SIX_AXES else 3
    for row, sample in ((SWAYING[0], delivered[0]), (SWAYING[1], delivered[-1])):
        felt = [acceleration(chip, raw, accel) for raw in sample[:3]]
        felt += [rate(chip, raw, gyro) for raw in sample[3:6]]
        for value, meant in zip(felt[:axes], row[1 : 1 + axes]):
            assert abs(value - meant) < (0.001 if abs(meant) < 2 else 0.1)


def first_line(board, *row):
    timeline(board, (0, *row))
    return data_lines(read_samples(board, seconds=0.075).stdout)[0]


def test_lsm6ds3tr_at_2_g_reads_raw_16384_as_0_999_g(board):
    assert b"[accel-z:0x00004000 => +0.999g]" in first_line(
        board, 0, 0, 16384 * 0.061 / 1000, 0, 0, 0
    )


def test_lsm6ds3tr_prints_negative_raw_values_sign_extended(board):
    line = first_line(board, -16384 * 0.061 / 1000, 0, 0, -8.75, 0, 0)
    assert line.startswith(b"\n[time=")
    assert b"[accel-x:0xFFFFC000 => -0.999g]" in line
    assert b"[gyro-x:0xFFFFFC18 => -8.750dps]" in line
    assert b"[gyro-y:0x00000000 => +0.000dps]" in line


@pytest.mark.parametrize("chip", [ICM, ICM690])
def test_icm_at_2_g_reads_raw_16384_as_1_g(make_board, chip):
    line = first_line(make_board(gyro=chip), 0, 0, 1.0, 0, 0, 0)
    assert line.startswith(b"\r[time=")
    assert b"[accel-z:0x00004000 => +1.000g]" in line


@pytest.mark.parametrize("chip", [ICM, ICM690])
def test_icm_at_2000_dps_reads_raw_minus_32768_as_minus_2000(make_board, chip):
    board = make_board(gyro=chip)
    ranges(board, 2, 2000)
    line = first_line(board, -2, 0, 1.0, 0, 0, -2000)
    assert b"[gyro-z:0xFFFF8000 => -2000.000dps]" in line
    assert b"[accel-x:0xFFFF8000 => -2.000g]" in line


def test_lis2dw12_at_2_g_reads_raw_16384_as_0_999_g(make_board):
    line = first_line(make_board(gyro=LIS2DW), 0, 0, 16384 * 0.244 / 4000, 0, 0, 0)
    assert line.startswith(b"\n[time=")
    assert line.endswith(b"[accel-z:0x00004000 => +0.999g]")


SAMPLE_ERROR = b"[ERR]read data err\n"


def test_read_reports_a_short_sample_and_goes_on(board):
    board.fault("/dev/gyro read short=10 nth=2")
    run = read_samples(board)
    lines = data_lines(run.stdout)
    assert len(lines) == 4
    steps = loop_samples([lines[0], SAMPLE_ERROR, *lines[1:]])
    steps[4] = "read /dev/gyro = 10"
    assert_run(run, KILLED_BY_TERM, OPEN, *loop_start(LSM), *steps)


@pytest.mark.parametrize("size", [0, 1, 27])
def test_read_takes_only_whole_samples(board, size):
    board.fault(f"/dev/gyro read short={size} nth=1")
    run = read_samples(board)
    assert run.stdout.startswith(head(LSM) + b"[ERR]read data err\n\n[time=")
    assert run.stdout.count(b"[time=") == 4


def test_read_reports_a_read_that_fails_and_goes_on(board):
    # The sample that was not read is still there for the next read.
    board.fault("/dev/gyro read errno=EIO nth=1")
    run = read_samples(board)
    lines = data_lines(run.stdout)
    assert len(lines) == 5
    steps = loop_samples([SAMPLE_ERROR, *lines])
    steps[1] = "read /dev/gyro = EIO"
    assert_run(run, KILLED_BY_TERM, OPEN, *loop_start(LSM), *steps)


@pytest.mark.parametrize("option", ["-r", "-c"])
def test_read_loop_returns_minus_19_when_the_identity_fails(board, option):
    board.fault("/dev/gyro ioctl:HAT_GYRO_INIT errno=EIO")
    assert_run(
        board.run("bt1", "gsensor", option, "-g", story=True),
        256 - 19,
        OPEN,
        "ioctl /dev/gyro HAT_GYRO_INIT = EIO",
        err("get gsensor id failure.\n: Input/output error\n"),
        CLOSE,
    )


@pytest.mark.parametrize("chip", [LSM, ICM, KXTJ, LIS2DW])
def test_read_without_ranges_reports_it_and_goes_on(make_board, chip):
    # No range is no row of the tables; what the values then are is nobody's promise.
    board = make_board(gyro=chip)
    board.fault("/dev/gyro ioctl:HAT_GYRO_READ_CONFIG errno=EIO")
    run = read_samples(board)
    lines = data_lines(run.stdout)
    delivered = samples(run)
    assert len(lines) == len(delivered) == 5
    for line, sample in zip(lines, delivered):
        assert b"[accel-z:0x%08X => " % (sample[2] & 0xFFFFFFFF) in line
    assert_run(
        run,
        KILLED_BY_TERM,
        OPEN,
        *loop_start(chip)[:2],
        "ioctl /dev/gyro HAT_GYRO_READ_CONFIG = EIO",
        out("get Accel Full Scale & Gyro Full Scale error\n"),
        *loop_samples(lines),
    )


def test_read_loop_is_not_stopped_by_an_interrupt(board):
    run = board.run("bt1", "gsensor", "-r", signals=["INT@0.12"], seconds=0.275)
    assert run.stdout.count(b"[time=") == 5
    assert run.status == KILLED_BY_TERM


@pytest.mark.parametrize("option", ["-r", "-c"])
@pytest.mark.parametrize("chip", ["GYRO_BMA400", "GYRO_LSM6DS3", "GYRO_LSM6DS3TRC"])
def test_an_unsupported_chip_ends_the_loop_and_the_tool(board, chip, option):
    board.set("/dev/gyro", "chip", chip)
    # The tool ends: the next option is ignored.
    assert_run(
        board.run("bt1", "gsensor", option, "-g", seconds=1, story=True),
        0,
        OPEN,
        *loop_start(chip),
        WAIT,
        READ,
        out(f"no support gsensor, name is {chip}\n"),
        CLOSE,
    )


# --- -c: pitch, roll and yaw ----------------------------------------------------------------------


@pytest.mark.parametrize("option", ["-c", "-C"])
@pytest.mark.parametrize("chip", [LSM, ICM, ICM690, KXTJ, LIS2DH, LIS2DW])
def test_compute_prints_the_filter_s_angles_for_each_sample(make_board, option, chip):
    board = make_board(gyro=chip)
    timeline(board, (0, 0.1, -0.2, 0.95, 3, -2, 1), (0.7, -0.3, 0.25, 0.9, -4, 1.5, -2.5))
    run = board.run("bt1", "gsensor", option, seconds=2.025, story=True)
    assert run.stdout.startswith(head(chip))
    lines = run.stdout[len(head(chip)) :].splitlines(keepends=True)
    assert_angles(lines, chip, samples(run), 2, 250)
    assert_run(run, KILLED_BY_TERM, OPEN, *loop_start(chip), *loop_samples(lines))


def test_compute_feeds_degrees_per_second_unchanged_and_does_not_clamp(board):
    # A slow turn alone: a filter that turned degrees into radians would be 57 times slower.
    timeline(board, (0, 0, 0, 1, 0, 0, 100))
    run = board.run("bt1", "gsensor", "-c", seconds=3.025)
    lines = run.stdout[len(head(LSM)) :].splitlines(keepends=True)
    assert_angles(lines, LSM, samples(run), 2, 250)
    # 60 samples of (100 + 1.633) / 100 each.
    assert abs(float(ANGLES.fullmatch(lines[-1])[3]) - len(lines) * 1.01633) < 0.1


def test_compute_reports_a_short_sample_and_goes_on(board):
    board.fault("/dev/gyro read short=27 nth=3")
    run = board.run("bt1", "gsensor", "-c", seconds=0.275)
    lines = run.stdout[len(head(LSM)) :].splitlines(keepends=True)
    assert lines.pop(2) == b"[ERR]read data err\n"
    assert_angles(lines, LSM, samples(run), 2, 250)
