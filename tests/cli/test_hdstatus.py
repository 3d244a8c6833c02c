"""bt2 hdstatus: what the storage driver knows about a SATA port.

Assumes the virtual board's /dev/korstorage (model korstorage): settings PORT.NAME for every counter
by its name in the report, PORT.resets, reset_time, err_type, err_count, cmd_type, sector and trim;
`ports` ports, others ENODEV.
"""

import struct

import pytest

from conftest import out
from device_trace import bytes_of, calls, packed

NODE = "/dev/korstorage"

USAGE = (
    b"\n hdstatus v1.0\nUsage:\n\n    hdstatus  index         ---sata index(0~n)\n\n\nexample:\n\n"
    b"    hdstatus  0             ---get sata0 status\n\n\n"
)

# The record's words in order.
WORDS = """readErr writeErr keyAreaErr lbaOverflow NoReady BSYCount DRQSetErr hdStatus retryCmdCount abortCmdCount
CmdAborted CmdOverUnknown CmdOverErr BadSCSICmdParam UAReset UAParamChanged QueueFull OverRun UnderRun ParityErr
BadSCSICmdResult unreported RecoverableErr DeviceFault SerrInt LinkCtlRxErr LinkCtlTxErr
RecovData RecovComm UnrecovData Persist Proto HostInt PHYRdyChg PHYInt CommWake SERR_10B_8B Dispar BadCRC Handshk
LinkSeq TrStaTrns UnrecFIS DevExch
HostBusError ATABusError TimeOutError HSMviolation SystemError MediaError InvalidArgument DeviceError UnknownError
accessTime""".split()

SCAN_OK = b"\033[0;32mSTOR_CMD_SCAN_DONE test OK.\033[m\n"
ERR_OK = b"\033[0;32mSTOR_CMD_ERR_REQ test OK.\033[m\n"
RESET_OK = b"\033[0;32mSTOR_CMD_HD_RESET_STATUS test OK.\033[m\n"
GET_OK = b"\033[0;32mSTOR_CMD_GET test OK.\033[m\n"
SCAN_BAD = b"\033[0;32mSTOR_CMD_SCAN_DONE test faild:-1.\033[m\n"
ERR_BAD = b"\033[0;32mSTOR_CMD_ERR_REQ test faild:-1.\033[m\n"
RESET_BAD = b"\033[0;32mSTOR_CMD_HD_RESET_STATUS test faild:-1.\033[m\n"
GET_BAD = b"\033[0;32mSTOR_CMD_GET faild!\033[m\n"
TRIM_BAD = b"\033[0;32mSTOR_CMD_TRIM_SUPPORT faild!\033[m\n"
# In GBK: "the disk's information is complete, compare it with".
HINT = bytes.fromhex("D3B2C5CCD0C5CFA2CAE4B3F6CDEAB1CF2CC7EBB6D4D5D5")


def write_node(board, lines):
    board.path("dev/korstorage").write_text(
        "model = korstorage\n" + "".join(line + "\n" for line in lines)
    )


def counter(label, value):
    return (label + ":").ljust(23).encode() + b"%d\n" % value


def hd_status(value):
    words = b"ABNORMAL" if value & 3 else b"NORMAL"
    idle = b"IDLE" if value & 4 else b"ACTIVE"
    return (
        b"hdStatus:              "
        + words
        + b"  "
        + idle
        + b"  "
        + (b"%#x" % value if value else b"0")
        + b"\n"
    )


def status_report(port, values):
    def lines(*names):
        return b"".join(counter(name, values[name]) for name in names)

    rest = WORDS[WORDS.index("BadSCSICmdParam") : WORDS.index("RecovData")]
    rest.remove("unreported")
    return (
        GET_OK
        + b"@start==============SATA PORT %d STATUS================start@\n" % port
        + lines(
            "lbaOverflow",
            "keyAreaErr",
            "BSYCount",
            "NoReady",
            "DRQSetErr",
            "writeErr",
            "readErr",
            "retryCmdCount",
            "abortCmdCount",
            "CmdAborted",
            "CmdOverUnknown",
            "CmdOverErr",
            "hdStatus",
        )
        + hd_status(values["hdStatus"])
        + lines(*rest)
        + counter("accessTime", values["accessTime"])
        + b"\n"
        + b"                SError Content\n"
        + lines(*WORDS[27:44])
        + b"\n"
        + b"            ATA completion errors\n"
        + lines(*WORDS[44:53])
        + b"@end================SATA PORT%d STATUS================end@\n" % port
    )


def err_report(port, err_type, count, command, sector):
    return (
        ERR_OK + b"@start==============SATA PORT %d ERROR REQUEST================start@\n"
        b"err type:              %d\nerr count:             %d\ncmd type:              %d\n"
        b"sector:                %d\n"
        b"@end================SATA PORT %d ERROR REQUEST================end@\n"
        % (port, err_type, count, command, sector, port)
    )


