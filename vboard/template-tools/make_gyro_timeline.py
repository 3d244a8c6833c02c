#!/usr/bin/env python3
"""Makes the two motions of the virtual g-sensor, and checks them against the g-sensor self-test.

    make_gyro_timeline.py DIRECTORY            writes gyro.timeline and gyro-at-rest.timeline
    make_gyro_timeline.py --check DIRECTORY    prints the sums that every chip and range gives

The self-test runs an attitude filter over 30 s of samples, adds up pitch and roll of every sample,
and passes when both sums are 90 degrees, one more or less. A motion that passes is therefore an
area: 1.5 degrees for 60 samples. The motion here tips the board forward and to the right for three
seconds in the beginning and leaves it level for the rest, where further samples add nothing, so a
sample more or less at the end does not matter. Between the samples of the default 50 ms there is
room of 25 ms on either side of each change.

The values are whole steps of the coarsest range (16 g), so that every range of every chip sees the
same angle to within its rounding; the search only settles after how many of the 60 samples the
motion goes from one step count to the next smaller one. Yaw has no part in the verdict.

This file knows the filter and the chips' scales from their descriptions, not from the sources of
the tool or of the device model, so that it can disagree with them.
"""

import math
import os
import struct
import sys

POLL_S = 0.050
RUN_S = 30.0
STEP_G = 1.0 / 2048  # one step of the 16 g range
TILTED_SAMPLES = 60
FIRST_TILTED = 10  # half a second at rest before
PASS_MARGIN = 0.3  # degrees; the self-test itself allows 1.0

ST_MG = {2: 0.061, 4: 0.122, 8: 0.244, 16: 0.488}
# chip: acceleration in g of one step at a range
CHIPS = {
    "GYRO_LSM6DS3TR": lambda full: ST_MG[full] / 1000,
    "GYRO_ICM20602": lambda full: 2 * full / 65536,
    "GYRO_KXTJ1900": lambda full: ST_MG[full] / 1000,
    "GYRO_ICM20690": lambda full: 2 * full / 65536,
    "GYRO_LIS2DH12": lambda full: ST_MG[full] / 1000,
    "GYRO_LIS2DW12": lambda full: 4 * ST_MG[full] / 4000,
}


def single(value):
    """Rounds to single precision, which the filter works in."""
    return struct.unpack("f", struct.pack("f", value))[0]


class Attitude:
    """The attitude filter; rates in degrees per second enter as they are."""

    def __init__(self):
        self.q = [1.0, 0.0, 0.0, 0.0]
        self.integral = [0.0, 0.0, 0.0]
        self.sum_pitch = self.sum_roll = 0.0

    def feed(self, rate, acceleration):
        q0, q1, q2, q3 = self.q
        norm = single(math.sqrt(single(sum(single(a * a) for a in acceleration))))
        ax, ay, az = (single(a / norm) for a in acceleration)
        vx = single(2 * (q1 * q3 - q0 * q2))
        vy = single(2 * (q0 * q1 + q2 * q3))
        vz = single(q0 * q0 - q1 * q1 - q2 * q2 + q3 * q3)
        error = (single(ay * vz - az * vy), single(az * vx - ax * vz), single(ax * vy - ay * vx))
        self.integral = [single(i + e * 0.002) for i, e in zip(self.integral, error)]
        gx, gy, gz = (single(r + 100.0 * e + i) for r, e, i in zip(rate, error, self.integral))
        # In place and in this order: each component already sees those updated before it.
        q0 = single(q0 + (-q1 * gx - q2 * gy - q3 * gz) * 0.001)
        q1 = single(q1 + (q0 * gx + q2 * gz - q3 * gy) * 0.001)
        q2 = single(q2 + (q0 * gy - q1 * gz + q3 * gx) * 0.001)
        q3 = single(q3 + (q0 * gz + q1 * gy - q2 * gx) * 0.001)
        norm = single(math.sqrt(q0 * q0 + q1 * q1 + q2 * q2 + q3 * q3))
        self.q = [single(q / norm) for q in (q0, q1, q2, q3)]
        q0, q1, q2, q3 = self.q
        pitch = single(math.asin(-2 * q1 * q3 + 2 * q0 * q2) * 57.3)
        roll = single(math.atan2(2 * q2 * q3 + 2 * q0 * q1, -2 * q1 * q1 - 2 * q2 * q2 + 1) * 57.3)
        self.sum_pitch = single(self.sum_pitch - pitch)
        self.sum_roll = single(self.sum_roll - roll)


def at(timeline, seconds):
    """The line that holds at a time; at rest before the first."""
    holding = (0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0)
    for row in timeline:
        if row[0] <= seconds:
            holding = row
    return holding[1:4], holding[4:7]


