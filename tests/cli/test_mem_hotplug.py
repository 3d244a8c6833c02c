"""bt2 mem_hotplug: memory blocks for the running kernel."""

import pytest

from device_trace import calls, packed

MEMORY = "/sys/devices/system/memory"
SIZE_FILE = f"{MEMORY}/block_size_bytes"

USAGE = (
    b"===============\n"
    b"Usage:\n"
    b"mem_hotplug [addr] [size]\n"
    b"sample: mem_hotplug 0x1000 0x1000\n"
)

FAILED = b"nvtmem_hotplug_set fail ret:-1\n"


def hotplug(board, *words):
    return board.run("bt2", "mem_hotplug", *words)


def read_file(path, text):
    return [
        f"open {path} RDONLY = 3",
        f"read {path} out={packed(text)} = {len(text)}",
        f"close {path} = 0",
    ]


def write_file(path, text, result=None):
    data = text.encode() + b"\0"  # the NUL is written along
    return [
        f"open {path} WRONLY = 3",
        f"write {path} in={packed(data)} = {len(data) if result is None else result}",
        f"close {path} = 0",
    ]


BLOCK_SIZE = read_file(SIZE_FILE, b"8000000\n")


def block_missing(index):
    return [f"stat {MEMORY}/memory{index} = ENOENT"]


def probe(address):
    return write_file(f"{MEMORY}/probe", f"0x{address:08x}")


def state(index, text):
    return read_file(f"{MEMORY}/memory{index}/state", text + b"\n")


def assert_run(run, status, stdout, requests):
    assert run.stdout == stdout
    assert run.stderr == b""
    assert calls(run) == list(requests)
    assert run.status == status


@pytest.mark.parametrize("words", [(), ("0x80000000",)])
def test_without_address_and_size_prints_the_usage(board, words):
    assert_run(hotplug(board, *words), 255, USAGE, [])


def test_blocks_go_in_from_the_last_to_the_first(board):
    run = hotplug(board, "0x80000000", "0x18000000")
    assert_run(
        run,
        0,
        b"",
        [
            *BLOCK_SIZE,
            *block_missing(16),
            *probe(0x90000000),
            *probe(0x88000000),
            *probe(0x80000000),
            *state(18, b"offline"),
            *state(17, b"offline"),
            *state(16, b"offline"),
        ],
    )
    # A block that is offline stays so.
    for index in (16, 17, 18):
        assert (
            board.path(f"{MEMORY[1:]}/memory{index}/state").read_text(encoding="utf-8")
            == "offline\n"
        )


def test_blocks_that_are_not_offline_are_set_movable(board):
    board.set(f"{MEMORY}/auto_online_blocks", "online")
    run = hotplug(board, "0x80000000", "0x10000000")
    # The kernel refuses the change of a block that is online already: nothing is said of it.
    movable = [
        write_file(f"{MEMORY}/memory{index}/state", "online_movable", "EINVAL")
        for index in (17, 16)
    ]
    assert_run(
        run,
        0,
        b"",
        [
            *BLOCK_SIZE,
            *block_missing(16),
            *probe(0x88000000),
            *probe(0x80000000),
            *state(17, b"online"),
            *movable[0],
            *state(16, b"online"),
            *movable[1],
        ],
    )


@pytest.mark.parametrize(
    "text, writes",
    [
        (b"offline", False),
        (b"offline-soon", False),
        (b"going-offline", True),
        (b"offlin", True),
        (b"OFFLINE", True),
        (b"", True),
    ],
)
def test_state_is_compared_in_its_first_seven_bytes(board, text, writes):
    board.path(f"{MEMORY[1:]}/memory20").mkdir()
    board.path(f"{MEMORY[1:]}/memory20/state").write_bytes(text + b"\n")
    # Of the range 19 and 20 only 20 is there: the probe of 19 is what makes the first one.
    run = hotplug(board, "0x98000000", "0x10000000")
    wrote = f"open {MEMORY}/memory20/state WRONLY = 3" in run.requests
    assert wrote == writes
    assert run.status == 0


def test_range_that_is_there_already_is_not_probed(board):
    assert_run(
        hotplug(board, "0x08000000", "0x08000000"),
        0,
        b"mem has plugged.\n",
        [*BLOCK_SIZE, f"stat {MEMORY}/memory1 = 0"],
    )


def test_only_the_first_block_is_looked_for(board):
    run = hotplug(board, "0", "0")
    assert_run(run, 0, b"mem has plugged.\n", [*BLOCK_SIZE, f"stat {MEMORY}/memory0 = 0"])


def test_block_that_is_a_file_is_not_there(board):
    board.path(f"{MEMORY[1:]}/memory16").write_text("a file\n", encoding="utf-8")
    run = hotplug(board, "0x80000000", "0")
    assert_run(run, 0, b"", [*BLOCK_SIZE, f"stat {MEMORY}/memory16 = 0"])


def test_no_size_does_nothing(board):
    assert_run(hotplug(board, "0x80000000", "0"), 0, b"", [*BLOCK_SIZE, *block_missing(16)])


