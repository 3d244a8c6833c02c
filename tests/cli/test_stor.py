"""bt2 stor: storage devices and their power.

What the applet asks of the platform library is tested with the stand-in library. What the library
does is tested on attributes that each test puts into the board's /sys, and on the map's entries
`storage.N = NAME SWITCH [HOST]`.
"""

import pytest

from conftest import assert_story, out

USAGE = (
    b"\n stor v1.0\nUsage:\n\n"
    b"    stor  -l                     ---list all stor name\n"
    b"    stor  -s  stor_name   1/0    ---set stor state, stor_name(mmcblk0; msa) 1:POWERUP  0:POWEROFF\n"
    b"    stor  -g  stor_name          ---get stor state, stor_name(mmcblk0; msa)\n\n\nexample:\n\n"
    b"    stor  -s  msa   1       ---set msa  POWERUP\n    stor  -g  msa           ---get msa  state\n\n\n"
)

STATES = [
    "STOR_OFFLINE",
    "STOR_ONLINE",
    "STOR_ERROR",
    "STOR_DAMAGE",
    "STOR_DET",
    "STOR_FS_PANIC",
    "STOR_READONLY",
]
START = b"**********stor_autotest start**********\n"
OFF = b"***stor_autotest unpower the devices***\n"
ON = b"***stor_autotest power the devices***\n"
RECOVER = b"*******recovering*******\n"
GOOD = b"*********stor_autotest sucess*********\n"
BAD = b"*********stor_autotest fail***********\n"
LIST_BAD = b"rig_stor_devlist failure.\n"
UNKNOWN = b"Set command  error, no this command!\n"


def listing(*devices):
    lines = b"rig_stor_devlist sucess!\n have %d storarge devices:\n" % len(devices)
    for index, (name, state, power) in enumerate(devices):
        lines += b"dev[%d]name:%s, state:0x%x, power_state:%d\n" % (
            index,
            name.encode(),
            state,
            power,
        )
    return lines


def devlist(*devices):
    return (
        f"rig_stor_devlist -> {len(devices)} "
        + " ".join(f'"{name}" {state} {power}' for name, state, power in devices)
        + " = 0"
    )


def assert_run(run, status, stdout=b"", stderr=b""):
    assert (run.stdout, run.stderr, run.status) == (stdout, stderr, status)


# --- what the library is asked ------------------------------------------------------------------


@pytest.mark.parametrize("words", [(), ("-h",), ("-h", "-a")])
def test_usage(board, words):
    assert len(USAGE) == 357
    assert_run(board.run("bt2", "stor", *words, rigcore=[]), 255, b"", USAGE)


@pytest.mark.parametrize(
    "words, usages",
    [
        (("-l", "x"), 1),
        (("-l", "-l"), 2),
        (("-g", "msa", "x"), 1),
        (("-gmsa",), 1),
        (("-s", "msa"), 1),
        (("-s", "msa", "1", "x"), 1),
    ],
)
def test_wrong_counts_print_the_usage_and_end_well(board, words, usages):
    assert_run(board.run("bt2", "stor", *words, rigcore=[]), 0, b"", usages * USAGE)


def test_unknown_option_goes_on(board):
    run = board.run("bt2", "stor", "-xl", rigcore=[devlist(("msa", 1, 1))])
    assert (run.status, run.stdout) == (0, UNKNOWN + listing(("msa", 1, 1)))


def test_option_without_its_word(board):
    run = board.run("bt2", "stor", "-s", rigcore=[])
    assert (run.status, run.stdout) == (0, UNKNOWN)


def test_lists(board):
    devices = [("mmcblk0", 1, 1), ("msa", 12, 0)]
    assert_run(board.run("bt2", "stor", "-l", rigcore=[devlist(*devices)]), 0, listing(*devices))
    assert_run(board.run("bt2", "stor", "-l", rigcore=[devlist()]), 0, listing())
    assert_run(
        board.run("bt2", "stor", "-l", rigcore=["rig_stor_devlist = -1 errno=5"]), 0, LIST_BAD
    )


@pytest.mark.parametrize("state", range(7))
def test_names_of_states(board, state):
    script = [f'rig_stor_dev_state "msa" = {state}', 'rig_stor_dev_power_state "msa" = 1']
    assert_run(
        board.run("bt2", "stor", "-g", "msa", rigcore=script),
        0,
        f"msa state: {STATES[state]}.\nmsa power_state: STOR_POWERUP.\n".encode(),
    )


