"""Nothing of the PC is reached: what a program does on the virtual board stays on it.

The probe gives up every capability first, so that even a broken board lets it do no harm; an answer
EPERM then tells that a call did reach the PC's kernel.
"""

import os
import pathlib
import shutil
import socket
import tempfile
import time

import pytest

from probes import lines, probe, run_steps


@pytest.fixture
def var(request):
    """A directory below the PC's /var that any user may write."""
    directory = pathlib.Path(tempfile.mkdtemp(prefix="benchrig-safety-", dir="/var/tmp"))
    yield directory
    shutil.rmtree(directory)


def pc_nodes():
    """Nodes that this PC has and the board has not, so that finding one means having left the board."""
    wanted = [
        "kmsg",
        "vda",
        "nvme0n1",
        "console",
        "ptmx",
        "loop0",
        "hwrng",
        "net/tun",
        "tty0",
        "fuse",
    ]
    return [f"/dev/{name}" for name in wanted if os.path.exists(f"/dev/{name}")]


# --- devices and attributes -------------------------------------------------------------------------


@pytest.mark.parametrize("flags", ["rdonly", "rdwr", "rdwr,sync", "rdwr,nonblock"])
def test_devices_of_the_pc_do_not_exist(board, probe, flags):
    paths = pc_nodes() + ["/dev/port", "/dev/sdz"]
    run = board.run_command([probe, *[word for path in paths for word in ("open", path, flags)]])
    assert lines(run) == ["open ENOENT"] * len(paths)
    assert [line.split()[:2] for line in run.requests] == [["open", path] for path in paths]


def test_devices_of_the_pc_are_not_seen_in_any_other_way(board, probe):
    for path in pc_nodes()[:3]:
        run = board.run_command(
            [
                probe,
                "access",
                path,
                "f",
                "stat",
                path,
                "lstat",
                path,
                "fopen",
                path,
                "r",
                "openat",
                "/dev",
                path[len("/dev/") :],
                "rdonly",
                "openat",
                "/",
                path[1:],
                "rdonly",
                "open",
                f"/tmp/..{path}",
                "rdonly",
                "open",
                f"/dev/.{path[4:]}",
                "rdonly",
                "readlink",
                path,
            ]
        )
        assert [line.split()[1] for line in lines(run)] == ["ENOENT"] * 9


def test_a_file_of_the_pc_s_dev_is_not_touched(board, probe):
    # A file of the test's own: a broken board would let the steps through to it.
    if not os.access("/dev", os.W_OK):
        pytest.skip("/dev of this PC is not writable: nothing to protect")
    with tempfile.NamedTemporaryFile(prefix="benchrig-safety-", dir="/dev") as file:
        file.write(b"of the PC")
        file.flush()
        path, mode = file.name, os.stat(file.name).st_mode
        run = board.run_command(
            [
                probe,
                "truncate",
                path,
                "0",
                "chmod",
                path,
                "0",
                "rename",
                path,
                path + ".away",
                "unlink",
                path,
                "open",
                path,
                "rdwr,trunc",
                "creat",
                path,
            ]
        )
        result = [line.split()[1] for line in lines(run)]
        assert result[:5] == ["ENOENT"] * 5
        assert pathlib.Path(path).read_bytes() == b"of the PC"
        assert os.stat(path).st_mode == mode
        assert not os.path.exists(path + ".away")


def test_devices_that_every_program_needs_are_the_pc_s(board, probe):
    run = run_steps(
        board,
        probe,
        "open /dev/null rdwr; write 00*9; read 1; open /dev/zero rdonly; read 2; "
        "open /dev/urandom rdonly; fopen /dev/full w; access /dev/stdin f",
    )
    result = lines(run)
    assert result[1] == "write 9" and result[2].rstrip() == "read 0"
    assert result[4] == "read 2 0000" and result[5].startswith("open ") and "E" not in result[5]
    assert result[6:] == ["fopen 0", "access 0"]
    assert run.requests == []


