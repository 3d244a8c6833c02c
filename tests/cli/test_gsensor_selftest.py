"""bt1 gsensor autotest: 30 seconds of samples, a log and a verdict."""

import math

import pytest

from conftest import err, out
from gyro_reference import (
    ANGLES,
    Attitude,
    CLOSE,
    ICM,
    ICM690,
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
    assert_run,
    data_lines,
    head,
    loop_samples,
    loop_start,
    rate,
    samples,
    set_timer,
    timeline,
)


@pytest.fixture
def work(tmp_path):
    directory = tmp_path / "work"
    directory.mkdir()
    return directory


def selftest(board, work, *words, **options):
    run = board.run("bt1", "gsensor", "autotest", *words, cwd=work, story=True, **options)
    return run, work / "gsensor_log"


AT_REST = (0, 0, 0, 1, 0, 0, 0)
FAILED = b"gsensor autotest faild!\n"


def until_the_timer(run, texts=None):
    """A read loop of 30 s with a text for each sample, or none.

    By default a sample is due when the timer runs out: whether a wait for the next one has begun by
    then is a matter of microseconds.
    """
    steps = loop_samples([b""] * len(samples(run)) if texts is None else texts)
    return steps if run.requests.count(WAIT) > len(samples(run)) else steps[:-1]


@pytest.mark.parametrize("words", [[], ["x"], ["x", "y"]])
def test_selftest_of_a_healthy_board_passes_after_30_s_and_removes_its_log(board, work, words):
    run, log = selftest(board, work, *words)
    assert_run(run, 0, OPEN, *loop_start(LSM), *until_the_timer(run), CLOSE)
    assert not log.exists()
    assert 30 <= run.trace[-1][0] < 30.2
    assert len(samples(run)) > 500


@pytest.mark.parametrize("chip", [ICM, ICM690, LIS2DH, LIS2DW])
def test_selftest_of_every_chip_passes(make_board, work, chip):
    run, log = selftest(make_board(gyro=chip), work)
    assert run.stdout == head(chip)
    assert run.status == 0
    assert not log.exists()


def test_selftest_of_a_kxtj1900_prints_its_data_lines_to_standard_output(make_board, work):
    run, log = selftest(make_board(gyro=KXTJ), work)
    lines = data_lines(run.stdout)
    delivered = samples(run)
    assert len(lines) == len(delivered) > 100
    for line, sample in zip(lines, delivered):
        assert_data_line(line, KXTJ, sample, 2, 250)
    assert_run(run, 0, OPEN, *loop_start(KXTJ), *until_the_timer(run, lines), CLOSE)
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
    assert_run(run, 255, OPEN, *loop_start(chip), *until_the_timer(run), CLOSE)
    text = log.read_bytes()
    assert text.endswith(b"]\n" + FAILED)
    text = text[: -len(FAILED)]
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
    assert text.endswith(FAILED)
    angles = text[: -len(FAILED)].splitlines(keepends=True)
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
    refusal = out("gsensor_autotest:567 open gsensor_log failed!\n")
    assert_run(run, 255, OPEN, refusal, CLOSE)
    assert log.is_dir()


def test_selftest_s_log_is_up_to_date_when_the_tool_is_killed(board, work):
    timeline(board, AT_REST)
    run, log = selftest(board, work, signals=["KILL@2.025"])
    assert run.status == 128 + 9
    text = log.read_bytes()
    assert len(data_lines(text)) == len(ANGLES.findall(text)) == len(samples(run)) == 40
    assert text.endswith(b"]\n")


def test_selftest_returns_minus_19_when_the_identity_fails(board, work):
    board.fault("/dev/gyro ioctl:HAT_GYRO_INIT errno=ENODEV")
    run, log = selftest(board, work)
    assert_run(
        run,
        256 - 19,
        OPEN,
        "ioctl /dev/gyro HAT_GYRO_INIT = ENODEV",
        err("get gsensor id failure.\n: No such device\n"),
        CLOSE,
    )
    # There is no verdict.
    assert log.read_bytes() == b""


