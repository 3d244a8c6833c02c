"""bt2 hdsmart: identity and SMART report.

What the report asks of the platform library is tested with the stand-in library; what the library
asks of a disk with the virtual board's /dev/sda (tests/cli/disk.py tells what is assumed of it).
Layouts and recorded disks are unit tests (smart_report_test.cpp).
"""

import pathlib
import shutil

import pytest

import disk
from conftest import out

DATA = pathlib.Path(__file__).resolve().parents[1] / "data/ata"
PATH = '"/dev/sda"'
ZEROS = "hex:00*512"
BLANK = '0 0 0 0 "" 0 0 0 0'

IDENTIFY = f"rig_sata_read_identify_info {PATH} -> {ZEROS} = 0"
DECODE = f"rig_ata_get_identify_info {ZEROS} -> {BLANK} = 0"
ENABLE = f"rig_sata_enable_smart {PATH} = 0"
VALUES = f"rig_sata_read_smart_values {PATH} -> {ZEROS} = 0"
THRESHOLDS = f"rig_sata_read_smart_thresholds {PATH} -> {ZEROS} = 0"
FAMILY = f"rig_store_get_factory {ZEROS} {ZEROS} = 0"

NUL = b"\0"
BLANK_IDENTITY = (
    b"**************************IDENTIFY_INFO************************\n"
    b"SerialNumber(SN)                 " + 20 * NUL + b"\n"
    b"ModelNumber:                     " + 40 * NUL + b"\n"
    b"FirmWare(FW):                    " + 8 * NUL + b"\n"
    b"User Capacity:                   0bytes 0sec [0GB]\n"
    b"Sector Sizes:                    0 bytes logical, 0 bytes physical\n"
    b"SATA Version is:                 \n"
    b"SATA Trim:                       trim: 0 , trimcount:0\n"
    b"cache                            0\n"
    b"bytesSec                         0\n"
    b"heads                            0\n"
    b"cylinders                        0\n"
    b"sectors                          0\n"
)
BLANK_SMART = (
    b"***************************SMART_INFO**************************\n"
    b"SMART rev                            0x0\n"
    b"offline_data_collection_status       0x0\n"
    b"self_test_exec_status                0x0\n"
    b"total_time_to_complete_off_line      0 seconds\n"
    b"offline_data_collection_capability   0x0\n"
    b"smart_capability                     0x0\n"
    b"errorlog_capability                  0x0\n"
    b"short_test_completion_time           0 minutes\n"
    b"extend_test_completion_time          0 minutes\n"
    b"conveyance_test_completion_time      0x0\n\n" + b"*" * 110 + b"\n"
    b"ID  Attribute name                          Flags   Threshold       Value   Worst   Raw Value           Status  \n\n"
)
START = b"Start check /dev/sda\n"
OK = b"Check /dev/sda smart ok!\n"


def assert_run(run, status, stdout):
    assert run.stdout == stdout
    assert run.stderr == b""
    assert run.status == status


# --- what the library is asked --------------------------------------------------------------------


@pytest.mark.parametrize("words", [(), ("/dev/sda", "x")])
def test_wrong_count(board, words):
    assert_run(
        board.run("bt2", "hdsmart", *words, rigcore=[]), 0, b"Invalid params, eg. smart /dev/sda\n"
    )


def test_path_of_64_characters(board):
    assert_run(board.run("bt2", "hdsmart", "x" * 64, rigcore=[]), 0, b"Divice name too long(<63)")


def test_a_disk_that_tells_nothing(board):
    run = board.run(
        "bt2", "hdsmart", "/dev/sda", rigcore=[IDENTIFY, DECODE, ENABLE, VALUES, THRESHOLDS, FAMILY]
    )
    assert_run(run, 0, START + BLANK_IDENTITY + BLANK_SMART + OK)


@pytest.mark.parametrize("family", [1, 2])
def test_wear_lines_of_both_families_without_host_writes(board, family):
    script = [IDENTIFY, DECODE, ENABLE, VALUES, THRESHOLDS, FAMILY.replace("= 0", f"= {family}")]
    run = board.run("bt2", "hdsmart", "/dev/sda", rigcore=script)
    assert_run(run, 0, START + BLANK_IDENTITY + BLANK_SMART + b"TBW=0GB\nWAI=0.000\n" + OK)


@pytest.mark.parametrize(
    "maximum, current, shown",
    [
        (0, 0, b"SATA 3.1"),
        (1, 0, b"SATA 3.1, 1.5 Gb/s"),
        (2, 1, b"SATA 3.1, 3.0 Gb/s (current: 1.5 Gb/s)"),
        (3, 3, b"SATA 3.1, 6.0 Gb/s (current: 6.0 Gb/s)"),
        (4, 5, b"SATA 3.1, >6.0 Gb/s (4) (current: >6.0 Gb/s (5))"),
        (6, 7, b"SATA 3.1, >6.0 Gb/s (6) (current: >6.0 Gb/s (7))"),
        (8, 4294967295, b"SATA 3.1, >6.0 Gb/s (7) (current: >6.0 Gb/s (7))"),
        (0, 2, b"SATA 3.1 (current: 3.0 Gb/s)"),
    ],
)
def test_sata_line(board, maximum, current, shown):
    decode = f'rig_ata_get_identify_info {ZEROS} -> 0 0 0 0 "SATA 3.1" {maximum} {current} 0 0 = 0'
    run = board.run(
        "bt2", "hdsmart", "/dev/sda", rigcore=[IDENTIFY, decode, ENABLE, VALUES, THRESHOLDS, FAMILY]
    )
    assert b"SATA Version is:                 " + shown + b"\n" in run.stdout


