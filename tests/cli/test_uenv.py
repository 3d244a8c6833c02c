"""bt2 uenv list, get and set: variables of the U-Boot environment."""

import pytest

USAGE = (
    b"\n uenv v1.0\n\nUsage: uenv [func] [args]\n\n"
    b"    list                   list uboot enviroment\n"
    b"    get [key]              get uboot env by key\n"
    b"    set [key] [value]      set uboot env value by key\n"
    b"\n\nexample:\n  uenv list\n  uenv get bootargs\n  uenv set kdbg 8\n"
)
KEY70 = "k" * 70
KEY63 = "k" * 63


# --- list ---


def listing(*variables):
    """The calls for (key, value) rows in order."""
    calls = [f"rig_uenv_totalkey = {len(variables)}"]
    for i, (key, value) in enumerate(variables):
        calls += [
            f'rig_uenv_key {i} 64 -> "{key}" = 0',
            f'rig_uenv_get "{key}" 256 -> "{value}" = 0',
        ]
    return calls


def test_list_numbers_every_variable(board):
    rows = [
        ("bootcmd", "run a; run b"),
        ("empty", ""),
        ("bootargs", "console=ttyS0,115200 root=/dev/sda1"),
    ]
    run = board.run("bt2", "uenv", "list", rigcore=listing(*rows))
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout == (
        b"[00/03]bootcmd=run a; run b\n[01/03]empty=\n"
        b"[02/03]bootargs=console=ttyS0,115200 root=/dev/sda1\n\n"
    )
    assert run.requests == []


def test_list_prints_numbers_of_two_digits_or_more(board):
    rows = [(f"k{i}", f"v{i}") for i in range(101)]
    run = board.run("bt2", "uenv", "list", rigcore=listing(*rows))
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout == b"".join(b"[%02d/101]k%d=v%d\n" % (i, i, i) for i in range(101)) + b"\n"


def test_list_of_an_empty_environment_warns(board):
    run = board.run("bt2", "uenv", "list", rigcore=["rig_uenv_totalkey = 0"])
    assert (run.status, run.stdout, run.stderr) == (0, b"warn: env_total = 0\n", b"")


def test_list_goes_on_after_a_key_that_cannot_be_read(board):
    run = board.run(
        "bt2",
        "uenv",
        "list",
        rigcore=[
            "rig_uenv_totalkey = 2",
            "rig_uenv_key 0 64 = -1 errno=5",
            'rig_uenv_key 1 64 -> "b" = 0',
            'rig_uenv_get "b" 256 -> "2" = 0',
        ],
    )
    assert (run.status, run.stdout, run.stderr) == (
        0,
        b"[00/02]key[] get key fail\n[01/02]b=2\n\n",
        b"",
    )


def test_list_goes_on_after_a_value_that_cannot_be_read(board):
    run = board.run(
        "bt2",
        "uenv",
        "list",
        rigcore=[
            "rig_uenv_totalkey = 2",
            'rig_uenv_key 0 64 -> "a" = 0',
            'rig_uenv_get "a" 256 = -1 errno=5',
            'rig_uenv_key 1 64 -> "b" = 0',
            'rig_uenv_get "b" 256 -> "2" = 0',
        ],
    )
    assert (run.status, run.stdout, run.stderr) == (
        0,
        b"[00/02]key[a] get value fail\n[01/02]b=2\n\n",
        b"",
    )


@pytest.mark.parametrize("total", [-1, -5])
def test_list_of_an_environment_that_cannot_be_read(board, total):
    # Only 0 is an empty environment; the number was the last operation.
    run = board.run("bt2", "uenv", "list", rigcore=[f"rig_uenv_totalkey = {total} errno=5"])
    assert (run.status, run.stdout, run.stderr) == (256 + total, b"\n", b"")


@pytest.mark.parametrize("result", [-1, -5, 3])
def test_list_returns_the_result_of_the_last_value(board, result):
    run = board.run(
        "bt2",
        "uenv",
        "list",
        rigcore=[
            "rig_uenv_totalkey = 1",
            'rig_uenv_key 0 64 -> "a" = 0',
            f'rig_uenv_get "a" 256 = {result} errno=5',
        ],
    )
    assert (run.status, run.stdout, run.stderr) == (
        result % 256,
        b"[00/01]key[a] get value fail\n\n",
        b"",
    )


