"""bt1 iccard: the IC card's test."""

import ctypes
import datetime
import re

import pytest

from device_trace import bytes_of, calls, packed

OPEN = "open /dev/iccard RDWR = 3"
CLOSE = "close /dev/iccard = 0"
SLEEP = "sleep 1.000000"

USAGE = re.compile(
    rb"\n"
    rb"------KORVEXIUM iccard test tools:\t------\n"
    rb"------BUILD: (?:Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 1-3]\d \d{4}-\d\d:\d\d:\d\d  ------\n"
    rb"\n"
    rb"1\. iccard -h          : print this info\.\n"
    rb"2\. iccard -r          : get the iccard data\n"
    rb"3\. iccard -w          : set the iccard data\n"
    rb"4\. iccard -c          : iccard register test\n"
    rb"5\. iccard autotest    : iccard autotest\n"
)

RW_START = b"*************start read write iccard test*************\n"
WRITTEN = b"HAL_ICCARD_WRITE sucess \n"
READ = b"HAL_ICCARD_READ sucess \n"

PLUG_START = b"*************start hotplug iccard test*************\n"
UNPLUG = b"*************please unplug iccard*************\n"
PLUG = b"*************please plug iccard*************\n"


def read(card, result="0"):
    out = f" out={packed(card)}" if result == "0" else ""
    return f"ioctl /dev/iccard HAL_ICCARD_READ{out} = {result}"


def write(card, result="0"):
    return f"ioctl /dev/iccard HAL_ICCARD_WRITE in={packed(card)} = {result}"


def card_file(board):
    """The card's 256 bytes in the board directory, wherever the node file puts them."""
    for line in board.path("dev/iccard").read_text().splitlines():
        key, _, value = line.partition("=")
        if key.strip() == "medium":
            return board.path("media") / value.strip()
    raise AssertionError("dev/iccard names no medium")


def insert_card(board, card):
    assert len(card) == 256
    card_file(board).write_bytes(card)


def assert_run(run, status, stdout=b"", requests=(), stderr=b""):
    assert run.stdout == stdout
    assert run.stderr == stderr
    assert calls(run) == list(requests)
    assert run.status == status


def values(card):
    return b"".join(b"%d    " % byte for byte in card)


# --- arguments ----------------------------------------------------------------------------------


def test_without_argument_prints_the_usage_and_returns_minus_one(board):
    run = board.run("bt1", "iccard")
    assert USAGE.fullmatch(run.stdout + run.stderr)
    assert run.requests == []
    assert run.status == 255


@pytest.mark.parametrize("words", [["-h"], ["-h", "-r", "-w"]])
def test_help_prints_the_usage_closes_and_returns_minus_one(board, words):
    run = board.run("bt1", "iccard", *words)
    assert USAGE.fullmatch(run.stdout + run.stderr)
    assert calls(run) == [OPEN, CLOSE]
    assert run.status == 255


def test_help_comes_after_the_options_before_it(board):
    run = board.run("bt1", "iccard", "-w", "-h")
    assert run.stdout.startswith(b"HAL_ICCARD_WRITE sucess\n")
    assert USAGE.fullmatch(run.stdout[len(b"HAL_ICCARD_WRITE sucess\n") :] + run.stderr)
    assert calls(run) == [OPEN, write(b"\5" * 256), CLOSE]
    assert run.status == 255


@pytest.mark.parametrize("words", [["card"], ["autotest", "autotest"], ["1", "2", "3"]])
def test_words_that_are_no_options_do_nothing(board, words):
    assert_run(board.run("bt1", "iccard", *words), 0, b"", [OPEN, CLOSE])


@pytest.mark.parametrize("option", ["-x", "-R", "-1"])
def test_another_letter_is_ignored(board, option):
    run = board.run("bt1", "iccard", option)
    assert run.stdout == b""
    # getopt's own complaint, in whichever words.
    assert run.stderr.startswith(b"iccard: ") and run.stderr.count(b"\n") == 1
    assert calls(run) == [OPEN, CLOSE]
    assert run.status == 0


def test_another_letter_does_not_end_the_option_walk(board):
    run = board.run("bt1", "iccard", "-x", "-w")
    assert run.stdout == b"HAL_ICCARD_WRITE sucess\n"
    assert calls(run) == [OPEN, write(b"\5" * 256), CLOSE]
    assert run.status == 0


