"""The board of a run without --board: the template read in place, a file copied when it is written."""

import hashlib
import pathlib
import subprocess

import pytest

from conftest import environment, read_trace


TEMPLATE = pathlib.Path(__file__).resolve().parents[2] / "vboard/template"


class Fresh:
    """Runs on boards of their own, in a scratch folder that must be empty after each of them."""

    def __init__(self, build, scratch):
        self.build = build
        self.scratch = scratch

    def __call__(self, *command, status=0, options=()):
        words = [self.build / "bin/vboard", "run", "--speed", "max", *options, "--", *command]
        done = subprocess.run(
            list(map(str, words)),
            capture_output=True,
            timeout=60,
            check=False,
            env={**environment(), "TMPDIR": str(self.scratch)},
        )
        assert done.returncode == status, (command, done.stdout, done.stderr)
        assert list(self.scratch.iterdir()) == []
        return done

    def shell(self, text, **options):
        return self("sh", "-c", text, **options).stdout.decode().splitlines()


@pytest.fixture
def fresh(build, tmp_path):
    scratch = tmp_path / "scratch"
    scratch.mkdir()
    return Fresh(build, scratch)


@pytest.fixture(scope="module", autouse=True)
def template_stays_as_it_is():
    def digests():
        return {
            file: hashlib.sha256(file.read_bytes()).hexdigest()
            for file in TEMPLATE.rglob("*")
            if file.is_file()
        }

    before = digests()
    yield
    assert digests() == before


# Beside them lies the file that says who uses the directory.
OWN_FILES = 'cd "$VBOARD_DIR" && find . -type f ! -path "./.vboard.*" | sort'


def test_reading_copies_nothing(fresh):
    text = "cat /etc/fw_env.config /sys/class/gpio/gpio40/value /sys/block/sda/size; ls /dev /sys/block; "
    lines = fresh.shell(text + OWN_FILES)
    assert lines[:2] == (TEMPLATE / "etc/fw_env.config").read_text().splitlines()
    assert "rtc0" in lines and "mmcblk0" in lines
    assert not [line for line in lines if line.startswith("./")]


def test_a_device_that_is_used_is_the_only_copy(fresh):
    assert fresh.shell("exec 3</dev/lcd; " + OWN_FILES) == ["./media/lcd.frame"]


def test_a_written_file_is_the_only_copy(fresh):
    lines = fresh.shell(
        "echo 1 >/sys/class/leds/buzzer/brightness; cat /sys/class/leds/buzzer/brightness; "
        "echo more >>/etc/fw_env.config; tail -n 1 /etc/fw_env.config; " + OWN_FILES
    )
    assert lines == [
        "1",
        "more",
        "./etc/fw_env.config",
        "./sys/class/leds/buzzer/brightness",
    ]


def test_a_directory_lists_each_name_once(fresh):
    lines = fresh.shell("echo x >/etc/fw_env.config; echo y >/etc/own; ls -A /etc; echo; ls /dev")
    etc, dev = lines[: lines.index("")], lines[lines.index("") + 1 :]
    assert len(etc) == len(set(etc))
    assert {"own", "fw_env.config", "benchrig", "os-release", "passwd"} <= set(etc)
    assert sorted(dev) == sorted(path.name for path in (TEMPLATE / "dev").iterdir())


@pytest.mark.parametrize(
    "change",
    [
        "rm /etc/fw_env.config",
        "mv /etc/fw_env.config /etc/other",
        "rm -r /etc/benchrig; ls /etc/benchrig/board.conf; rm /etc/fw_env.config",
    ],
)
def test_what_is_removed_does_not_come_back(fresh, change):
    lines = fresh.shell(f"{change}; cat /etc/fw_env.config || ls /etc; cat /dev/gyro | head -c 0")
    assert "uboot-env.txt" in lines
    assert "fw_env.config" not in lines


def test_a_removed_file_can_be_made_again(fresh):
    text = "rm /etc/fw_env.config; echo new >/etc/fw_env.config; cat /etc/fw_env.config"
    assert fresh.shell(text) == ["new"]


def test_a_file_of_the_run_replaces_one_of_the_template(fresh):
    lines = fresh.shell(
        "echo new >/etc/x; mv /etc/x /etc/os-release; cat /etc/os-release; " + OWN_FILES
    )
    assert lines == ["new", "./etc/os-release"]


