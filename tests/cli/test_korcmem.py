"""bt2 korcmem: the reserved memory blocks."""

import pytest

from conftest import assert_story, err, out, untraced
from device_trace import calls, packed

OPEN = "open /dev/korcmem RDWR|NONBLOCK = 3"
CLOSE = "close /dev/korcmem = 0"

USAGE = (
    b"\nUsage: korcmem [option]\n\noption:\n\n"
    b"    -i     get cmemblock info\n"
    b"    -d     init cmemblock\n"
    b"    -a     alloc cmemblock\n"
    b"    -f     free memory\n"
    b"    -g     free memory pages    -c     dcache memory flush    -n     dcache memory invalidate\t"
    b" -h     print this uage\n"
    b"example:\n\n"
    b"\t korcmem  -g  [cmemid] ---The korcmemblock free pages \n"
)

DECODER = ("decoder", 0x18000000, 0x00800000)  # block 10
ISP = ("isp", 0x17800000, 0x00400000)  # block 3


def korcmem(board, *words, **options):
    return board.run("bt2", "korcmem", *words, **options)


def info_record(block, name="", base=0, size=0):
    return (
        block.to_bytes(4, "little", signed=True)
        + name.encode().ljust(64, b"\0")
        + bytes(4)
        + base.to_bytes(8, "little")
        + size.to_bytes(8, "little")
        + bytes(40)
    )


def request(name, record, result="0"):
    return f"ioctl /dev/korcmem {name} in={packed(record)} = {result}"


def info(block, found):
    record, answer = info_record(block), info_record(block, *found)
    return f"ioctl /dev/korcmem KORCMEM_CMEMINFO in={packed(record)} out={packed(answer)} = 0"


def failed_info(block, errno="EINVAL"):
    return request("KORCMEM_CMEMINFO", info_record(block), errno)


def page_free(block, result="0"):
    return request("KORCMEM_PAGE_FREE", block.to_bytes(4, "little").ljust(32, b"\0"), result)


def release(block, found, result="0"):
    _, base, size = found
    record = base.to_bytes(8, "little") + size.to_bytes(8, "little") + block.to_bytes(4, "little")
    return request("KORCMEM_RELEASE", record.ljust(64, b"\0"), result)


def finish(result="0"):
    return request("KORCMEM_FINISH", bytes(4), result)


def mapped(found, result="0"):
    return f"mmap /dev/korcmem {found[2]} RW at={found[1]:#x} = {result}"


def state(board, block):
    for line in board.path("dev/korcmem").read_text(encoding="utf-8").splitlines():
        if line.startswith(f"state{block} ="):
            return line.split("=")[1].strip()
    return None


def assert_run(run, status, stdout, requests, stderr=b""):
    assert run.stdout == stdout
    assert run.stderr == stderr
    assert calls(run) == list(requests)
    assert run.status == status


# --- Device and options ---------------------------------------------------------------------------


@pytest.mark.parametrize("fault, errno", [("absent", "ENOENT"), ("open errno=EBUSY", "EBUSY")])
@pytest.mark.parametrize("words", [(), ("-h",), ("-i", "10")])
def test_device_that_does_not_open_fails(board, fault, errno, words):
    board.fault(f"/dev/korcmem {fault}")
    assert_run(
        korcmem(board, *words),
        255,
        b"open /dev/korcmem error!\n",
        [f"open /dev/korcmem RDWR|NONBLOCK = {errno}"],
    )


@pytest.mark.parametrize("words", [(), ("10",), ("10", "11")])
def test_without_an_option_nothing_is_done(board, words):
    assert_run(korcmem(board, *words), 0, b"", [OPEN, CLOSE])


@pytest.mark.parametrize(
    "words", [("-h",), ("-d", "10"), ("-a", "10"), ("-f", "10"), ("-c", "10"), ("-n", "10")]
)
def test_help_and_the_options_that_do_nothing_print_the_usage(board, words):
    assert_run(korcmem(board, *words), 0, b"", [OPEN, CLOSE], USAGE)


@pytest.mark.parametrize("words", [("-x",), ("-i",), ("-g",), ("-w",), ("-d",)])
def test_unknown_or_incomplete_option_prints_the_usage(board, words):
    run = korcmem(board, *words)
    assert run.stdout == b""
    complaint = run.stderr.removesuffix(USAGE)
    assert complaint != run.stderr, run.stderr
    assert complaint.startswith(b"korcmem: ") and complaint.count(b"\n") == 1
    assert (run.requests, run.status) == ([OPEN, CLOSE], 0)


