"""The motion sensor on paper: its chips, their conversions, the attitude filter, and the lines that show them.

What the tests of bt1 gsensor have in common. The samples themselves come from a run's trace, so that
a printed value is compared with what the device really delivered.
"""

import dataclasses
import math
import re
import struct

from conftest import assert_story, out
from device_trace import bytes_of, calls, packed

OPEN = "open /dev/gyro RDWR = 3"
CLOSE = "close /dev/gyro = 0"
INIT = "ioctl /dev/gyro HAT_GYRO_INIT = 0"
CONFIG = "ioctl /dev/gyro HAT_GYRO_READ_CONFIG = 0"
WAIT = "select forever"
READ = "read /dev/gyro = 28"

# One of each way of converting and printing.
LSM, ICM, ICM690, KXTJ, LIS2DH, LIS2DW = (
    "GYRO_LSM6DS3TR",
    "GYRO_ICM20602",
    "GYRO_ICM20690",
    "GYRO_KXTJ1900",
    "GYRO_LIS2DH12",
    "GYRO_LIS2DW12",
)
SIX_AXES = (LSM, ICM, ICM690)
TO_THE_OUTPUT_STREAM = (LSM, ICM, ICM690, LIS2DH)

ACCEL_A = {2: 0.061, 4: 0.122, 8: 0.244, 16: 0.488}
GYRO_B = {250: 8.75, 500: 17.5, 1000: 35.0, 2000: 70.0}
ACCEL_C = {2: 0.244, 4: 0.488, 8: 0.976, 16: 1.952}

KILLED_BY_TERM = 128 + 15


def config(poll_ms=0, accel=0, gyro=0, motion=0):
    return packed(struct.pack("<5i", poll_ms, accel, gyro, motion, 0))


def set_timer(poll_ms, result="0"):
    return f"ioctl /dev/gyro HAT_GYRO_TMR_SET in={config(poll_ms)} = {result}"


def set_range(accel, gyro, result="0"):
    return f"ioctl /dev/gyro HAT_GYRO_SET_RNG in={config(accel=accel, gyro=gyro)} = {result}"


def requests(run):
    """The calls without what the device answered; the answers are looked at where they matter."""
    return [re.sub(r" out=\S+", "", line) for line in calls(run)]


def answers(run, call):
    return [
        bytes_of(line, "out") for line in calls(run) if line.startswith(call) and " out=" in line
    ]


def samples(run):
    """What the device delivered: (ax, ay, az, gx, gy, gz, seconds, microseconds) of each read."""
    return [
        struct.unpack("<6h8x2i", data) for data in answers(run, "read /dev/gyro") if len(data) == 28
    ]


def assert_run(run, status, *steps):
    """The status and the whole story; the device's answers are looked at where they matter."""
    assert run.status == status
    story = [re.sub(r"^((?:ioctl|read) .*) out=\S+", r"\1", line) for line in run.story]
    assert_story(dataclasses.replace(run, story=story), *steps)


def timeline(board, *rows):
    """What the sensor feels: seconds, three accelerations in g, three rates in degrees a second."""
    board.path("media/gyro.timeline").write_text(
        "".join(" ".join(map(str, row)) + "\n" for row in rows)
    )


def ranges(board, accel, gyro):
    """Makes the device stand at these ranges; the board keeps them from run to run."""
    run = board.run("bt1", "gsensor", "-s", str(accel), str(gyro))
    assert b"sucess" in run.stdout and b"err" not in run.stdout


# --- conversion, as the chips' tables say -------------------------------------------------------


def acceleration(chip, raw, full_scale):
    if chip in (ICM, ICM690):
        return raw * (2 * full_scale) / 65536
    if chip == LIS2DW:
        return raw * ACCEL_C[full_scale] / 4000
    return raw * ACCEL_A[full_scale] / 1000


def rate(chip, raw, full_scale):
    if chip in (ICM, ICM690):
        return raw * (2 * full_scale) / 65536
    if chip == LSM:
        return raw * GYRO_B[full_scale] / 1000
    return 0.0


