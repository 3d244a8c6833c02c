"""bt1 cpldinfo: the CPLD's hardware-information block, and burning a CPLD image."""

import dataclasses
import os

import pytest

from conftest import assert_story, err, little_memory, out
from device_trace import packed

USAGE = (
    "\nUsage: cpldinfo [get]\n\n\nUsage: cpldinfo [h]\n\n\n" "Usage: cpldinfo [burn] [文件路径]\n\n\n\n"
).encode("gb2312")
NVMEM = "sys/bus/nvmem/devices/hardinfo0/nvmem"
BURN_FAILED = b"[cpldinfo_main:167]WARN:cpld_burn fail[-1]\n"


def get(data):
    return f"rig_hardinfo_get 256 -> hex:{packed(data)} = 0"


def get_fails(result=-1):
    return f"rig_hardinfo_get 256 = {result} errno=5"


def show(data):
    return f"rig_bytes_print hex:{packed(data)} 256 = 0"


def burn(image, result=0):
    return f"rig_upgrade_burn_cpld 0 hex:{packed(image)} {len(image)} = {result} errno=5"


# Every path succeeds.


@pytest.mark.parametrize(
    "words",
    [
        (),
        ("-h",),
        ("h",),
        ("burn",),
        ("Get",),
        ("",),
        ("get", "1"),
        ("autotest", "1"),
        ("burn", "a", "b"),
        ("Burn", "a"),
        ("-h", "burn"),
    ],
)
def test_anything_else_prints_the_usage(board, words):
    run = board.run("bt1", "cpldinfo", *words, rigcore=[])
    assert (run.status, run.stdout, run.stderr) == (0, b"", USAGE)
    assert run.requests == []


# --- autotest ---


def test_autotest_always_warns(board):
    run = board.run("bt1", "cpldinfo", "autotest", rigcore=[get(bytes(256))])
    assert (run.status, run.stdout, run.stderr) == (
        0,
        b"[cpldinfo_main:157]WARN:cpldinfo_auto fail[-1]\n",
        b"",
    )


@pytest.mark.parametrize("result", [-1, -5, 2])
def test_autotest_reports_a_failed_reading_as_well(board, result):
    run = board.run("bt1", "cpldinfo", "autotest", rigcore=[get_fails(result)])
    assert (run.status, run.stdout, run.stderr) == (
        0,
        b"[cpldinfo_auto:63]WARN:cpldinfo_get fail[%d]\n"
        b"[cpldinfo_main:157]WARN:cpldinfo_auto fail[-1]\n" % result,
        b"",
    )


# --- get ---


def test_get_shows_the_block(board):
    data = bytes(range(256))
    run = board.run("bt1", "cpldinfo", "get", rigcore=[get(data), show(data)])
    assert (run.status, run.stdout, run.stderr) == (0, b"", b"")


@pytest.mark.parametrize("result", [-1, -5, 2])
def test_get_shows_the_empty_block_after_a_failed_reading(board, result):
    run = board.run("bt1", "cpldinfo", "get", rigcore=[get_fails(result), show(bytes(256))])
    assert (run.status, run.stdout, run.stderr) == (
        0,
        b"[cpldinfo_get:47]WARN:cpldinfo_get fail[%d]\n"
        b"[cpldinfo_main:162]WARN:cpldinfo_get fail[%d]\n" % (result, result),
        b"",
    )


# --- burn ---


def burnt(path, size):
    return b"[cpld_burn:127] burn cpld(filename %s %d bytes) success\n" % (os.fsencode(path), size)


@pytest.mark.parametrize(
    "image",
    [b"\x00", b"image \xff\x00\x80", bytes(range(256)) * 16, b"\xa5" * 262144, b""],
    ids=["1 byte", "8 bytes", "4 KiB", "256 KiB", "empty"],
)
def test_burns_the_whole_file(board, tmp_path, image):
    file = tmp_path / "cpld.bin"
    file.write_bytes(image)
    run = board.run("bt1", "cpldinfo", "burn", file, rigcore=[burn(image)])
    assert (run.status, run.stdout, run.stderr) == (0, burnt(file, len(image)), b"")
    assert run.requests == []