@pytest.mark.parametrize("state, power", [(7, 2), (-1, -1), (1000, 255)])
def test_numbers_of_states(board, state, power):
    script = [f'rig_stor_dev_state "msa" = {state}', f'rig_stor_dev_power_state "msa" = {power}']
    assert_run(
        board.run("bt2", "stor", "-g", "msa", rigcore=script),
        0,
        b"msa state: %d.\nmsa power_state: %d.\n" % (state, power),
    )


@pytest.mark.parametrize(
    "word, power, shown",
    [
        ("1", 1, b"STOR_POWERUP"),
        ("0", 0, b"STOR_POWEROFF"),
        ("2", 2, b"2"),
        ("1x", 1, b"STOR_POWERUP"),
    ],
)
def test_switches(board, word, power, shown):
    run = board.run(
        "bt2", "stor", "-s", "msa", word, rigcore=[f'rig_stor_dev_power_ctrl "msa" {power} = 0']
    )
    assert_run(run, 0, b"stor_state.name = msa\nmsa power_state: " + shown + b".\n")


def test_failed_switch(board):
    run = board.run(
        "bt2", "stor", "-s", "msa", "1", rigcore=['rig_stor_dev_power_ctrl "msa" 1 = -1 errno=5']
    )
    assert_run(run, 0, b"stor_state.name = msa\nrig_stor_dev_power_ctrl failure.\n")


# Only a negative result is a failure.


@pytest.mark.parametrize("result", [1, 3])
def test_positive_results_are_no_failures(board, result):
    devices = [("mmcblk0", 1, 1), ("msa", 1, 0)]
    run = board.run("bt2", "stor", "-l", rigcore=[devlist(*devices)[:-1] + str(result)])
    assert_run(run, 0, listing(*devices))
    run = board.run(
        "bt2", "stor", "-s", "msa", "0", rigcore=[f'rig_stor_dev_power_ctrl "msa" 0 = {result}']
    )
    assert_run(run, 0, b"stor_state.name = msa\nmsa power_state: STOR_POWEROFF.\n")

    script, output = cycle({"mmcblk0": 1, "msa": 0})
    script = [line[:-1] + str(result) for line in script]
    assert_run(board.run("bt2", "stor", "-a", rigcore=script), 0, output + GOOD)


def test_words_that_do_not_scan(board):
    assert_run(
        board.run("bt2", "stor", "-s", " ", "1", rigcore=[]),
        0,
        b"stor_main:250 input stor_state.name err\n",
        USAGE,
    )
    assert_run(
        board.run("bt2", "stor", "-s", "msa", "on", rigcore=[]),
        0,
        b"stor_main:257 input stor_state.power_state err\n",
        USAGE,
    )
    assert_run(
        board.run("bt2", "stor", "-g", "", rigcore=[]),
        0,
        b"stor_main:287 input stor_state.name err\n",
        USAGE,
    )


def cycle(states):
    """The script of a power cycle of devices that start in `states`, and its output."""
    names = list(states)
    on, off = [(n, 1, 1) for n in names], [(n, 0, 0) for n in names]
    first = [(n, 1, states[n]) for n in names]
    script = (
        [devlist(*first)]
        + [f'rig_stor_dev_power_ctrl "{n}" 0 = 0' for n in names]
        + [devlist(*off)]
        + [f'rig_stor_dev_power_ctrl "{n}" 1 = 0' for n in names]
        + [devlist(*on)]
        + [f'rig_stor_dev_power_ctrl "{n}" {states[n]} = 0' for n in names]
        + [devlist(*first)]
    )
    output = (
        START
        + listing(*first)
        + OFF
        + listing(*off)
        + ON
        + listing(*on)
        + RECOVER
        + listing(*first)
    )
    return script, output


@pytest.mark.parametrize("states", [{}, {"msa": 1}, {"mmcblk0": 1, "msa": 0, "msb": 1}])
def test_power_cycle(board, states):
    script, output = cycle(states)
    assert_run(board.run("bt2", "stor", "-a", rigcore=script), 0, output + GOOD)