@pytest.mark.parametrize("words", [("-i3",), ("-g10",), ("-w10",)])
def test_option_whose_block_is_no_second_word_prints_the_usage(board, words):
    assert_run(korcmem(board, *words), 0, b"", [OPEN, CLOSE], USAGE)


def test_each_option_is_answered_in_turn(board):
    assert_run(
        korcmem(board, "-g", "10", "-h", "-g", "99"),
        0,
        b"",
        [OPEN, page_free(10), page_free(10), CLOSE],
        USAGE,
    )


# --- -i -------------------------------------------------------------------------------------------


@pytest.mark.parametrize("block, found", [(10, DECODER), (3, ISP)])
def test_info_shows_the_block(board, block, found):
    name, base, size = found
    assert_run(
        korcmem(board, "-i", str(block)),
        0,
        f"cmem id {block}\ncmem name {name}\ncmem base {base:x}\ncmem size {size:x}\n".encode(),
        [OPEN, info(block, found), CLOSE],
    )


@pytest.mark.parametrize(
    "word, block", [("9", 9), ("-1", -1), ("block", 0), ("0x10", 0), ("77x", 77)]
)
def test_info_asks_for_any_id(board, word, block):
    assert_run(
        korcmem(board, "-i", word),
        0,
        b"[korcmem_main]KORCMEM_CMEMINFO error\n",
        [OPEN, failed_info(block), CLOSE],
    )


def test_info_of_64_bit_addresses(board):
    board.set("/dev/korcmem", "block20", "high 0x140000000 0x1000")
    run = korcmem(board, "-i", "20")
    assert run.stdout == b"cmem id 20\ncmem name high\ncmem base 140000000\ncmem size 1000\n"


def test_info_shows_a_name_of_high_bytes_as_it_is(board):
    board.set("/dev/korcmem", "block20", "\u00e9\u00ff 0x14000000 0x1000")
    run = korcmem(board, "-i", "20")
    assert (
        run.stdout
        == b"cmem id 20\ncmem name \xc3\xa9\xc3\xbf\ncmem base 14000000\ncmem size 1000\n"
    )


def test_every_option_reads_the_second_word(board):
    # -g reports 3, which -i has shown, and not its own 12.
    assert_run(
        korcmem(board, "-i", "3", "-g", "12"),
        0,
        b"cmem id 3\ncmem name isp\ncmem base 17800000\ncmem size 400000\n"
        b"cmemid is 3 this is error cmemid!\n",
        [OPEN, info(3, ISP), CLOSE],
    )


def test_info_shows_the_number_that_the_driver_answers(board):
    board.set("/dev/korcmem", "alias10", 77)
    assert korcmem(board, "-i", "10").stdout == (
        b"cmem id 77\ncmem name decoder\ncmem base 18000000\ncmem size 800000\n"
    )


# --- -g -------------------------------------------------------------------------------------------


@pytest.mark.parametrize("block", [10, 11, 12, 13, 14, 15])
def test_pages_of_blocks_10_to_15_are_freed(board, block):
    assert_run(korcmem(board, "-g", str(block)), 0, b"", [OPEN, page_free(block), CLOSE])
    assert state(board, block) == "freed"


@pytest.mark.parametrize("block", [9, 16, 0, -10])
def test_pages_of_other_blocks_are_not(board, block):
    assert_run(
        korcmem(board, "-g", str(block)),
        0,
        b"cmemid is %d this is error cmemid!\n" % block,
        [OPEN, CLOSE],
    )


def test_pages_that_are_not_freed_are_reported(board):
    board.fault("/dev/korcmem ioctl:KORCMEM_PAGE_FREE errno=EIO")
    assert_run(
        korcmem(board, "-g", "10"),
        0,
        b"[korcmem_main]page free error\n",
        [OPEN, page_free(10, "EIO"), CLOSE],
    )


# --- -w -------------------------------------------------------------------------------------------

HEAD = b"cmemblock base:0x18000000 size:0x800000\n"


def test_block_is_mapped_and_handed_back(board):
    assert_run(
        korcmem(board, "-w", "10"),
        0,
        HEAD,
        [
            OPEN,
            info(10, DECODER),
            mapped(DECODER),
            finish(),
            release(10, DECODER),
            page_free(10),
            CLOSE,
        ],
    )
    assert state(board, 10) == "freed"


@pytest.mark.parametrize("block", [9, 16, 3])
def test_other_blocks_are_not_mapped(board, block):
    assert_run(
        korcmem(board, "-w", str(block)),
        0,
        b"[korcmem_main]cmemid is %d this is error cmemid!\n" % block,
        [OPEN, CLOSE],
    )


