"""bt2 bsp: versions of the kernel, the boot loaders and the board-support package."""

import pytest

USAGE = b"\nUsage: bsp [ver]\n\n\n\n"
KERNEL = ["rig_kernel_version = 331668", "rig_kernel_date = 1510418"]  # 5.15.148, 2023-12-18
KERNEL_LINE = b"bsp version:5.15.148 build 2023-12-18\n"
GETTERS = [
    "rig_get_korbootversion",
    "rig_get_ubootversion",
    "rig_get_korbspversion",
    "rig_get_kernelversion",
]
TEXTS = ["korboot 1.2", "U-Boot 2024.01", "bsp 3.4.5", "Linux version 5.15.148"]
FAILED = [
    b"get korboot version fail\n",
    b"get uboot version fail\n",
    b"get korbsp version fail\n",
    b"get kernel version fail\n",
]


def test_help_prints_the_usage_and_succeeds(board):
    run = board.run("bt2", "bsp", "-h", rigcore=[])
    assert (run.status, run.stdout, run.stderr) == (0, b"", USAGE)
    assert run.requests == []


@pytest.mark.parametrize(
    "words", [(), ("Ver",), ("version",), ("",), ("ver", "1"), ("-h", "1"), ("a", "b", "c")]
)
def test_prints_the_version_line_alone(board, words):
    run = board.run("bt2", "bsp", *words, rigcore=KERNEL)
    assert (run.status, run.stdout, run.stderr) == (0, KERNEL_LINE, b"")
    assert run.requests == []


@pytest.mark.parametrize(
    "version, date, line",
    [
        (0, 0, b"bsp version:0.0.0 build 2000-0-0\n"),
        (
            (6 << 16) | (1 << 8) | 9,
            (24 << 16) | (1 << 8) | 5,
            b"bsp version:6.1.9 build 2024-1-5\n",
        ),
        (
            (300 << 16) | (255 << 8) | 255,
            (99 << 16) | (12 << 8) | 31,
            b"bsp version:300.255.255 build 2099-12-31\n",
        ),
    ],
)
def test_unpacks_version_and_date(board, version, date, line):
    run = board.run(
        "bt2", "bsp", rigcore=[f"rig_kernel_version = {version}", f"rig_kernel_date = {date}"]
    )
    assert (run.status, run.stdout, run.stderr) == (0, line, b"")


@pytest.mark.parametrize("result", [0, 3])
def test_ver_prints_the_four_versions_as_well(board, result):
    run = board.run(
        "bt2",
        "bsp",
        "ver",
        rigcore=KERNEL + [f'{name} -> "{text}" = {result}' for name, text in zip(GETTERS, TEXTS)],
    )
    assert (run.status, run.stdout, run.stderr) == (
        0,
        KERNEL_LINE + b"".join(text.encode() + b"\n" for text in TEXTS),
        b"",
    )
    assert run.requests == []


@pytest.mark.parametrize("broken", [{0}, {1}, {2}, {3}, {0, 1, 2, 3}])
def test_ver_prints_a_line_of_its_own_for_each_failure(board, broken):
    run = board.run(
        "bt2",
        "bsp",
        "ver",
        rigcore=KERNEL
        + [
            f"{name} = -1 errno=2" if i in broken else f'{name} -> "{TEXTS[i]}" = 0'
            for i, name in enumerate(GETTERS)
        ],
    )
    assert (run.status, run.stderr) == (0, b"")
    assert run.stdout == KERNEL_LINE + b"".join(
        FAILED[i] if i in broken else TEXTS[i].encode() + b"\n" for i in range(4)
    )


def test_ver_prints_a_long_version_whole(board):
    text = "v" * 255
    run = board.run(
        "bt2", "bsp", "ver", rigcore=KERNEL + [f'{name} -> "{text}" = 0' for name in GETTERS]
    )
    assert (run.status, run.stdout, run.stderr) == (
        0,
        KERNEL_LINE + 4 * (text.encode() + b"\n"),
        b"",
    )


# --- On the board ---


