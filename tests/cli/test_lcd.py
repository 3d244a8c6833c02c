"""bt1 lcd: the monochrome display's test."""

import re

import pytest

from conftest import assert_story, out
from device_trace import calls

OPEN = "open /dev/lcd RDWR = 3"
CLOSE = "close /dev/lcd = 0"
DATA_0 = "ioctl /dev/lcd LCD_SET_DATA_WRITE in=00 = 0"
SLEEP_3 = "sleep 3.000000"

INIT = bytes.fromhex("E2 AE EE 40 A2 A0 C8 A6 24 81 3F 2F F8 01 FF 72 FE D4 90 9E A4 AF")

CMD_ERR = out("[vrq]lcd_write_cmd:122 LCD_SET_CMD_WRITE err, ret=-1\n")
DATA_ERR = out("[vrq]lcd_write_data:138 LCD_SET_DATA_WRITE err, ret=-1\n")
DATA_FAILED = out("ioctl set data write fail! \n")
WHITE_FAILED = out("write white screen buf fail! \n")
BLACK_FAILED = out("write black screen buf fail! \n")
HALF_FAILED = out("write white-black screen buf fail! \n")
BACKLIGHT_FAILED = out("can't set device background light\n")


def last_result(result):
    """What -y and an unknown option print."""
    return out(f"[vrq]lcd_main:451 lcd_write_cmd err, ret={result}\n")


USAGE = re.compile(
    rb"\n"
    rb"------KORVEXIUM TEST DEMO --LCD : ------\n"
    rb"------BUILD: (?:Jan|Feb|Mar|Apr|May|Jun|Jul|Aug|Sep|Oct|Nov|Dec) [ 1-3]\d \d{4}-\d\d:\d\d:\d\d  ------\n"
    rb"\n"
    rb"1\. lcd -h                   : print this info\.\n"
    rb"2\. lcd -i                   : \xe5\x88\x9d\xe5\xa7\x8b\xe5\x8c\x96\n"
    rb"6\. lcd -p                   : \xe7\x99\xbd\xe5\xb1\x8f\n"
    rb"7\. lcd -q                   : \xe9\xbb\x91\xe5\xb1\x8f\n"
    rb"8\. lcd -r                   : \xe8\x87\xaa\xe5\x8a\xa8\xe5\x88\x87\xe6\x8d\xa2\xe9\xbb\x91\xe7\x99\xbd\xe5\xb1\x8f\n"
    rb"9\. lcd -u                   : ioctl\xe9\xbb\x91\xe5\xb1\x8f\n"
    rb"10\. lcd -v                  : ioctl\xe7\x99\xbd\xe5\xb1\x8f\n"
    rb"11\. lcd -w                  : ioctl\xe9\xbb\x91\xe7\x99\xbd\xe5\xb1\x8f\xe5\x88\x87\xe6\x8d\xa2\n"
    rb"12\. lcd -s 0:1        \t   : \xe8\x83\x8c\xe5\x85\x89 0=ON 1=OFF\n"
)


def cmd(byte, result="0"):
    return f"ioctl /dev/lcd LCD_SET_CMD_WRITE in={byte:02x} = {result}"


def data(byte, result="0"):
    return f"ioctl /dev/lcd LCD_SET_DATA_WRITE in={byte:02x} = {result}"


def backlight(byte, result="0"):
    return f"ioctl /dev/lcd LCD_SET_BACKLIGHT in={byte:02x} = {result}"


def write(byte, size=1024, result="0"):
    return f"write /dev/lcd in={byte:02x}*{size} = {result}"


def set_byte(page, column, value):
    """The four requests that put one byte on the display: column low, column high, page, data."""
    return [cmd(column & 0x0F), cmd(0x10 | column >> 4), cmd(0xB0 | page), data(value)]


def frame(board):
    return board.path("media/lcd.frame").read_bytes()


def recorded(board, *words):
    """Runs the applet and records its story."""
    return board.run("bt1", "lcd", *words, story=True)