# --- -r and -w ----------------------------------------------------------------------------------


def assert_values(stdout, card):
    # Whether a line feed parts the words from the values is not fixed; none ends them.
    assert stdout in (
        b"HAL_ICCARD_READ sucess, Val is :" + feed + values(card) for feed in (b"\n", b"")
    )


def test_read_prints_the_256_bytes_as_unsigned_numbers(board):
    card = bytes(range(256))
    insert_card(board, card)
    run = board.run("bt1", "iccard", "-r")
    assert_values(run.stdout, card)
    assert run.stderr == b""
    assert calls(run) == [OPEN, read(card), CLOSE]
    assert run.status == 0


def test_read_that_fails_is_reported_and_is_no_failure_of_the_tool(board):
    board.fault("/dev/iccard ioctl:HAL_ICCARD_READ errno=EIO")
    assert_run(
        board.run("bt1", "iccard", "-r"),
        0,
        b"HAL_ICCARD_READ set failure.\n",
        [OPEN, read(b"", "EIO"), CLOSE],
    )


def test_write_fills_the_card_with_fives(board):
    assert_run(
        board.run("bt1", "iccard", "-w"),
        0,
        b"HAL_ICCARD_WRITE sucess\n",
        [OPEN, write(b"\5" * 256), CLOSE],
    )
    assert card_file(board).read_bytes() == b"\5" * 256


def test_write_that_fails_is_reported_and_is_no_failure_of_the_tool(board):
    card = bytes(range(256))
    insert_card(board, card)
    board.fault("/dev/iccard ioctl:HAL_ICCARD_WRITE errno=EIO")
    assert_run(
        board.run("bt1", "iccard", "-w"),
        0,
        b"HAL_ICCARD_WRITE set failure.\n",
        [OPEN, write(b"\5" * 256, "EIO"), CLOSE],
    )
    assert card_file(board).read_bytes() == card


@pytest.mark.parametrize("words", [["-r", "-w"], ["-rw"]])
def test_read_then_write_use_one_descriptor(board, words):
    card = b"benchrig" * 32
    insert_card(board, card)
    run = board.run("bt1", "iccard", *words)
    assert run.stdout.endswith(b"HAL_ICCARD_WRITE sucess\n")
    assert_values(run.stdout[: -len(b"HAL_ICCARD_WRITE sucess\n")], card)
    assert calls(run) == [OPEN, read(card), write(b"\5" * 256), CLOSE]
    assert run.status == 0


def test_write_then_read_reads_what_was_written(board):
    run = board.run("bt1", "iccard", "-w", "-r")
    assert run.stdout.startswith(b"HAL_ICCARD_WRITE sucess\n")
    assert_values(run.stdout[len(b"HAL_ICCARD_WRITE sucess\n") :], b"\5" * 256)
    assert calls(run) == [OPEN, write(b"\5" * 256), read(b"\5" * 256), CLOSE]
    assert run.status == 0


@pytest.mark.parametrize(
    "words, told",
    [
        (["-r"], b"HAL_ICCARD_READ set failure.\n"),
        (["-w"], b"HAL_ICCARD_WRITE set failure.\n"),
        (["-r", "-w"], b"HAL_ICCARD_READ set failure.\nHAL_ICCARD_WRITE set failure.\n"),
        (["card"], b""),
    ],
)
def test_options_still_run_when_the_device_does_not_open(board, words, told):
    board.fault("/dev/iccard absent")
    run = board.run("bt1", "iccard", *words)
    assert run.stdout == b"open /dev/iccard error\n" + told
    assert run.stderr == b""
    # The requests go to descriptor -1: none reaches the board.
    assert calls(run) == ["open /dev/iccard RDWR = ENOENT"]
    assert run.status == 0


def test_help_without_a_device_reports_it_first(board):
    board.fault("/dev/iccard open errno=ENXIO")
    run = board.run("bt1", "iccard", "-h")
    assert run.stdout.startswith(b"open /dev/iccard error\n")
    assert USAGE.fullmatch(run.stdout[len(b"open /dev/iccard error\n") :] + run.stderr)
    assert calls(run) == ["open /dev/iccard RDWR = ENXIO"]
    assert run.status == 255