def run(timeline, g_per_step, samples, first=1):
    attitude = Attitude()
    for number in range(first, samples + 1):
        acceleration, rate = at(timeline, number * POLL_S)
        raw = [max(-32768, min(32767, math.floor(a / g_per_step + 0.5))) for a in acceleration]
        attitude.feed(rate, [single(r * g_per_step) for r in raw])
    return attitude.sum_pitch, attitude.sum_roll


def off(sums):
    return max(abs(abs(s) - 90.0) for s in sums)


def motion(pitch_steps, pitch_long, roll_steps, roll_long):
    """Tilted by `steps` of the coarsest range for `long` samples, then by one step less."""

    def tilt(pitch, roll):
        x, y = -pitch * STEP_G, roll * STEP_G
        return (x, y, math.sqrt(1 - x * x - y * y), 0.0, 0.0, 0.0)

    start = FIRST_TILTED
    changes = sorted({0, pitch_long, roll_long})
    rows = [(0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0)]
    for change in changes:
        pitch = pitch_steps - (change >= pitch_long)
        roll = roll_steps - (change >= roll_long)
        rows.append(((start + change + 0.5) * POLL_S, *tilt(pitch, roll)))
    rows.append(((start + TILTED_SAMPLES + 0.5) * POLL_S, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0))
    return [tuple(round(v, 6) for v in row) for row in rows]


def search():
    """The switch-over samples that bring both sums closest to 90 for the finest range."""
    steps = math.floor(math.radians(90.0 / TILTED_SAMPLES) / STEP_G) + 1
    scale = CHIPS["GYRO_ICM20602"](2)
    pitch_long = roll_long = TILTED_SAMPLES // 2
    for _ in range(4):  # the two sums hardly touch each other: settle one, then the other
        for axis in (0, 1):
            candidates = []
            for long in range(1, TILTED_SAMPLES):
                trial = (long, roll_long) if axis == 0 else (pitch_long, long)
                timeline = motion(steps, trial[0], steps, trial[1])
                candidates.append((abs(abs(run(timeline, scale, 200)[axis]) - 90.0), long))
            if axis == 0:
                pitch_long = min(candidates)[1]
            else:
                roll_long = min(candidates)[1]
    return motion(steps, pitch_long, steps, roll_long)


def check(timeline):
    """Every chip and range, also with a sample more or less: the largest distance from 90."""
    samples = round(RUN_S / POLL_S)
    worst = 0.0
    for name, scale in CHIPS.items():
        for full in (2, 4, 8, 16):
            sums = run(timeline, scale(full), samples)
            others = [
                run(timeline, scale(full), samples - 1),
                run(timeline, scale(full), samples + 1),
                run(timeline, scale(full), samples, first=2),
            ]
            worst = max(worst, *map(off, [sums, *others]))
            print(f"{name:15} {full:2} g  pitch {sums[0]:+9.4f}  roll {sums[1]:+9.4f}")
    return worst


def read(path):
    with open(path, encoding="ascii") as file:
        lines = (line.split("#")[0].split() for line in file)
        return [tuple(map(float, line)) for line in lines if line]


def write(path, comment, timeline):
    with open(path, "w", encoding="ascii") as file:
        file.write(comment)
        file.write("# seconds   ax g       ay g       az g       gx dps  gy dps  gz dps\n")
        for row in timeline:
            file.write(f"{row[0]:9.3f} {row[1]:10.6f} {row[2]:10.6f} {row[3]:10.6f}")
            file.write(f" {row[4]:8.1f}{row[5]:8.1f}{row[6]:8.1f}\n")


MOVED = """\
# A healthy board's motion, in seconds since /dev/gyro was opened: at rest, tipped forward and
# to the right by 1.5 degrees for three seconds, at rest. It makes the g-sensor self-test pass;
# vboard/template-tools/make_gyro_timeline.py made it and tells why. A line holds until the next.
"""
RESTING = "# A board that lies still, with a sensor that therefore fails the self-test.\n"


def main():
    checking = sys.argv[1:2] == ["--check"]
    directory = sys.argv[-1]
    if len(sys.argv) < 2 or directory.startswith("-"):
        sys.exit(__doc__)
    moved = os.path.join(directory, "gyro.timeline")
    resting = os.path.join(directory, "gyro-at-rest.timeline")
    if not checking:
        write(moved, MOVED, search())
        write(resting, RESTING, [(0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0)])
    worst = check(read(moved))
    still = off(run(read(resting), CHIPS["GYRO_LSM6DS3TR"](2), round(RUN_S / POLL_S)))
    print(f"gyro.timeline is at most {worst:.4f} degrees off, gyro-at-rest.timeline {still:.1f}")
    if worst > PASS_MARGIN or still <= 1.0:
        sys.exit("the motions do not do what they are for")


main()
