"""bt1 bootparam: shows, bumps and checks the 256-byte boot-parameter block.

Every path succeeds, also the self-test that failed: the autotest report shows it as OK.
"""

import dataclasses

import pytest

from conftest import assert_story, out, storm
from device_trace import packed

USAGE = b"\nUsage: bootparam [autotest|set]\n\n\n\n"
COUNTER = 250
NVMEM = "sys/bus/nvmem/devices/bootparam0/nvmem"


def block(counter, rest=0x11):
    data = bytearray([rest] * 256)
    data[COUNTER] = counter
    return bytes(data)


def get(data):
    return f"rig_bootparam_get 256 -> hex:{packed(data)} = 0"


def get_fails(result=-1):
    return f"rig_bootparam_get 256 = {result} errno=5"


def put(data, result=0):
    return f"rig_bootparam_set hex:{packed(data)} 256 = {result} errno=5"


def show(data):
    return f"rig_bytes_print hex:{packed(data)} 256 = 0"


# --- Showing the block: without a word and with any word that is none of the three ---


@pytest.mark.parametrize(
    "words",
    [(), ("get",), ("Set",), ("--help",), ("",), ("set", "1"), ("autotest", "1"), ("-h", "1")],
)
def test_shows_the_block(board, words):
    data = bytes(range(256))
    run = board.run("bt1", "bootparam", *words, rigcore=[get(data), show(data)])
    assert (run.status, run.stdout, run.stderr) == (0, b"", b"")
    assert run.requests == []


@pytest.mark.parametrize("result", [-1, -19, 3])
def test_showing_a_block_that_cannot_be_read(board, result):
    run = board.run("bt1", "bootparam", rigcore=[get_fails(result)])
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout == (
        b"[bootparam_get:48]RETURN:bootparam_get fail[%d]\n"
        b"[bootparam_main:143]WARN:bootparam_get fail[%d]\n" % (result, result)
    )


def test_help_prints_the_usage_and_succeeds(board):
    run = board.run("bt1", "bootparam", "-h", rigcore=[])
    assert (run.status, run.stdout, run.stderr) == (0, b"", USAGE)
    assert run.requests == []


# --- autotest ---


@pytest.mark.parametrize("counter", [0, 7, 127, 128, 254, 255])
def test_autotest_writes_reads_compares_and_restores(board, counter):
    bumped = block((counter + 1) % 256)
    run = board.run(
        "bt1",
        "bootparam",
        "autotest",
        rigcore=[get(block(counter)), put(bumped), get(bumped), put(block(counter))],
    )
    assert (run.status, run.stdout, run.stderr) == (0, b"", b"")
    assert run.requests == []


def auto_failed(line, what, result=-1):
    return (
        b"[bootparam_auto:%d]RETURN:%s fail[%d]\n" % (line, what, result)
        + b"[bootparam_main:133]WARN:bootparam_auto fail[%d]\n" % result
    )


@pytest.mark.parametrize("result", [-1, -5, 2])
def test_autotest_ends_at_a_failed_first_reading(board, result):
    run = board.run("bt1", "bootparam", "autotest", rigcore=[get_fails(result)])
    assert (run.status, run.stdout, run.stderr) == (
        0,
        auto_failed(92, b"bootparam_get", result),
        b"",
    )


@pytest.mark.parametrize("result", [-1, -5, 2])
def test_autotest_ends_at_a_failed_writing(board, result):
    run = board.run("bt1", "bootparam", "autotest", rigcore=[get(block(7)), put(block(8), result)])
    assert (run.status, run.stdout, run.stderr) == (
        0,
        auto_failed(98, b"bootparam_set", result),
        b"",
    )


@pytest.mark.parametrize("result", [-1, -5, 2])
def test_autotest_ends_at_a_failed_second_reading(board, result):
    run = board.run(
        "bt1", "bootparam", "autotest", rigcore=[get(block(7)), put(block(8)), get_fails(result)]
    )
    assert (run.status, run.stdout, run.stderr) == (
        0,
        auto_failed(102, b"bootparam_get", result),
        b"",
    )