def test_failed_identify_and_enable_are_reported_and_go_on(board):
    script = [
        f"rig_sata_read_identify_info {PATH} -> {ZEROS} = -1 errno=5",
        DECODE,
        f"rig_sata_enable_smart {PATH} = -1 errno=13",
        VALUES,
        THRESHOLDS,
        FAMILY,
    ]
    run = board.run("bt2", "hdsmart", "/dev/sda", rigcore=script)
    assert_run(
        run,
        0,
        START
        + b"rig_sata_read_identify_info error errno = 5\n"
        + BLANK_IDENTITY
        + b"enable_smart error errno = 13\n"
        + BLANK_SMART
        + OK,
    )


@pytest.mark.parametrize("result", [1, 3])
def test_positive_results_fail_only_the_reads(board, result):
    def positive(line):
        return line.removesuffix("0") + str(result)

    # The attempts that count are the second ones.
    script = [
        positive(IDENTIFY),
        DECODE,
        positive(ENABLE),
        positive(VALUES),
        VALUES,
        positive(THRESHOLDS),
        THRESHOLDS,
        FAMILY,
    ]
    run = board.run("bt2", "hdsmart", "/dev/sda", rigcore=script)
    assert_run(
        run,
        0,
        START
        + BLANK_IDENTITY
        + b"sata_read_smart_values error, retry!\n"
        + b"sata_read_smart_thresholds error, retry!\n!\n"
        + BLANK_SMART
        + OK,
    )


def test_a_path_of_63_characters_is_checked(board):
    path = "/dev/" + 58 * "x"
    run = board.run("bt2", "hdsmart", path)
    assert run.stdout.startswith(b"Start check " + path.encode() + b"\n")


def test_three_failed_reads_of_the_values(board):
    failed = f"rig_sata_read_smart_values {PATH} -> {ZEROS} = -1 errno=5"
    run = board.run(
        "bt2", "hdsmart", "/dev/sda", rigcore=[IDENTIFY, DECODE, ENABLE, failed, failed, failed]
    )
    assert_run(
        run,
        255,
        START
        + BLANK_IDENTITY
        + 3 * b"sata_read_smart_values error, retry!\n"
        + b"sata_read_smart_values failed!\n",
    )


def test_three_failed_reads_of_the_thresholds(board):
    failed = f"rig_sata_read_smart_thresholds {PATH} -> {ZEROS} = -1 errno=5"
    run = board.run(
        "bt2",
        "hdsmart",
        "/dev/sda",
        rigcore=[IDENTIFY, DECODE, ENABLE, VALUES, failed, failed, failed],
    )
    assert run.status == 255
    assert run.stdout.startswith(
        START + BLANK_IDENTITY + b"sata_read_smart_thresholds error, retry!\n!"
    )
    assert run.stdout.endswith(b"sata_read_smart_thresholds failed!\n")
    assert run.stdout.count(b"retry!\n!") == 3


def test_the_third_attempt_counts(board):
    values = f"rig_sata_read_smart_values {PATH} -> {ZEROS} = 1"
    thresholds = f"rig_sata_read_smart_thresholds {PATH} -> {ZEROS} = 1"
    run = board.run(
        "bt2",
        "hdsmart",
        "/dev/sda",
        rigcore=[
            IDENTIFY,
            DECODE,
            ENABLE,
            values,
            values,
            VALUES,
            thresholds,
            thresholds,
            THRESHOLDS,
            FAMILY,
        ],
    )
    assert run.status == 0
    assert run.stdout.endswith(OK)


# --- what the library asks of a disk ----------------------------------------------------------------