def assert_run(run, status, *steps):
    """The status and the whole story."""
    assert run.status == status
    assert_story(run, *steps)


def assert_usage(run, before=b""):
    """The usage text alone, on whichever stream."""
    shown = run.stdout + run.stderr
    assert shown.startswith(before)
    assert USAGE.fullmatch(shown[len(before) :]), shown


# --- arguments ----------------------------------------------------------------------------------


def test_without_argument_opens_closes_and_returns_minus_one(board):
    assert_run(recorded(board), 255, OPEN, CLOSE)


def test_a_word_that_is_no_option_is_passed_over(board):
    assert_run(recorded(board, "black"), 255, OPEN, CLOSE)


def test_autotest_with_a_second_word_is_not_the_autotest(board):
    assert_run(recorded(board, "autotest", "autotest"), 255, OPEN, CLOSE)


def test_a_word_before_an_option_does_not_hide_it(board):
    assert_run(recorded(board, "autotest", "-q"), 0, OPEN, DATA_0, write(0xFF), CLOSE)


@pytest.mark.parametrize("option", ["-h", "-H"])
def test_help_prints_the_usage_and_returns_minus_one(board, option):
    run = recorded(board, option)
    assert_usage(run)
    assert calls(run) == [OPEN, CLOSE]
    assert (run.story[0], run.story[-1]) == (OPEN, CLOSE)
    assert run.status == 255


def test_help_ends_the_option_walk(board):
    run = board.run("bt1", "lcd", "-q", "-h", "-p")
    assert_usage(run)
    assert calls(run) == [OPEN, DATA_0, write(0xFF), CLOSE]
    assert run.status == 255


def test_dash_y_prints_the_lcd_main_line_with_451_and_minus_one(board):
    assert_run(recorded(board, "-y"), 255, OPEN, last_result(-1), CLOSE)


@pytest.mark.parametrize("option", ["-Y", "-z", "-1", "-s"])
def test_an_option_outside_the_option_string_prints_the_lcd_main_line(board, option):
    # "-Y" has no upper-case twin in the option string; "-s" alone lacks its argument.
    run = board.run("bt1", "lcd", option)
    assert run.stdout == b"[vrq]lcd_main:451 lcd_write_cmd err, ret=-1\n"
    # getopt's own complaint, in whichever words.
    assert run.stderr.startswith(b"lcd: ") and run.stderr.count(b"\n") == 1
    assert calls(run) == [OPEN, CLOSE]
    assert run.status == 255


def test_dash_y_shows_the_last_result(board):
    assert_run(recorded(board, "-p", "-y"), 0, OPEN, DATA_0, write(0x00), last_result(0), CLOSE)


# --- the device ---------------------------------------------------------------------------------


@pytest.mark.parametrize("arguments", [[], ["autotest"], ["-h"], ["-q"], ["-s", "2"], ["-y"]])
def test_a_missing_device_is_reported_before_anything_else(board, arguments):
    board.fault("/dev/lcd absent")
    assert_run(
        recorded(board, *arguments),
        255,
        "open /dev/lcd RDWR = ENOENT",
        out("can't open device /dev/lcd\n"),
    )


def test_a_device_that_does_not_open_is_reported(board):
    board.fault("/dev/lcd open errno=EBUSY")
    assert_run(
        recorded(board, "-q"),
        255,
        "open /dev/lcd RDWR = EBUSY",
        out("can't open device /dev/lcd\n"),
    )


# --- -i -----------------------------------------------------------------------------------------


@pytest.mark.parametrize("option", ["-i", "-I"])
def test_init_sends_the_22_command_bytes_in_order(board, option):
    assert len(INIT) == 22
    assert_run(recorded(board, option), 0, OPEN, *map(cmd, INIT), CLOSE)


def test_init_returns_the_last_request_s_result(board):
    board.fault("/dev/lcd ioctl:LCD_SET_CMD_WRITE result=9 nth=22")
    assert_run(
        recorded(board, "-i", "-y"),
        9,
        OPEN,
        *map(cmd, INIT[:21]),
        cmd(INIT[21], "9"),
        last_result(9),
        CLOSE,
    )