def test_attributes_of_the_pc_do_not_exist(board, probe):
    present = [
        path
        for path in (
            "/sys/class/net/lo/address",
            "/sys/kernel/mm",
            "/sys/power/state",
            "/sys/devices/system/cpu/online",
        )
        if os.path.exists(path)
    ]
    assert present
    for path in present:
        run = run_steps(
            board,
            probe,
            f"open {path} rdonly; open {path} wronly; access {path} f; stat {path}; "
            f"fopen {path} r",
        )
        assert [line.split()[1] for line in lines(run)] == ["ENOENT"] * 5


def test_sys_class_net_shows_no_interface_of_the_pc(board, probe):
    pc = set(os.listdir("/sys/class/net")) - {path.name for path in board.path("net").iterdir()}
    run = run_steps(board, probe, "list /sys/class/net; glob /sys/class/net/*")
    shown = set(" ".join(lines(run)).replace("/", " ").split())
    assert not shown & pc


def test_an_attribute_cannot_be_created(board, probe):
    run = run_steps(
        board, probe, "open /sys/class/leds/new wronly,creat; mkdir /sys/class/leds/new"
    )
    assert "0" not in [line.split()[1] for line in lines(run)]
    assert not lines(run)[0].split()[1].isdigit()
    assert not board.path("sys/class/leds/new").exists()
    assert not os.path.exists("/sys/class/leds/new")


# --- files of the PC ----------------------------------------------------------------------------------


def test_a_file_below_var_is_written_on_the_board(board, probe, var):
    file = var / "made"
    run = board.run_command(
        [
            probe,
            "open",
            file,
            "wronly,creat,trunc",
            "text",
            "of the board",
            "close",
            "open",
            file,
            "rdonly",
            "read",
            "64",
            "stat",
            file,
            "list",
            var,
        ]
    )
    assert lines(run)[4] == "read 12 " + b"of the board".hex()
    assert lines(run)[5] == "stat file"
    assert "made" in lines(run)[6].split()
    assert not file.exists()
    assert (board.directory / str(file)[1:]).read_text() == "of the board"


def test_a_stream_below_var_is_written_on_the_board(board, probe, var):
    file = var / "made"
    run = board.run_command(
        [probe, "fopen", file, "w", "fputs", "of the board", "fclose", "fopen", file, "r", "fgets"]
    )
    assert lines(run)[-1] == "fgets of the board"
    assert not file.exists()
    assert (board.directory / str(file)[1:]).read_text() == "of the board"


@pytest.mark.parametrize(
    "steps",
    [
        ["open", "FILE", "wronly,trunc", "text", "changed", "close"],
        ["open", "FILE", "rdwr,append", "text", "changed", "close"],
        ["open", "FILE", "rdwr", "pwrite", "00*4", "0", "close"],
        ["creat", "FILE", "close"],
        ["fopen", "FILE", "w", "fputs", "changed", "fclose"],
        ["fopen", "FILE", "a", "fputs", "changed", "fclose"],
        ["fopen", "FILE", "r+", "fputs", "changed", "fclose"],
        ["openat", "DIRECTORY", "file", "wronly,trunc", "text", "changed", "close"],
        ["openat", "DIRECTORY", "other", "wronly,creat", "text", "changed", "close"],
        ["unlinkat", "DIRECTORY", "file"],
        ["mkdirat", "DIRECTORY", "other"],
        ["renameat", "DIRECTORY", "file", "other"],
        ["linkat", "DIRECTORY", "file", "other"],
        ["symlinkat", "DIRECTORY", "file", "other"],
        ["fchmodat", "DIRECTORY", "file"],
        ["chdir", "DIRECTORY", "open", "file", "wronly,trunc", "text", "changed", "close"],
        ["chdir", "DIRECTORY", "fopen", "other", "w", "fputs", "changed", "fclose"],
        ["chdir", "DIRECTORY", "unlink", "file"],
        ["chdir", "DIRECTORY", "rename", "file", "other"],
        ["chdir", "DIRECTORY", "mkdir", "other"],
        ["truncate", "FILE", "0"],
        ["unlink", "FILE"],
        ["remove", "FILE"],
        ["link", "FILE", "OTHER"],
        ["mkfifo", "OTHER"],
        ["utimes", "FILE"],
        ["rename", "FILE", "OTHER"],
        ["rename", "OTHER", "FILE"],
        ["chmod", "FILE", "0"],
        ["symlink", "/etc/hostname", "OTHER"],
        ["mkdir", "OTHER"],
        ["rmdir", "EMPTY"],
    ],
    ids=lambda steps: "-".join(step for step in steps if step.islower() and step.isalpha()),
)
def test_a_file_of_the_pc_stays_as_it_is(board, probe, var, steps):
    (var / "file").write_text("of the PC")
    (var / "empty").mkdir()
    before = (var / "file").stat()
    places = {
        "FILE": var / "file",
        "OTHER": var / "other",
        "EMPTY": var / "empty",
        "DIRECTORY": var,
    }
    run = board.run_command([probe, *[places.get(step, step) for step in steps]])
    assert run.status == 0
    assert (var / "file").read_text() == "of the PC"
    assert (var / "file").stat().st_mode == before.st_mode
    assert (var / "file").stat().st_mtime_ns == before.st_mtime_ns
    assert sorted(os.listdir(var)) == ["empty", "file"]


