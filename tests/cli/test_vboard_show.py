"""vboard show: the board in the terminal, the display as a picture."""

import struct
import subprocess
import zlib

import pytest

from conftest import HANGS_AFTER_SECONDS, environment, word_size


def show(build, *words):
    done = subprocess.run(
        [build / "bin/vboard", "show", *map(str, words)],
        capture_output=True,
        timeout=HANGS_AFTER_SECONDS,
        check=False,
        env=environment(),
    )
    return done.returncode, done.stdout, done.stderr


def picture():
    """A frame without any symmetry: a border on two sides, a diagonal, a block."""
    dark = {(row, 0) for row in range(64)} | {(0, column) for column in range(128)}
    dark |= {(number, number * 2) for number in range(64)}
    dark |= {(row, column) for row in range(40, 50) for column in range(100, 117)}
    frame = bytearray(1024)
    for row, column in dark:
        frame[row // 8 * 128 + column] |= 1 << row % 8
    return bytes(frame), dark


def put_picture(board, frame):
    """The display as its own driver leaves it after the initialisation sequence."""
    assert board.run("bt1", "lcd", "-i").status == 0
    board.path("media/lcd.frame").write_bytes(frame)


def png_pixels(data):
    """(width, height, rows of brightness 0..765) of an 8-bit RGB or grey PNG, without other help."""
    assert data[:8] == b"\x89PNG\r\n\x1a\n"
    position, packed = 8, b""
    while position < len(data):
        length, kind = struct.unpack_from(">I4s", data, position)
        body = data[position + 8 : position + 8 + length]
        assert zlib.crc32(kind + body) == struct.unpack_from(">I", data, position + 8 + length)[0]
        if kind == b"IHDR":
            width, height, depth, colour, _, _, interlaced = struct.unpack(">IIBBBBB", body)
            assert interlaced == 0
        elif kind == b"PLTE":
            palette = [sum(body[i : i + 3]) for i in range(0, length, 3)]
        elif kind == b"IDAT":
            packed += body
        position += 12 + length
    channels = {0: 1, 2: 3, 3: 1, 4: 2, 6: 4}[colour]
    assert depth == 8 or channels == 1
    bits = depth * channels
    stride, step = (width * bits + 7) // 8, max(1, bits // 8)
    raw, rows, above = zlib.decompress(packed), [], bytes(stride)
    for start in range(0, (stride + 1) * height, stride + 1):
        kind, line = raw[start], bytearray(raw[start + 1 : start + 1 + stride])
        for i in range(stride):
            left = line[i - step] if i >= step else 0
            corner = above[i - step] if i >= step else 0
            up = above[i]
            if kind == 1:
                line[i] = line[i] + left & 255
            elif kind == 2:
                line[i] = line[i] + up & 255
            elif kind == 3:
                line[i] = line[i] + (left + up) // 2 & 255
            elif kind == 4:
                guess = left + up - corner
                nearest = min(
                    (abs(guess - left), 0, left),
                    (abs(guess - up), 1, up),
                    (abs(guess - corner), 2, corner),
                )[2]
                line[i] = line[i] + nearest & 255
        above = bytes(line)
        row = []
        for x in range(width):
            if depth == 8:
                point = line[x * step : (x + 1) * step]
            else:
                point = bytes(
                    [line[x * depth // 8] >> (8 - depth - x * depth % 8) & (1 << depth) - 1]
                )
            if colour == 3:
                row.append(palette[point[0]])
            elif colour in (2, 6):
                row.append(sum(point[:3]))
            else:
                row.append(point[0] * 3 * 255 // ((1 << depth) - 1))
        rows.append(row)
    return width, height, rows


def png_of(board, build, tmp_path):
    file = tmp_path / "lcd.png"
    status, _, stderr = show(build, board.directory, "/dev/lcd", "--png", file)
    assert (status, stderr) == (0, b"")
    return png_pixels(file.read_bytes())


def test_png_of_the_display_has_the_frame_s_pixels(board, build, tmp_path):
    # A black screen tells where the glass begins and how large a point is.
    put_picture(board, b"\xff" * 1024)
    width, height, rows = png_of(board, build, tmp_path)
    ink = min(map(min, rows))
    found = [(x, y) for y in range(height) for x in range(width) if rows[y][x] == ink]
    left, top = min(x for x, _ in found), min(y for _, y in found)
    right, bottom = max(x for x, _ in found) + 1, max(y for _, y in found) + 1
    scale, rest = divmod(right - left, 128)
    assert rest == 0 and scale >= 1 and bottom - top == 64 * scale
    assert len(found) == 128 * 64 * scale * scale

    frame, dark = picture()
    put_picture(board, frame)
    assert png_of(board, build, tmp_path)[:2] == (width, height)
    rows = png_of(board, build, tmp_path)[2]
    glass = max(map(max, rows))
    assert glass - ink > 100
    for y in range(64):
        for x in range(128):
            block = {
                rows[top + y * scale + dy][left + x * scale + dx]
                for dy in range(scale)
                for dx in range(scale)
            }
            assert block == ({ink} if (y, x) in dark else {glass}), (y, x)


def test_png_of_a_white_screen_has_no_dark_pixel(board, build, tmp_path):
    put_picture(board, b"\xff" * 1024)
    ink = min(map(min, png_of(board, build, tmp_path)[2]))
    put_picture(board, bytes(1024))
    assert min(map(min, png_of(board, build, tmp_path)[2])) > ink


def dots(text):
    """The display's dark points out of a drawing in Braille characters, two by four points each."""
    places = ((0, 0), (1, 0), (2, 0), (0, 1), (1, 1), (2, 1), (3, 0), (3, 1))
    drawn = [
        [ord(letter) - 0x2800 for letter in line if 0x2800 <= ord(letter) <= 0x28FF]
        for line in text.splitlines()
    ]
    drawn = [line for line in drawn if line]
    assert [len(line) for line in drawn] == [64] * 16
    return {
        (row * 4 + down, column * 2 + right)
        for row, line in enumerate(drawn)
        for column, cell in enumerate(line)
        for bit, (down, right) in enumerate(places)
        if cell >> bit & 1
    }


def test_show_draws_the_display_in_the_terminal(board, build):
    frame, dark = picture()
    put_picture(board, frame)
    status, stdout, stderr = show(build, board.directory, "/dev/lcd")
    assert (status, stderr) == (0, b"")
    assert dots(stdout.decode()) == dark


def test_show_draws_the_upper_half_of_the_half_screen_dark(board, build):
    board.run("bt1", "lcd", "-i", "-p", "-r")
    assert dots(show(build, board.directory, "/dev/lcd")[1].decode()) == {
        (row, column) for row in range(32) for column in range(128)
    }


@pytest.mark.parametrize(
    "key, value, seen",
    [
        ("display_on", 0, lambda row, column, dark: False),
        ("all_points", 1, lambda row, column, dark: True),
        ("inverse", 1, lambda row, column, dark: (row, column) not in dark),
        # The glass hangs upside down, which the initialisation sequence makes up for.
        ("rows_reversed", 0, lambda row, column, dark: (63 - row, column) in dark),
        ("columns_reversed", 1, lambda row, column, dark: (row, 127 - column) in dark),
        ("start_line", 8, lambda row, column, dark: ((row + 8) % 64, column) in dark),
    ],
)
def test_show_draws_what_the_controller_s_modes_make_of_the_frame(board, build, key, value, seen):
    frame, dark = picture()
    put_picture(board, frame)
    board.set("/dev/lcd", key, value)
    assert dots(show(build, board.directory, "/dev/lcd")[1].decode()) == {
        (row, column) for row in range(64) for column in range(128) if seen(row, column, dark)
    }


def test_show_tells_of_every_device(board, build):
    status, stdout, stderr = show(build, board.directory)
    assert (status, stderr) == (0, b"")
    for name in ("lcd", "iccard", "gyro", "rtc0", "watchdog"):
        assert name in stdout.decode()


def test_show_tells_what_is_broken(board, build):
    before = show(build, board.directory)[1]
    assert b"EBUSY" not in before
    board.fault("/dev/rtc0 open errno=EBUSY")
    assert b"EBUSY" in show(build, board.directory)[1]


@pytest.mark.parametrize(
    "words",
    [
        ["/dev/none"],
        ["/dev/iccard", "--png", "x.png"],
        ["/dev/lcd", "--png", "/no/such/x.png"],
        ["--png", "x.png"],
    ],
)
def test_show_refuses_what_it_cannot_draw(board, build, tmp_path, monkeypatch, words):
    monkeypatch.chdir(tmp_path)
    status, _, stderr = show(build, board.directory, *words)
    assert status != 0
    assert stderr.strip() != b""


def test_show_refuses_a_directory_that_is_no_board(build, tmp_path):
    status, stdout, stderr = show(build, tmp_path)
    assert status != 0 and stdout == b"" and stderr.strip() != b""


# --- settings -------------------------------------------------------------------------------------


def changed(build, board):
    """What the page says is not as on a new board."""
    text = show(build, board.directory)[1].decode()
    lines = text[text.index("\nchanged ") + 1 : text.index("\nfaults ")].splitlines()
    return [line[len("changed            ") :] for line in lines]


def test_a_new_board_has_changed_nothing(board, build):
    assert changed(build, board) == ["nothing"]


def test_show_tells_what_differs_from_a_new_board(board, build):
    board.set("/dev/watchdog", "max_timeout_s", "65535")
    board.set("/dev/rtc0", "rate", "1")
    board.set("net/ppp0", "ipv4", "")
    board.set("firmware/cpld", "fails", "programming:timeout")
    board.path("dev/card").write_text("model = iccard\n")
    assert changed(build, board) == [
        "/dev/card model = iccard (- by default)",
        "/dev/watchdog max_timeout_s = 65535 (600 on a new board)",
        "net/ppp0 ipv4 = - (10.64.0.2 on a new board)",
        "firmware/cpld fails = programming:timeout (- on a new board)",
    ]


def test_show_lists_the_settings_of_a_device_and_draws_it(board, build):
    board.set("/dev/iccard", "stuck_byte", "7")
    status, stdout, stderr = show(build, board.directory, "/dev/iccard")
    assert (status, stderr) == (0, b"")
    lines = stdout.decode().splitlines()
    assert lines[:13] == [
        '# The chip card. Pulling it is a fault: "/dev/iccard absent".',
        "  setting          value                default      meaning",
        "* stuck_byte       7                    -1           a byte of the card that keeps its value "
        "whatever is written (-1 on a new board)",
        "  stuck_value      0                    0            that value",
        "  inverted         0                    0            1: every byte reads back as its "
        "complement",
        "  protected        0                    0            1: writing is refused (EROFS)",
        "  model            iccard               -            which model answers",
        "  medium           iccard.bin           -            its file in media/",
        "  medium_size      0                    0            bytes of a medium that is made because "
        "it is missing",
        "  number           0:0                  0:0          the device number that stat shows, "
        "MAJOR:MINOR",
        "  type             character            character    what stat shows it as",
        "  byte_us          0                    0            board microseconds that each byte of a "
        "read or a write takes",
        "",
    ]
    assert lines[13:15] == [
        "0000  " + " ".join(["00"] * 16) + "  " + "." * 16,
        "0010" + lines[13][4:],
    ]
    assert len(lines) == 29


def test_show_finds_a_device_that_is_switched_off(board, build):
    board.set("/sys/devices/platform/sda-power/state", "disabled")
    status, stdout, _ = show(build, board.directory, "/dev/sda")
    assert status == 0 and b"\n  standby          0 " in stdout
    page = show(build, board.directory)[1]
    assert b"\n/dev/sda           switched off, QX-SSD 128GB" in page
    assert changed(build, board) == ["nothing"]
    board.set("/dev/sda", "standby", "1")
    assert changed(build, board) == ["/dev/sda standby = 1 (0 on a new board)"]


def test_show_of_a_bare_board(build, tmp_path):
    subprocess.run(
        [build / "bin/vboard", "new", tmp_path / "bare", "--bare"], check=True, env=environment()
    )
    page = (
        f"{tmp_path}/bare: vboard board, format 1\n"
        "network            no interface\n"
        "changed            nothing\n"
        "faults             none\n"
    )
    assert show(build, tmp_path / "bare") == (0, page.encode(), b"")


@pytest.mark.skipif(word_size() == 4, reason="the launcher does not load the board's libraries")
def test_show_lists_the_settings_of_a_model_in_a_library(board, build):
    library = build / "tests/plugin/buttons.so"
    board.path("dev/t").write_text(f"model = {library}\ncount = 30\n")
    assert b"\n/dev/t             buttons\n" in show(build, board.directory)[1]
    stdout = show(build, board.directory, "/dev/t")[1].decode()
    assert (
        "\n* count            30                   4            buttons (4 by default)\n" in stdout
    )
