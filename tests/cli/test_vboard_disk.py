"""The virtual board's disk, as tools that know nothing of the board see it."""

import json
import pathlib
import shutil
import subprocess
import sys

import pytest

import disk

SBIN = "/usr/sbin:/usr/bin:/sbin:/bin"
SMARTCTL = shutil.which("smartctl", path=SBIN)
HDPARM = shutil.which("hdparm", path=SBIN)
VBOARD = pathlib.Path(__file__).resolve().parents[2] / "vboard"
DATA = pathlib.Path(__file__).resolve().parents[1] / "data/ata"
DRIVES = sorted(
    path.name.removesuffix(".smart_values.bin") for path in DATA.glob("*.smart_values.bin")
)
PARTS = ("identify", "smart_values", "smart_thresholds")


def test_the_template_holds_what_its_tool_makes():
    tool = [
        sys.executable,
        VBOARD / "template-tools/make_disk.py",
        "--check",
        VBOARD / "template/media",
    ]
    subprocess.run(tool, check=True, timeout=60)


@pytest.mark.skipif(SMARTCTL is None, reason="no smartctl")
def test_smartctl_reads_identity_attributes_and_health(board):
    run = board.run_command([SMARTCTL, "-i", "-A", "-H", "/dev/sda"])
    assert run.status == 0, run.stdout
    text = run.stdout.decode()
    for line in (
        "Device Model:     QX-SSD 128GB",
        "Serial Number:    QX0123456789ABCDEF01",
        "Firmware Version: QXFW01A2",
        "LU WWN Device Id: 5 000c0d e00a1b2c3",
        "TRIM Command:     Available, deterministic, zeroed",
        "SATA Version is:  SATA 3.2, 6.0 Gb/s (current: 6.0 Gb/s)",
        "SMART support is: Enabled",
        "SMART overall-health self-assessment test result: PASSED",
    ):
        assert line in text
    assert "checksum" not in text
    assert len([line for line in text.splitlines() if " 0x00" in line]) == 23


def attributes_of_hdsmart(board):
    """(id, flags, value, worst, threshold, raw value) as `bt2 hdsmart` prints them."""
    report = board.run("bt2", "hdsmart", "/dev/sda").stdout
    lines = [
        line
        for line in report.split(b"Status  \n\n")[1].split(b"\n")
        if line.endswith((b"OK    ", b"ILL   "))
    ]
    rows = []
    for line in lines:
        flags, threshold, value, worst, raw, _ = line[44:].split()
        rows.append(
            (int(line[:4], 16), int(flags, 16), int(value), int(worst), int(threshold), int(raw))
        )
    return rows


def attributes_of_smartctl(board):
    """The same as smartctl reads them, with every raw value as a number of 48 bits."""
    # Its database knows some of these drives and would show their raw values in other ways.
    run = board.run_command([SMARTCTL, "-j", "-A", "-P", "ignore", "-v", "N,raw48", "/dev/sda"])
    return [
        (
            row["id"],
            row["flags"]["value"],
            row["value"],
            row["worst"],
            row["thresh"],
            row["raw"]["value"],
        )
        for row in json.loads(run.stdout)["ata_smart_attributes"]["table"]
    ]


def test_there_are_recorded_drives():
    assert len(DRIVES) == 6


@pytest.mark.skipif(SMARTCTL is None, reason="no smartctl")
@pytest.mark.parametrize("drive", DRIVES)
def test_smartctl_and_hdsmart_read_the_same_attributes(board, drive):
    for part in PARTS:
        shutil.copy(DATA / f"{drive}.{part}.bin", board.path(f"media/sda.{part}"))
    attributes = attributes_of_smartctl(board)
    assert len(attributes) >= 10
    assert attributes_of_hdsmart(board) == attributes


@pytest.mark.skipif(SMARTCTL is None, reason="no smartctl")
def test_smartctl_sees_a_failing_disk(board):
    board.set("/dev/sda", "smart_exceeded", 1)
    run = board.run_command([SMARTCTL, "-H", "/dev/sda"])
    assert run.status & 8
    assert b"FAILED" in run.stdout


@pytest.mark.skipif(HDPARM is None, reason="no hdparm")
def test_hdparm_reads_the_identity(board):
    run = board.run_command([HDPARM, "-I", "/dev/sda"])
    assert run.status == 0
    for line in (
        b"Model Number:       QX-SSD 128GB",
        b"Serial Number:      QX0123456789ABCDEF01",
        b"LBA48  user addressable sectors:   250069680",
        b"Checksum: correct",
    ):
        assert line in run.stdout


def test_an_image_that_was_damaged_on_its_way_is_not_taken_over(board):
    # The drive checks what it got: here its last chunk is longer than the image that it expects.
    board.set("/dev/sda", "firmware_size", 12000)
    work = board.scratch / "images"
    work.mkdir()
    (work / "FIRMWAREQXFW01A3.bin").write_bytes(disk.make_image(board))
    board.run("upgrade", "ssd", "sda", "FIRMWAREQXFW01A3.bin", cwd=work)
    assert disk.setting(board, "updates") is None
    assert (
        b"FirmWare(FW):                    QXFW01A2\n"
        in board.run("bt2", "hdsmart", "/dev/sda").stdout
    )


def test_other_requests_are_no_requests_of_a_disk(board):
    run = board.run("bt2", "hdsmart", "/dev/korstorage")
    assert b"rig_sata_read_identify_info error errno = 25\n" in run.stdout