def test_a_directory_below_var_is_one_however_it_is_reached(board, probe, var):
    (var / "file").write_text("of the PC")
    run = run_steps(
        board,
        probe,
        f"openat {var} made wronly,creat; text 1234; fstatat {var} made; "
        f"fstatat {var} file; faccessat {var} made; chdir {var}; open made rdonly; "
        f"read 9; list .; unlinkat {var} made; access made f",
    )
    result = [line.split(" ", 1)[1] for line in lines(run)]
    assert result[1:5] == ["4", "4", "9", "0"]
    assert result[7] == "4 31323334"
    assert result[8].split() == ["file", "made"]
    assert result[9:] == ["0", "ENOENT"]
    assert os.listdir(var) == ["file"]


def test_a_file_of_the_pc_is_read_until_the_board_has_its_own(board, probe, var):
    file = var / "file"
    file.write_text("of the PC")
    read = ["open", file, "rdonly", "read", "64", "close"]
    assert lines(board.run_command([probe, *read]))[1] == "read 9 " + b"of the PC".hex()
    run = board.run_command(
        [probe, "open", file, "wronly,append", "text", ", changed", "close", *read]
    )
    assert lines(run)[4] == "read 18 " + b"of the PC, changed".hex()
    # The next run finds it, too.
    assert lines(board.run_command([probe, *read]))[1] == "read 18 " + b"of the PC, changed".hex()
    assert file.read_text() == "of the PC"


def test_a_file_of_the_board_wins(board, probe):
    board.path("etc/hostname").parent.mkdir(exist_ok=True)
    board.path("etc/hostname").write_text("bench\n")
    board.path("proc/version").write_text("Linux version of the board\n")
    run = run_steps(board, probe, "fopen /etc/hostname r; fgets; fopen /proc/version r; fgets")
    assert lines(run) == ["fopen 0", "fgets bench", "fopen 0", "fgets Linux version of the board"]


def test_etc_is_written_on_the_board(board, probe):
    run = run_steps(
        board,
        probe,
        "open /etc/benchrig-safety wronly,creat; text x; close; " "mkdir /etc/benchrig-safety.d",
    )
    assert run.status == 0
    assert not os.path.exists("/etc/benchrig-safety")
    assert not os.path.exists("/etc/benchrig-safety.d")
    assert board.path("etc/benchrig-safety").read_text() == "x"


@pytest.mark.parametrize("directory", ["/run", "/mnt", "/mnt/sd", "/var/log"])
def test_run_mnt_and_log_are_written_on_the_board(board, probe, directory):
    name = f"{directory}/benchrig-safety"
    run = run_steps(
        board, probe, f"mkdir {directory}; open {name} wronly,creat,trunc; text x; close"
    )
    assert run.status == 0
    assert not os.path.exists(name)
    assert board.path(name[1:]).read_text() == "x"


def test_a_knob_below_proc_is_turned_on_the_board(board, probe):
    knob = "/proc/sys/kernel/hostname"
    before = pathlib.Path(knob).read_text()
    # What is written is what stands there, so that a broken board does no harm.
    run = run_steps(board, probe, f"open {knob} wronly; text {before.strip()}; close")
    assert run.status == 0
    assert board.path(knob[1:]).exists()