def test_prints_the_path_as_typed(board, tmp_path):
    (tmp_path / "cpld.bin").write_bytes(b"1234")
    run = board.run("bt1", "cpldinfo", "burn", "./cpld.bin", cwd=tmp_path, rigcore=[burn(b"1234")])
    assert (run.status, run.stdout, run.stderr) == (0, burnt(b"./cpld.bin", 4), b"")


@pytest.mark.parametrize("result", [-1, 1])
def test_prints_success_also_after_a_failed_burning(board, tmp_path, result):
    file = tmp_path / "cpld.bin"
    file.write_bytes(b"12345")
    run = board.run("bt1", "cpldinfo", "burn", file, rigcore=[burn(b"12345", result)])
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout.startswith(b"[cpld_burn:125] burn cpld(5 bytes) failed\n" + burnt(file, 5))


@pytest.mark.parametrize("path", ["missing.bin", "no/such/folder", ""])
def test_file_that_does_not_open(board, path):
    run = board.run("bt1", "cpldinfo", "burn", path, rigcore=[], story=True)
    assert run.status == 0
    assert_story(run, err(f"fopen({path},rb) failed\n"), out(BURN_FAILED))


def test_file_that_cannot_be_wound_back(board):
    run = board.run("bt1", "cpldinfo", "burn", "/dev/stdin", stdin=b"12345", rigcore=[])
    assert (run.status, run.stdout, run.stderr) == (0, BURN_FAILED, b"fseek(0,SEEK_SET) failed\n")


IMAGE = "/mnt/sd/cpld.bin"
OPEN = f"open {IMAGE} RDONLY = 3"
CLOSE = f"close {IMAGE} = 0"
DATA = "/sys/class/firmware/cpld/data"


def burn_on_board(board, image, **options):
    """Burns a file of the board; the story knows the file's open and close and the CPLD's data."""
    file = board.path(IMAGE[1:])
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_bytes(image)
    return board.run("bt1", "cpldinfo", "burn", IMAGE, story=True, **options)


def assert_burn(run, *steps):
    assert run.status == 0
    # How often the C library reads the file is its own business.
    story = [line for line in run.story if not line.startswith(f"read {IMAGE} ")]
    assert_story(dataclasses.replace(run, story=story), *steps, only=(IMAGE, "write"))


def unread(run, size):
    """A file that is not to be had whole; which stream takes the message is not fixed."""
    text = f"fread({size} bytes) failed\n"
    return (err if run.stderr else out)(text)


@pytest.mark.parametrize("fault", ["errno=EIO", "result=0"])
def test_file_that_is_shorter_than_its_length(board, fault):
    board.fault(f"{IMAGE} read {fault}")
    run = burn_on_board(board, b"12345", rigcore=[])
    assert_burn(run, OPEN, unread(run, 5), CLOSE, out(BURN_FAILED))


def test_an_image_that_is_too_large_is_not_burnt(board):
    run = burn_on_board(board, b"\x5a" * 262145, rigcore=[])
    assert_burn(run, OPEN, unread(run, 262145), CLOSE, out(BURN_FAILED))


def test_an_image_whose_length_has_more_than_32_bits_is_not_burnt(board, tmp_path):
    file = tmp_path / "cpld.bin"
    with open(file, "wb") as image:
        image.truncate((1 << 32) + 5)
    run = board.run("bt1", "cpldinfo", "burn", file, rigcore=[])
    assert run.status == 0
    assert run.stdout.endswith(BURN_FAILED)
    assert b"success" not in run.stdout