@pytest.mark.parametrize(
    "address, size",
    [("0x1000", "0x1000"), ("0x1000", "0x8000000"), ("0x8000000", "0x1000"), ("4096", "010000")],
)
def test_range_must_be_whole_blocks(board, address, size):
    numbers = (int(address, 0), int(size, 8) if size == "010000" else int(size, 0))
    assert_run(
        hotplug(board, address, size),
        0,
        b"nvtmem: Your parameters are not aligned.              "
        b"Addr: %u size: %u aligned size: 134217728\n" % numbers + FAILED,
        BLOCK_SIZE,
    )


def test_numbers_have_32_bits(board):
    # The address saturates, the size wraps; the block size is printed signed.
    board.path(SIZE_FILE[1:]).write_text("80000000\n", encoding="utf-8")
    run = hotplug(board, "0x100000000", "-4096")
    assert run.stdout == (
        b"nvtmem: Your parameters are not aligned.              "
        b"Addr: 4294967295 size: 4294963200 aligned size: -2147483648\n" + FAILED
    )


def test_addresses_wrap_at_32_bits(board):
    run = hotplug(board, "0xf8000000", "0x10000000")
    probes = [line for line in calls(run) if line.startswith(f"write {MEMORY}/probe")]
    assert probes == [probe(0x00000000)[1].replace("= 11", "= EEXIST"), probe(0xF8000000)[1]]


@pytest.mark.parametrize(
    "fault, line",
    [
        ("absent", f"open {SIZE_FILE} RDONLY = ENOENT"),
        ("open errno=EACCES", f"open {SIZE_FILE} RDONLY = EACCES"),
    ],
)
def test_block_size_that_does_not_open_fails(board, fault, line):
    board.fault(f"{SIZE_FILE} {fault}")
    assert_run(
        hotplug(board, "0x80000000", "0x8000000"),
        0,
        b"nvtmem: can't get alignment size\n" + FAILED,
        [line],
    )


def test_block_size_that_cannot_be_read_fails(board):
    board.fault(f"{SIZE_FILE} read errno=EIO")
    run = hotplug(board, "0x80000000", "0x8000000")
    assert run.stdout == b"nvtmem: can't get alignment size\n" + FAILED
    assert run.requests[-1] == f"close {SIZE_FILE} = 0"


@pytest.mark.parametrize("text", ["0\n", "\n", "", "none\n"])
def test_block_size_of_0_fails_silently(board, text):
    board.path(SIZE_FILE[1:]).write_text(text, encoding="utf-8")
    run = hotplug(board, "0x80000000", "0x8000000")
    assert (run.stdout, run.stderr, run.status) == (FAILED, b"", 0)


def test_block_size_needs_no_line_end(board):
    board.path(SIZE_FILE[1:]).write_text("8000000", encoding="utf-8")
    run = hotplug(board, "0x80000000", "0")
    assert (run.stdout, run.status) == (b"", 0)


@pytest.mark.parametrize("end", ["", "0", "\n", "00\n"])
def test_block_size_is_read_up_to_31_bytes(board, end):
    text = 24 * "0" + "8000000" + end
    board.path(SIZE_FILE[1:]).write_text(text, encoding="utf-8")
    assert_run(
        hotplug(board, "0x1000", "0x1000"),
        0,
        b"nvtmem: Your parameters are not aligned.              "
        b"Addr: 4096 size: 4096 aligned size: 134217728\n" + FAILED,
        read_file(SIZE_FILE, text[:31].encode()),
    )


def test_kernel_without_the_probe_file_shows_in_the_state(board):
    board.fault(f"{MEMORY}/probe absent")
    assert_run(
        hotplug(board, "0x80000000", "0x10000000"),
        0,
        b"nvtmem: can't get state\n" + FAILED,
        [
            *BLOCK_SIZE,
            *block_missing(16),
            f"open {MEMORY}/probe WRONLY = ENOENT",
            f"open {MEMORY}/probe WRONLY = ENOENT",
            f"open {MEMORY}/memory17/state RDONLY = ENOENT",
        ],
    )


def test_probe_that_fails_is_silent(board):
    board.fault(f"{MEMORY}/probe write errno=ENOMEM nth=2")
    run = hotplug(board, "0x80000000", "0x10000000")
    # 17 went in, 16 did not.
    assert run.stdout == b"nvtmem: can't get state\n" + FAILED
    assert calls(run)[-4:] == [
        *state(17, b"offline"),
        f"open {MEMORY}/memory16/state RDONLY = ENOENT",
    ]
    assert run.status == 0


def test_state_that_cannot_be_read_ends_the_run(board):
    board.fault(f"{MEMORY}/memory17/state read errno=EIO")
    run = hotplug(board, "0x80000000", "0x18000000")
    assert run.stdout == b"nvtmem: can't get state\n" + FAILED
    assert f"open {MEMORY}/memory16/state RDONLY = 3" not in run.requests


def test_words_behind_the_size_are_ignored(board):
    assert hotplug(board, "0x80000000", "0x8000000", "more").stdout == b""
