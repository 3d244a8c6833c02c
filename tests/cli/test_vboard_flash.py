"""The virtual board's NAND flash: as a program's requests see it, and as the tools of mtd-utils do."""

import shutil
import struct

import pytest

from conftest import EMULATOR
from probes import lines, one_probe, probe, run_steps

SBIN = "/usr/sbin:/usr/bin:/sbin:/bin"
GET_INFO = "0x80204D01"
ERASE = "0x40084D02"
GET_BAD = "0x40084D0B"
SET_BAD = "0x40084D0C"
GET_STATISTICS = "0x80104D12"

# 8 blocks of 16 pages with 16 spare bytes each.
BLOCK = 8192
PAGE = 512
SIZE = 65536
NODE = f"""model = mtd
flash = nand
medium = nand.bin
medium_size = {SIZE}
number = 90:4
erase_size = {BLOCK}
write_size = {PAGE}
oob_size = 16
"""
LIST = f'dev:    size   erasesize  name\nmtd2: {SIZE:08x} {BLOCK:08x} "data"\n'


@pytest.fixture
def nand(board):
    board.path("dev/mtd2").write_text(NODE)
    board.path("proc/mtd").write_text(LIST)
    return board


def offset(number):
    return struct.pack("<q", number).hex()


def extent(start, length):
    return struct.pack("<II", start, length).hex()


def medium(board):
    return board.path("media/nand.bin").read_bytes()


def test_nand_is_reported_with_its_page_and_its_spare_bytes(nand, probe):
    run = run_steps(nand, probe, f"open /dev/mtd2 rdonly; ioctl {GET_INFO} 00*32")
    info = struct.pack("<B3x5IQ", 4, 0x400, SIZE, BLOCK, PAGE, 16, 0)
    assert lines(run)[1] == f"ioctl 0 {info.hex()}"


def test_nand_is_written_in_pages_and_erased_in_blocks(nand, probe):
    steps = (
        f"open /dev/mtd2 rdwr; lseek {PAGE} set; write 5a*{PAGE}; lseek 0 cur; write 5a*100; "
        f"ioctl {ERASE} {extent(BLOCK, BLOCK)}; lseek {SIZE} set; read 10"
    )
    assert [line.split()[:2] for line in lines(run_steps(nand, probe, steps))] == [
        ["open", "3"],
        ["lseek", str(PAGE)],
        ["write", str(PAGE)],
        ["lseek", str(2 * PAGE)],
        ["write", "EINVAL"],
        ["ioctl", "0"],
        ["lseek", str(SIZE)],
        ["read", "0"],
    ]
    assert medium(nand) == b"\xff" * PAGE + b"Z" * PAGE + b"\xff" * (SIZE - 2 * PAGE)


def test_a_block_that_a_program_marks_bad_stays_bad(nand, probe):
    nand.set("/dev/mtd2", "bad_blocks", "5")
    steps = (
        f"open /dev/mtd2 rdwr; ioctl {GET_BAD} {offset(BLOCK)}; ioctl {SET_BAD} {offset(BLOCK)}; "
        f"ioctl {GET_BAD} {offset(BLOCK)}; ioctl {ERASE} {extent(BLOCK, BLOCK)}; "
        f"ioctl {GET_STATISTICS} 00*16"
    )
    results = [line.split()[1] for line in lines(run_steps(nand, probe, steps))]
    assert results == ["3", "0", "0", "1", "EIO", "0"]
    assert "bad_blocks = 5 1\n" in nand.path("dev/mtd2").read_text()
    again = run_steps(nand, probe, f"open /dev/mtd2 rdonly; ioctl {GET_BAD} {offset(BLOCK + 1)}")
    assert lines(again)[1].split()[1] == "1"


def test_a_block_is_not_marked_through_a_descriptor_for_reading(nand, probe):
    run = run_steps(nand, probe, f"open /dev/mtd2 rdonly; ioctl {SET_BAD} {offset(0)}")
    assert lines(run)[1].split()[1] == "EPERM"
    assert "bad_blocks" not in nand.path("dev/mtd2").read_text()


def test_the_page_of_the_board_says_what_flash_it_is(nand):
    shown = nand.vboard("show", nand.directory).decode()
    assert "NAND flash, erase block 8192" in shown
    assert "NOR flash, erase block 4096" in shown


