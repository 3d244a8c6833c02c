"""The virtual board's disk, as tools that know nothing of the board see it."""

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


def test_the_template_holds_what_its_tool_makes():
    tool = [sys.executable, VBOARD / "template-tools/make_disk.py", "--check", VBOARD / "template/media"]
    subprocess.run(tool, check=True, timeout=60)


@pytest.mark.skipif(SMARTCTL is None, reason="no smartctl")
def test_smartctl_reads_identity_attributes_and_health(board):
    run = board.run_command([SMARTCTL, "-i", "-A", "-H", "/dev/sda"])
    assert run.status == 0, run.stdout
    text = run.stdout.decode()
    for line in ("Device Model:     QX-SSD 128GB", "Serial Number:    QX0123456789ABCDEF01", "Firmware Version: QXFW01A2",
                 "LU WWN Device Id: 5 000c0d e00a1b2c3", "TRIM Command:     Available, deterministic, zeroed",
                 "SATA Version is:  SATA 3.2, 6.0 Gb/s (current: 6.0 Gb/s)", "SMART support is: Enabled",
                 "SMART overall-health self-assessment test result: PASSED"):
        assert line in text
    assert "checksum" not in text
    assert len([line for line in text.splitlines() if " 0x00" in line]) == 23


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
    for line in (b"Model Number:       QX-SSD 128GB", b"Serial Number:      QX0123456789ABCDEF01",
                 b"LBA48  user addressable sectors:   250069680", b"Checksum: correct"):
        assert line in run.stdout


def test_an_image_that_was_damaged_on_its_way_is_not_taken_over(board):
    # The drive checks what it got: here its last chunk is longer than the image that it expects.
    board.set("/dev/sda", "firmware_size", 12000)
    work = board.scratch / "images"
    work.mkdir()
    (work / "FIRMWAREQXFW01A3.bin").write_bytes(disk.make_image(board))
    board.run("upgrade", "ssd", "sda", "FIRMWAREQXFW01A3.bin", cwd=work)
    assert disk.setting(board, "updates") is None
    assert b"FirmWare(FW):                    QXFW01A2\n" in board.run("bt2", "hdsmart", "/dev/sda").stdout


def test_other_requests_are_no_requests_of_a_disk(board):
    run = board.run("bt2", "hdsmart", "/dev/korstorage")
    assert b"rig_sata_read_identify_info error errno = 25\n" in run.stdout