# --- autotest: write, read, compare ---------------------------------------------------------------

DATE = "2024-01-05 09:05:03"
EPOCH = int(datetime.datetime(2024, 1, 5, 9, 5, 3, tzinfo=datetime.timezone.utc).timestamp())


def random_block(seed):
    """What the C library's generator gives for a seed, a byte for each number."""
    libc = ctypes.CDLL(None)
    libc.srand(seed)
    return bytes(libc.rand() & 0xFF for _ in range(256))


def passes(count, first=EPOCH):
    lines = []
    for number in range(count):
        block = random_block(first + number)
        lines += [write(block), SLEEP, read(block)]
    return lines


def test_autotest_writes_and_reads_back_ten_random_blocks(board):
    run = board.run("bt1", "iccard", "autotest", date=DATE)
    assert_run(
        run,
        0,
        RW_START
        + (WRITTEN + READ) * 10
        + b"*************read write iccard pass(10)!*************\n",
        [OPEN, *passes(10), CLOSE],
    )
    assert card_file(board).read_bytes() == random_block(EPOCH + 9)


def test_autotest_passes_in_the_same_second_write_the_same_block(board, make_board):
    def blocks(one, date):
        run = one.run("bt1", "iccard", "autotest", date=date)
        return [bytes_of(line, "in") for line in calls(run) if "WRITE" in line]

    first = blocks(board, DATE)
    assert len(set(first)) == 10
    assert blocks(make_board(), DATE) == first
    # Reseeded in every pass: a run that starts a second later begins with the second block.
    assert blocks(make_board(), "2024-01-05 09:05:04")[:9] == first[1:]


def test_autotest_without_a_device_fails(board):
    board.fault("/dev/iccard absent")
    assert_run(
        board.run("bt1", "iccard", "autotest"),
        0,
        RW_START
        + b"open /dev/iccard error\n"
        + b"*************read write iccard fail!*************\n",
        ["open /dev/iccard RDWR = ENOENT"],
    )


@pytest.mark.parametrize("nth", [1, 3, 10])
def test_autotest_ends_at_a_write_that_fails_with_the_passes_done(board, nth):
    board.fault(f"/dev/iccard ioctl:HAL_ICCARD_WRITE errno=EIO nth={nth}")
    assert_run(
        board.run("bt1", "iccard", "autotest", date=DATE),
        0,
        RW_START
        + (WRITTEN + READ) * (nth - 1)
        + b"HAL_ICCARD_WRITE set failure.\n"
        + b"*************read write iccard fail(%d)!*************\n" % (nth - 1),
        [OPEN, *passes(nth - 1), write(random_block(EPOCH + nth - 1), "EIO"), CLOSE],
    )


@pytest.mark.parametrize("nth", [1, 3, 10])
def test_autotest_ends_at_a_read_that_fails_with_the_passes_done(board, nth):
    board.fault(f"/dev/iccard ioctl:HAL_ICCARD_READ errno=EIO nth={nth}")
    assert_run(
        board.run("bt1", "iccard", "autotest", date=DATE),
        0,
        RW_START
        + (WRITTEN + READ) * (nth - 1)
        + WRITTEN
        + b"HAL_ICCARD_READ set failure.\n"
        + b"*************read write iccard fail(%d)!*************\n" % (nth - 1),
        [OPEN, *passes(nth)[:-1], read(b"", "EIO"), CLOSE],
    )


def test_autotest_ends_when_the_card_is_pulled(board):
    # Writes at 0 s, 1 s and 2 s, reads at 1 s, 2 s and 3 s.
    board.fault("/dev/iccard absent time=2.5..")
    assert_run(
        board.run("bt1", "iccard", "autotest", date=DATE),
        0,
        RW_START
        + (WRITTEN + READ) * 2
        + WRITTEN
        + b"HAL_ICCARD_READ set failure.\n"
        + b"*************read write iccard fail(2)!*************\n",
        [OPEN, *passes(3)[:-1], read(b"", "ENODEV"), CLOSE],
    )


def spoiled(block, index, value):
    return block[:index] + bytes([value]) + block[index + 1 :]


