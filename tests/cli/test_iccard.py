"""bt1 iccard: the IC card's test."""

import ctypes
import dataclasses
import datetime
import re

import pytest

from conftest import assert_story, out
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

READ_FAILED = b"HAL_ICCARD_READ set failure.\n"
WRITE_FAILED = b"HAL_ICCARD_WRITE set failure.\n"
WRITE_DONE = b"HAL_ICCARD_WRITE sucess\n"  # without the autotest's blank

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


def recorded(board, *words, **options):
    """Runs the applet and records its story."""
    return board.run("bt1", "iccard", *words, story=True, **options)


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
    run = recorded(board, *words)
    assert USAGE.fullmatch(run.stdout + run.stderr)
    assert calls(run) == [OPEN, CLOSE]
    assert (run.story[0], run.story[-1]) == (OPEN, CLOSE)
    assert run.status == 255


def test_help_comes_after_the_options_before_it(board):
    run = recorded(board, "-w", "-h")
    assert USAGE.fullmatch((run.stdout + run.stderr)[len(WRITE_DONE) :])
    assert run.story[:3] == [OPEN, write(b"\5" * 256), *out(WRITE_DONE)]
    assert calls(run) == [OPEN, write(b"\5" * 256), CLOSE]
    assert run.status == 255


@pytest.mark.parametrize("words", [["card"], ["autotest", "autotest"], ["1", "2", "3"]])
def test_words_that_are_no_options_do_nothing(board, words):
    run = recorded(board, *words)
    assert run.status == 0
    assert_story(run, OPEN, CLOSE)


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
    run = recorded(board, "-r")
    assert run.status == 0
    assert_story(run, OPEN, read(b"", "EIO"), out(READ_FAILED), CLOSE)


def test_write_fills_the_card_with_fives(board):
    run = recorded(board, "-w")
    assert run.status == 0
    assert_story(run, OPEN, write(b"\5" * 256), out(WRITE_DONE), CLOSE)
    assert card_file(board).read_bytes() == b"\5" * 256


def test_write_that_fails_is_reported_and_is_no_failure_of_the_tool(board):
    card = bytes(range(256))
    insert_card(board, card)
    board.fault("/dev/iccard ioctl:HAL_ICCARD_WRITE errno=EIO")
    run = recorded(board, "-w")
    assert run.status == 0
    assert_story(run, OPEN, write(b"\5" * 256, "EIO"), out(WRITE_FAILED), CLOSE)
    assert card_file(board).read_bytes() == card


@pytest.mark.parametrize("words", [["-r", "-w"], ["-rw"]])
def test_read_then_write_use_one_descriptor(board, words):
    card = b"benchrig" * 32
    insert_card(board, card)
    run = board.run("bt1", "iccard", *words)
    assert run.stdout.endswith(WRITE_DONE)
    assert_values(run.stdout[: -len(WRITE_DONE)], card)
    assert calls(run) == [OPEN, read(card), write(b"\5" * 256), CLOSE]
    assert run.status == 0


def test_write_then_read_reads_what_was_written(board):
    run = recorded(board, "-w", "-r")
    assert run.stdout.startswith(WRITE_DONE)
    assert_values(run.stdout[len(WRITE_DONE) :], b"\5" * 256)
    assert calls(run) == [OPEN, write(b"\5" * 256), read(b"\5" * 256), CLOSE]
    assert run.story[:4] == [OPEN, write(b"\5" * 256), *out(WRITE_DONE), calls(run)[2]]
    assert run.status == 0


def test_a_positive_result_of_a_request_is_a_success(board):
    board.fault("/dev/iccard ioctl:HAL_ICCARD_READ result=1")
    board.fault("/dev/iccard ioctl:HAL_ICCARD_WRITE result=1")
    run = recorded(board, "-w", "-r")
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout.startswith(WRITE_DONE)
    assert_values(run.stdout[len(WRITE_DONE) :], b"\5" * 256)


@pytest.mark.parametrize(
    "words, said",
    [
        (["-r"], READ_FAILED),
        (["-w"], WRITE_FAILED),
        (["-r", "-w"], READ_FAILED + WRITE_FAILED),
        (["card"], b""),
    ],
)
def test_options_still_run_when_the_device_does_not_open(board, words, said):
    board.fault("/dev/iccard absent")
    run = board.run("bt1", "iccard", *words)
    assert run.stdout == b"open /dev/iccard error\n" + said
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
        lines += [write(block), out(WRITTEN), SLEEP, read(block), out(READ)]
    return lines


def verdict(text):
    return out(b"*************read write iccard %s!*************\n" % text)


def test_autotest_writes_and_reads_back_ten_random_blocks(board):
    run = recorded(board, "autotest", date=DATE)
    assert run.status == 0
    assert_story(run, out(RW_START), OPEN, *passes(10), CLOSE, verdict(b"pass(10)"))
    assert card_file(board).read_bytes() == random_block(EPOCH + 9)