def assert_data_line(line, chip, sample, accel_full_scale, gyro_full_scale):
    """The whole line byte for byte, but for the last printed digit of a converted value."""
    axes = [(b"accel-x", b"g"), (b"accel-y", b"g"), (b"accel-z", b"g")]
    if chip in SIX_AXES:
        axes += [(b"gyro-x", b"dps"), (b"gyro-y", b"dps"), (b"gyro-z", b"dps")]
    pattern = b"\r" if chip in (ICM, ICM690) else b"\n"
    pattern += re.escape(b"[time=%8d.%03.0f]" % (sample[6], sample[7] / 1000.0))
    for index, (name, unit) in enumerate(axes):
        pattern += re.escape(b"[%b:0x%08X => " % (name, sample[index] & 0xFFFFFFFF))
        pattern += rb"([+-]\d+\.\d{3})" + re.escape(unit + b"]")
    found = re.fullmatch(pattern, line)
    assert found, (line, pattern)
    for index, text in enumerate(found.groups()):
        expected = (
            acceleration(chip, sample[index], accel_full_scale)
            if index < 3
            else rate(chip, sample[index], gyro_full_scale)
        )
        assert abs(float(text) - expected) < 0.0011, (line, expected)


def data_lines(text):
    return re.findall(rb"[\r\n]\[time=(?:(?!\[Pitch|\[ERR)[^\r\n])*", text)


# --- attitude filter, as described ---------------------------------------------------------------


class Attitude:
    def __init__(self):
        self.q = [1.0, 0.0, 0.0, 0.0]
        self.i = [0.0, 0.0, 0.0]
        self.yaw = 0.0

    def feed(self, ax, ay, az, gx, gy, gz):
        """Pitch, roll and yaw after one more sample (g and degrees per second)."""
        norm = math.sqrt(ax * ax + ay * ay + az * az)
        ax, ay, az = ax / norm, ay / norm, az / norm
        q0, q1, q2, q3 = self.q
        vx = 2 * (q1 * q3 - q0 * q2)
        vy = 2 * (q0 * q1 + q2 * q3)
        vz = q0 * q0 - q1 * q1 - q2 * q2 + q3 * q3
        ex, ey, ez = ay * vz - az * vy, az * vx - ax * vz, ax * vy - ay * vx
        self.i = [self.i[0] + ex * 0.002, self.i[1] + ey * 0.002, self.i[2] + ez * 0.002]
        gx += 100.0 * ex + self.i[0]
        gy += 100.0 * ey + self.i[1]
        gz += 100.0 * ez + self.i[2]
        # One after the other: each line sees the components that the lines above have changed.
        q0 += (-q1 * gx - q2 * gy - q3 * gz) * 0.001
        q1 += (q0 * gx + q2 * gz - q3 * gy) * 0.001
        q2 += (q0 * gy - q1 * gz + q3 * gx) * 0.001
        q3 += (q0 * gz + q1 * gy - q2 * gx) * 0.001
        norm = math.sqrt(q0 * q0 + q1 * q1 + q2 * q2 + q3 * q3)
        self.q = q0, q1, q2, q3 = [q / norm for q in (q0, q1, q2, q3)]
        pitch = math.asin(-2 * q1 * q3 + 2 * q0 * q2) * 57.3
        roll = math.atan2(2 * q2 * q3 + 2 * q0 * q1, -2 * q1 * q1 - 2 * q2 * q2 + 1) * 57.3
        self.yaw += (gz + 1.633) / 100.0
        return pitch, roll, self.yaw


ANGLES = re.compile(
    rb"\[Pitch:([+-]\d+\.\d{3})\]\[Roll:([+-]\d+\.\d{3})\]\[Yaw:([+-]\d+\.\d{3})\]\n"
)


def assert_angles(lines, chip, delivered, accel_full_scale, gyro_full_scale):
    """Each printed triple is the filter's for the samples so far."""
    attitude = Attitude()
    assert len(lines) == len(delivered) > 0
    for line, sample in zip(lines, delivered):
        found = ANGLES.fullmatch(line)
        assert found, line
        expected = attitude.feed(
            *(acceleration(chip, raw, accel_full_scale) for raw in sample[:3]),
            *(rate(chip, raw, gyro_full_scale) for raw in sample[3:6]),
        )
        for text, angle in zip(found.groups(), expected):
            # Single precision, over some hundred steps, in degrees.
            assert abs(float(text) - angle) < 0.02, (line, expected)


def head(chip, accel=2, gyro=250):
    """What a read loop prints before its first sample."""
    return (
        b"Gsensor name is %b \n" % chip.encode()
        + b"Accel Full Scale is %d g,\nGyro Full Scale is %d \n" % (accel, gyro)
    )


def loop_start(chip, accel=2, gyro=250):
    """The steps of a read loop before its first sample."""
    name, ranges_line = head(chip, accel, gyro).split(b"\n", 1)
    return [INIT, out(name + b"\n"), CONFIG, out(ranges_line)]


def loop_samples(texts):
    """A wait, a read and a text for each sample, and the wait in which the loop is stopped."""
    return [step for text in texts for step in (WAIT, READ, out(text))] + [WAIT]