def test_init_goes_on_with_positive_results(board):
    board.fault("/dev/lcd ioctl:LCD_SET_CMD_WRITE result=1")
    assert_run(recorded(board, "-i"), 1, OPEN, *(cmd(byte, "1") for byte in INIT), CLOSE)


@pytest.mark.parametrize("nth", [1, 5, 22])
def test_init_stops_at_the_first_byte_that_fails(board, nth):
    board.fault(f"/dev/lcd ioctl:LCD_SET_CMD_WRITE errno=EIO nth={nth}")
    assert_run(
        recorded(board, "-i"),
        255,
        OPEN,
        *map(cmd, INIT[: nth - 1]),
        cmd(INIT[nth - 1], "EIO"),
        CMD_ERR,
        out("[vrq]lcd_init:254 lcd_write_cmd err, ret=-1\n"),
        out("can't init device\n"),
        CLOSE,
    )


def test_init_leaves_the_picture(board):
    before = bytes(range(256)) * 4
    board.path("media/lcd.frame").write_bytes(before)
    board.run("bt1", "lcd", "-i")
    assert frame(board) == before


# --- -p, -q, -r ---------------------------------------------------------------------------------

# option, the byte written, how many of them, the message when the write fails
SCREENS = [
    ("-p", 0x00, 1024, WHITE_FAILED),
    ("-P", 0x00, 1024, WHITE_FAILED),
    ("-q", 0xFF, 1024, BLACK_FAILED),
    ("-Q", 0xFF, 1024, BLACK_FAILED),
    ("-r", 0xFF, 512, HALF_FAILED),
    ("-R", 0xFF, 512, HALF_FAILED),
]


@pytest.mark.parametrize("option, byte, size, message", SCREENS)
def test_screen_is_one_data_byte_and_one_write(board, option, byte, size, message):
    before = b"\x3c" * 1024
    board.path("media/lcd.frame").write_bytes(before)
    assert_run(recorded(board, option), 0, OPEN, DATA_0, write(byte, size), CLOSE)
    # -r is the upper half: pages 0 to 3, the first 512 bytes.
    assert frame(board)[:size] == bytes([byte]) * size
    if option in ("-r", "-R"):
        assert frame(board)[size:] == before[size:]


@pytest.mark.parametrize(
    "option, byte, size", [("-p", 0x00, 1024), ("-q", 0xFF, 1024), ("-r", 0xFF, 512)]
)
def test_screen_returns_the_byte_count_of_a_driver_that_counts(board, option, byte, size):
    # The count does not survive in an exit status of eight bits; -y shows it.
    board.set("/dev/lcd", "returns", "count")
    assert_run(
        recorded(board, option, "-y"),
        0,
        OPEN,
        DATA_0,
        write(byte, size, str(size)),
        last_result(size),
        CLOSE,
    )


@pytest.mark.parametrize("option, byte, size, message", SCREENS)
def test_screen_write_that_fails_is_reported(board, option, byte, size, message):
    board.fault("/dev/lcd write errno=EIO")
    assert_run(recorded(board, option), 255, OPEN, DATA_0, write(byte, size, "EIO"), message, CLOSE)


@pytest.mark.parametrize("option, byte, size, message", SCREENS)
def test_screen_is_written_even_when_the_data_byte_fails(board, option, byte, size, message):
    board.fault("/dev/lcd ioctl:LCD_SET_DATA_WRITE errno=EIO")
    assert_run(
        recorded(board, option),
        0,
        OPEN,
        data(0, "EIO"),
        DATA_ERR,
        DATA_FAILED,
        write(byte, size),
        CLOSE,
    )