def test_autotest_goes_on_with_positive_results(board):
    board.fault("/dev/iccard ioctl:HAL_ICCARD_READ result=1")
    board.fault("/dev/iccard ioctl:HAL_ICCARD_WRITE result=1")
    run = recorded(board, "autotest", date=DATE)
    assert run.status == 0
    assert [line for line in run.story if line.startswith("out ")] == [
        *out(RW_START),
        *out(WRITTEN + READ) * 10,
        *verdict(b"pass(10)"),
    ]


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
    run = recorded(board, "autotest")
    assert run.status == 0
    assert_story(
        run,
        out(RW_START),
        "open /dev/iccard RDWR = ENOENT",
        out("open /dev/iccard error\n"),
        verdict(b"fail"),
    )


def assert_failure(run, done, *steps):
    """A failed autotest's story: the passes done, then `steps`, the end and the verdict."""
    assert run.status == 0
    assert_story(
        run, out(RW_START), OPEN, *passes(done), *steps, CLOSE, verdict(b"fail(%d)" % done)
    )


@pytest.mark.parametrize("nth", [1, 3, 10])
def test_autotest_ends_at_a_write_that_fails_with_the_passes_done(board, nth):
    board.fault(f"/dev/iccard ioctl:HAL_ICCARD_WRITE errno=EIO nth={nth}")
    assert_failure(
        recorded(board, "autotest", date=DATE),
        nth - 1,
        write(random_block(EPOCH + nth - 1), "EIO"),
        out(WRITE_FAILED),
    )


@pytest.mark.parametrize("nth", [1, 3, 10])
def test_autotest_ends_at_a_read_that_fails_with_the_passes_done(board, nth):
    board.fault(f"/dev/iccard ioctl:HAL_ICCARD_READ errno=EIO nth={nth}")
    assert_failure(
        recorded(board, "autotest", date=DATE),
        nth - 1,
        *passes(1, EPOCH + nth - 1)[:-2],
        read(b"", "EIO"),
        out(READ_FAILED),
    )


def test_autotest_ends_when_the_card_is_pulled(board):
    # Writes at 0 s, 1 s and 2 s, reads at 1 s, 2 s and 3 s.
    board.fault("/dev/iccard absent time=2.5..")
    assert_failure(
        recorded(board, "autotest", date=DATE),
        2,
        *passes(1, EPOCH + 2)[:-2],
        read(b"", "ENODEV"),
        out(READ_FAILED),
    )


def spoiled(block, index, value):
    return block[:index] + bytes([value]) + block[index + 1 :]


def differing(written, read_back, index):
    """A pass whose block comes back different from the byte `index` on."""
    return [
        write(written),
        out(WRITTEN),
        SLEEP,
        read(read_back),
        out(READ),
        out(b"r_buf[%d] = %d w_buf[%d] =%d\n" % (index, read_back[index], index, written[index])),
    ]


@pytest.mark.parametrize("index", [0, 7, 200, 255])
def test_autotest_shows_the_first_byte_that_reads_back_differently(board, index):
    block = random_block(EPOCH)
    wrong = block[index] ^ 0xFF
    board.set("/dev/iccard", "stuck_byte", index)
    board.set("/dev/iccard", "stuck_value", wrong)
    assert_failure(
        recorded(board, "autotest", date=DATE),
        0,
        *differing(block, spoiled(block, index, wrong), index),
    )


def test_autotest_shows_only_the_first_of_many_differences(board):
    block = random_block(EPOCH)
    board.set("/dev/iccard", "inverted", 1)
    assert_failure(
        recorded(board, "autotest", date=DATE),
        0,
        *differing(block, bytes(byte ^ 0xFF for byte in block), 0),
    )


def test_autotest_counts_the_passes_before_a_difference(board):
    # The stuck byte happens to be right in the first pass.
    first, second = random_block(EPOCH), random_block(EPOCH + 1)
    index = next(i for i in range(256) if first[i] != second[i])
    board.set("/dev/iccard", "stuck_byte", index)
    board.set("/dev/iccard", "stuck_value", first[index])
    assert_failure(
        recorded(board, "autotest", date=DATE),
        1,
        *differing(second, spoiled(second, index, first[index]), index),
    )


def test_autotest_with_a_card_that_refuses_writes(board):
    board.set("/dev/iccard", "protected", 1)
    assert_failure(
        recorded(board, "autotest", date=DATE),
        0,
        write(random_block(EPOCH), "EROFS"),
        out(WRITE_FAILED),
    )


# --- -c: the operator pulls the card and puts it back ---------------------------------------------

IN = "access /dev/iccard = 0"
OUT = "access /dev/iccard = ENOENT"
PASS = out(b"*********iccard  hotplug test pass(10)\xef\xbc\x81*********\n")


def fail(unplugged, plugged):
    return out(
        b"*********iccard  hotplug test fail\xef\xbc\x81unplug(%d) plug(%d) *********\n"
        % (unplugged, plugged)
    )


