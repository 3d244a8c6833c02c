"""bt2 malloc: allocates, touches and holds memory."""

import os
import subprocess
import time

import pytest
from conftest import environment, little_memory, program

USAGE = (
    b"\nUsage: malloc [size] [count]\n\n"
    b" size      size by per malloc\n"
    b" count     malloc count\n\n"
    b"example:\n"
    b"  malloc 0x100000 100\n\n"
)


def malloc(board, *words, **options):
    return board.run("bt2", "malloc", *words, **options)


@pytest.mark.parametrize("words", [(), ("0x1000",), ("0x1000", "1", "1"), ("-h",)])
def test_wants_size_and_count(board, words):
    run = malloc(board, *words)
    assert (run.stdout, run.stderr, run.status) == (b"", USAGE, 255)


@pytest.mark.parametrize(
    "words, text",
    [
        (("0x100000", "0"), b"malloc size[0x100000], count[0] fail.\n"),
        (("0", "100"), b"malloc size[0x0], count[100] fail.\n"),
        (("0", "0"), b"malloc size[0x0], count[0] fail.\n"),
        (("size", "7"), b"malloc size[0x0], count[7] fail.\n"),
        (("010", "x"), b"malloc size[0x8], count[0] fail.\n"),
    ],
)
def test_size_or_count_of_0_fails(board, words, text):
    run = malloc(board, *words)
    assert (run.stdout, run.stderr, run.status) == (text, b"", 255)


def test_holds_the_memory_and_sleeps_for_ever(board):
    run = malloc(board, "0x100000", "100", seconds=17)
    assert run.stdout == (b"mallc size[0x100000], count[100] =>\n" b"mallc success[0x6400000]\n")
    assert (run.stderr, run.status) == (b"", 128 + 15)
    assert run.sleeps == [5.0] * 4  # the last one is cut short


def test_ctrl_c_ends_it(board):
    run = malloc(board, "1", "1", signals=["INT@3"])
    assert run.stdout == b"mallc size[0x1], count[1] =>\nmallc success[0x1]\n"
    assert run.status == 128 + 2


def malloc_in_little_memory(board, *words):
    """Where no block of these tests is to be had."""
    return malloc(board, *words, seconds=1, env=little_memory(board.build))


@pytest.mark.parametrize(
    "size, count, shown, product",
    [
        ("0x70000000", "2", b"0x70000000], count[2]", 0xE0000000),
        ("0x40000000", "5", b"0x40000000], count[5]", 0x40000000),  # the product wraps
        ("0x40000000", "4", b"0x40000000], count[4]", 0),
        ("0x1FFFFFFFF", "1", b"0xffffffff], count[1]", 0xFFFFFFFF),
        ("-1", "1", b"0xffffffff], count[1]", 0xFFFFFFFF),
    ],
)
def test_numbers_have_32_bits_and_blocks_that_are_not_to_be_had_are_skipped(
    board, size, count, shown, product
):
    run = malloc_in_little_memory(board, size, count)
    assert run.stdout == b"mallc size[%s =>\nmallc success[0x%x]\n" % (shown, product)
    assert (run.stderr, run.status) == (b"", 128 + 15)


@pytest.mark.parametrize("size, count, product", [("4096", "16", 0x10000), ("020", "3", 0x30)])
def test_numbers_may_have_any_base(board, size, count, product):
    run = malloc(board, size, count, seconds=1)
    assert run.stdout.endswith(b"mallc success[0x%x]\n" % product)


def test_memory_is_really_touched(build):
    # On the PC itself, whose kernel tells how much of it the process holds.
    with subprocess.Popen(
        [*program(build / "bin/benchrig"), "bt2", "malloc", "0x100000", "24"],
        stdout=subprocess.PIPE,
        env=environment(),
    ) as process:
        try:
            process.stdout.readline()
            assert process.stdout.readline() == b"mallc success[0x1800000]\n"
            with open(f"/proc/{process.pid}/statm", encoding="ascii") as statm:
                resident = int(statm.read().split()[1]) * os.sysconf("SC_PAGESIZE")
            assert resident >= 24 << 20
            time.sleep(0.05)
            assert process.poll() is None
        finally:
            process.kill()