@pytest.mark.parametrize("result", [-1, -5, 3])
def test_list_returns_the_result_of_the_last_key(board, result):
    run = board.run(
        "bt2",
        "uenv",
        "list",
        rigcore=["rig_uenv_totalkey = 1", f"rig_uenv_key 0 64 = {result} errno=5"],
    )
    assert (run.status, run.stdout, run.stderr) == (
        result % 256,
        b"[00/01]key[] get key fail\n\n",
        b"",
    )


# --- get ---


@pytest.mark.parametrize("words", [(), ("a", "b"), ("a", "b", "c")])
def test_get_with_a_wrong_count_prints_the_usage_and_succeeds(board, words):
    run = board.run("bt2", "uenv", "get", *words, rigcore=[])
    assert (run.status, run.stdout, run.stderr) == (0, b"", USAGE)
    assert run.requests == []


@pytest.mark.parametrize("key", ["bootargs", "-h", "", "with blank"])
@pytest.mark.parametrize("value", ["console=ttyS0", "", "x" * 255])
def test_get_prints_key_and_value(board, key, value):
    run = board.run(
        "bt2", "uenv", "get", key, rigcore=[f'rig_uenv_get "{key}" 256 -> "{value}" = 0']
    )
    assert (run.status, run.stdout, run.stderr) == (0, f"{key}={value}\n".encode(), b"")


@pytest.mark.parametrize("result", [-1, 3])
def test_get_of_a_missing_key(board, result):
    run = board.run(
        "bt2", "uenv", "get", "nope", rigcore=[f'rig_uenv_get "nope" 256 = {result} errno=2']
    )
    assert (run.status, run.stdout, run.stderr) == (
        result % 256,
        b"uboot env hasn't key[nope]!\nnope=\n",
        b"",
    )


# Everything but 0 is a failure, a positive result too.
@pytest.mark.parametrize("errno", [1, 5, 19, 22])
@pytest.mark.parametrize("result", [-1, -5, 1, 3])
def test_get_that_fails_otherwise(board, errno, result):
    run = board.run(
        "bt2", "uenv", "get", "a", rigcore=[f'rig_uenv_get "a" 256 = {result} errno={errno}']
    )
    assert (run.status, run.stdout, run.stderr) == (
        result % 256,
        b"ioctl UBOOTENV_GET fail![%d]\na=\n" % errno,
        b"",
    )


@pytest.mark.parametrize("result", [-1, 1])
def test_get_prints_no_value_after_a_failure(board, result):
    run = board.run(
        "bt2", "uenv", "get", "a", rigcore=[f'rig_uenv_get "a" 256 -> "stale" = {result} errno=5']
    )
    assert (run.status, run.stdout, run.stderr) == (
        result % 256,
        b"ioctl UBOOTENV_GET fail![5]\na=\n",
        b"",
    )


def test_get_cuts_a_key_of_70_characters_to_63(board):
    run = board.run("bt2", "uenv", "get", KEY70, rigcore=[f'rig_uenv_get "{KEY63}" 256 -> "v" = 0'])
    assert (run.status, run.stdout, run.stderr) == (0, f"{KEY63}=v\n".encode(), b"")


# --- set ---


@pytest.mark.parametrize("words", [(), ("a", "b", "c"), ("a", "b", "c", "d")])
def test_set_with_a_wrong_count_prints_the_usage_and_succeeds(board, words):
    run = board.run("bt2", "uenv", "set", *words, rigcore=[])
    assert (run.status, run.stdout, run.stderr) == (0, b"", USAGE)
    assert run.requests == []


@pytest.mark.parametrize(
    "key, value", [("kdbg", "8"), ("kdbg", ""), ("bootcmd", "run a; run b"), ("-h", "-h")]
)
def test_set_prints_key_and_value(board, key, value):
    run = board.run(
        "bt2", "uenv", "set", key, value, rigcore=[f'rig_uenv_set "{key}" "{value}" = 0']
    )
    assert (run.status, run.stdout, run.stderr) == (0, f"{key}={value}\n".encode(), b"")


def test_set_without_a_value_sets_the_empty_one(board):
    run = board.run("bt2", "uenv", "set", "kdbg", rigcore=['rig_uenv_set "kdbg" "" = 0'])
    assert (run.status, run.stdout, run.stderr) == (0, b"kdbg=\n", b"")