def test_power_cycle_that_fails_at_the_second_device(board):
    devices = [("mmcblk0", 1, 1), ("msa", 1, 1)]
    script = [
        devlist(*devices),
        'rig_stor_dev_power_ctrl "mmcblk0" 0 = 0',
        'rig_stor_dev_power_ctrl "msa" 0 = -1 errno=5',
    ]
    assert_run(
        board.run("bt2", "stor", "-a", rigcore=script),
        0,
        START + listing(*devices) + OFF + b"rig_stor_dev_power_ctrl msa failure.\n" + BAD,
    )


def test_power_cycle_that_cannot_recover(board):
    script, output = cycle({"mmcblk0": 1, "msa": 0})
    script = script[:-2] + ['rig_stor_dev_power_ctrl "msa" 0 = -1 errno=5']
    begin = output[: output.index(RECOVER) + len(RECOVER)]
    assert_run(
        board.run("bt2", "stor", "-a", rigcore=script),
        0,
        begin + b"rig_stor_dev_power_ctrl msa failure.\n" + BAD,
    )


@pytest.mark.parametrize("step", range(4))
def test_power_cycle_that_cannot_list(board, step):
    script, output = cycle({"msa": 1})
    lists = [index for index, line in enumerate(script) if line.startswith("rig_stor_devlist")]
    run = board.run(
        "bt2", "stor", "-a", rigcore=script[: lists[step]] + ["rig_stor_devlist = -1 errno=5"]
    )
    begin = output.split(b"rig_stor_devlist sucess!")[: step + 1]
    assert_run(run, 0, b"rig_stor_devlist sucess!".join(begin) + LIST_BAD + BAD)


# --- what the library does ----------------------------------------------------------------------


def block_device(board, name, **attributes):
    for path, value in {"ro": "0", "device/type": "x", **attributes}.items():
        file = board.path(f"sys/block/{name}/{path.replace('__', '/')}")
        file.parent.mkdir(parents=True, exist_ok=True)
        file.write_text(value + "\n")


def attribute(board, path, value):
    file = board.path(path.lstrip("/"))
    file.parent.mkdir(parents=True, exist_ok=True)
    file.write_text(value + "\n")


@pytest.fixture
def empty(board):
    """A board without block devices."""
    top = board.path("sys/block")
    if top.exists():
        for file in sorted(top.rglob("*"), reverse=True):
            file.rmdir() if file.is_dir() else file.unlink()
    else:
        top.mkdir(parents=True)
    return board


def storage_map(board, *entries):
    with open(board.path("etc/benchrig/board.conf"), "a", encoding="utf-8") as file:
        for index in range(16):
            file.write(f"storage.{index} = {entries[index] if index < len(entries) else ''}\n")


def test_a_board_without_storage(empty):
    storage_map(empty)
    assert_run(empty.run("bt2", "stor", "-l"), 0, listing())


def test_devices_in_the_order_of_their_names(empty):
    storage_map(empty)
    for name in ("sdb", "mmcblk0", "sda", "nvme0n1"):
        block_device(empty, name)
    for name in ("mmcblk0boot0", "mmcblk0rpmb", "mtdblock0", "sr0"):
        block_device(empty, name)
    (empty.path("sys/block") / "loop0").mkdir()
    (empty.path("sys/block") / "zram0").mkdir()
    assert_run(
        empty.run("bt2", "stor", "-l"),
        0,
        listing(("mmcblk0", 1, 1), ("nvme0n1", 1, 1), ("sda", 1, 1), ("sdb", 1, 1)),
    )


def test_names_are_ordered_by_bytes_without_a_sign(empty):
    storage_map(empty)
    for name in ("sd\u00e9", "sda", "\u00e9", "sdz"):
        block_device(empty, name)
    assert_run(
        empty.run("bt2", "stor", "-l"),
        0,
        listing(*((name, 1, 1) for name in ("sda", "sdz", "sd\u00e9", "\u00e9"))),
    )


def test_sixteen_devices_fit(empty):
    storage_map(empty)
    names = [f"sd{chr(97 + index)}" for index in range(18)]
    for name in names:
        block_device(empty, name)
    assert_run(empty.run("bt2", "stor", "-l"), 0, listing(*((name, 1, 1) for name in names[:16])))


@pytest.mark.parametrize(
    "attributes, state",
    [
        ({"device__state": "running"}, 1),
        ({"device__state": "offline"}, 0),
        ({"device__state": "deleted"}, 0),
        ({"device__state": "created"}, 4),
        ({"device__state": "blocked"}, 2),
        ({"device__state": "transport-offline"}, 2),
        ({"device__state": "running", "ro": "1"}, 6),
        ({"ro": "1"}, 6),
        ({}, 1),
    ],
)
def test_states(empty, attributes, state):
    storage_map(empty)
    block_device(empty, "sda", **attributes)
    assert_run(
        empty.run("bt2", "stor", "-g", "sda"),
        0,
        f"sda state: {STATES[state]}.\nsda power_state: STOR_POWERUP.\n".encode(),
    )


