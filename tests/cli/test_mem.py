"""btdbg mem: physical memory.

The board has RAM below 0x20000000, registers at 0xf0000000 and memory in the last 64 KiB; an address
is an offset of media/phys_mem.
"""

import mmap
import os
import re

import pytest

from conftest import assert_story, err, out, untraced

OPEN = "open /dev/mem RDWR|SYNC = 3"
CLOSE = "close /dev/mem = 0"
PAGE = mmap.PAGESIZE

HELP = (
    b"Help:\r\n"
    b"mem version:1.00.01\r\n"
    b"  w        [addr] [data]                  Write a word into memory\r\n"
    b"  r        [addr] (length)                Read a region of memory\r\n"
    b"  fill     [addr] [length] (data)         Fill a region of memory with date value\r\n"
    b"  fillfile [addr] [length] (filename)     Read file data and fill them into memory\r\n"
    b"  dump     [addr] (length) (filename)     Dump a region of memory to a file\r\n"
    b"  bit      [addr] (bit Num)(val)          To do the specific address bit operation with value 0(clear) or 1(set)\r\n"
    b"\r\n"
    b"e.g.\r\n"
    b"  mem r 0x2000 0x200\r\n"
    b"  mem w 0x2000 0x2c00\r\n"
    b"  mem fillfile 0x17000000 0 image.bin  --- Read image.bin into memory address 0x17000000\r\n"
    b"  mem bit 0x17000000 20 1              --- To set(1)/clear(0) bit20\r\n"
)


def poke(board, address, data):
    memory = board.path("media/phys_mem")
    with open(memory, "r+b" if memory.exists() else "w+b") as file:
        file.seek(address)
        file.write(data)


def peek(board, address, size):
    with open(board.path("media/phys_mem"), "rb") as file:
        file.seek(address)
        return file.read(size)


def mem(board, *words, **options):
    return board.run("btdbg", "mem", *words, **options)


def mapped(size, base, result="0"):
    return f"mmap /dev/mem {size} RW at={base:#x} = {result}"


def assert_run(run, status, stdout, requests):
    assert run.stdout == stdout
    assert run.stderr == b""
    assert run.requests_on("/dev/mem") == list(requests)
    assert run.status == status


# --- Command line ---------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "words", [(), ("?",), ("x",), ("R", "2000"), ("read",), ("",), ("?", "r", "2000")]
)
def test_anything_but_a_sub_command_prints_the_help(board, words):
    assert_run(mem(board, *words), 0, HELP, [OPEN, CLOSE])


@pytest.mark.parametrize("fault, errno", [("absent", "ENOENT"), ("open errno=EACCES", "EACCES")])
@pytest.mark.parametrize("words", [(), ("r", "2000"), ("dump", "2000", "0")])
def test_without_the_device_nothing_is_done_not_even_the_help(board, fault, errno, words):
    board.fault(f"/dev/mem {fault}")
    assert_run(
        mem(board, *words),
        255,
        b"\033[31mmem_main(): \033[0mOpen /dev/mem device failed\n",
        [f"open /dev/mem RDWR|SYNC = {errno}"],
    )


SYNTAX = {
    "r": b"syntex: mem r [addr] (length)\r\n",
    "w": b"syntex: mem w [addr] [data]\r\n",
    "fill": b"syntex: mem fill [addr] [length] (data)\r\n",
    "fillfile": b"syntex: mem fillfile [addr] [length] (filename)\r\n",
    "dump": b"syntex: mem dump [addr] (length) (filename)\r\n",
    "bit": b"syntex: mem bit [addr] [bit#num] [1/0] \r\n",
}


@pytest.mark.parametrize(
    "words",
    [
        ("r",),
        ("w",),
        ("w", "2000"),
        ("w", "2000", "1", "2"),
        ("fill",),
        ("fill", "2000"),
        ("fillfile",),
        ("dump",),
        ("bit",),
        ("bit", "2000"),
        ("bit", "2000", "3"),
        ("bit", "2000", "3", "1", "1"),
        ("bit", "2000", "3", "2"),
        ("bit", "2000", "3", "-1"),
        ("bit", "2000", "3", "4294967296"),
    ],
)
def test_wrong_count_or_bit_value_prints_the_syntax_line(board, words):
    assert_run(mem(board, *words), 0, SYNTAX[words[0]], [OPEN, CLOSE])


# --- r --------------------------------------------------------------------------------------------


def row(address, data):
    words = [int.from_bytes(data[i : i + 4], "little") for i in range(0, 16, 4)]
    text = "".join(chr(byte) if 0x20 <= byte <= 0x7F else "." for byte in data)
    line = f"{address:x} : " + " ".join(f"{word:08X}" for word in words) + "  " + text
    return line[:63].encode("latin-1") + b"\r\n"


