"""bt1 gsensor autotest: 30 seconds of samples, a log and a verdict."""

import math

import pytest

from gyro_reference import (
    ANGLES,
    Attitude,
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
    READ,
    WAIT,
    acceleration,
    assert_angles,
    assert_data_line,
    assert_loop,
    assert_run,
    data_lines,
    head,
    rate,
    samples,
    timeline,
)


@pytest.fixture
def work(tmp_path):
    directory = tmp_path / "work"
    directory.mkdir()
    return directory


def selftest(board, work):
    run = board.run("bt1", "gsensor", "autotest", cwd=work)
    return run, work / "gsensor_log"


AT_REST = (0, 0, 0, 1, 0, 0, 0)


def test_selftest_of_a_healthy_board_passes_after_30_s_and_removes_its_log(board, work):
    run, log = selftest(board, work)
    assert run.stdout == head(LSM)
    assert run.stderr == b""
    assert run.status == 0
    assert not log.exists()
    assert_loop(run, after=[CLOSE])
    assert 30 <= run.trace[-1][0] < 30.2


@pytest.mark.parametrize("chip", [ICM, ICM690, LIS2DH, LIS2DW])
def test_selftest_of_every_chip_passes(make_board, work, chip):
    run, log = selftest(make_board(gyro=chip), work)
    assert run.stdout == head(chip)
    assert run.status == 0
    assert not log.exists()


def test_selftest_of_a_kxtj1900_prints_its_data_lines_to_standard_output(make_board, work):
    run, log = selftest(make_board(gyro=KXTJ), work)
    lines = data_lines(run.stdout)
    assert b"".join([head(KXTJ), *lines]) == run.stdout
    delivered = samples(run)
    assert len(lines) == len(delivered) > 100
    for line, sample in zip(lines, delivered):
        assert_data_line(line, KXTJ, sample, 2, 250)
    assert run.status == 0
    assert not log.exists()


def sums(text):
    """The two sums of the verdict, as near as three printed digits give them."""
    angles = ANGLES.findall(text)
    return sum(float(pitch) for pitch, _, _ in angles), sum(float(roll) for _, roll, _ in angles)


@pytest.mark.parametrize("chip", [LSM, ICM, ICM690, LIS2DH])
def test_selftest_that_fails_leaves_samples_angles_and_the_verdict_in_its_log(
    make_board, work, chip
):
    board = make_board(gyro=chip)
    timeline(board, (0, 0.02, -0.03, 0.998, 0.5, 0, 0), (20, *AT_REST[1:]))
    run, log = selftest(board, work)
    assert run.stdout == head(chip)
    assert run.stderr == b""
    assert run.status == 255
    assert_loop(run, after=[CLOSE])
    text = log.read_bytes()
    assert text.endswith(b"]\ngsensor autotest faild!\n")
    text = text[: -len(b"gsensor autotest faild!\n")]
    lines = data_lines(text)
    angles = [found[0] for found in ANGLES.finditer(text)]
    # A sample's data line, then its angles on the same line.
    assert text == b"".join(line + angle for line, angle in zip(lines, angles))
    delivered = samples(run)
    assert len(lines) == len(angles) == len(delivered)
    for line, sample in zip(lines, delivered):
        assert_data_line(line, chip, sample, 2, 250)
    assert_angles(angles, chip, delivered, 2, 250)
    assert max(abs(abs(total) - 90) for total in sums(text)) > 2


@pytest.mark.parametrize("chip", [KXTJ, LIS2DW])
def test_selftest_log_of_a_chip_that_prints_elsewhere_holds_angles_alone(make_board, work, chip):
    board = make_board(gyro=chip)
    timeline(board, AT_REST)
    run, log = selftest(board, work)
    assert run.status == 255
    text = log.read_bytes()
    assert text.endswith(b"gsensor autotest faild!\n")
    angles = text[: -len(b"gsensor autotest faild!\n")].splitlines(keepends=True)
    assert_angles(angles, chip, samples(run), 2, 250)
    assert run.stdout.count(b"[time=") == (len(angles) if chip == KXTJ else 0)