def test_a_device_that_is_not_there(empty):
    storage_map(empty)
    assert_run(
        empty.run("bt2", "stor", "-g", "sdz"),
        0,
        b"sdz state: STOR_OFFLINE.\nsdz power_state: -1.\n",
    )


# "\u00e0" ends in the byte A0 and "\u0105" in 85: neither is a blank on the board.
HIGH = "\u00e0\u0105"


def test_names_of_high_bytes_are_one_word(empty):
    storage_map(empty, f"{HIGH} {LINE}")
    attribute(empty, LINE, "1")
    assert_run(empty.run("bt2", "stor", "-l"), 0, listing((HIGH, 0, 1)))
    assert_run(
        empty.run("bt2", "stor", "-g", HIGH),
        0,
        f"{HIGH} state: STOR_OFFLINE.\n{HIGH} power_state: STOR_POWERUP.\n".encode(),
    )
    assert_run(
        empty.run("bt2", "stor", "-s", HIGH, "0"),
        0,
        f"stor_state.name = {HIGH}\n{HIGH} power_state: STOR_POWEROFF.\n".encode(),
    )
    assert empty.path(LINE[1:]).read_text().strip() == "0"


def test_power_needs_a_switch(empty):
    storage_map(empty)
    block_device(empty, "sda", device__delete="")
    assert_run(
        empty.run("bt2", "stor", "-s", "sda", "0"),
        0,
        b"stor_state.name = sda\nrig_stor_dev_power_ctrl failure.\n",
    )
    assert empty.path("sys/block/sda/device/delete").read_text().strip() == ""


RAIL = "/sys/devices/platform/hd0-power/state"
LINE = "/sys/class/gpio/gpio70/value"
SCAN = "/sys/class/scsi_host/host0/scan"


def test_switching_a_disk_with_a_regulator_and_a_host(empty):
    storage_map(empty, f"sda {RAIL} host0")
    block_device(empty, "sda", device__delete="", device__state="running")
    attribute(empty, RAIL, "enabled")
    attribute(empty, SCAN, "")

    run = empty.run("bt2", "stor", "-s", "sda", "0")
    assert_run(run, 0, b"stor_state.name = sda\nsda power_state: STOR_POWEROFF.\n")
    assert empty.path("sys/block/sda/device/delete").read_text().strip() == "1"
    assert empty.path(RAIL[1:]).read_text().strip() == "disabled"
    writes = [line.split()[1] for line in run.requests if line.startswith("write")]
    assert writes == [
        "/sys/block/sda/device/delete",
        RAIL,
    ]  # the kernel lets go before the power does
    assert b"sda power_state: STOR_POWEROFF.\n" in empty.run("bt2", "stor", "-g", "sda").stdout

    run = empty.run("bt2", "stor", "-s", "sda", "1")
    assert_run(run, 0, b"stor_state.name = sda\nsda power_state: STOR_POWERUP.\n")
    assert empty.path(RAIL[1:]).read_text().strip() == "enabled"
    assert empty.path(SCAN[1:]).read_text().strip() == "- - -"
    writes = [line.split()[1] for line in run.requests if line.startswith("write")]
    assert writes == [RAIL, SCAN]


def test_switching_a_card_with_a_line(empty):
    storage_map(empty, f"msa {LINE}")
    attribute(empty, LINE, "1")
    assert_run(
        empty.run("bt2", "stor", "-s", "msa", "0"),
        0,
        b"stor_state.name = msa\nmsa power_state: STOR_POWEROFF.\n",
    )
    assert empty.path(LINE[1:]).read_text().strip() == "0"
    # Off, it is listed all the same.
    assert_run(empty.run("bt2", "stor", "-l"), 0, listing(("msa", 0, 0)))


def test_the_kernel_that_does_not_let_go_keeps_the_power(empty):
    storage_map(empty, f"sda {RAIL} host0")
    block_device(empty, "sda", device__delete="")
    attribute(empty, RAIL, "enabled")
    empty.fault("/sys/block/sda/device/delete write errno=EBUSY")
    assert_run(
        empty.run("bt2", "stor", "-s", "sda", "0"),
        0,
        b"stor_state.name = sda\nrig_stor_dev_power_ctrl failure.\n",
    )
    assert empty.path(RAIL[1:]).read_text().strip() == "enabled"