@pytest.mark.parametrize("errno", [1, 2])
@pytest.mark.parametrize("result", [-1, -5, 1, 3])
def test_set_of_a_key_that_may_not_be_or_is_not_there(board, errno, result):
    run = board.run(
        "bt2", "uenv", "set", "a", "1", rigcore=[f'rig_uenv_set "a" "1" = {result} errno={errno}']
    )
    assert (run.status, run.stdout, run.stderr) == (
        result % 256,
        b"uboot env hasn't key[a]!\na=1\n",
        b"",
    )


@pytest.mark.parametrize("errno", [3, 5, 19, 28])
@pytest.mark.parametrize("result", [-1, 1, 3])
def test_set_that_fails_otherwise(board, errno, result):
    run = board.run(
        "bt2", "uenv", "set", "a", rigcore=[f'rig_uenv_set "a" "" = {result} errno={errno}']
    )
    assert (run.status, run.stdout, run.stderr) == (
        result % 256,
        b"ioctl UBOOTENV_SET fail![%d]\na=\n" % errno,
        b"",
    )


def test_set_cuts_key_and_value_to_their_buffers(board):
    run = board.run(
        "bt2",
        "uenv",
        "set",
        KEY70,
        "v" * 300,
        rigcore=[f'rig_uenv_set "{KEY63}" "{"v" * 255}" = 0'],
    )
    assert (run.status, run.stdout, run.stderr) == (0, f"{KEY63}={'v' * 255}\n".encode(), b"")


# --- The group ---


@pytest.mark.parametrize("words", [("list", "-h"), ("list", "a", "b")])
def test_list_ignores_its_arguments(board, words):
    run = board.run("bt2", "uenv", *words, rigcore=listing(("a", "1")))
    assert (run.status, run.stdout, run.stderr) == (0, b"[00/01]a=1\n\n", b"")


# --- On the board ---


def listed(board):
    run = board.run("bt2", "uenv", "list")
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout.endswith(b"\n\n")
    rows = [line.partition(b"]") for line in run.stdout.splitlines()[:-1]]
    numbers = [row[0] for row in rows]
    assert numbers == [b"[%02d/%02d" % (i, len(rows)) for i in range(len(rows))]
    return dict(row[2].split(b"=", 1) for row in rows)


def test_what_is_set_is_listed_and_got_on_the_board(board):
    before = listed(board)
    assert before and b"bench_key" not in before
    run = board.run("bt2", "uenv", "set", "bench_key", "a b=c")
    assert (run.status, run.stdout, run.stderr) == (0, b"bench_key=a b=c\n", b"")
    run = board.run("bt2", "uenv", "get", "bench_key")
    assert (run.status, run.stdout, run.stderr) == (0, b"bench_key=a b=c\n", b"")
    assert listed(board) == {**before, b"bench_key": b"a b=c"}


def test_high_bytes_are_set_and_got_as_they_are_on_the_board(board):
    value = "caf\u00e9 \u00e0\u00ff"
    for words in (("set", "bench_key", value), ("get", "bench_key")):
        run = board.run("bt2", "uenv", *words)
        assert (run.status, run.stdout, run.stderr) == (0, f"bench_key={value}\n".encode(), b"")
    assert listed(board)[b"bench_key"] == value.encode()


def test_set_without_a_value_empties_the_variable_of_the_board(board):
    assert board.run("bt2", "uenv", "set", "kdbg", "8").stdout == b"kdbg=8\n"
    assert listed(board)[b"kdbg"] == b"8"
    run = board.run("bt2", "uenv", "set", "kdbg")
    assert (run.status, run.stdout, run.stderr) == (0, b"kdbg=\n", b"")
    assert listed(board).get(b"kdbg", b"") == b""


def test_get_of_a_key_that_the_board_lacks(board):
    run = board.run("bt2", "uenv", "get", "nope")
    assert (run.status, run.stdout, run.stderr) == (
        255,
        b"uboot env hasn't key[nope]!\nnope=\n",
        b"",
    )


@pytest.mark.parametrize("fault", ["absent", "open errno=EIO"])
def test_set_fails_without_the_flash_of_the_board(board, fault):
    board.fault(f"/dev/mtd1 {fault}")
    run = board.run("bt2", "uenv", "set", "kdbg", "8")
    assert run.status != 0
    assert run.stdout.endswith(b"kdbg=8\n") and run.stdout.count(b"\n") == 2
    assert run.stdout.startswith((b"uboot env hasn't key[kdbg]!\n", b"ioctl UBOOTENV_SET fail!["))
