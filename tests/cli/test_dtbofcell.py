"""bt2 dtbofcell: a property of up to 16 cells of the running device tree."""

import sys

import pytest

# Its head names another tool.
USAGE = (
    b"\n dtbofu64 v1.0\n\nUsage: dtbofcell [args]\n\n\n\nexample:\n"
    b"  dtbofcell /chosen testu64 2 0x11223344 0x55667788\n"
)


def dtbofcell(board, *words, **options):
    return board.run("bt2", "dtbofcell", *words, **options)


def handed_over(name, cells, result="0"):
    data = b"".join(cell.to_bytes(4, sys.byteorder) for cell in cells)
    return [f'rig_dtb_overlay 1 "/chosen" "{name}" 2 hex:{data.hex()} {len(data)} = {result}']


@pytest.mark.parametrize(
    "words", [(), ("-h",), ("/chosen",), ("/chosen", "p"), ("/chosen", "p", "1")]
)
def test_wants_a_cell_at_least(board, words):
    run = dtbofcell(board, *words, rigcore=[])
    assert (run.stdout, run.stderr, run.status) == (b"", USAGE, 255)


@pytest.mark.parametrize(
    "words, cells",
    [
        (("2", "0x11223344", "0x55667788"), [0x11223344, 0x55667788]),
        (("1", "7", "8", "9"), [7]),  # no more than it says
        (("4", "10", "010"), [10, 8, 0, 0]),  # what is missing is 0
        (("0x3", "1", "2", "word"), [1, 2, 0]),
        (("0", "1"), []),
        (("cells", "1"), []),
        (("2", "0x1FFFFFFFF", "-1"), [0xFFFFFFFF, 0xFFFFFFFF]),
        (("20", "1", "2"), [1, 2] + [0] * 14),  # 16 at most
        (("17", *map(str, range(1, 18))), list(range(1, 17))),
        (("16", *map(str, range(1, 17))), list(range(1, 17))),
        (("-1", "5"), [5] + [0] * 15),
    ],
)
def test_hands_over_native_words(board, words, cells):
    run = dtbofcell(board, "/chosen", "p", *words, rigcore=handed_over("p", cells))
    assert (run.stdout, run.stderr, run.status) == (b"", b"", 0)


def test_returns_the_library_s_result(board):
    run = dtbofcell(board, "/chosen", "p", "1", "1", rigcore=handed_over("p", [1], "-5"))
    assert (run.stdout, run.stderr, run.status) == (b"", b"", 251)


# --- With the board's own library -----------------------------------------------------------------


def test_cells_come_into_the_tree_big_endian(board):
    run = dtbofcell(board, "/chosen", "testu64", "2", "0x11223344", "0x55667788")
    assert (run.stdout, run.stderr, run.status) == (b"", b"", 0)
    assert board.path("proc/device-tree/chosen/testu64").read_bytes() == bytes.fromhex(
        "1122334455667788"
    )
    assert board.vboard("show", board.directory, "/proc/device-tree/chosen/testu64") == (
        b"0000  11 22 33 44 55 66 77 88                          ." + b'"3DUfw.\n'
    )


def test_no_cells_make_an_empty_property(board):
    assert dtbofcell(board, "/chosen", "flag", "0", "1").status == 0
    assert board.path("proc/device-tree/chosen/flag").read_bytes() == b""


def test_change_of_a_property_keeps_the_others(board):
    before = board.path("proc/device-tree/chosen/u-boot,version").read_bytes()
    assert dtbofcell(board, "/chosen", "p", "1", "1").status == 0
    assert board.path("proc/device-tree/chosen/u-boot,version").read_bytes() == before