def tilted_board(board, pitch_sum, roll_sum):
    """A motion whose sums are those: level, tilted for a while, level."""
    # Small angles: the filter follows a tilt with a lag that evens out in the sum, so a tilt of one
    # degree for N samples adds N degrees.
    poll = 0.050
    rows = [AT_REST]
    steps = 120
    x = -math.sin(math.radians(pitch_sum / steps))
    y = math.sin(math.radians(roll_sum / steps))
    start = 1.025
    rows.append((start, x, y, math.sqrt(1 - x * x - y * y), 0, 0, 0))
    rows.append((start + steps * poll, *AT_REST[1:]))
    timeline(board, *rows)


@pytest.mark.parametrize(
    "pitch, roll, passes",
    [
        (90, 90, True),
        (-90, 90, True),
        (90, -90, True),
        (-90.6, -89.4, True),
        (92, 90, False),
        (88, 90, False),
        (90, 92, False),
        (90, -88, False),
        (0, 90, False),
        (90, 0, False),
    ],
)
def test_selftest_passes_when_both_sums_are_90_degrees_give_or_take_one(
    make_board, work, pitch, roll, passes
):
    board = make_board(gyro=ICM)
    tilted_board(board, pitch, roll)
    run, log = selftest(board, work)
    # The same motion through the filter on paper: the test's own sums must be on the side it names.
    attitude = Attitude()
    total = [0.0, 0.0]
    for sample in samples(run):
        angles = attitude.feed(
            *(acceleration(ICM, raw, 2) for raw in sample[:3]),
            *(rate(ICM, raw, 250) for raw in sample[3:6]),
        )
        total = [total[0] - angles[0], total[1] - angles[1]]
    distance = max(abs(abs(one) - 90.0) for one in total)
    assert (distance < 0.9) if passes else (distance > 1.1), total
    assert run.status == (0 if passes else 255)
    assert log.exists() != passes


def test_selftest_s_log_replaces_an_older_one(board, work):
    (work / "gsensor_log").write_bytes(b"old " * 100000)
    timeline(board, AT_REST)
    run, log = selftest(board, work)
    assert run.status == 255
    assert b"old" not in log.read_bytes()


def test_selftest_without_a_log_fails_at_once(board, work):
    (work / "gsensor_log").mkdir()
    run, log = selftest(board, work)
    assert_run(run, 255, b"gsensor_autotest:567 open gsensor_log failed!\n", [OPEN, CLOSE])
    assert log.is_dir()


def test_selftest_returns_minus_19_when_the_identity_fails(board, work):
    board.fault("/dev/gyro ioctl:HAT_GYRO_INIT errno=ENODEV")
    run, _ = selftest(board, work)
    assert_run(
        run,
        256 - 19,
        b"",
        [OPEN, "ioctl /dev/gyro HAT_GYRO_INIT = ENODEV", CLOSE],
        stderr=b"get gsensor id failure.\n: No such device\n",
    )


def test_selftest_with_an_unsupported_chip_goes_to_the_verdict_and_fails(board, work):
    board.set("/dev/gyro", "chip", "GYRO_BMA400")
    run, log = selftest(board, work)
    assert_run(
        run,
        255,
        head("GYRO_BMA400") + b"no support gsensor, name is GYRO_BMA400\n",
        [OPEN, INIT, CONFIG, WAIT, READ, CLOSE],
    )
    assert log.read_bytes() == b"gsensor autotest faild!\n"


def test_selftest_reports_a_short_sample_and_goes_on(board, work):
    board.fault("/dev/gyro read short=4 nth=599")
    run, log = selftest(board, work)
    assert run.stdout == head(LSM) + b"[ERR]read data err\n"
    assert run.status == 0
    assert not log.exists()


def test_selftest_is_not_stopped_by_an_interrupt(board, work):
    run = board.run("bt1", "gsensor", "autotest", cwd=work, signals=["INT@3"])
    assert run.status == 0
    assert run.trace[-1][0] >= 30