def test_block_without_info_is_not_mapped(board):
    board.fault("/dev/korcmem ioctl:KORCMEM_CMEMINFO errno=ENODEV")
    assert_run(
        korcmem(board, "-w", "10"),
        0,
        b"[korcmem_main]KORCMEM_CMEMINFO error\n",
        [OPEN, failed_info(10, "ENODEV"), CLOSE],
    )


def test_mapping_that_fails_ends_the_sequence(board):
    board.fault("/dev/korcmem mmap errno=ENOMEM")
    assert_run(
        korcmem(board, "-w", "10"),
        0,
        HEAD + b"[korcmem_main]mmap error\n",
        [OPEN, info(10, DECODER), mapped(DECODER, "ENOMEM"), CLOSE],
    )


def test_finish_that_fails_ends_the_sequence(board):
    board.fault("/dev/korcmem ioctl:KORCMEM_FINISH errno=EIO")
    assert_run(
        korcmem(board, "-w", "10"),
        0,
        HEAD + b"[korcmem_main]KORCMEM_FINISH error\n",
        [OPEN, info(10, DECODER), mapped(DECODER), finish("EIO"), CLOSE],
    )
    assert state(board, 10) == "mapped"


@pytest.mark.parametrize("fault", [None, "EIO"])
def test_block_is_unmapped_after_the_finish_and_before_it_is_handed_back(board, fault):
    if fault:
        board.fault(f"/dev/korcmem ioctl:KORCMEM_FINISH errno={fault}")
    rest = [release(10, DECODER), page_free(10)]
    if fault:
        rest = []
    assert_story(
        korcmem(board, "-w", "10", story=True, **untraced(board)),
        OPEN,
        info(10, DECODER),
        out(HEAD),
        mapped(DECODER),
        finish(fault or "0"),
        out("[korcmem_main]KORCMEM_FINISH error\n" if fault else ""),
        err(f"munmap {DECODER[2]} = 0\n"),
        *rest,
        CLOSE,
    )


def test_release_that_fails_has_the_info_request_s_text(board):
    board.fault("/dev/korcmem ioctl:KORCMEM_RELEASE errno=EBUSY")
    run = korcmem(board, "-w", "10")
    assert run.stdout == HEAD + b"[korcmem_main]KORCMEM_CMEMINFO error\n"
    assert calls(run)[:5] == [
        OPEN,
        info(10, DECODER),
        mapped(DECODER),
        finish(),
        release(10, DECODER, "EBUSY"),
    ]
    assert run.status == 0


def test_page_free_that_fails_is_reported(board):
    board.fault("/dev/korcmem ioctl:KORCMEM_PAGE_FREE errno=EIO")
    assert_run(
        korcmem(board, "-w", "10"),
        0,
        HEAD + b"[korcmem_main]page free error\n",
        [
            OPEN,
            info(10, DECODER),
            mapped(DECODER),
            finish(),
            release(10, DECODER),
            page_free(10, "EIO"),
            CLOSE,
        ],
    )


def test_positive_results_are_no_failures(board):
    for name in ("CMEMINFO", "FINISH", "RELEASE", "PAGE_FREE"):
        board.fault(f"/dev/korcmem ioctl:KORCMEM_{name} result=3")
    run = korcmem(board, "-w", "10")
    assert (run.status, run.stdout, run.stderr) == (0, HEAD, b"")
    assert len(calls(run)) == 7
    assert korcmem(board, "-i", "10").stdout.startswith(b"cmem id 10\n")


def test_mapping_has_32_bits_of_base_and_size(board):
    board.set("/dev/korcmem", "block10", "high 0x118000000 0x100800000")
    run = korcmem(board, "-w", "10")
    assert run.stdout.startswith(b"cmemblock base:0x118000000 size:0x100800000\n")
    assert calls(run)[2].startswith("mmap /dev/korcmem 8388608 RW at=0x18000000 = ")


def test_block_is_handed_back_by_the_number_that_was_asked_for(board):
    board.set("/dev/korcmem", "alias10", 77)
    lines = calls(korcmem(board, "-w", "10"))
    assert lines[-3:] == [release(10, DECODER), page_free(10), CLOSE]


def test_failure_does_not_end_the_option_walk(board):
    board.fault("/dev/korcmem mmap errno=ENOMEM nth=1")
    assert_run(
        korcmem(board, "-w", "10", "-g", "x"),
        0,
        HEAD + b"[korcmem_main]mmap error\n",
        [OPEN, info(10, DECODER), mapped(DECODER, "ENOMEM"), page_free(10), CLOSE],
    )