@pytest.mark.parametrize("option, byte, size, message", SCREENS)
def test_screen_reports_both_failures_in_their_order(board, option, byte, size, message):
    board.fault("/dev/lcd ioctl:LCD_SET_DATA_WRITE errno=EIO")
    board.fault("/dev/lcd write errno=EIO")
    assert_run(
        recorded(board, option),
        255,
        OPEN,
        data(0, "EIO"),
        DATA_ERR,
        DATA_FAILED,
        write(byte, size, "EIO"),
        message,
        CLOSE,
    )


@pytest.mark.parametrize("option, byte, size, message", SCREENS)
def test_screen_takes_a_positive_result_of_the_data_byte_for_success(
    board, option, byte, size, message
):
    board.fault("/dev/lcd ioctl:LCD_SET_DATA_WRITE result=1")
    assert_run(recorded(board, option), 0, OPEN, data(0, "1"), write(byte, size), CLOSE)


def test_short_write_is_no_failure_and_is_returned(board):
    board.set("/dev/lcd", "returns", "count")
    board.fault("/dev/lcd write short=100")
    assert_run(recorded(board, "-q"), 100, OPEN, DATA_0, write(0xFF, 100, "100"), CLOSE)
    assert frame(board)[:101] == b"\xff" * 100 + b"\0"


def test_options_run_in_their_order_and_the_last_result_is_returned(board):
    board.fault("/dev/lcd write result=7 nth=1")
    board.fault("/dev/lcd write result=9 nth=2")
    black, half = [DATA_0, write(0xFF, 1024, "7")], [DATA_0, write(0xFF, 512, "9")]
    assert_run(recorded(board, "-qr", "-p"), 0, OPEN, *black, *half, DATA_0, write(0x00), CLOSE)
    assert frame(board) == bytes(1024)
    assert_run(recorded(board, "-q", "-r"), 9, OPEN, *black, *half, CLOSE)


def test_a_failure_does_not_end_the_option_walk(board):
    board.fault("/dev/lcd write errno=ENOSPC nth=1")
    assert_run(
        recorded(board, "-q", "-p"),
        0,
        OPEN,
        DATA_0,
        write(0xFF, 1024, "ENOSPC"),
        BLACK_FAILED,
        DATA_0,
        write(0x00),
        CLOSE,
    )


def test_the_closing_s_failure_changes_nothing(board):
    board.fault("/dev/lcd close errno=EIO")
    run = board.run("bt1", "lcd", "-q")
    assert (run.status, run.stdout, run.stderr) == (0, b"", b"")


# --- -s -----------------------------------------------------------------------------------------


@pytest.mark.parametrize("option", ["-s", "-S"])
@pytest.mark.parametrize(
    "word, byte",
    [
        ("0", 0),
        ("1", 1),
        ("256", 0),  # only the low byte counts
        ("257", 1),
        ("-256", 0),
        ("on", 0),  # no number reads as 0
        ("0x1", 0),  # decimal: reads as 0
        ("1.9", 1),
    ],
)
def test_backlight_takes_the_low_byte(board, option, word, byte):
    assert_run(recorded(board, option, word), 0, OPEN, backlight(byte), CLOSE)


@pytest.mark.parametrize("word", ["2", "3", "255", "258", "300", "-1"])
def test_backlight_above_one_prints_the_usage_and_returns_minus_one(board, word):
    run = recorded(board, "-s", word, "-q")
    assert_usage(run)
    assert calls(run) == [OPEN, CLOSE]
    assert (run.story[0], run.story[-1]) == (OPEN, CLOSE)
    assert run.status == 255


def test_backlight_usage_does_not_undo_the_options_before(board):
    run = board.run("bt1", "lcd", "-q", "-s2")
    assert_usage(run)
    assert calls(run) == [OPEN, DATA_0, write(0xFF), CLOSE]
    assert run.status == 255


def test_backlight_failure_is_reported(board):
    board.fault("/dev/lcd ioctl:LCD_SET_BACKLIGHT errno=EIO")
    assert_run(recorded(board, "-s", "1"), 255, OPEN, backlight(1, "EIO"), BACKLIGHT_FAILED, CLOSE)