def assert_plug_test(board, absences, *expected):
    """Runs the plug test with the card out of its slot from A to B seconds for each (A, B).

    `expected` are the story's lines between the open and the close.
    """
    for start, end in absences:
        board.fault(f"/dev/iccard absent time={start}..{end}")
    run = recorded(board, "-c")
    assert run.status == 0
    # A card that is out cannot fail the close, but may change its result.
    story = [re.sub(r"^(access /dev/iccard)\b.* = ", r"\1 = ", line) for line in run.story]
    assert story.pop().startswith("close /dev/iccard ")
    assert_story(dataclasses.replace(run, story=story), OPEN, out(PLUG_START), *expected)


def swings(count, start=0):
    """Out for a second, in for a second: the test, which looks once a second, needs 2 s a round."""
    return [(start + 2 * number + 0.5, start + 2 * number + 1.5) for number in range(count)]


def unplug(looks_in):
    """The first prompt, the looks that find the card in, and the one that finds it out."""
    return [out(UNPLUG), *[IN, SLEEP] * looks_in, OUT]


def plug(looks_out):
    return [out(PLUG), *[OUT, SLEEP] * looks_out, IN]


# The first look for its return is the one that follows at once.
SWING = [*unplug(1), *plug(1)]
# A wait that times out; the counter stays, so no later round waits.
UNPLUG_TIMES_OUT = [out(UNPLUG), *[IN, SLEEP] * 10, out(PLUG)]
PLUG_TIMES_OUT = [*unplug(1), out(PLUG), *[OUT, SLEEP] * 10]
NO_WAITS = [out(UNPLUG), out(PLUG)]


def test_plug_test_passes_after_ten_rounds(board):
    assert_plug_test(board, swings(10), *SWING * 10, PASS)


def test_plug_test_with_the_card_left_in_fails_all_ten_rounds(board):
    assert_plug_test(board, [], *UNPLUG_TIMES_OUT, *NO_WAITS * 9, fail(0, 0))


def test_plug_test_with_the_card_never_put_back(board):
    assert_plug_test(board, [(0.5, "")], *PLUG_TIMES_OUT, *NO_WAITS * 9, fail(1, 0))


def test_plug_test_with_a_removal_that_times_out_after_three_rounds(board):
    assert_plug_test(board, swings(3), *SWING * 3, *UNPLUG_TIMES_OUT, *NO_WAITS * 6, fail(3, 3))


def test_plug_test_with_an_insertion_that_times_out_after_three_rounds(board):
    assert_plug_test(
        board,
        swings(3) + [(6.5, "")],
        *SWING * 3,
        *PLUG_TIMES_OUT,
        *NO_WAITS * 6,
        fail(4, 3),
    )


def test_plug_test_fails_when_only_the_last_return_is_missing(board):
    assert_plug_test(board, swings(9) + [(18.5, "")], *SWING * 9, *PLUG_TIMES_OUT, fail(10, 9))


def test_plug_test_does_not_wait_again_after_a_time_out(board):
    # The operator comes back after the first wait has timed out at 10 s: too late, by design.
    assert_plug_test(board, swings(10, start=10), *UNPLUG_TIMES_OUT, *NO_WAITS * 9, fail(0, 0))


def test_plug_test_counts_a_removal_seen_by_the_tenth_look(board):
    # Looks at 0 to 9 s, then for the return at 9 to 18 s.
    assert_plug_test(
        board, [(8.5, 17.5)] + swings(9, start=18), *unplug(9), *plug(9), *SWING * 9, PASS
    )


def test_plug_test_does_not_count_a_removal_after_the_tenth_look(board):
    assert_plug_test(board, [(9.5, "")], *UNPLUG_TIMES_OUT, *NO_WAITS * 9, fail(0, 0))


def test_plug_test_does_not_count_a_return_after_the_tenth_look(board):
    # Looks for the return at 1 to 10 s.
    assert_plug_test(board, [(0.5, 10.5)], *PLUG_TIMES_OUT, *NO_WAITS * 9, fail(1, 0))


def test_plug_test_resets_its_wait_counter_with_each_step(board):
    # Five looks for a removal, five for a return, and so on: more than ten together.
    absences = [(start + 3.5, start + 7.5) for start in range(0, 80, 8)]
    assert_plug_test(board, absences, *[*unplug(4), *plug(4)] * 10, PASS)


def test_plug_test_without_a_card_at_the_start_counts_that_as_pulled(board):
    board.fault("/dev/iccard absent time=..0.5")
    run = recorded(board, "-c")
    assert run.status == 0
    story = [re.sub(r"^(access /dev/iccard)\b.* = ", r"\1 = ", line) for line in run.story]
    assert_story(
        dataclasses.replace(run, story=story),
        "open /dev/iccard RDWR = ENOENT",
        out("open /dev/iccard error\n"),
        out(PLUG_START),
        *unplug(0),
        *plug(1),
        *UNPLUG_TIMES_OUT,
        *NO_WAITS * 8,
        fail(1, 1),
    )