def reset_report(port, count, last):
    return (
        RESET_OK + b"@start==============SATA PORT %d RESET COUNT================start@\n"
        b"reset count:           %d\nlast reset time:       %d\n"
        b"@end================SATA PORT %d RESET COUNT================end@\n"
        % (port, count, last, port)
    )


def trim_report(port, status):
    return (
        b"SATA PORT%d TRIM STATUS: %d\n" % (port, status)
        + HINT
        + b"/proc/korvs/stor/sataport%d!!!\n" % port
    )


def record(size, *words):
    return packed(struct.pack(f"<{len(words)}i", *words).ljust(size, b"\0"))


def requests(run):
    """Name and what went to the driver, without what came back."""
    return [line.split(" out=")[0].split(" = ")[0] for line in calls(run)]


def assert_run(run, status, stdout):
    assert run.stdout == stdout
    assert run.stderr == b""
    assert run.status == status


def test_no_argument_prints_the_usage(board):
    run = board.run("bt2", "hdstatus")
    assert len(USAGE) == 133
    assert (run.status, run.stdout, run.stderr) == (255, b"", USAGE)
    assert run.requests == []


def test_missing_driver(board):
    board.fault(f"{NODE} absent")
    run = board.run("bt2", "hdstatus", "0")
    assert_run(run, 255, b"Open /dev/korstorage failed!\n")
    assert run.requests == [f"open {NODE} RDWR = ENOENT"]


def test_whole_report(board):
    values = {name: 1000 + 3 * index for index, name in enumerate(WORDS)}
    values.update(hdStatus=5, accessTime=-7, BadCRC=-1)
    write_node(
        board,
        ["ports = 2"]
        + [f"1.{name} = {value}" for name, value in values.items() if name != "unreported"],
    )
    # Two runs: the node file holds 64 settings at most.
    run = board.run("bt2", "hdstatus", "1")
    assert_run(
        run,
        0,
        SCAN_OK
        + err_report(1, 0, 0, 0, 0)
        + reset_report(1, 0, 0)
        + status_report(1, values)
        + trim_report(1, 0),
    )


def test_requests_carry_the_port_in_zeroed_records(board):
    write_node(board, ["ports = 3"])
    run = board.run("bt2", "hdstatus", "2")
    assert run.status == 0
    assert requests(run) == [
        f"open {NODE} RDWR",
        f"ioctl {NODE} STOR_CMD_SCAN_DONE in={record(4, 0)}",
        f"ioctl {NODE} STOR_CMD_ERR_REQ in={record(32, 2)}",
        f"ioctl {NODE} STOR_CMD_HD_RESET_STATUS in={record(268, 2)}",
        f"ioctl {NODE} STOR_CMD_GET in={record(228, 2)}",
        f"ioctl {NODE} STOR_CMD_TRIM_SUPPORT in={record(4, 2)}",
        f"close {NODE}",
    ]
    assert [len(bytes_of(line, "in")) for line in run.requests if " in=" in line] == [
        4,
        32,
        268,
        228,
        4,
    ]


def test_error_request_reset_history_and_trim(board):
    write_node(
        board,
        [
            "0.err_type = 3",
            "0.err_count = 17",
            "0.cmd_type = 37",
            "0.sector = 5000000000",
            "0.resets = 4",
            "0.reset_time = 86400",
            "0.trim = 1",
        ],
    )
    zeros = dict.fromkeys(WORDS, 0)
    assert_run(
        board.run("bt2", "hdstatus", "0"),
        0,
        SCAN_OK
        + err_report(0, 3, 17, 37, 5000000000)
        + reset_report(0, 4, 86400)
        + status_report(0, zeros)
        + trim_report(0, 1),
    )


def test_negative_sector(board):
    write_node(board, ["0.sector = -1"])
    assert b"sector:                -1\n" in board.run("bt2", "hdstatus", "0").stdout


@pytest.mark.parametrize(
    "status, shown",
    [
        (0, b"NORMAL  ACTIVE  0\n"),
        (1, b"ABNORMAL  ACTIVE  0x1\n"),
        (2, b"ABNORMAL  ACTIVE  0x2\n"),
        (3, b"ABNORMAL  ACTIVE  0x3\n"),
        (4, b"NORMAL  IDLE  0x4\n"),
        (5, b"ABNORMAL  IDLE  0x5\n"),
        (8, b"NORMAL  ACTIVE  0x8\n"),
        (-1, b"ABNORMAL  IDLE  0xffffffff\n"),
    ],
)
def test_status_in_words(board, status, shown):
    write_node(board, [f"0.hdStatus = {status}"])
    run = board.run("bt2", "hdstatus", "0")
    assert b"hdStatus:              %d\nhdStatus:              " % status + shown in run.stdout