def test_the_working_directory_and_tmp_are_the_pc_s(board, probe, tmp_path):
    work = tmp_path / "work"
    work.mkdir()
    run = board.run_command(
        [
            probe,
            "open",
            "here",
            "wronly,creat",
            "text",
            "x",
            "open",
            work / "there",
            "wronly,creat",
            "text",
            "y",
        ],
        cwd=work,
    )
    assert run.requests == []
    assert (work / "here").read_text() == "x" and (work / "there").read_text() == "y"


# --- the system -----------------------------------------------------------------------------------------


@pytest.mark.parametrize(
    "step",
    [["mount", "/dev/sda1", "/mnt", "ext4"], ["umount", "/mnt"], ["umount2", "/mnt"]],
    ids=["mount", "umount", "umount2"],
)
def test_mounts_do_not_reach_the_pc(board, probe, step):
    before = pathlib.Path("/proc/self/mounts").read_text()
    run = board.run_command([probe, *step])
    assert "EPERM" not in lines(run)[0]
    assert pathlib.Path("/proc/self/mounts").read_text() == before
    assert run.requests[0].startswith(step[0].rstrip("2"))


@pytest.fixture
def fake_commands(tmp_path):
    """A PATH whose only reboot leaves a mark: the PC's own must not be found even by a broken board."""
    directory = tmp_path / "path"
    directory.mkdir()
    for name in ("reboot", "shutdown", "halt", "poweroff"):
        command = directory / name
        command.write_text(f"#!/bin/sh\n: >{tmp_path}/reached\n")
        command.chmod(0o755)
    (directory / "sh").symlink_to("/bin/sh")
    (directory / "true").symlink_to("/bin/true")
    return directory


@pytest.mark.parametrize("speed", ["max", "20", "1"])
@pytest.mark.parametrize("steps", [["system", "reboot"], ["reboot"]], ids=["system", "call"])
def test_a_reboot_ends_the_run_with_81(board, probe, fake_commands, tmp_path, steps, speed):
    run = board.run_command(
        [probe, "now", *steps, "now", "sleep", "5", "now"],
        env={"PATH": str(fake_commands)},
        speed=speed,
    )
    assert run.status == 81
    assert b"board reboot" in run.stderr
    assert b"EPERM" not in run.stdout
    assert not (tmp_path / "reached").exists()
    # What was printed before is not lost.
    assert run.stdout.startswith(b"now 0.000\n")
    assert not run.stdout.rstrip().endswith(b"sleep 0")


def test_a_reboot_disarms_the_watchdog(board, probe, fake_commands):
    run = run_steps(
        board, probe, "open /dev/watchdog wronly; system reboot", env={"PATH": str(fake_commands)}
    )
    assert run.status == 81
    assert lines(run_steps(board, probe, "sleep 200")) == ["sleep 0"]


def test_another_command_of_system_is_run(board, probe, fake_commands):
    run = board.run_command(
        [probe, "system", "true", "system", "exit 3"], env={"PATH": str(fake_commands)}
    )
    assert lines(run) == ["system 0", "system 768"]


@pytest.mark.parametrize("step", ["settimeofday", "clock_settime"])
def test_setting_the_clock_sets_the_board_s(board, probe, step):
    before = time.time()
    # 2033-05-18 03:33:20
    run = board.run_command([probe, step, "2000000000", "date", "sleep", "10", "date"])
    assert lines(run) == [
        f"{step} 0",
        "date 2033-05-18 03:33:20",
        "sleep 0",
        "date 2033-05-18 03:33:30",
    ]
    assert abs(time.time() - before) < 60


def test_the_board_s_clock_stays_set_until_it_is_set_again(board, probe):
    run_steps(board, probe, "settimeofday 2000000000")
    told = lines(run_steps(board, probe, "date"))[0]
    assert told.startswith("date 2033-05-18 03:3")
    assert lines(run_steps(board, probe, "date", date="2024-01-05 09:05:03")) == [
        "date 2024-01-05 09:05:03"
    ]


@pytest.mark.parametrize("step", ["scheduler", "thread_scheduler"])
def test_real_time_scheduling_is_only_said_to_be_set(board, probe, step):
    # The probe has no capability for it: a 0 can only come from the board.
    assert lines(board.run_command([probe, step])) == [f"{step} 0"]


