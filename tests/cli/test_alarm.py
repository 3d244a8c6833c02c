"""bt1 alarm: alarm inputs and output, through the platform library."""

import pytest

USAGE = (
    "\nUsage: alarm [input\\output] [num]\n\n"
    "         alarm input [num] 获取 num 路报警输入电平\n"
    "         alarm outout [0/1] 控制报警输出为[0/1]\n"
    "example:\n  alarm input 8\n  alarm output 1\n"
).encode("utf-8")


def inputs(*levels):
    return b"input : \n" + b"".join(
        b"       ALARM IN[%d] : %d \n" % row for row in enumerate(levels)
    )


# --- Arguments ---


@pytest.mark.parametrize(
    "words",
    [
        (),
        ("input",),
        ("output",),
        ("-h",),
        ("Autotest",),
        ("input", "8", "8"),
        ("output", "1", "1"),
        ("autotest", "1", "2"),
    ],
)
def test_wrong_count_prints_usage_and_fails(board, words):
    run = board.run("bt1", "alarm", *words, rigcore=[])
    assert (run.status, run.stdout, run.stderr) == (255, b"", USAGE)
    assert run.requests == []


@pytest.mark.parametrize("word", ["foo", "-h", "autotest", "Input", "inputs", ""])
def test_three_elements_with_another_word_print_usage_and_succeed(board, word):
    run = board.run("bt1", "alarm", word, "1", rigcore=[])
    assert (run.status, run.stdout, run.stderr) == (0, b"", USAGE)


# --- alarm input ---


@pytest.mark.parametrize(
    "count, word, levels",
    [
        ("0", 0xFF, ()),
        ("-3", 0xFF, ()),
        ("x", 0xFF, ()),
        ("1", 0, (1,)),
        ("1", 1, (0,)),
        ("3", 0b010, (1, 0, 1)),  # active low: a set bit prints 0
        ("8", 0, (1,) * 8),
        ("8", 0xFF, (0,) * 8),
        ("8", 0xFFFFFF00, (1,) * 8),
        ("8x", 0x81, (0, 1, 1, 1, 1, 1, 1, 0)),
        ("010", 0x200, (1, 1, 1, 1, 1, 1, 1, 1, 1, 0)),
        ("32", 0x80000000, (1,) * 31 + (0,)),
        ("35", 0xFFFFFFFF, (0,) * 32 + (1,) * 3),  # there is no bit 32: its level counts as 0
    ],
)
def test_prints_the_inverted_level_of_each_input(board, count, word, levels):
    run = board.run("bt1", "alarm", "input", count, rigcore=[f"rig_alarm_input -> {word} = 0"])
    assert (run.status, run.stdout, run.stderr) == (0, inputs(*levels), b"")


@pytest.mark.parametrize("result", [-1, 1, -19])
def test_input_that_cannot_be_read_fails(board, result):
    run = board.run("bt1", "alarm", "input", "2", rigcore=[f"rig_alarm_input = {result} errno=5"])
    assert (run.status, run.stdout, run.stderr) == (
        255,
        b"alarm_main:84 get alarm input failed \n",
        b"",
    )


# --- alarm output: the library's result is read the other way round ---


@pytest.mark.parametrize(
    "word, passed", [("1", 1), ("0", 0), ("7", 7), ("on", 0), ("0x1", 0), ("-1", 4294967295)]
)
@pytest.mark.parametrize("result", [1, -1])
def test_a_non_zero_result_of_the_output_is_success(board, word, passed, result):
    run = board.run(
        "bt1", "alarm", "output", word, rigcore=[f"rig_alarm_output {passed} = {result}"]
    )
    assert (run.status, run.stdout, run.stderr) == (0, b"output set OK\n", b"")


def test_a_zero_result_of_the_output_is_failure(board):
    run = board.run("bt1", "alarm", "output", "1", rigcore=["rig_alarm_output 1 = 0 errno=19"])
    assert (run.status, run.stdout, run.stderr) == (255, b"alarm_main:104 output set failed\n", b"")


# --- alarm autotest ---