def test_backlight_result_above_zero_is_a_failure_too(board):
    board.fault("/dev/lcd ioctl:LCD_SET_BACKLIGHT result=3")
    assert_run(recorded(board, "-s", "0"), 3, OPEN, backlight(0, "3"), BACKLIGHT_FAILED, CLOSE)


# --- -u, -v, -w ---------------------------------------------------------------------------------


def painted(requests):
    """{(page, column): value} of a list of set_byte() requests, each place written once."""
    assert len(requests) % 4 == 0
    places = {}
    for start in range(0, len(requests), 4):
        four = requests[start : start + 4]
        found = re.findall(r" in=([0-9a-f]{2}) = 0$", "\n".join(four), re.MULTILINE)
        assert len(found) == 4, four
        low, high, page, value = (int(text, 16) for text in found)
        place = (page & 0x0F, (high & 0x0F) << 4 | low)
        assert four == set_byte(*place, value)
        assert place not in places, f"{place} is set twice"
        places[place] = value
    return places


EVERY_PLACE = [(page, column) for page in range(8) for column in range(128)]


@pytest.mark.parametrize("option, value", [("-u", 0xFF), ("-U", 0xFF), ("-v", 0x00), ("-V", 0x00)])
def test_screen_by_requests_sets_every_column_of_every_page(board, option, value):
    board.path("media/lcd.frame").write_bytes(b"\x5a" * 1024)
    run = board.run("bt1", "lcd", option)
    assert run.stdout == b"" and run.stderr == b""
    requests = calls(run)
    assert requests[0] == OPEN and requests[-1] == CLOSE
    assert painted(requests[1:-1]) == dict.fromkeys(EVERY_PLACE, value)
    assert frame(board) == bytes([value]) * 1024
    # These options produce no result of their own: it stays -1.
    assert run.status == 255


def test_screen_by_requests_keeps_the_result_before_it(board):
    board.fault("/dev/lcd write result=5")
    run = board.run("bt1", "lcd", "-p", "-u")
    assert run.status == 5
    assert len(run.requests) == 2 + 2 + 4096
    assert frame(board) == b"\xff" * 1024


def test_screen_by_requests_reports_each_failure_and_goes_on(board):
    board.fault("/dev/lcd ioctl:LCD_SET_CMD_WRITE errno=EIO nth=3")
    board.fault("/dev/lcd ioctl:LCD_SET_DATA_WRITE errno=EIO nth=2")
    run = recorded(board, "-v")
    first, second = set_byte(0, 0, 0x00), set_byte(0, 1, 0x00)
    start = [
        *(OPEN, first[0], first[1], cmd(0xB0, "EIO"), *CMD_ERR, first[3]),
        *(*second[:3], data(0, "EIO"), *DATA_ERR),
    ]
    assert run.story[: len(start)] == start
    assert len([line for line in run.story if line.startswith("out ")]) == 2
    assert run.stderr == b""
    assert len(run.requests) == 2 + 4096
    assert run.status == 255


def test_screen_by_requests_takes_positive_results_for_success(board):
    board.fault("/dev/lcd ioctl:LCD_SET_CMD_WRITE result=1")
    board.fault("/dev/lcd ioctl:LCD_SET_DATA_WRITE result=1")
    run = board.run("bt1", "lcd", "-u")
    assert (run.status, run.stdout, run.stderr) == (255, b"", b"")
    assert frame(board) == b"\xff" * 1024


def test_toggle_paints_half_a_screen_128_times_with_300_ms_between(board):
    run = board.run("bt1", "lcd", "-w")
    assert run.stdout == b"" and run.stderr == b""
    assert run.status == 255
    assert frame(board) == b"\xff" * 512 + bytes(512)
    requests = run.requests
    assert requests[0] == OPEN and requests[-1] == CLOSE
    rounds = requests[1:-1]
    assert len(rounds) == 128 * 4097
    assert rounds[4096::4097] == ["sleep 0.300000"] * 128
    first = rounds[:4096]
    assert painted(first) == {place: 0xFF if place[0] < 4 else 0x00 for place in EVERY_PLACE}
    for start in range(0, len(rounds), 4097):
        assert rounds[start : start + 4096] == first, f"round {start // 4097}"