def assert_dump(run, address, length, rows, asked=None):
    """The whole output of `mem r`, whatever the address of the mapping is."""
    asked = address % PAGE + length if asked is None else asked
    head = re.match(
        rb"addr:0x([0-9a-f]{8,}) map_addr:(0x[0-9a-f]+), map_size = 0x(0x[0-9a-f]+|\(nil\))\r\n"
        rb"dump phy_addr=([0-9a-f]+) , vir_addr=(0x[0-9a-f]+), length=([0-9a-f]{8}) to console:\r\n",
        run.stdout,
    )
    assert head, run.stdout
    assert head[1] == b"%08x" % address
    assert head[3] == (b"0x%x" % asked if asked else b"(nil)")
    assert head[4] == b"%x" % address
    assert int(head[5], 16) == int(head[2], 16) + address % PAGE
    assert head[6] == b"%08x" % length
    assert run.stdout[head.end() :] == b"".join(rows) + b"\r\n\r\n"
    assert run.stderr == b""
    assert run.status == 0


def test_r_shows_words_and_characters(board):
    poke(board, 0x2000, b"abcdefghijklmnop")
    run = mem(board, "r", "0x2000", "0x10")
    assert_dump(
        run, 0x2000, 0x10, [b"2000 : 64636261 68676665 6C6B6A69 706F6E6D  abcdefghijklmnop\r\n"]
    )
    assert run.requests == [OPEN, mapped(0x10, 0x2000), CLOSE]


def test_r_shows_0x100_bytes_without_a_length(board):
    data = bytes(range(256))
    poke(board, 0x17000000, data)
    run = mem(board, "r", "17000000")
    assert_dump(
        run, 0x17000000, 0x100, [row(0x17000000 + i, data[i : i + 16]) for i in range(0, 256, 16)]
    )
    assert b"17000070 : 73727170 77767574 7B7A7978 7F7E7D7C  pqrstuvwxyz{|}~\r\n" in run.stdout
    assert run.requests == [OPEN, mapped(0x100, 0x17000000), CLOSE]


def test_r_loses_the_last_character_with_8_digits(board):
    poke(board, 0x17000000, b"abcdefghijklmnop")
    run = mem(board, "r", "17000000", "10")
    assert_dump(
        run,
        0x17000000,
        0x10,
        [b"17000000 : 64636261 68676665 6C6B6A69 706F6E6D  abcdefghijklmno\r\n"],
    )


def test_r_shows_whole_rows(board):
    poke(board, 0x2000, b"A" * 0x11 + b"B" * 0x1F)
    run = mem(board, "r", "0x2000", "0x11")
    assert_dump(run, 0x2000, 0x11, [row(0x2000, b"A" * 16), row(0x2010, b"A" + b"B" * 15)])
    assert run.requests == [OPEN, mapped(0x11, 0x2000), CLOSE]


def test_r_of_one_word_at_a_page_s_end_shows_the_row_of_the_next_page_too(board):
    poke(board, 3 * PAGE - 4, b"0123456789abcdef")
    run = mem(board, "r", f"{3 * PAGE - 4:x}", "4")
    assert_dump(run, 3 * PAGE - 4, 4, [row(3 * PAGE - 4, b"0123456789abcdef")])


def test_r_of_the_last_word_before_a_hole_shows_zeros_for_the_hole(board):
    poke(board, 0x1FFFFFFC, b"last")
    run = mem(board, "r", "1ffffffc", "4")
    assert_dump(run, 0x1FFFFFFC, 4, [row(0x1FFFFFFC, b"last" + bytes(12))])
    assert run.requests[-2:] == [mapped(PAGE, 0x20000000 - PAGE), CLOSE]


def test_r_of_the_last_word_of_all_touches_nothing_behind_it(board):
    poke(board, 0xFFFFFFFC, b"last")
    run = mem(board, "r", "fffffffc", "4")
    assert_dump(run, 0xFFFFFFFC, 4, [row(0xFFFFFFFC, b"last" + bytes(12))])
    assert run.requests == [OPEN, mapped(PAGE, 0x100000000 - PAGE), CLOSE]


def test_r_straddles_pages(board):
    data = bytes(range(0x20, 0x40))
    poke(board, 5 * PAGE - 16, data)
    run = mem(board, "r", f"{5 * PAGE - 16:x}", "20")
    assert_dump(run, 5 * PAGE - 16, 0x20, [row(5 * PAGE - 16, data[:16]), row(5 * PAGE, data[16:])])
    assert run.requests == [OPEN, mapped(PAGE + 16, 4 * PAGE), CLOSE]


def test_r_of_no_bytes_prints_its_head_alone(board):
    assert_dump(mem(board, "r", "0x2000", "0"), 0x2000, 0, [])


def test_r_of_no_bytes_within_a_page(board):
    assert_dump(mem(board, "r", "0x2010", "0"), 0x2010, 0, [], asked=0x10)