def test_a_port_that_the_driver_does_not_know(board):
    run = board.run("bt2", "hdstatus", "5")
    assert_run(run, 255, SCAN_OK + ERR_BAD + RESET_BAD + GET_BAD)
    assert not any("TRIM" in line for line in run.requests)
    assert run.requests[-1] == f"close {NODE} = 0"


def test_the_first_three_failures_do_not_change_the_status(board):
    for name in ("SCAN_DONE", "ERR_REQ", "HD_RESET_STATUS"):
        board.fault(f"{NODE} ioctl:STOR_CMD_{name} errno=EIO")
    write_node(board, [])
    assert_run(
        board.run("bt2", "hdstatus", "0"),
        0,
        SCAN_BAD
        + ERR_BAD
        + RESET_BAD
        + status_report(0, dict.fromkeys(WORDS, 0))
        + trim_report(0, 0),
    )


def test_all_requests_failing(board):
    board.fault(f"{NODE} ioctl errno=EIO")
    run = board.run("bt2", "hdstatus", "0")
    assert_run(run, 255, SCAN_BAD + ERR_BAD + RESET_BAD + GET_BAD)
    assert run.requests[-1] == f"close {NODE} = 0"


@pytest.mark.parametrize("result", [1, 3])
def test_positive_results_fail_only_the_last_two(board, result):
    write_node(board, [])
    for name in ("SCAN_DONE", "ERR_REQ", "HD_RESET_STATUS"):
        board.fault(f"{NODE} ioctl:STOR_CMD_{name} result={result}")
    begin = SCAN_OK + err_report(0, 0, 0, 0, 0) + reset_report(0, 0, 0)
    report = begin + status_report(0, dict.fromkeys(WORDS, 0))
    assert_run(board.run("bt2", "hdstatus", "0"), 0, report + trim_report(0, 0))
    board.fault(f"{NODE} ioctl:STOR_CMD_TRIM_SUPPORT result={result}")
    assert_run(board.run("bt2", "hdstatus", "0"), 255, report + TRIM_BAD)
    board.fault(f"{NODE} ioctl:STOR_CMD_GET result={result}")
    assert_run(board.run("bt2", "hdstatus", "0"), 255, begin + GET_BAD)


def asked_and_told(run):
    """The requests' names and the texts of a story."""
    return [
        line if line.startswith("out ") else " ".join(line.split()[:3])
        for line in run.story
        if line.startswith(("out ", "ioctl ", "close "))
    ]


@pytest.mark.parametrize("fault", [None, "GET", "TRIM_SUPPORT"])
def test_each_part_is_told_before_the_next_is_asked_for(board, fault):
    write_node(board, [])
    parts = [
        ("SCAN_DONE", SCAN_OK),
        ("ERR_REQ", err_report(0, 0, 0, 0, 0)),
        ("HD_RESET_STATUS", reset_report(0, 0, 0)),
        ("GET", GET_BAD if fault == "GET" else status_report(0, dict.fromkeys(WORDS, 0))),
        ("TRIM_SUPPORT", TRIM_BAD if fault == "TRIM_SUPPORT" else trim_report(0, 0)),
    ]
    if fault:
        board.fault(f"{NODE} ioctl:STOR_CMD_{fault} errno=EIO")
    expected = []
    for name, text in parts:
        expected += [f"ioctl {NODE} STOR_CMD_{name}", *out(text)]
        if name == fault:
            break
    run = board.run("bt2", "hdstatus", "0", story=True)
    assert asked_and_told(run) == [*expected, f"close {NODE} ="]


def test_failed_trim(board):
    write_node(board, [])
    board.fault(f"{NODE} ioctl:STOR_CMD_TRIM_SUPPORT errno=EIO")
    run = board.run("bt2", "hdstatus", "0")
    assert_run(
        run,
        255,
        SCAN_OK
        + err_report(0, 0, 0, 0, 0)
        + reset_report(0, 0, 0)
        + status_report(0, dict.fromkeys(WORDS, 0))
        + TRIM_BAD,
    )
    assert run.requests[-1] == f"close {NODE} = 0"


@pytest.mark.parametrize(
    "word, port", [("1x", 1), ("x", 0), ("0x1", 0), ("-1", -1), ("", 0), ("010", 10)]
)
def test_the_port_is_decimal(board, word, port):
    run = board.run("bt2", "hdstatus", word)
    assert f"ioctl {NODE} STOR_CMD_GET in={record(228, port)}" in requests(run)


def test_further_words_change_nothing(board):
    assert board.run("bt2", "hdstatus", "0", "9").stdout == board.run("bt2", "hdstatus", "0").stdout