def test_toggle_takes_either_case(board):
    run = board.run("bt1", "lcd", "-W", seconds=1)
    assert run.status == 128 + 15
    assert run.requests[1:5] == set_byte(0, 0, 0xFF)
    # Rounds at 0, 0.3, 0.6 and 0.9 s, the last one's sleep cut short.
    assert run.sleeps == [0.3] * 4


# --- autotest -----------------------------------------------------------------------------------


def screen(byte, colour, result, message):
    steps = [data(0, byte), write(colour, 1024, result)]
    if byte == "EIO":
        steps[1:1] = [DATA_ERR, DATA_FAILED]
    if result == "EIO":
        steps.append(message)
    return [*steps, SLEEP_3]


def cycle(black="0", white="0", byte="0"):
    """A cycle of the test; black and white are the writes' results, byte that of the data byte."""
    return [
        *screen(byte, 0xFF, black, BLACK_FAILED),
        *screen(byte, 0x00, white, WHITE_FAILED),
    ]


def failed(result):
    return out(f"[lcd_main:320]WARN:lcd_auto fail[{result}]\n")


def test_autotest_passes_with_a_driver_whose_write_returns_zero(board):
    run = recorded(board, "autotest")
    assert_run(run, 0, OPEN, *cycle() * 3, CLOSE)
    assert 18 <= run.trace[-1][0] < 18.1
    assert frame(board) == bytes(1024)


def test_autotest_fails_after_18_s_with_a_driver_that_counts(board):
    board.set("/dev/lcd", "returns", "count")
    run = recorded(board, "autotest")
    assert_run(run, 0, OPEN, *cycle("1024", "1024") * 3, failed(1024), CLOSE)
    assert 18 <= run.trace[-1][0] < 18.1


def test_autotest_returns_the_last_write_s_result(board):
    board.fault("/dev/lcd write result=3 nth=6")
    assert_run(
        recorded(board, "autotest"), 3, OPEN, *cycle() * 2, *cycle("0", "3"), failed(3), CLOSE
    )


def test_autotest_judges_by_the_last_write_alone(board):
    board.fault("/dev/lcd write errno=EIO nth=1")
    board.fault("/dev/lcd write errno=EIO nth=4")
    assert_run(
        recorded(board, "autotest"), 0, OPEN, *cycle("EIO"), *cycle("0", "EIO"), *cycle(), CLOSE
    )


def test_autotest_fails_when_the_last_write_fails(board):
    board.fault("/dev/lcd write errno=EIO nth=6")
    assert_run(
        recorded(board, "autotest"),
        255,
        OPEN,
        *cycle() * 2,
        *cycle("0", "EIO"),
        failed(-1),
        CLOSE,
    )


def test_autotest_goes_on_through_failures_of_every_write(board):
    board.fault("/dev/lcd write errno=EIO")
    assert_run(recorded(board, "autotest"), 255, OPEN, *cycle("EIO", "EIO") * 3, failed(-1), CLOSE)


def test_autotest_reports_a_data_byte_that_fails_and_goes_on(board):
    board.fault("/dev/lcd ioctl:LCD_SET_DATA_WRITE errno=EIO nth=3")
    bad = [*screen("EIO", 0xFF, "0", BLACK_FAILED), *screen("0", 0x00, "0", WHITE_FAILED)]
    assert_run(recorded(board, "autotest"), 0, OPEN, *cycle(), *bad, *cycle(), CLOSE)


@pytest.mark.parametrize("fault, result", [("errno=EIO", "EIO"), ("result=1", "1")])
def test_autotest_goes_on_whatever_every_data_byte_gives(board, fault, result):
    board.fault(f"/dev/lcd ioctl:LCD_SET_DATA_WRITE {fault}")
    assert_run(recorded(board, "autotest"), 0, OPEN, *cycle(byte=result) * 3, CLOSE)