@pytest.mark.parametrize("address", ["0x2001", "2002", "0x2003", "FFFFFFFF"])
def test_r_wants_an_address_of_a_word(board, address):
    assert_run(
        mem(board, "r", address),
        0,
        b"Address must be 4 bytes align:%#x\n" % int(address, 16),
        [OPEN, CLOSE],
    )


@pytest.mark.parametrize("errno", ["EPERM", "ENOMEM"])
def test_r_that_cannot_be_mapped_is_reported(board, errno):
    board.fault(f"/dev/mem mmap errno={errno}")
    assert_run(
        mem(board, "r", "0x2000"),
        0,
        b"\033[31mcmd_mem_r(): \033[0mmmap error for addr 0x2000\r\n",
        [OPEN, mapped(0x100, 0x2000, errno), CLOSE],
    )


def test_r_of_a_hole_is_refused_by_the_kernel(board):
    board.set("/dev/mem", "refuses", "EPERM")
    assert_run(
        mem(board, "r", "30000000"),
        0,
        b"\033[31mcmd_mem_r(): \033[0mmmap error for addr 0x30000000\r\n",
        [OPEN, mapped(0x100, 0x30000000, "EPERM"), CLOSE],
    )


@pytest.mark.parametrize(
    "address, length", [("fffffff8", "10"), ("2004", "ffffffff"), ("fffffffc", "5")]
)
def test_r_beyond_the_last_address_maps_nothing(board, address, length):
    assert_run(
        mem(board, "r", address, length),
        0,
        b"\033[31mcmd_mem_r(): \033[0mmmap error for addr 0x%x\r\n" % int(address, 16),
        [OPEN, CLOSE],
    )


@pytest.mark.parametrize(
    "words, address, length",
    [
        (("2000", "word"), 0x2000, 0x100),  # no number: the default stays
        (("2000", ""), 0x2000, 0x100),
        (("word", "10"), 0, 0x10),
        (("2000", "20", "more", "words"), 0x2000, 0x20),
        (("0X2000", "0X10"), 0x2000, 0x10),
        (("2000zz", "10,"), 0x2000, 0x10),  # what follows the digits is ignored
        ((" 2000", " 10"), 0x2000, 0x10),
    ],
)
def test_r_reads_hexadecimal_numbers(board, words, address, length):
    rows = [row(address + i, bytes(16)) for i in range(0, length, 16)]
    assert_dump(mem(board, "r", *words), address, length, rows)


# --- w --------------------------------------------------------------------------------------------


def test_w_writes_one_word(board):
    poke(board, 0x1FFC, b"\xAA" * 16)
    assert_run(
        mem(board, "w", "0x2000", "0x12345678"),
        0,
        b"addr = 0x2000, data = 0x12345678\r\n",
        [OPEN, mapped(256, 0x2000), CLOSE],
    )
    assert peek(board, 0x1FFC, 16) == b"\xAA" * 4 + b"\x78\x56\x34\x12" + b"\xAA" * 8


def test_w_maps_256_bytes_behind_its_place_in_the_page(board):
    assert_run(
        mem(board, "w", "2ff0", "1"),
        0,
        b"addr = 0x2ff0, data = 0x00000001\r\n",
        [OPEN, mapped(0xFF0 + 256, 0x2000), CLOSE],
    )


def test_w_reaches_the_last_word_of_all(board):
    assert_run(
        mem(board, "w", "fffffffc", "CAFE"),
        0,
        b"addr = 0xfffffffc, data = 0x0000CAFE\r\n",
        [OPEN, mapped(PAGE, 0x100000000 - PAGE), CLOSE],
    )
    assert peek(board, 0xFFFFFFFC, 4) == b"\xFE\xCA\0\0"


@pytest.mark.parametrize(
    "data, value", [("word", 0), ("fffffffff", 0xFFFFFFFF), ("-1", 0xFFFFFFFF)]
)
def test_w_data_has_32_bits(board, data, value):
    assert_run(
        mem(board, "w", "2000", data),
        0,
        b"addr = 0x2000, data = 0x%08X\r\n" % value,
        [OPEN, mapped(256, 0x2000), CLOSE],
    )


@pytest.mark.parametrize("address", ["0", "word"])
def test_w_at_address_0_prints_nil(board, address):
    assert_run(
        mem(board, "w", address, "5"),
        0,
        b"addr = (nil), data = 0x00000005\r\n",
        [OPEN, mapped(256, 0), CLOSE],
    )


def test_w_wants_an_address_of_a_word(board):
    assert_run(
        mem(board, "w", "2002", "1"), 0, b"Address must be 4 bytes align:0x2002\n", [OPEN, CLOSE]
    )