@pytest.mark.parametrize("index", [0, 7, 200, 255])
def test_autotest_shows_the_first_byte_that_reads_back_differently(board, index):
    block = random_block(EPOCH)
    wrong = block[index] ^ 0xFF
    board.set("/dev/iccard", "stuck_byte", index)
    board.set("/dev/iccard", "stuck_value", wrong)
    assert_run(
        board.run("bt1", "iccard", "autotest", date=DATE),
        0,
        RW_START
        + WRITTEN
        + READ
        + b"r_buf[%d] = %d w_buf[%d] =%d\n" % (index, wrong, index, block[index])
        + b"*************read write iccard fail(0)!*************\n",
        [OPEN, write(block), SLEEP, read(spoiled(block, index, wrong)), CLOSE],
    )


def test_autotest_shows_only_the_first_of_many_differences(board):
    block = random_block(EPOCH)
    board.set("/dev/iccard", "inverted", 1)
    assert_run(
        board.run("bt1", "iccard", "autotest", date=DATE),
        0,
        RW_START
        + WRITTEN
        + READ
        + b"r_buf[0] = %d w_buf[0] =%d\n" % (block[0] ^ 0xFF, block[0])
        + b"*************read write iccard fail(0)!*************\n",
        [OPEN, write(block), SLEEP, read(bytes(byte ^ 0xFF for byte in block)), CLOSE],
    )


def test_autotest_counts_the_passes_before_a_difference(board):
    # The stuck byte happens to be right in the first pass.
    first, second = random_block(EPOCH), random_block(EPOCH + 1)
    index = next(i for i in range(256) if first[i] != second[i])
    board.set("/dev/iccard", "stuck_byte", index)
    board.set("/dev/iccard", "stuck_value", first[index])
    assert_run(
        board.run("bt1", "iccard", "autotest", date=DATE),
        0,
        RW_START
        + (WRITTEN + READ) * 2
        + b"r_buf[%d] = %d w_buf[%d] =%d\n" % (index, first[index], index, second[index])
        + b"*************read write iccard fail(1)!*************\n",
        [OPEN, *passes(1), write(second), SLEEP, read(spoiled(second, index, first[index])), CLOSE],
    )


def test_autotest_with_a_card_that_refuses_writes(board):
    board.set("/dev/iccard", "protected", 1)
    assert_run(
        board.run("bt1", "iccard", "autotest", date=DATE),
        0,
        RW_START
        + b"HAL_ICCARD_WRITE set failure.\n"
        + b"*************read write iccard fail(0)!*************\n",
        [OPEN, write(random_block(EPOCH), "EROFS"), CLOSE],
    )


# --- -c: the operator pulls the card and puts it back ---------------------------------------------

IN = "access = 0"
OUT = "access = ENOENT"
PASS = b"*********iccard  hotplug test pass(10)\xef\xbc\x81*********\n"


def fail(unplugged, plugged):
    return b"*********iccard  hotplug test fail\xef\xbc\x81unplug(%d) plug(%d) *********\n" % (
        unplugged,
        plugged,
    )


def plug_test(board, absences):
    """Runs the plug test with the card out of its slot from A to B seconds for each (A, B).

    Returns the output and the calls between open and close, each look at the node as its result.
    """
    for start, end in absences:
        board.fault(f"/dev/iccard absent time={start}..{end}")
    run = board.run("bt1", "iccard", "-c")
    assert run.stderr == b""
    assert run.status == 0
    lines = calls(run)
    assert lines[0] == OPEN and lines[-1].startswith("close /dev/iccard ")
    return run.stdout, [
        re.sub(r"^access /dev/iccard\b.* = ", "access = ", line) for line in lines[1:-1]
    ]


def swings(count, start=0):
    """Out for a second, in for a second: the test, which looks once a second, needs 2 s a round."""
    return [(start + 2 * number + 0.5, start + 2 * number + 1.5) for number in range(count)]


# A look that finds the card in, one that finds it out, which also is the first look for its return,
# and one that finds it back.
SWING = [IN, SLEEP, OUT, OUT, SLEEP, IN]


def test_plug_test_passes_after_ten_rounds(board):
    stdout, looks = plug_test(board, swings(10))
    assert stdout == PLUG_START + (UNPLUG + PLUG) * 10 + PASS
    assert looks == SWING * 10