def test_without_memory_the_file_is_not_opened(board):
    run = burn_on_board(board, b"12345", rigcore=[], env=little_memory(board.build))
    assert_burn(
        run,
        out("[cpld_burn:87]alloc inbuf fail[12].\n"),
        out("[cpldinfo_main:167]WARN:cpld_burn fail[-2]\n"),
    )


# --- On the board ---


def test_get_shows_the_block_of_the_board(board):
    board.path(NVMEM).write_bytes(bytes(256))
    zeros = board.run("bt1", "cpldinfo", "get")
    board.path(NVMEM).write_bytes(bytes(range(256)))
    run = board.run("bt1", "cpldinfo", "get")
    assert (run.status, run.stderr) == (0, b"")
    shown = run.stdout.lower().split()
    assert b"ab" in shown and b"cd" in shown and b"fa" in shown
    assert b"ab" not in zeros.stdout.lower().split()


@pytest.mark.parametrize("fault", ["absent", "open errno=EIO", "read errno=EIO", "too short"])
def test_autotest_without_the_block_of_the_board(board, fault):
    if fault == "too short":
        board.path(NVMEM).write_bytes(bytes(255))
    else:
        board.fault(f"/{NVMEM} {fault}")
    run = board.run("bt1", "cpldinfo", "autotest")
    assert (run.status, run.stdout, run.stderr) == (
        0,
        b"[cpldinfo_auto:63]WARN:cpldinfo_get fail[-1]\n"
        b"[cpldinfo_main:157]WARN:cpldinfo_auto fail[-1]\n",
        b"",
    )


@pytest.mark.parametrize("fault", ["absent", "read errno=EIO"])
def test_get_shows_zeros_between_two_warnings_when_the_block_cannot_be_read(board, fault):
    board.path(NVMEM).write_bytes(bytes(256))
    zeros = board.run("bt1", "cpldinfo", "get").stdout
    board.fault(f"/{NVMEM} {fault}")
    run = board.run("bt1", "cpldinfo", "get")
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout == (
        b"[cpldinfo_get:47]WARN:cpldinfo_get fail[-1]\n"
        + zeros
        + b"[cpldinfo_main:162]WARN:cpldinfo_get fail[-1]\n"
    )


def programmed(image):
    """What the library writes to the CPLD."""
    return [
        "write /sys/class/firmware/cpld/loading in=31 = 1",
        f"write {DATA} in={packed(image)} = {len(image)}",
        "write /sys/class/firmware/cpld/loading in=30 = 1",
    ]


def test_burns_the_cpld_of_the_board_then_says_so_and_closes(board):
    image = bytes(range(200))
    run = burn_on_board(board, image)
    assert_burn(run, OPEN, *programmed(image), out(burnt(IMAGE, 200)), CLOSE)
    assert board.path("media/cpld.bin").read_bytes().startswith(image)


@pytest.mark.parametrize(
    "cause", ["the data is refused", "programming fails", "the device is missing"]
)
def test_a_cpld_of_the_board_that_cannot_be_burnt(board, cause):
    if cause == "the data is refused":
        board.fault("/sys/class/firmware/cpld/data write errno=EIO")
    elif cause == "programming fails":
        node = board.path("firmware/cpld")
        text = node.read_text(encoding="utf-8").replace("fails =", "fails = programming:hw-error")
        node.write_text(text, encoding="utf-8")
    else:
        board.fault("/sys/class/firmware/cpld/loading absent")
        board.fault("/sys/class/firmware/cpld/data absent")
    run = burn_on_board(board, bytes(range(200)))
    # What the library says on standard error, and how far it comes, are its own business.
    story = [line for line in run.story if not line.startswith(("err ", "read ", "write "))]
    assert run.status == 0
    assert_story(
        dataclasses.replace(run, story=story),
        OPEN,
        out("[cpld_burn:125] burn cpld(200 bytes) failed\n"),
        out(burnt(IMAGE, 200)),
        CLOSE,
        only=(IMAGE,),
    )