@pytest.mark.parametrize(
    "read_back",
    [
        block(7),  # the write did nothing
        block(8, rest=0x10),  # another block altogether
        block(8)[:255] + b"\xff",  # the last byte alone
        b"\x91" + block(8)[1:],  # the first byte alone
    ],
)
def test_autotest_reports_a_block_that_reads_back_differently_and_succeeds(board, read_back):
    run = board.run(
        "bt1", "bootparam", "autotest", rigcore=[get(block(7)), put(block(8)), get(read_back)]
    )
    assert (run.status, run.stderr) == (0, b"")
    # The number is what the comparison gave: its sign alone is fixed.
    first, second = run.stdout.splitlines(keepends=True)
    assert first.startswith(b"[bootparam_auto:104]RETURN:bootparam_chk fail[") and first.endswith(
        b"]\n"
    )
    assert second.startswith(b"[bootparam_main:133]WARN:bootparam_auto fail[") and second.endswith(
        b"]\n"
    )
    number = first.partition(b"fail[")[2]
    assert int(number[:-2]) != 0
    assert second.partition(b"fail[")[2] == number


def test_autotest_compares_bytes_without_a_sign(board):
    numbers = []
    for read_back in (
        block(7),  # a byte that is less than what was written
        block(8)[:255] + b"\x80",  # one that is more
        b"\xff" + block(8)[1:],
    ):
        run = board.run(
            "bt1", "bootparam", "autotest", rigcore=[get(block(7)), put(block(8)), get(read_back)]
        )
        numbers.append(int(run.stdout.splitlines()[0].partition(b"fail[")[2].rstrip(b"]")))
    assert numbers[0] * numbers[1] < 0 and numbers[0] * numbers[2] < 0, numbers


@pytest.mark.parametrize("result", [-1, -5, 2])
def test_autotest_reports_a_failed_restoring(board, result):
    run = board.run(
        "bt1",
        "bootparam",
        "autotest",
        rigcore=[get(block(7)), put(block(8)), get(block(8)), put(block(7), result)],
    )
    assert (run.status, run.stdout, run.stderr) == (
        0,
        auto_failed(109, b"bootparam_bak", result),
        b"",
    )


# --- set ---


@pytest.mark.parametrize("counter", [0, 7, 127, 255])
def test_set_bumps_the_counter_and_shows_what_was_read_back(board, counter):
    read_back = block((counter + 1) % 256, rest=0x22)
    run = board.run(
        "bt1",
        "bootparam",
        "set",
        rigcore=[
            get(block(counter)),
            put(block((counter + 1) % 256)),
            get(read_back),
            show(read_back),
        ],
    )
    assert (run.status, run.stdout, run.stderr) == (0, b"", b"")
    assert run.requests == []


@pytest.mark.parametrize("result", [-1, -5, 2])
def test_set_goes_on_after_a_failed_first_reading(board, result):
    bumped = block(1, rest=0)
    run = board.run(
        "bt1",
        "bootparam",
        "set",
        rigcore=[get_fails(result), put(bumped), get(bumped), show(bumped)],
    )
    assert (run.status, run.stdout, run.stderr) == (
        0,
        b"[bootparam_set:65]WARN:bootparam_get fail[%d]\n" % result,
        b"",
    )


@pytest.mark.parametrize("result", [-1, -5, 2])
def test_set_ends_at_a_failed_writing(board, result):
    run = board.run("bt1", "bootparam", "set", rigcore=[get(block(7)), put(block(8), result)])
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout == (
        b"[bootparam_set:70]RETURN:bootparam_set fail[%d]\n"
        b"[bootparam_main:138]WARN:bootparam_set fail[%d]\n" % (result, result)
    )


@pytest.mark.parametrize("result", [-1, -5, 2])
def test_set_ends_at_a_failed_second_reading(board, result):
    run = board.run(
        "bt1", "bootparam", "set", rigcore=[get(block(7)), put(block(8)), get_fails(result)]
    )
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout == (
        b"[bootparam_set:74]RETURN:bootparam_get fail[%d]\n"
        b"[bootparam_main:138]WARN:bootparam_set fail[%d]\n" % (result, result)
    )