def test_plug_test_with_the_card_left_in_fails_all_ten_rounds(board):
    stdout, looks = plug_test(board, [])
    assert stdout == PLUG_START + (UNPLUG + PLUG) * 10 + fail(0, 0)
    # The first wait times out; the counter stays, so no later round waits.
    assert looks == [IN, SLEEP] * 10


def test_plug_test_with_the_card_never_put_back(board):
    stdout, looks = plug_test(board, [(0.5, "")])
    assert stdout == PLUG_START + (UNPLUG + PLUG) * 10 + fail(1, 0)
    assert looks == [IN, SLEEP, OUT] + [OUT, SLEEP] * 10


def test_plug_test_with_a_removal_that_times_out_after_three_rounds(board):
    stdout, looks = plug_test(board, swings(3))
    assert stdout == PLUG_START + (UNPLUG + PLUG) * 10 + fail(3, 3)
    assert looks == SWING * 3 + [IN, SLEEP] * 10


def test_plug_test_with_an_insertion_that_times_out_after_three_rounds(board):
    stdout, looks = plug_test(board, swings(3) + [(6.5, "")])
    assert stdout == PLUG_START + (UNPLUG + PLUG) * 10 + fail(4, 3)
    assert looks == SWING * 3 + [IN, SLEEP, OUT] + [OUT, SLEEP] * 10


def test_plug_test_does_not_wait_again_after_a_time_out(board):
    # The operator comes back after the first wait has timed out at 10 s: too late, by design.
    stdout, looks = plug_test(board, swings(10, start=10))
    assert stdout == PLUG_START + (UNPLUG + PLUG) * 10 + fail(0, 0)
    assert looks == [IN, SLEEP] * 10


def test_plug_test_counts_a_removal_seen_by_the_tenth_look(board):
    # Looks at 0 to 9 s, then for the return at 9 to 18 s.
    stdout, looks = plug_test(board, [(8.5, 17.5)] + swings(9, start=18))
    assert stdout == PLUG_START + (UNPLUG + PLUG) * 10 + PASS
    assert looks == [IN, SLEEP] * 9 + [OUT] + [OUT, SLEEP] * 9 + [IN] + SWING * 9


def test_plug_test_does_not_count_a_removal_after_the_tenth_look(board):
    stdout, looks = plug_test(board, [(9.5, "")])
    assert stdout == PLUG_START + (UNPLUG + PLUG) * 10 + fail(0, 0)
    assert looks == [IN, SLEEP] * 10


def test_plug_test_does_not_count_a_return_after_the_tenth_look(board):
    # Looks for the return at 1 to 10 s.
    stdout, looks = plug_test(board, [(0.5, 10.5)])
    assert stdout == PLUG_START + (UNPLUG + PLUG) * 10 + fail(1, 0)
    assert looks == [IN, SLEEP, OUT] + [OUT, SLEEP] * 10


def test_plug_test_resets_its_wait_counter_with_each_step(board):
    # Five looks for a removal, five for a return, and so on: more than ten together.
    absences = [(start + 3.5, start + 7.5) for start in range(0, 80, 8)]
    stdout, looks = plug_test(board, absences)
    assert stdout == PLUG_START + (UNPLUG + PLUG) * 10 + PASS
    assert looks == ([IN, SLEEP] * 4 + [OUT] + [OUT, SLEEP] * 4 + [IN]) * 10


def test_plug_test_without_a_card_at_the_start_counts_that_as_pulled(board):
    board.fault("/dev/iccard absent time=..0.5")
    run = board.run("bt1", "iccard", "-c")
    assert run.stdout == b"open /dev/iccard error\n" + PLUG_START + (UNPLUG + PLUG) * 10 + fail(
        1, 1
    )
    lines = calls(run)
    assert lines[0] == "open /dev/iccard RDWR = ENOENT"
    assert [re.sub(r"^access /dev/iccard\b.* = ", "access = ", line) for line in lines[1:]] == (
        [OUT, OUT, SLEEP, IN] + [IN, SLEEP] * 10
    )
    assert run.status == 0


def test_plug_test_does_not_ask_the_card_for_anything(board):
    run = board.run("bt1", "iccard", "-c")
    assert {line.split()[0] for line in run.requests} == {"open", "access", "sleep", "close"}
    assert [line.split(" = ")[0] for line in run.requests if line.startswith("access")] == [
        "access /dev/iccard"
    ] * 10