def loop_back(first, second, output=1):
    return [
        f"rig_alarm_output 1 = {output}",
        f"rig_alarm_input -> {first} = 0",
        f"rig_alarm_output 0 = {output}",
        f"rig_alarm_input -> {second} = 0",
    ]


# The inputs read while the output is on are not examined, nor is what setting the output returned.
@pytest.mark.parametrize("first", [0, 0xFF])
@pytest.mark.parametrize("output", [1, 0, -1])
def test_autotest_looks_at_the_second_reading_alone(board, first, output):
    run = board.run("bt1", "alarm", "autotest", rigcore=loop_back(first, 0, output))
    assert (run.status, run.stdout, run.stderr) == (0, b"", b"")
    assert run.requests == []


@pytest.mark.parametrize("second", [1, 0x80, 0xFFFFFFFF, 0x80000000])
def test_autotest_fails_on_an_input_that_stays_set(board, second):
    run = board.run("bt1", "alarm", "autotest", rigcore=loop_back(0xFF, second))
    assert (run.status, run.stdout, run.stderr) == (
        255,
        b"alarm_autotest:54 alarm auto test failed\n",
        b"",
    )


@pytest.mark.parametrize("result", [-1, 2])
def test_autotest_ends_at_a_failed_first_reading(board, result):
    run = board.run(
        "bt1",
        "alarm",
        "autotest",
        rigcore=["rig_alarm_output 1 = 1", f"rig_alarm_input = {result} errno=5"],
    )
    assert (run.status, run.stdout, run.stderr) == (
        255,
        b"alarm_autotest:41 get alarm input failed \n",
        b"",
    )


@pytest.mark.parametrize("result", [-1, 2])
def test_autotest_ends_at_a_failed_second_reading(board, result):
    run = board.run(
        "bt1",
        "alarm",
        "autotest",
        rigcore=[
            "rig_alarm_output 1 = 1",
            "rig_alarm_input -> 255 = 0",
            "rig_alarm_output 0 = 1",
            f"rig_alarm_input = {result} errno=5",
        ],
    )
    assert (run.status, run.stdout, run.stderr) == (
        255,
        b"alarm_autotest:49 get alarm input failed \n",
        b"",
    )


# --- On the board, whose bench plug leads the output back to the inputs ---


def test_autotest_passes_on_the_healthy_board(board):
    run = board.run("bt1", "alarm", "autotest")
    assert (run.status, run.stdout, run.stderr) == (0, b"", b"")


def test_inputs_follow_the_output(board):
    run = board.run("bt1", "alarm", "output", "1")
    assert (run.status, run.stdout, run.stderr) == (0, b"output set OK\n", b"")
    run = board.run("bt1", "alarm", "input", "8")
    assert (run.status, run.stdout, run.stderr) == (0, inputs(*[0] * 8), b"")
    assert board.run("bt1", "alarm", "output", "0").status == 0
    run = board.run("bt1", "alarm", "input", "8")
    assert (run.status, run.stdout, run.stderr) == (0, inputs(*[1] * 8), b"")


def test_autotest_fails_with_a_broken_wire_and_an_input_stuck_high(board):
    board.path("sys.wires").write_text("", encoding="utf-8")
    board.set("/sys/class/gpio/gpio43/value", "1")
    run = board.run("bt1", "alarm", "autotest")
    assert (run.status, run.stdout, run.stderr) == (
        255,
        b"alarm_autotest:54 alarm auto test failed\n",
        b"",
    )


@pytest.mark.parametrize("fault", ["open errno=EIO", "read errno=EIO", "absent"])
def test_input_of_the_board_that_fails(board, fault):
    board.fault(f"/sys/class/gpio/gpio42/value {fault}")
    run = board.run("bt1", "alarm", "input", "8")
    assert (run.status, run.stdout, run.stderr) == (
        255,
        b"alarm_main:84 get alarm input failed \n",
        b"",
    )


@pytest.mark.parametrize("fault", ["open errno=EIO", "write errno=EIO", "absent"])
def test_output_of_the_board_that_fails(board, fault):
    board.fault(f"/sys/class/gpio/gpio48/value {fault}")
    run = board.run("bt1", "alarm", "output", "1")
    assert (run.status, run.stdout, run.stderr) == (255, b"alarm_main:104 output set failed\n", b"")