def test_the_boards_ssd(board):
    disk.keep_log(board)
    run = board.run("bt2", "hdsmart", "/dev/sda")
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout.startswith(
        START
        + disk.IDENTITY
        + b"User Capacity:                   128035676160bytes 250069680sec [119GB]\n"
        b"Sector Sizes:                    512 bytes logical, 512 bytes physical\n"
        b"SATA Version is:                 SATA 3.2, 6.0 Gb/s (current: 6.0 Gb/s)\n"
        b"SATA Trim:                       trim: 1 ,DataDeter DataZero , trimcount:8\n"
    )
    assert (
        b"a9  Total Bad Block Number                  13      10              100     100     "
        b"12  (T/L   16/4   ) OK    \n"
    ) in run.stdout
    assert (
        b"e7  SSD Life Left                           13      5               97      97      "
        b"erase:18  bad:3     OK    \n"
    ) in run.stdout
    # 1500 GB written by the host, 18 erasures of 119 GB.
    assert run.stdout.endswith(b"TBW=1TB\nWAI=1.428\n" + OK)
    # Standard requests: one sector each, asked for by COUNT.
    assert disk.commands(board) == [
        "SG 85 08 0e 00 00 00 01 00 00 00 00 00 00 00 ec 00 512",
        "SG 85 06 00 00 d8 00 00 00 00 00 4f 00 c2 00 b0 00 0",
        "SG 85 06 00 00 d2 00 f1 00 00 00 4f 00 c2 00 b0 00 0",
        "SG 85 08 0e 00 d0 00 01 00 00 00 4f 00 c2 00 b0 00 512",
        "SG 85 08 0e 00 d1 00 01 00 00 00 4f 00 c2 00 b0 00 512",
    ]
    assert run.requests.count("open /dev/sda RDONLY|NONBLOCK|CLOEXEC = 3") == 4
    assert run.requests.count("close /dev/sda = 0") == 4


@pytest.mark.parametrize(
    "name, status",
    [
        ("Maxtor_96147H8--BAC51KJ0--2", 253),
        ("ST9100821AS--3.CME", 0),
        ("INTEL_SSDSA2MH080G1GC--045C8820", 0),
        ("SAMSUNG_HD501LJ--CR100-12", 0),
        ("TOSHIBA_MK1651GSY--38IGT0G5T", 0),
        ("WDC_WD5000AAKS--00TMA0-12.01C01", 0),
    ],
)
def test_recorded_disks(board, name, status):
    for part in ("identify", "smart_values", "smart_thresholds"):
        shutil.copy(DATA / f"{name}.{part}.bin", board.path(f"media/sda.{part}"))
    run = board.run("bt2", "hdsmart", "/dev/sda")
    assert run.status == status
    assert b"SerialNumber(SN)                 " + 20 * b"0" + b"\n" in run.stdout
    if status == 0:
        assert run.stdout.endswith(OK)
    else:
        assert run.stdout.endswith(
            b"WARNING:A failure may be imminent, replace your hard disk(/dev/sda).\n"
            b"Exit of smart error!!!\n"
        )


def test_each_part_is_told_before_the_disk_is_asked_for_the_next(board):
    texts = board.run("bt2", "hdsmart", "/dev/sda").stdout.split(
        b"***************************SMART"
    )
    begin, identity = texts[0][: len(START)], texts[0][len(START) :]
    rest = b"***************************SMART" + texts[1]
    run = board.run("bt2", "hdsmart", "/dev/sda", story=True)
    lines = [
        line if line.startswith("out ") else line.split()[0]
        for line in run.story
        if line.startswith(("out ", "open /dev/sda", "ioctl", "close /dev/sda"))
    ]
    one = ["open", "ioctl", "close"]
    assert lines == (
        out(begin)
        + one  # IDENTIFY
        + out(identity)
        + ["open", "ioctl", "ioctl", "close"]  # SMART and its autosave
        + 2 * one  # values, thresholds
        + out(rest)
    )


def test_missing_disk(board):
    run = board.run("bt2", "hdsmart", "/dev/sdz")
    assert run.status == 255
    assert run.stdout.startswith(
        b"Start check /dev/sdz\nrig_sata_read_identify_info error errno = 2\n"
    )
    assert b"\nenable_smart error errno = 2\n" in run.stdout
    assert run.stdout.endswith(
        3 * b"sata_read_smart_values error, retry!\n" + b"sata_read_smart_values failed!\n"
    )


def test_a_node_that_is_no_disk(board):
    run = board.run("bt2", "hdsmart", "/dev/rtc0")
    assert run.status == 255
    assert b"rig_sata_read_identify_info error errno = 25\n" in run.stdout


@pytest.mark.parametrize("host_status, errno", [(1, 19), (3, 110), (4, 19), (5, 5)])
def test_a_host_adapter_that_lost_the_disk(board, host_status, errno):
    board.set("/dev/sda", "host_status", host_status)
    run = board.run("bt2", "hdsmart", "/dev/sda")
    assert b"rig_sata_read_identify_info error errno = %d\n" % errno in run.stdout
    assert run.status == 255


def test_a_disk_that_refuses_smart(board):
    board.set("/dev/sda", "aborts", "b0")
    run = board.run("bt2", "hdsmart", "/dev/sda")
    assert b"enable_smart error errno = 95\n" in run.stdout
    assert run.status == 255


def test_a_disk_that_refuses_autosave(board):
    board.set("/dev/sda", "aborts", "b0/d2")
    run = board.run("bt2", "hdsmart", "/dev/sda")
    assert b"enable_smart error errno = 95\n" in run.stdout
    assert run.stdout.endswith(OK)


def test_one_failed_request_is_tried_again(board):
    board.fault("/dev/sda ioctl:SG_IO errno=EIO nth=4")
    run = board.run("bt2", "hdsmart", "/dev/sda")
    assert b"\nsata_read_smart_values error, retry!\n***" in run.stdout
    assert run.status == 0