def test_w_that_cannot_be_mapped_is_reported(board):
    assert_run(
        mem(board, "w", "20000000", "1"),
        0,
        b"\033[31mcmd_mem_w(): \033[0mmmap error for addr 0x20000000\r\n",
        [OPEN, mapped(256, 0x20000000, "EINVAL"), CLOSE],
    )


# --- bit ------------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "bit, value, before, after",
    [
        ("3", "1", 0x00000000, 0x00000008),
        ("3", "0", 0xFFFFFFFF, 0xFFFFFFF7),
        ("31", "1", 0x00000001, 0x80000001),
        ("20", "1", 0x00100000, 0x00100000),
        ("32", "1", 0x12345678, 0x12345678),  # there is no such bit
        ("33", "0", 0x12345678, 0x12345678),
        ("word", "1", 0x00000000, 0x00000001),
        ("0x3", "1", 0x00000000, 0x00000001),  # decimal: the 0 before the x
    ],
)
def test_bit_changes_one_bit_of_the_word(board, bit, value, before, after):
    poke(board, 0x2004, before.to_bytes(4, "little"))
    number = re.match(r"\d*", bit)[0] or "0"
    change = "set" if value == "1" else "clear"
    assert_run(
        mem(board, "bit", "0x2004", bit, value),
        0,
        b"\r\taddr = 0x2004, data = 0x%08X\r\n" % before
        + f"\rAfter {change} Bit#{number}:\n".encode()
        + b"\r\taddr = 0x2004, data = 0x%08X\r\n" % after,
        [OPEN, mapped(260, 0x2000), CLOSE],
    )
    assert peek(board, 0x2000, 12) == bytes(4) + after.to_bytes(4, "little") + bytes(4)


def test_bit_address_that_is_no_number_is_0(board):
    poke(board, 0, b"\x01\0\0\0")
    assert_run(
        mem(board, "bit", "word", "3", "1"),
        0,
        b"\r\taddr = (nil), data = 0x00000001\r\n"
        b"\rAfter set Bit#3:\n"
        b"\r\taddr = (nil), data = 0x00000009\r\n",
        [OPEN, mapped(256, 0), CLOSE],
    )


def test_bit_value_that_is_no_number_clears(board):
    run = mem(board, "bit", "2000", "3", "x")
    assert b"\rAfter clear Bit#3:\n" in run.stdout


def test_bit_wants_an_address_of_a_word(board):
    assert_run(
        mem(board, "bit", "2001", "3", "1"),
        0,
        b"Address must be 4 bytes align:0x2001\n",
        [OPEN, CLOSE],
    )


def test_bit_that_cannot_be_mapped_is_reported(board):
    board.fault("/dev/mem mmap errno=EAGAIN")
    assert_run(
        mem(board, "bit", "2000", "3", "1"),
        0,
        b"\033[31mcmd_bit_w(): \033[0mmmap error for addr 0x2000\r\n",
        [OPEN, mapped(256, 0x2000, "EAGAIN"), CLOSE],
    )


# --- fill -----------------------------------------------------------------------------------------


def assert_filled(run, address, length, data, requests):
    head = re.fullmatch(
        rb"addr = ([0-9a-f]+) mapping_addr:(0x[0-9a-f]+), length = 0x([0-9A-F]{8}), "
        rb"data = 0x([0-9A-F]{2,}) size:(-?\d+)\r\n",
        run.stdout,
    )
    assert head, run.stdout
    assert int(head[1], 16) == address
    assert int(head[2], 16) % PAGE == address % PAGE
    assert int(head[3], 16) == length and int(head[5]) == length
    assert head[4] == b"%02X" % data
    assert run.stderr == b""
    assert run.requests == requests
    assert run.status == 0


@pytest.mark.parametrize(
    "data, value, byte",
    [
        (("1234",), 0x1234, 0x34),  # a word is read, a byte is filled
        (("ff",), 0xFF, 0xFF),
        (("5",), 0x5, 0x05),
        ((), 0, 0),
        (("word",), 0, 0),
        (("ff", "more"), 0xFF, 0xFF),
    ],
)
def test_fill_sets_every_byte_to_the_low_byte(board, data, value, byte):
    poke(board, 0x1FF0, b"\xA5" * 0x40)
    run = mem(board, "fill", "0x2000", "0x10", *data)
    assert_filled(run, 0x2000, 0x10, value, [OPEN, mapped(0x10, 0x2000), CLOSE])
    assert peek(board, 0x1FF0, 0x40) == b"\xA5" * 16 + bytes([byte]) * 16 + b"\xA5" * 32


def test_fill_of_an_address_that_is_no_number_begins_at_0(board):
    poke(board, 0, b"\xA5" * 0x20)
    run = mem(board, "fill", "word", "10", "5a")
    assert_filled(run, 0, 0x10, 0x5A, [OPEN, mapped(0x10, 0), CLOSE])
    assert peek(board, 0, 0x20) == b"\x5A" * 16 + b"\xA5" * 16