def test_modes_and_sizes_change_in_a_copy(fresh):
    lines = fresh.shell(
        "chmod 600 /etc/fw_env.config; truncate -s 3 /etc/os-release; "
        "stat -c %a /etc/fw_env.config; cat /etc/os-release; echo; " + OWN_FILES
    )
    assert lines[0] == "600"
    assert lines[1] == (TEMPLATE / "etc/os-release").read_text()[:3]
    assert lines[2:] == ["./etc/fw_env.config", "./etc/os-release"]


def test_the_working_directory_may_be_one_of_the_template(fresh):
    assert fresh.shell("cd /sys/class/leds/buzzer; pwd; echo 1 >brightness; cat brightness") == [
        "/sys/class/leds/buzzer",
        "1",
    ]


def test_processes_of_a_run_share_the_copies(fresh):
    lines = fresh.shell(
        "for i in 1 2 3 4 5 6 7 8; do (echo $i >>/etc/fw_env.config) & done; wait; "
        "grep -c . /etc/fw_env.config"
    )
    count = len((TEMPLATE / "etc/fw_env.config").read_text().splitlines())
    assert lines == [str(count + 8)]


def test_a_disk_that_is_switched_off_and_on(fresh, build):
    text = (
        f"{build}/bin/benchrig bt2 stor -s sda 0 >/dev/null; ls /dev/sda 2>&1; "
        f"{build}/bin/benchrig bt2 stor -s sda 1 >/dev/null; ls /dev/sda"
    )
    lines = fresh.shell(text)
    assert "No such file" in lines[0]
    assert lines[1:] == ["/dev/sda"]


@pytest.mark.parametrize(
    "words",
    [
        ("bt1", "rtc", "autotest"),
        ("bt1", "iccard", "autotest"),
        ("bt2", "uenv", "list"),
        ("bt2", "hdsmart", "-a", "/dev/sda"),
        ("version",),
    ],
)
def test_a_fresh_board_is_like_a_new_one(fresh, board, build, tmp_path, words):
    trace = tmp_path / "trace"
    run = board.run(*words, date="2024-01-01 00:00:00")
    done = fresh(
        build / "bin/benchrig",
        *words,
        status=run.status,
        options=("--trace", trace, "--date", "2024-01-01 00:00:00"),
    )
    assert (done.stdout, done.stderr) == (run.stdout, run.stderr)
    assert read_trace(trace) == run.trace


IN_A_SMALL_SCRATCH = 'mount -t tmpfs -o size="$SIZE" tmpfs "$TMPDIR" && exec "$@"'


def run_in_a_small_scratch(fresh, size, text):
    """A shell's run on a fresh board with so much room for its files."""

    def run(*command):
        return subprocess.run(
            ["unshare", "-rm", "sh", "-c", IN_A_SMALL_SCRATCH, "sh", *command],
            env={**environment(), "TMPDIR": str(fresh.scratch), "SIZE": size},
            check=False,
            capture_output=True,
            timeout=60,
        )

    if run("true").returncode != 0:
        pytest.skip("no file systems may be mounted here")
    return run(fresh.build / "bin/vboard", "run", "--speed", "max", "--", "sh", "-c", text)


def test_a_full_scratch_area_is_named(fresh):
    done = run_in_a_small_scratch(fresh, "16k", "exec 3</dev/mtd1; exec 3<>/dev/mtd1")
    named = [line for line in done.stderr.decode().splitlines() if line.startswith("vboard: ")]
    assert len(named) == 1, done
    assert named[0].startswith("vboard: no space is left for the board's files in ")
    assert named[0].endswith(" (TMPDIR names another place for a board of one run)")


@pytest.mark.parametrize("file", ["/etc/passwd", "/etc/os-release"])
def test_a_file_that_finds_no_room_stays_as_it_was(fresh, file):
    text = f"""head -c 4096 /dev/zero >"$VBOARD_DIR/fill"
        echo x >>{file} || echo failed; ls -A "$VBOARD_DIR/etc"; tail -n 1 {file}"""
    done = run_in_a_small_scratch(fresh, "4k", text)
    original = pathlib.Path(file) if file == "/etc/passwd" else TEMPLATE / file[1:]
    last = original.read_text().splitlines()[-1]
    assert done.stdout.decode().splitlines() == ["failed", last], done


def test_a_scratch_area_that_is_missing_is_named(build, tmp_path):
    done = subprocess.run(
        [build / "bin/vboard", "run", "--", "true"],
        env={**environment(), "TMPDIR": str(tmp_path / "none")},
        check=False,
        capture_output=True,
        timeout=60,
    )
    assert done.returncode == 125
    assert b"TMPDIR" in done.stderr and b"No such file" in done.stderr