@pytest.mark.parametrize("process, named", [("0", ""), ("-1", ""), ("1", " pid=1")])
def test_the_trace_names_the_process_whose_scheduling_is_set_unless_it_is_the_caller(
    board, probe, process, named
):
    run = board.run_command([probe, "scheduler_of", process])
    assert lines(run) == ["scheduler_of 0"] * 2
    assert [line for line in run.requests if line.startswith("sched_")] == [
        f"sched_setscheduler RR 50{named} = 0",
        f"sched_setparam RR 50{named} = 0",
    ]


# --- the network ------------------------------------------------------------------------------------------


@pytest.fixture
def listener():
    with socket.socket() as server:
        server.bind(("127.0.0.1", 0))
        server.listen()
        server.settimeout(0.2)
        yield server


def test_a_connection_does_not_reach_the_pc(board, probe, listener):
    run = run_steps(
        board, probe, f"socket inet stream; connect 127.0.0.1 {listener.getsockname()[1]}"
    )
    result = lines(run)
    assert result[0] == "socket 3"
    assert result[1] not in ("connect 0", "connect EINPROGRESS")
    with pytest.raises(TimeoutError):
        listener.accept()


def test_a_datagram_does_not_reach_the_pc(board, probe):
    with socket.socket(type=socket.SOCK_DGRAM) as server:
        server.bind(("127.0.0.1", 0))
        server.settimeout(0.2)
        run = run_steps(
            board, probe, f"socket inet dgram; sendto 127.0.0.1 {server.getsockname()[1]} hello"
        )
        assert lines(run)[0] == "socket 3"
        with pytest.raises(TimeoutError):
            server.recv(16)


def test_a_port_of_the_pc_is_not_taken(board, probe):
    with socket.socket() as chosen:
        chosen.bind(("127.0.0.1", 0))
        port = chosen.getsockname()[1]
    run = board.run_command(
        [
            probe,
            "socket",
            "inet",
            "stream",
            "bind",
            "127.0.0.1",
            port,
            "system",
            f"test -z \"$(grep -i ':{port:04X} ' /proc/net/tcp)\"",
        ]
    )
    assert lines(run)[-1] == "system 0"


@pytest.mark.parametrize(
    "family, kind",
    [
        ("inet", "stream"),
        ("inet", "dgram"),
        ("inet6", "dgram"),
        ("packet", "raw"),
        ("netlink", "raw"),
        ("netlink", "dgram"),
    ],
)
def test_sockets_of_the_network_are_the_board_s(board, probe, family, kind):
    run = run_steps(board, probe, f"socket {family} {kind}")
    # A raw packet socket needs a capability that the probe has not: EPERM would be the PC's answer.
    assert "EPERM" not in lines(run)[0]
    assert len(run.requests) == 1 and run.requests[0].startswith("socket ")


@pytest.mark.parametrize("family", ["inet", "unix"])
def test_an_interface_of_the_pc_is_not_renamed_or_shut_down(board, probe, family):
    before = sorted(os.listdir("/sys/class/net"))
    pc = next(name for name in before if not board.path(f"net/{name}").exists())
    run = run_steps(
        board,
        probe,
        f"socket {family} dgram; interface_rename {pc} benchrig0; "
        f"interface_down {pc}; interface_address {pc}",
    )
    result = [line.split()[1] for line in lines(run)]
    assert "0" not in result and "EPERM" not in result and "127.0.0.1" not in result
    assert sorted(os.listdir("/sys/class/net")) == before


def test_the_board_s_interface_has_its_address(board, probe):
    assert lines(
        run_steps(
            board, probe, "socket inet stream; interface_address ppp0; interface_address ppp1"
        )
    ) == ["socket 3", "interface_address 10.64.0.2", "interface_address ENODEV"]


@pytest.mark.parametrize("step", ["interfaces", "interface_addresses"])
def test_lists_of_interfaces_show_none_of_the_pc(board, probe, step):
    pc = set(os.listdir("/sys/class/net")) - {path.name for path in board.path("net").iterdir()}
    assert not set(lines(board.run_command([probe, step]))[0].split()[1:]) & pc