def test_fill_of_a_length_that_is_no_number_fills_nothing(board):
    poke(board, 0x2000, b"\xA5" * 0x20)
    run = mem(board, "fill", "2000", "word", "5a")
    assert_filled(run, 0x2000, 0, 0x5A, run.requests)
    assert peek(board, 0x2000, 0x20) == b"\xA5" * 0x20


def test_fill_of_many_pages(board):
    run = mem(board, "fill", "10000010", "1000000", "5a")
    assert_filled(run, 0x10000010, 0x1000000, 0x5A, [OPEN, mapped(0x1000010, 0x10000000), CLOSE])
    assert peek(board, 0x10000000, 0x1000020) == bytes(16) + b"\x5A" * 0x1000000 + bytes(16)


def test_fill_of_no_bytes_fills_nothing(board):
    poke(board, 0x2000, b"\xA5" * 16)
    run = mem(board, "fill", "0x2000", "0", "ff")
    assert_filled(run, 0x2000, 0, 0xFF, run.requests)
    assert peek(board, 0x2000, 16) == b"\xA5" * 16


def test_fill_reaches_the_last_byte_of_all(board):
    run = mem(board, "fill", "fffffff0", "10", "77")
    assert_filled(run, 0xFFFFFFF0, 0x10, 0x77, [OPEN, mapped(PAGE, 0x100000000 - PAGE), CLOSE])
    assert peek(board, 0xFFFFFFF0, 16) == b"\x77" * 16


@pytest.mark.parametrize("address", ["0x2008", "2001", "0x2004"])
def test_fill_wants_an_address_of_16_bytes(board, address):
    assert_run(
        mem(board, "fill", address, "0x18", "ff"),
        0,
        b"Address must be 16 bytes align:%#x\n" % int(address, 16),
        [OPEN, CLOSE],
    )


@pytest.mark.parametrize("length", [0x18, 1, 0xFFFFFFFF])
def test_fill_wants_a_length_of_16_bytes(board, length):
    assert_run(
        mem(board, "fill", "0x2000", f"{length:x}", "ff"),
        0,
        b"length must be divided by 16 len:0x%x\n" % length,
        [OPEN, CLOSE],
    )


def test_fill_that_cannot_be_mapped_is_reported(board):
    assert_run(
        mem(board, "fill", "1ffffff0", "20", "1"),
        0,
        b"\033[31mcmd_mem_fill(): \033[0mmmap error for addr 0x1ffffff0\r\n",
        [OPEN, mapped(PAGE + 16, 0x20000000 - PAGE, "EINVAL"), CLOSE],
    )


# --- fillfile -------------------------------------------------------------------------------------

CONTENT = bytes(range(1, 251)) * 20


@pytest.mark.parametrize("length", [(), ("0",), ("word",)])
def test_fillfile_reads_the_whole_file(board, tmp_path, length):
    file = tmp_path / "f.bin"
    file.write_bytes(CONTENT)
    board.path("mnt/sd").mkdir(parents=True, exist_ok=True)
    board.path("mnt/sd/fill.bin").write_bytes(CONTENT)
    words = (*length, file) if length else ()
    assert_run(
        mem(board, "fillfile", "0x17000008", *words),
        0,
        b"",
        [OPEN, mapped(8 + len(CONTENT), 0x17000000), CLOSE],
    )
    assert peek(board, 0x17000000, len(CONTENT) + 16) == bytes(8) + CONTENT + bytes(8)


def test_fillfile_reads_as_much_as_it_is_told(board, tmp_path):
    file = tmp_path / "f.bin"
    file.write_bytes(CONTENT)
    assert_run(
        mem(board, "fillfile", "2000", "11", file), 0, b"", [OPEN, mapped(0x11, 0x2000), CLOSE]
    )
    assert peek(board, 0x2000, 0x20) == CONTENT[:0x11] + bytes(0xF)


def test_fillfile_tells_of_a_file_that_is_too_short(board, tmp_path):
    file = tmp_path / "f.bin"
    file.write_bytes(b"short")
    assert_run(
        mem(board, "fillfile", "2000", "20", file),
        0,
        b"\033[31mcmd_mem_fillfile(): \033[0merror read with size 5\n",
        [OPEN, mapped(0x20, 0x2000), CLOSE],
    )
    assert peek(board, 0x2000, 8) == b"short\0\0\0"


def test_fillfile_of_an_empty_file_changes_nothing(board, tmp_path):
    file = tmp_path / "f.bin"
    file.write_bytes(b"")
    poke(board, 0x2000, b"\xA5" * 16)
    run = mem(board, "fillfile", "2000", "0", file)
    assert (run.stdout, run.stderr, run.status) == (b"", b"", 0)
    assert peek(board, 0x2000, 16) == b"\xA5" * 16