# --- the tools of mtd-utils ----------------------------------------------------------------------------

no_tools = pytest.mark.skipif(
    shutil.which("nandwrite", path=SBIN) is None or bool(EMULATOR), reason="no mtd-utils for it"
)


def tool(board, name, *words, **options):
    run = board.run_command([shutil.which(name, path=SBIN), *map(str, words)], **options)
    assert run.status == 0, run.stderr
    return run


@no_tools
def test_mtdinfo_describes_the_flash(nand):
    text = tool(nand, "mtdinfo", "/dev/mtd2").stdout.decode()
    for line in (
        "Name:                           data",
        "Type:                           nand",
        "Eraseblock size:                8192 bytes, 8.0 KiB",
        "Amount of eraseblocks:          8 (65536 bytes, 64.0 KiB)",
        "Minimum input/output unit size: 512 bytes",
        "OOB size:                       16 bytes",
        "Bad blocks are allowed:         true",
    ):
        assert line in text.splitlines()


@no_tools
def test_nandwrite_and_nanddump_go_around_bad_blocks(nand, tmp_path):
    nand.set("/dev/mtd2", "bad_blocks", "1")
    image = bytes(range(256)) * 50  # one block, and a part of the next good one
    (tmp_path / "image").write_bytes(image)
    tool(nand, "nandwrite", "-q", "-p", "/dev/mtd2", tmp_path / "image")
    assert medium(nand) == (
        image[:BLOCK] + b"\xff" * BLOCK + image[BLOCK:] + b"\xff" * (SIZE - BLOCK - len(image))
    )
    tool(
        nand,
        "nanddump",
        "--bb=skipbad",
        "-q",
        "-l",
        len(image),
        "-f",
        tmp_path / "dump",
        "/dev/mtd2",
    )
    assert (tmp_path / "dump").read_bytes() == image


@no_tools
def test_nandwrite_and_nanddump_move_spare_bytes(nand, tmp_path):
    pages = b"".join(bytes([page]) * PAGE + bytes([0xA0 + page]) * 16 for page in range(3))
    (tmp_path / "image").write_bytes(pages)
    tool(nand, "nandwrite", "-q", "-n", "-o", "-s", PAGE, "/dev/mtd2", tmp_path / "image")
    assert medium(nand)[PAGE : 4 * PAGE] == b"\0" * PAGE + b"\1" * PAGE + b"\2" * PAGE
    spare = nand.path("media/nand.bin.oob").read_bytes()
    assert spare == b"\xff" * 16 + b"\xa0" * 16 + b"\xa1" * 16 + b"\xa2" * 16
    tool(
        nand,
        "nanddump",
        "-q",
        "-n",
        "-o",
        "-s",
        PAGE,
        "-l",
        3 * PAGE,
        "-f",
        tmp_path / "dump",
        "/dev/mtd2",
    )
    assert (tmp_path / "dump").read_bytes() == pages


@no_tools
def test_flash_erase_leaves_bad_blocks_alone(nand):
    nand.set("/dev/mtd2", "bad_blocks", "2")
    nand.path("media/nand.bin").write_bytes(b"\0" * SIZE)
    nand.path("media/nand.bin.oob").write_bytes(b"\0" * (SIZE // PAGE * 16))
    tool(nand, "flash_erase", "-q", "/dev/mtd2", 0, 4)
    kept = b"\0" * BLOCK
    assert medium(nand) == b"\xff" * 2 * BLOCK + kept + b"\xff" * BLOCK + b"\0" * 4 * BLOCK
    spare = nand.path("media/nand.bin.oob").read_bytes()
    assert spare == b"\xff" * 512 + b"\0" * 256 + b"\xff" * 256 + b"\0" * 1024


@no_tools
def test_nandtest_finds_sound_flash_sound_and_marks_a_worn_block(nand):
    tool(nand, "nandtest", "/dev/mtd2")
    nand.set("/dev/mtd2", "worn_blocks", "4")
    nand.run_command([shutil.which("nandtest", path=SBIN), "-m", "/dev/mtd2"])
    assert "bad_blocks = 4\n" in nand.path("dev/mtd2").read_text()