UNKNOWN = "GYRO_BMA400"
UNKNOWN_ENDS = [
    *loop_start(UNKNOWN),
    *(WAIT, READ, out(f"no support gsensor, name is {UNKNOWN}\n")),
]


@pytest.mark.parametrize("words", [[], ["-c"], ["-r"]])
def test_selftest_with_an_unsupported_chip_goes_to_the_verdict_and_fails(board, work, words):
    board.set("/dev/gyro", "chip", UNKNOWN)
    run, log = selftest(board, work, *words)
    assert_run(run, 255, OPEN, *UNKNOWN_ENDS, CLOSE)
    assert log.read_bytes() == FAILED


@pytest.mark.parametrize("cause", ["an unsupported chip", "no identity"])
def test_selftest_that_ends_early_does_not_interrupt_the_tests_after_it(board, work, cause):
    if cause == "no identity":
        board.fault("/dev/gyro ioctl:HAT_GYRO_INIT errno=EIO")
    else:
        board.set("/dev/gyro", "chip", UNKNOWN)
    run = board.run("bt1", "autotest", "autotest", cwd=work)
    # The card's test takes 10 s, so the 30 s end while the watchdog is fed every 6 s.
    times = [time for time, line in run.trace if "WDIOC_KEEPALIVE" in line]
    assert len(times) == 10
    for early, late in zip(times, times[1:]):
        assert 6 <= late - early < 6.001


def test_selftest_reports_a_short_sample_and_goes_on(board, work):
    board.fault("/dev/gyro read short=4 nth=599")
    run, log = selftest(board, work)
    assert run.stdout == head(LSM) + b"[ERR]read data err\n"
    assert run.status == 0
    assert not log.exists()


def test_selftest_is_not_stopped_by_an_interrupt(board, work):
    run, _ = selftest(board, work, signals=["INT@3"])
    assert run.status == 0
    assert run.trace[-1][0] >= 30


# --- options beside "autotest" are carried out before the test's own read loop ----------------------


def test_selftest_carries_out_options_first(board, work):
    timeline(board, AT_REST)
    run, log = selftest(board, work, "-t", "70")
    # 428 samples in 29.96 s; the timer ends the wait for the next one.
    assert_run(
        run,
        255,
        OPEN,
        set_timer(70),
        out("HAT_GYRO_TMR_SET sucess, poll the gyro time is = (70)ms.\n"),
        *loop_start(LSM),
        *loop_samples([b""] * 428),
        CLOSE,
    )
    assert len(data_lines(log.read_bytes())) == 428


def test_selftest_ends_at_an_option_that_ends_the_tool(board, work):
    run, _ = selftest(board, work, "-s", "4")
    refusal = out("gsensor_main:669 input param gyro_rng err\n")
    assert_run(run, 255, OPEN, refusal, CLOSE)


@pytest.mark.parametrize("chip", [LSM, ICM, KXTJ, LIS2DW])
def test_selftest_with_dash_r_logs_samples_until_the_timer_and_fails(make_board, work, chip):
    # Reading data sums up no angles, and the time is over when the test's own loop begins.
    run, log = selftest(make_board(gyro=chip), work, "-r")
    delivered = samples(run)
    printed = data_lines(run.stdout.replace(head(chip), b""))  # the second head ends no line
    text = log.read_bytes()
    assert text.endswith(FAILED)
    logged = data_lines(text[: -len(FAILED)])
    assert b"".join(logged) + FAILED == text
    lines = printed if chip in (KXTJ, LIS2DW) else logged
    assert len(lines) == len(printed + logged) == len(delivered) > 500
    for line, sample in zip(lines, delivered):
        assert_data_line(line, chip, sample, 2, 250)
    steps = until_the_timer(run, printed or None)
    assert_run(run, 255, OPEN, *loop_start(chip), *steps, *loop_start(chip), CLOSE)
    assert 30 <= run.trace[-1][0] < 30.2


def test_selftest_with_dash_c_is_judged_by_that_loop(board, work):
    run, log = selftest(board, work, "-c")
    assert_run(run, 0, OPEN, *loop_start(LSM), *until_the_timer(run), *loop_start(LSM), CLOSE)
    assert not log.exists()