@pytest.mark.parametrize("address", ["0x2004", "2001"])
def test_fillfile_wants_an_address_of_8_bytes(board, tmp_path, address):
    (tmp_path / "f.bin").write_bytes(CONTENT)
    # -1, with the device left open.
    assert_run(
        mem(board, "fillfile", address, "0", tmp_path / "f.bin"),
        255,
        b"Address must be divided by 8 addr:0x%x\n" % int(address, 16),
        [OPEN],
    )


def test_fillfile_without_its_file_fails(board, tmp_path):
    name = tmp_path / "none.bin"
    assert_run(
        mem(board, "fillfile", "2000", "0", name),
        255,
        b"\033[31mcmd_mem_fillfile(): \033[0mcreate file %s fail errno=2\r\n" % bytes(name),
        [OPEN],
    )


def test_fillfile_looks_for_fill_bin_by_default(board):
    assert_run(
        mem(board, "fillfile", "2000"),
        255,
        b"\033[31mcmd_mem_fillfile(): \033[0mcreate file /mnt/sd/fill.bin fail errno=2\r\n",
        [OPEN],
    )


def test_fillfile_of_a_file_beyond_32_bits_fails_silently(board, tmp_path):
    file = tmp_path / "huge.bin"
    with open(file, "wb") as huge:
        huge.truncate(5 << 30)
    assert_run(mem(board, "fillfile", "2000", "10", file), 255, b"", [OPEN])


def test_fillfile_that_cannot_be_mapped_fails(board, tmp_path):
    file = tmp_path / "f.bin"
    file.write_bytes(CONTENT)
    assert_run(
        mem(board, "fillfile", "40000000", "0", file),
        255,
        b"\033[31mcmd_mem_fillfile(): \033[0mmmap error for addr 0x0x40000000\r\n",
        [OPEN, mapped(len(CONTENT), 0x40000000, "EINVAL")],
    )


def test_fillfile_address_that_is_no_number_is_0(board, tmp_path):
    file = tmp_path / "f.bin"
    file.write_bytes(b"first")
    assert_run(mem(board, "fillfile", "word", "0", file), 0, b"", [OPEN, mapped(5, 0), CLOSE])
    assert peek(board, 0, 5) == b"first"


def test_fillfile_name_ends_at_a_blank(board, tmp_path):
    (tmp_path / "a").write_bytes(b"first")
    assert_run(
        mem(board, "fillfile", "2000", "0", "a b", cwd=tmp_path),
        0,
        b"",
        [OPEN, mapped(5, 0x2000), CLOSE],
    )
    assert peek(board, 0x2000, 5) == b"first"


def test_fillfile_name_has_255_characters(board, tmp_path):
    name = "./" + "d/" * 100 + "f" * 53
    assert len(name) == 255
    (tmp_path / ("d/" * 100)).mkdir(parents=True)
    (tmp_path / name).write_bytes(b"far")
    assert_run(
        mem(board, "fillfile", "2000", "0", name, cwd=tmp_path),
        0,
        b"",
        [OPEN, mapped(3, 0x2000), CLOSE],
    )
    # A longer one is cut there.
    assert_run(
        mem(board, "fillfile", "2000", "0", name + "x" * 300, cwd=tmp_path),
        0,
        b"",
        [OPEN, mapped(3, 0x2000), CLOSE],
    )


# --- dump -----------------------------------------------------------------------------------------


def dump_line(address, length, name):
    return b"dump addr = 0x%08x, length = 0x%08X, filename = %s\r\n" % (
        address,
        length,
        bytes(name),
    )


def test_dump_writes_the_region_to_a_file(board, tmp_path):
    file = tmp_path / "d.bin"
    file.write_bytes(b"longer than the region" * 50)
    poke(board, 0x3004, CONTENT)
    assert_run(
        mem(board, "dump", "3004", "203", file),
        0,
        dump_line(0x3004, 0x203, file),
        [OPEN, mapped(4 + 0x203, 0x3000), CLOSE],
    )
    assert file.read_bytes() == CONTENT[:0x203]


def test_dump_address_that_is_no_number_is_0(board, tmp_path):
    file = tmp_path / "d.bin"
    poke(board, 0, b"first")
    assert_run(
        mem(board, "dump", "word", "5", file),
        0,
        dump_line(0, 5, file),
        [OPEN, mapped(5, 0), CLOSE],
    )
    assert file.read_bytes() == b"first"


def test_dump_takes_a_name_of_high_bytes(board, tmp_path):
    name = b"\xff\x80\xa0\x85.bin"  # none of which is a blank
    poke(board, 0x2000, CONTENT)
    run = board.run("btdbg", "mem", "dump", "2000", "10", os.fsdecode(name), cwd=tmp_path)
    assert (run.status, run.stdout) == (0, dump_line(0x2000, 0x10, name))
    assert (tmp_path / os.fsdecode(name)).read_bytes() == CONTENT[:0x10]