@pytest.mark.parametrize("entry", [f"sda {RAIL}", "sda"])
def test_a_switch_that_cannot_be_read_fails_the_list(empty, entry):
    storage_map(empty, entry)
    block_device(empty, "sda")
    assert_run(empty.run("bt2", "stor", "-l"), 0, LIST_BAD)


def test_a_map_that_names_no_switch_fails_the_list_without_a_device_too(empty):
    storage_map(empty, "msa")
    assert_run(empty.run("bt2", "stor", "-l"), 0, LIST_BAD)


def test_only_the_switch_of_the_device_is_thrown(empty):
    others = ["/sys/class/gpio/gpio71/value", "/sys/class/gpio/gpio72/value"]
    for line in (LINE, *others):
        attribute(empty, line, "1")
    storage_map(empty, f"msz {others[0]}", f"msa {LINE}", f"msaa {others[1]}")
    for power in "01":
        assert_run(
            empty.run("bt2", "stor", "-s", "msa", power),
            0,
            b"stor_state.name = msa\nmsa power_state: "
            + (b"STOR_POWERUP" if power == "1" else b"STOR_POWEROFF")
            + b".\n",
        )
        assert empty.path(LINE[1:]).read_text().strip() == power
        assert [empty.path(line[1:]).read_text().strip() for line in others] == ["1", "1"]


@pytest.mark.parametrize("power", ["2", "4294967296"])
def test_other_power_values_are_refused(empty, power):
    storage_map(empty, f"msa {LINE}")
    attribute(empty, LINE, "1")
    run = empty.run("bt2", "stor", "-s", "msa", power)
    assert run.stdout == b"stor_state.name = msa\nrig_stor_dev_power_ctrl failure.\n"
    assert empty.path(LINE[1:]).read_text().strip() == "1"


@pytest.mark.parametrize("name", ["../../etc", ".", "a/b"])
def test_names_that_lead_out_of_the_folder(empty, name):
    storage_map(empty)
    run = empty.run("bt2", "stor", "-g", name)
    assert_run(run, 0, f"{name} state: -1.\n{name} power_state: -1.\n".encode())


def test_power_cycle_of_the_boards_devices(empty):
    storage_map(empty, f"msa {LINE}")
    attribute(empty, LINE, "1")
    on, off = listing(("msa", 0, 1)), listing(("msa", 0, 0))
    assert_run(
        empty.run("bt2", "stor", "-a"), 0, START + on + OFF + off + ON + on + RECOVER + on + GOOD
    )


# --- the board's own devices ----------------------------------------------------------------------

HERE = (("mmcblk0", 1, 1), ("sda", 1, 1))
GONE = (("mmcblk0", 0, 0), ("sda", 0, 0))
SDA_POWER = "/sys/devices/platform/sda-power/state"


def test_the_boards_disk_goes_and_comes_back(board):
    assert_run(board.run("bt2", "stor", "-l"), 0, listing(*HERE))
    node = board.path("dev/sda").read_text()

    assert_run(
        board.run("bt2", "stor", "-s", "sda", "0"),
        0,
        b"stor_state.name = sda\nsda power_state: STOR_POWEROFF.\n",
    )
    assert not board.path("dev/sda").exists()
    assert not board.path("sys/block/sda").exists()
    assert_run(
        board.run("bt2", "stor", "-g", "sda"),
        0,
        b"sda state: STOR_OFFLINE.\nsda power_state: STOR_POWEROFF.\n",
    )
    assert_run(board.run("bt2", "stor", "-l"), 0, listing(HERE[0], GONE[1]))
    assert (
        b"rig_sata_read_identify_info error errno = 2\n"
        in board.run("bt2", "hdsmart", "/dev/sda").stdout
    )

    assert_run(
        board.run("bt2", "stor", "-s", "sda", "1"),
        0,
        b"stor_state.name = sda\nsda power_state: STOR_POWERUP.\n",
    )
    assert board.path("dev/sda").read_text() == node
    assert_run(
        board.run("bt2", "stor", "-g", "sda"),
        0,
        b"sda state: STOR_ONLINE.\nsda power_state: STOR_POWERUP.\n",
    )
    assert board.run("bt2", "hdsmart", "/dev/sda").status == 0