# --- On the board ---


def test_every_set_counts_one_and_255_is_followed_by_0(board):
    before = bytes((3 * i + 17) % 256 for i in range(256))
    bumped = bytearray(before)
    bumped[COUNTER] = 0
    assert before[COUNTER] == 255
    board.path(NVMEM).write_bytes(before)
    assert board.run("bt1", "bootparam", "set").status == 0
    assert board.path(NVMEM).read_bytes() == bumped

    more = storm(256) - 1
    loop = 'for n in $(seq "$1"); do "$0" bt1 bootparam set >/dev/null || exit 1; done'
    run = board.run_command(["sh", "-c", loop, board.build / "bin/benchrig", str(more)])
    assert (run.status, run.stderr) == (0, b"")
    bumped[COUNTER] = more
    assert board.path(NVMEM).read_bytes() == bumped


def test_set_on_the_board_warns_of_a_failed_reading_then_writes_reads_and_shows(board):
    board.path(NVMEM).write_bytes(block(7))
    board.fault(f"/{NVMEM} read errno=EIO nth=1")
    run = board.run("bt1", "bootparam", "set", story=True)
    assert run.status == 0
    bumped = packed(block(1, rest=0))
    warning = b"[bootparam_set:65]WARN:bootparam_get fail[-1]\n"
    assert run.stdout.startswith(warning)
    story = [line for line in run.story if line.startswith(("out ", f"read /{NVMEM}", "write "))]
    assert_story(
        dataclasses.replace(run, story=story),
        f"read /{NVMEM} = EIO",
        out(warning),
        f"write /{NVMEM} in={bumped} = 256",
        f"read /{NVMEM} out={bumped} = 256",
        out(run.stdout[len(warning) :]),
    )


def test_autotest_leaves_the_block_of_the_board_as_it_found_it(board):
    before = bytes(255 - i for i in range(256))
    board.path(NVMEM).write_bytes(before)
    run = board.run("bt1", "bootparam", "autotest")
    assert (run.status, run.stdout, run.stderr) == (0, b"", b"")
    assert board.path(NVMEM).read_bytes() == before
    assert (
        len([line for line in run.requests_on("/" + NVMEM) if line.startswith(("write", "pwrite"))])
        == 2
    )


def test_shows_the_block_of_the_board(board):
    board.path(NVMEM).write_bytes(bytes(256))
    zeros = board.run("bt1", "bootparam")
    board.path(NVMEM).write_bytes(bytes(range(256)))
    run = board.run("bt1", "bootparam")
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout != zeros.stdout
    shown = run.stdout.lower().split()
    assert b"ab" in shown and b"cd" in shown and b"fa" in shown
    assert b"ab" not in zeros.stdout.lower().split()


def test_a_block_of_the_board_that_is_too_short(board):
    board.path(NVMEM).write_bytes(bytes(255))
    run = board.run("bt1", "bootparam", "autotest")
    assert (run.status, run.stdout, run.stderr) == (0, auto_failed(92, b"bootparam_get"), b"")


@pytest.mark.parametrize("fault", ["absent", "open errno=EIO", "read errno=EIO"])
def test_a_block_of_the_board_that_cannot_be_read(board, fault):
    board.fault(f"/{NVMEM} {fault}")
    run = board.run("bt1", "bootparam", "autotest")
    assert (run.status, run.stdout, run.stderr) == (0, auto_failed(92, b"bootparam_get"), b"")


@pytest.mark.parametrize("fault", ["write errno=EIO", "open errno=EACCES from=2"])
def test_a_block_of_the_board_that_cannot_be_written(board, fault):
    before = board.path(NVMEM).read_bytes()
    board.fault(f"/{NVMEM} {fault}")
    run = board.run("bt1", "bootparam", "autotest")
    assert (run.status, run.stdout, run.stderr) == (0, auto_failed(98, b"bootparam_set"), b"")
    assert board.path(NVMEM).read_bytes() == before