@pytest.mark.parametrize("length", [(), ("word",)])
def test_dump_writes_0x100_bytes_by_default(board, tmp_path, length):
    poke(board, 0x2000, CONTENT)
    if length:
        file = name = tmp_path / "d.bin"
    else:
        board.path("mnt/sd").mkdir(parents=True, exist_ok=True)
        file, name = board.path("mnt/sd/dump.bin"), b"/mnt/sd/dump.bin"
    words = (*length, file) if length else ()
    assert_run(
        mem(board, "dump", "2000", *words),
        0,
        dump_line(0x2000, 0x100, name),
        [OPEN, mapped(0x100, 0x2000), CLOSE],
    )
    assert file.read_bytes() == CONTENT[:0x100]


@pytest.mark.parametrize("address", ["0x2000", "0x2001"])
def test_dump_of_no_bytes_fails_silently(board, tmp_path, address):
    # -1, with the device left open, before the address is looked at.
    assert_run(mem(board, "dump", address, "0", tmp_path / "d.bin"), 255, b"", [OPEN])
    assert not (tmp_path / "d.bin").exists()


def test_dump_wants_an_address_of_a_word(board, tmp_path):
    assert_run(
        mem(board, "dump", "2002", "10", tmp_path / "d.bin"),
        0,
        b"Address must be 4 bytes align:0x2002\n",
        [OPEN, CLOSE],
    )
    assert not (tmp_path / "d.bin").exists()


def test_dump_that_cannot_be_mapped_writes_no_file(board, tmp_path):
    file = tmp_path / "d.bin"
    assert_run(
        mem(board, "dump", "50000000", "10", file),
        0,
        dump_line(0x50000000, 0x10, file)
        + b"\033[31mcmd_mem_dump(): \033[0mmmap error for addr 0x0x50000000\r\n",
        [OPEN, mapped(0x10, 0x50000000, "EINVAL"), CLOSE],
    )
    assert not file.exists()


def test_dump_that_cannot_create_its_file_tells_why(board, tmp_path):
    file = tmp_path / "none/d.bin"
    assert_run(
        mem(board, "dump", "2000", "10", file),
        0,
        dump_line(0x2000, 0x10, file)
        + b"\033[31mdebug_dumpmem2file(): \033[0mcreate file %s fail errno=2\r\n" % bytes(file),
        [OPEN, mapped(0x10, 0x2000), CLOSE],
    )


def test_dump_that_cannot_write_tells_how_much(board):
    assert_run(
        mem(board, "dump", "2000", "1234", "/dev/full"),
        0,
        dump_line(0x2000, 0x1234, b"/dev/full")
        + b"\033[31mdebug_dumpmem2file(): \033[0mfail to write 4660 bytes\r\n",
        [OPEN, mapped(0x1234, 0x2000), CLOSE],
    )


def test_dump_reads_back_what_fillfile_loaded(board, tmp_path):
    (tmp_path / "in").write_bytes(CONTENT)
    mem(board, "fillfile", "10000000", "0", "in", cwd=tmp_path)
    mem(board, "dump", "10000000", f"{len(CONTENT):x}", "out", cwd=tmp_path)
    assert (tmp_path / "out").read_bytes() == CONTENT


# --- What is closed and unmapped, and when -------------------------------------------------------

FILES = ("/dev/mem", "/mnt/sd/fill.bin", "/mnt/sd/dump.bin")
AT = 0x2FF0


def unmapped(size):
    return err(f"munmap {size} = 0\n")


def on_disk(board, name, content=b""):
    board.path("mnt/sd").mkdir(parents=True, exist_ok=True)
    if content:
        board.path(name).write_bytes(content)