def written(path, text):
    return f"write {path} in={text.encode().hex()} = {len(text)}"


def switched(device, state):
    return written(f"/sys/devices/platform/{device}-power/state", state)


LET_GO = written("/sys/block/sda/device/delete", "1")
SCANNED = written("/sys/class/scsi_host/host0/scan", "- - -")


def test_a_switch_is_announced_before_and_reported_after_it_was_thrown(board):
    assert_story(
        board.run("bt2", "stor", "-s", "sda", "0", story=True),
        out("stor_state.name = sda\n"),
        LET_GO,
        switched("sda", "disabled"),
        out("sda power_state: STOR_POWEROFF.\n"),
        only=("write",),
    )
    assert_story(
        board.run("bt2", "stor", "-s", "sda", "1", story=True),
        out("stor_state.name = sda\n"),
        switched("sda", "enabled"),
        SCANNED,
        out("sda power_state: STOR_POWERUP.\n"),
        only=("write",),
    )


def test_each_step_of_a_power_cycle_is_announced_before_it_is_done(board):
    off = [switched("mmcblk0", "disabled"), LET_GO, switched("sda", "disabled")]
    on = [switched("mmcblk0", "enabled"), switched("sda", "enabled"), SCANNED]
    assert_story(
        board.run("bt2", "stor", "-a", story=True),
        out(START + listing(*HERE) + OFF),
        *off,
        out(listing(*GONE) + ON),
        *on,
        out(listing(*HERE) + RECOVER),
        *on,
        out(listing(*HERE) + GOOD),
        only=("write",),
    )


@pytest.mark.parametrize("power, devices", [("0", (HERE[0], GONE[1])), ("1", HERE)])
def test_switching_twice_is_switching_once(board, power, devices):
    first, second = (board.run("bt2", "stor", "-s", "sda", power) for _ in range(2))
    assert_run(second, first.status, first.stdout)
    assert_run(board.run("bt2", "stor", "-l"), 0, listing(*devices))


def test_power_cycle_of_the_new_board(board):
    assert_run(
        board.run("bt2", "stor", "-a"),
        0,
        START
        + listing(*HERE)
        + OFF
        + listing(*GONE)
        + ON
        + listing(*HERE)
        + RECOVER
        + listing(*HERE)
        + GOOD,
    )


def test_power_cycle_returns_to_the_state_of_the_start(board):
    board.run("bt2", "stor", "-s", "sda", "0")
    first = listing(HERE[0], GONE[1])
    assert_run(
        board.run("bt2", "stor", "-a"),
        0,
        START + first + OFF + listing(*GONE) + ON + listing(*HERE) + RECOVER + first + GOOD,
    )


def test_a_switch_that_fails_for_the_second_device_leaves_the_first_one_off(board):
    board.fault(f"{SDA_POWER} write errno=EIO")
    assert_run(
        board.run("bt2", "stor", "-a"),
        0,
        START + listing(*HERE) + OFF + b"rig_stor_dev_power_ctrl sda failure.\n" + BAD,
    )
    assert_run(board.run("bt2", "stor", "-l"), 0, listing(GONE[0], HERE[1]))
    assert board.path("dev/sda").exists()
    assert_run(
        board.run("bt2", "stor", "-s", "sda", "0"),
        0,
        b"stor_state.name = sda\nrig_stor_dev_power_ctrl failure.\n",
    )


def test_switching_from_outside(board):
    board.set(SDA_POWER, "0")
    assert board.path(SDA_POWER[1:]).read_text() == "disabled\n"
    assert_run(board.run("bt2", "stor", "-l"), 0, listing(HERE[0], GONE[1]))
    board.set(SDA_POWER, "enabled")
    assert_run(board.run("bt2", "stor", "-l"), 0, listing(*HERE))
    with pytest.raises(AssertionError):
        board.set(SDA_POWER, "on")
    assert board.path(SDA_POWER[1:]).read_text() == "enabled\n"


def test_a_disk_that_is_off_can_be_broken_before_it_comes_back(board):
    board.set(SDA_POWER, "0")
    board.set("/dev/sda", "smart_exceeded", "1")
    assert not board.path("dev/sda").exists()
    board.set(SDA_POWER, "1")
    assert "\nsmart_exceeded = 1\n" in board.path("dev/sda").read_text()
