"""bt2 dtbofs: a text property of the running device tree."""

import shutil

import pytest

USAGE = b"\n dtbofs v1.0\n\nUsage: dtbofs [args]\n\n\n\nexample:\n" b"  dtbofs /chosen test aaaa\n"

OVERLAYS = "/sys/kernel/config/device-tree/overlays"


def dtbofs(board, *words, **options):
    return board.run("bt2", "dtbofs", *words, **options)


@pytest.mark.parametrize("words", [(), ("-h",), ("/chosen", "test"), ("/chosen", "test", "a", "b")])
def test_wants_node_property_and_text(board, words):
    run = dtbofs(board, *words, rigcore=[])
    assert (run.stdout, run.stderr, run.status) == (b"", USAGE, 255)


@pytest.mark.parametrize(
    "text, block", [("aaaa", "61*4"), ("a b", "612062"), ("", ""), ("\u00e0\u00ff", "c3a0c3bf")]
)
def test_hands_the_text_over_without_its_nul(board, text, block):
    run = dtbofs(
        board,
        "/chosen",
        "test",
        text,
        rigcore=[f'rig_dtb_overlay 1 "/chosen" "test" 1 hex:{block} {len(text.encode())} = 0'],
    )
    assert (run.stdout, run.stderr, run.status) == (b"", b"", 0)


@pytest.mark.parametrize("result, status", [("-1 errno=2", 255), ("-22", 234), ("3", 3)])
def test_returns_the_library_s_result(board, result, status):
    run = dtbofs(
        board,
        "/none",
        "test",
        "x",
        rigcore=[f'rig_dtb_overlay 1 "/none" "test" 1 hex:78 1 = {result}'],
    )
    assert (run.stdout, run.stderr, run.status) == (b"", b"", status)


# --- With the board's own library -----------------------------------------------------------------


def tree(board, name):
    return board.path("proc/device-tree") / name


def test_property_comes_into_the_tree_with_its_nul(board):
    run = dtbofs(board, "/chosen", "test", "aaaa")
    assert (run.stdout, run.stderr, run.status) == (b"", b"", 0)
    assert tree(board, "chosen/test").read_bytes() == b"aaaa\0"
    assert (
        board.vboard("show", board.directory, "overlays/benchrig-0")
        == b"/chosen test 6161616100 -\n"
    )


def test_property_keeps_high_bytes(board):
    assert dtbofs(board, "/chosen", "test", "\u00e0\u00ff").status == 0
    assert tree(board, "chosen/test").read_bytes() == b"\xc3\xa0\xc3\xbf\0"


def test_property_of_the_root(board):
    assert dtbofs(board, "/", "nickname", "bench 7").status == 0
    assert tree(board, "nickname").read_bytes() == b"bench 7\0"


def test_later_overlay_wins_and_can_be_taken_back(board):
    dtbofs(board, "/chosen", "test", "first")
    dtbofs(board, "/chosen", "test", "second")
    assert tree(board, "chosen/test").read_bytes() == b"second\0"
    assert board.run_command(["rmdir", f"{OVERLAYS}/benchrig-1"]).status == 0
    assert tree(board, "chosen/test").read_bytes() == b"first\0"
    assert board.run_command(["rmdir", f"{OVERLAYS}/benchrig-0"]).status == 0
    assert not tree(board, "chosen/test").exists()


def test_node_that_does_not_exist_is_refused(board):
    run = dtbofs(board, "/chosen/none", "test", "aaaa")
    assert (run.stdout, run.stderr, run.status) == (
        b"",
        b"rig_dtb_overlay: no such node in the device tree\n",
        255,
    )
    assert not any("mkdir" in line for line in run.requests)


@pytest.mark.parametrize(
    "node, name", [("chosen", "test"), ("", "test"), ("/chosen", ""), ("/chosen", "a/b")]
)
def test_property_that_makes_no_sense_is_refused(board, node, name):
    run = dtbofs(board, node, name, "aaaa")
    assert (run.stdout, run.stderr, run.status) == (
        b"",
        b"rig_dtb_overlay: not a property that a device tree can hold\n",
        255,
    )


def test_kernel_without_overlays_says_so(board):
    board.fault("/sys/kernel/config/device-tree/overlays absent")
    run = dtbofs(board, "/chosen", "test", "aaaa")
    assert (run.stdout, run.stderr, run.status) == (
        b"",
        b"rig_dtb_overlay: this kernel takes no device-tree overlays at run time\n",
        255,
    )


@pytest.mark.parametrize("obstacle", ["no room", "all taken"])
def test_overlay_directory_that_takes_no_more_is_reported(board, obstacle):
    overlays = board.path(OVERLAYS[1:])
    if obstacle == "no room":
        shutil.rmtree(overlays)
        overlays.write_bytes(b"")
    else:
        for number in range(1000):
            (overlays / f"benchrig-{number}").mkdir()
    run = dtbofs(board, "/chosen", "test", "aaaa")
    assert (run.stdout, run.stderr, run.status) == (
        b"",
        b"rig_dtb_overlay: the kernel's overlay directory takes no new overlay\n",
        255,
    )
    assert not tree(board, "chosen/test").exists()


@pytest.mark.parametrize(
    "fault",
    [
        "dtbo open errno=EACCES",
        "dtbo write errno=EIO",
        "dtbo write short=40",
        "dtbo close errno=EIO",
        "status read errno=EIO",
        "status open errno=EIO",
        "status read short=0",  # not "applied"
    ],
)
def test_overlay_that_the_kernel_refuses_is_taken_back(board, fault):
    board.fault(f"{OVERLAYS}/benchrig-0/{fault}")
    run = dtbofs(board, "/chosen", "test", "aaaa")
    if "write short" in fault:  # the rest goes in a second write
        assert (run.stdout, run.stderr, run.status) == (b"", b"", 0)
        assert tree(board, "chosen/test").read_bytes() == b"aaaa\0"
        return
    assert (run.stdout, run.stderr, run.status) == (
        b"",
        b"rig_dtb_overlay: the kernel refused the overlay\n",
        255,
    )
    assert f"rmdir {OVERLAYS}/benchrig-0 = 0" in run.requests
    assert not tree(board, "chosen/test").exists()