@pytest.mark.parametrize(
    "words, span",
    [
        (("r", "2ff0", "20"), 0x20),
        (("w", "2ff0", "1"), 256),
        (("bit", "2ff0", "3", "1"), 256),
        (("bit", "2ff0", "3", "0"), 256),
        (("fill", "2ff0", "30", "5a"), 0x30),
    ],
)
def test_what_was_mapped_is_unmapped_before_the_device_is_closed(board, words, span):
    size = AT % PAGE + span
    run = mem(board, *words, story=True, **untraced(board))
    lines = [line for line in run.story if not line.startswith("out ")]
    assert lines == [OPEN, mapped(size, AT // PAGE * PAGE), *unmapped(size), CLOSE]
    # Each text about the region is printed while the region is mapped.
    assert run.story[-2:] == lines[-2:] and len(run.story) > len(lines)


def test_fillfile_closes_its_file_and_unmaps(board):
    on_disk(board, "mnt/sd/fill.bin", CONTENT)
    size = AT % PAGE + len(CONTENT)
    run = mem(board, "fillfile", "2ff0", story=True, **untraced(board))
    lines = [line for line in run.story if not line.startswith(("read ", "stat "))]
    assert lines == [
        OPEN,
        "open /mnt/sd/fill.bin RDONLY = 4",
        mapped(size, AT // PAGE * PAGE),
        "close /mnt/sd/fill.bin = 0",
        *unmapped(size),
        CLOSE,
    ]


def test_fillfile_closes_its_file_after_a_failed_stat(board):
    on_disk(board, "mnt/sd/fill.bin", CONTENT)
    board.fault("/mnt/sd/fill.bin absent time=0.000002..")  # only after its open
    run = mem(board, "fillfile", "2ff0", story=True)
    assert (run.status, run.stdout) == (255, b"")
    lines = [line.split(" ")[:2] for line in run.story]
    assert lines == [
        ["open", "/dev/mem"],
        ["open", "/mnt/sd/fill.bin"],
        ["stat", "/mnt/sd/fill.bin"],
        ["close", "/mnt/sd/fill.bin"],
    ]


def test_fillfile_that_cannot_be_mapped_closes_its_file_and_leaves_the_device_open(board):
    on_disk(board, "mnt/sd/fill.bin", CONTENT)
    board.fault("/dev/mem mmap errno=ENOMEM")
    run = mem(board, "fillfile", "2ff0", story=True)
    assert_story(
        run,
        OPEN,
        "open /mnt/sd/fill.bin RDONLY = 4",
        mapped(AT % PAGE + len(CONTENT), AT // PAGE * PAGE, "ENOMEM"),
        out("\033[31mcmd_mem_fillfile(): \033[0mmmap error for addr 0x0x2ff0\r\n"),
        "close /mnt/sd/fill.bin = 0",
        only=("open", "mmap", "close"),
    )
    assert run.status == 255


def test_dump_closes_its_file_and_unmaps(board):
    on_disk(board, "mnt/sd/dump.bin")
    poke(board, AT, CONTENT)
    size = AT % PAGE + 0x200
    assert_story(
        mem(board, "dump", "2ff0", "200", story=True, **untraced(board)),
        OPEN,
        out(dump_line(AT, 0x200, b"/mnt/sd/dump.bin")),
        mapped(size, AT // PAGE * PAGE),
        "open /mnt/sd/dump.bin RDWR|CREAT|TRUNC = 4",
        f"write /mnt/sd/dump.bin in={CONTENT[:0x200].hex()} = 512",
        "close /mnt/sd/dump.bin = 0",
        unmapped(size),
        CLOSE,
    )


@pytest.mark.parametrize("written", [0, 1, 0x1FF])
def test_dump_does_not_notice_a_short_write(board, written):
    on_disk(board, "mnt/sd/dump.bin")
    poke(board, AT, CONTENT)
    board.fault(f"/mnt/sd/dump.bin write short={written}")
    run = mem(board, "dump", "2ff0", "200")
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout == dump_line(AT, 0x200, b"/mnt/sd/dump.bin")
    assert [line.split(" ")[0] for line in run.requests_on("/mnt/sd/dump.bin")] == [
        "open",
        "write",
        "close",
    ]
    assert board.path("mnt/sd/dump.bin").read_bytes() == CONTENT[:written]


@pytest.mark.parametrize("mask", [0o000, 0o022])
def test_dump_makes_a_file_for_everyone_whom_the_mask_allows(board, tmp_path, mask):
    before = os.umask(mask)
    try:
        mem(board, "dump", "2000", "10", tmp_path / "d.bin")
    finally:
        os.umask(before)
    assert (tmp_path / "d.bin").stat().st_mode & 0o7777 == 0o777 & ~mask


def test_dump_that_cannot_write_closes_and_unmaps(board):
    on_disk(board, "mnt/sd/dump.bin")
    board.fault("/mnt/sd/dump.bin write errno=ENOSPC")
    size = AT % PAGE + 0x10
    assert_story(
        mem(board, "dump", "2ff0", "10", story=True, **untraced(board)),
        OPEN,
        out(dump_line(AT, 0x10, b"/mnt/sd/dump.bin")),
        mapped(size, AT // PAGE * PAGE),
        "open /mnt/sd/dump.bin RDWR|CREAT|TRUNC = 4",
        "write /mnt/sd/dump.bin in=00*16 = ENOSPC",
        out("\033[31mdebug_dumpmem2file(): \033[0mfail to write 16 bytes\r\n"),
        "close /mnt/sd/dump.bin = 0",
        unmapped(size),
        CLOSE,
    )


def test_interrupt_is_ignored_by_the_group(board):
    run = mem(board, "r", "2000", "10", signals=["INT@0"])
    assert run.status == 0