def test_reads_the_kernel_of_the_board(board):
    board.path("proc/version").write_text(
        "Linux version 6.6.21 (build@bench) (gcc 12.2.0) #1 SMP PREEMPT Mon Mar  4 10:20:30 UTC 2024\n",
        encoding="utf-8",
    )
    run = board.run("bt2", "bsp")
    assert (run.status, run.stdout, run.stderr) == (0, b"bsp version:6.6.21 build 2024-3-4\n", b"")


def test_ver_reads_the_versions_of_the_board(board):
    chosen = board.path("proc/device-tree/chosen")
    (chosen / "first-stage,version").write_bytes(b"first 1.7\0")
    (chosen / "u-boot,version").write_bytes(b"U-Boot 2023.10\0")
    board.path("etc/os-release").write_text(
        'NAME="x"\nPRETTY_NAME="Bench BSP 4.2"\n', encoding="utf-8"
    )
    run = board.run("bt2", "bsp", "ver")
    assert (run.status, run.stderr) == (0, b"")
    lines = run.stdout.splitlines()
    assert len(lines) == 5
    assert lines[1:4] == [b"first 1.7", b"U-Boot 2023.10", b"Bench BSP 4.2"]


def test_ver_reads_files_and_assignments_whose_names_have_high_bytes(board):
    # "\u00e0" ends in the byte A0 and "\u0105" in 85: neither ends a word.
    with open(board.path("etc/benchrig/board.conf"), "a", encoding="utf-8") as file:
        file.write("version.korboot = /etc/\u00e0\u0105\n")
        file.write("version.korbsp = /etc/os-release \u00e0\u0105\n")
    board.path("etc/\u00e0\u0105").write_bytes(b"first \x80\xa0\xff\n")
    board.path("etc/os-release").write_bytes("\u00e0\u0105=".encode() + b"Bench \x85\xfe\n")
    run = board.run("bt2", "bsp", "ver")
    assert (run.status, run.stderr) == (0, b"")
    lines = run.stdout.split(b"\n")
    assert (lines[1], lines[3]) == (b"first \x80\xa0\xff", b"Bench \x85\xfe")


@pytest.mark.parametrize("blanks", [" ", "\t", " \t  "])
def test_ver_reads_an_assignment_whatever_blanks_are_before_its_name(board, blanks):
    with open(board.path("etc/benchrig/board.conf"), "a", encoding="utf-8") as file:
        file.write(f"version.korbsp = /etc/os-release{blanks}VARIANT\n")
    board.path("etc/os-release").write_text("NAME=x\nVARIANT=Bench\n", encoding="utf-8")
    run = board.run("bt2", "bsp", "ver")
    assert (run.status, run.stderr, run.stdout.splitlines()[3]) == (0, b"", b"Bench")


@pytest.mark.parametrize("fault", ["absent", "read errno=EIO"])
def test_a_kernel_whose_version_cannot_be_read_has_zeros(board, fault):
    board.fault(f"/proc/version {fault}")
    run = board.run("bt2", "bsp")
    assert (run.status, run.stdout, run.stderr) == (0, b"bsp version:0.0.0 build 2000-0-0\n", b"")


@pytest.mark.parametrize(
    "path, line",
    [
        ("/proc/device-tree/chosen/first-stage,version", 1),
        ("/proc/device-tree/chosen/u-boot,version", 2),
        ("/etc/os-release", 3),
        ("/proc/version", 4),
    ],
)
def test_ver_on_a_board_that_lacks_one(board, path, line):
    healthy = board.run("bt2", "bsp", "ver").stdout.splitlines(keepends=True)
    board.fault(f"{path} absent")
    run = board.run("bt2", "bsp", "ver")
    lines = run.stdout.splitlines(keepends=True)
    assert (run.status, run.stderr) == (0, b"")
    assert lines[line] == FAILED[line - 1]
    differing = [i for i in range(5) if lines[i] != healthy[i]]
    # Without /proc/version the packed version is unknown too.
    assert differing in ([line], [0, 4]) and len(lines) == 5
