"""What the executable needs and offers: librigcore is replaceable, nothing else comes along."""

import pathlib
import re
import subprocess

import pytest

from conftest import word_size

ROOT = pathlib.Path(__file__).resolve().parents[2]
SYSTEM = {"libc.so.6", "libm.so.6"}
LOADERS = re.compile(r"ld-linux[\w-]*\.so\.\d+")


def output(*words):
    return subprocess.run(
        list(map(str, words)),
        capture_output=True,
        text=True,
        timeout=60,
        check=True,
        env={"LC_ALL": "C", "PATH": "/usr/bin:/bin"},
    ).stdout


def dynamic(file, tag):
    return re.findall(rf"\({tag}\)[^\[]*\[([^\]]*)\]", output("readelf", "-dW", file))


def needed(file):
    return {name for name in dynamic(file, "NEEDED") if not LOADERS.fullmatch(name)}


@pytest.fixture
def plain(build):
    """Skips where the compiler brings libraries of its own."""
    options = (build / "CMakeCache.txt").read_text(encoding="utf-8")
    if (
        re.search(r"^BENCHRIG_SANITIZE:[A-Z]+=.", options, re.M)
        or "BENCHRIG_COVERAGE:BOOL=ON" in options
    ):
        pytest.skip("an instrumented build needs and exports its run time")
    return build


def test_the_executable_needs_libc_libm_and_librigcore_alone(plain):
    names = needed(plain / "bin/benchrig")
    assert "librigcore.so" in names and "libc.so.6" in names
    assert names <= SYSTEM | {"librigcore.so"}


@pytest.mark.skipif(word_size() != 4, reason="the board is a 32-bit machine")
def test_the_executable_is_small(plain):
    # What the file holds of the segments that a run maps: a stripped file has no more but its headers.
    segments = re.findall(
        r"^ +LOAD +(0x\w+) 0x\w+ 0x\w+ (0x\w+)",
        output("readelf", "-lW", plain / "bin/benchrig"),
        re.M,
    )
    assert segments
    assert max(int(offset, 16) + int(size, 16) for offset, size in segments) < 100 * 1024


def test_the_library_maps_no_third_party_library_at_start(plain):
    assert needed(plain / "lib/librigcore.so") <= SYSTEM


def test_the_library_is_known_as_librigcore(build):
    assert dynamic(build / "lib/librigcore.so", "SONAME") == ["librigcore.so"]


def test_the_run_path_lets_ld_library_path_go_first(build):
    assert dynamic(build / "bin/benchrig", "RPATH") == []
    assert any(
        path.startswith("$ORIGIN/")
        for path in dynamic(build / "bin/benchrig", "RUNPATH")[0].split(":")
    )


def exported(executable):
    """Dynamic symbols that the executable defines, but for its copies of other libraries' variables."""
    copies = set(
        re.findall(r"R_\w+_COPY\S*\s+\S+\s+([\w.]+)", output("readelf", "-rW", executable))
    )
    names = {
        line.split()[-1].partition("@")[0]
        for line in output("nm", "-D", "--defined-only", executable).splitlines()
    }
    return names - copies


def test_the_executable_exports_exactly_what_its_headers_declare(plain):
    """The list of the linker holds the same functions; it may name some that are yet to come."""
    text = re.sub(
        r"/\*.*?\*/|#.*", "", (ROOT / "src/exports.list").read_text(encoding="utf-8"), flags=re.S
    )
    listed = set(re.findall(r"(\w+)\s*;", text))
    headers = "".join(
        file.read_text(encoding="utf-8") for file in sorted((ROOT / "include/benchrig").glob("*.h"))
    )
    declared = {name for name in listed if re.search(rf"\b{name}\s*\(", headers)}
    assert exported(plain / "bin/benchrig") == declared


def test_operations_of_the_library_are_called_unmangled(build):
    names = {
        line.split()[-1]
        for line in output("nm", "-D", "--undefined-only", build / "bin/benchrig").splitlines()
    }
    assert {name for name in names if name.startswith("_Z") and "rig" in name} == set()
    assert "rig_applets_process" in names


def test_the_library_in_front_is_the_one_that_is_called(board):
    # Only the stand-in answers 17.
    run = board.run("bt1", "vgadet", rigcore=["rig_detect_vga = 17"])
    assert (run.status, run.stdout, run.stderr) == (0, b"vga detect 17\n", b"")
    run = board.run("bt1", "vgadet")
    assert (run.status, run.stdout, run.stderr) == (0, b"vga detect 1\n", b"")


def test_dispatch_is_the_librarys(board):
    run = board.run("bt1", "beep", "7", rigcore=["rig_beep 7 = 0"])
    assert (run.status, run.stdout, run.stderr) == (0, b"open beep.\n", b"")


# The stand-in itself must be able to fail a test.
@pytest.mark.parametrize(
    "script",
    [
        [],  # an operation that was not expected
        ["rig_beep 6 = 0"],  # another argument
        ["rig_detect_vga = 1", "rig_beep 7 = 0"],  # another operation first
        ["rig_beep 7 = 0", "rig_beep 0 = 0"],  # one left over
    ],
)
def test_an_unexpected_or_missing_call_fails_the_run(board, script):
    with pytest.raises(AssertionError):
        board.run("bt1", "beep", "7", rigcore=script)


# --- what a platform library offers ---------------------------------------------------------------

CHECK = ROOT / "scripts/check-platform-library.sh"

# Operations of applets that are not built yet. A line goes when librigcore offers the operation.
NOT_OFFERED_YET = set(
    """
    rig_led_ctrl rig_led_cyclems rig_led_duty rig_pwm_ctrl rig_pwm_disable rig_pwm_duty rig_pwm_enable
    rig_pwm_periodns rig_power_ctrl rig_power_is_enable rig_reset_ctrl rig_rs485_rx_en rig_rs485_tx_en
    rig_uart_mode_getype rig_uart_mode_set
    rig_md5sum_check rig_md5sum_files
    rig_mtd_avail_space_size rig_mtd_cmp_skip_bad rig_mtd_erasesize rig_mtd_getnum rig_mtd_size
    rig_mtd_valid_data_len rig_mtd_write_skip_bad rig_mtd_writesize
    rig_mdio_getmiireg rig_mdio_getmiirtl836xreg rig_mdio_getphyaddr rig_mdio_getphyid
    rig_mdio_setmiireg rig_mdio_setmiirtl836xreg
    rig_netchan_allinfo rig_netchan_get_psestatus rig_netchan_get_setting rig_netchan_get_status
    rig_upgrade rig_upgrade_stop_all
    """.split()
)


def declared_operations():
    text = "".join(
        file.read_text(encoding="utf-8") for file in (ROOT / "include/platform").glob("*.h")
    )
    text = re.sub(r"/\*.*?\*/|^#.*?$", "", text, flags=re.S | re.M)
    return set(re.findall(r"RIG_API\b[^;(]*?(\w+)\s*[(;]", text))


def test_librigcore_offers_what_its_headers_declare_and_nothing_else(plain):
    offered = exported(plain / "lib/librigcore.so")
    declared = declared_operations()
    assert offered - declared == set()
    assert declared - offered == NOT_OFFERED_YET


def check(*words, **variables):
    done = subprocess.run(
        [str(word) for word in (CHECK, *words)],
        capture_output=True,
        text=True,
        timeout=60,
        check=False,
        env={"PATH": "/usr/bin:/bin", **variables},
    )
    return done.returncode, done.stdout, done.stderr


def missing(library, names):
    return f"{library} lacks:\n" + "".join(f"  {name}\n" for name in sorted(names))


def test_the_check_lists_what_a_library_lacks(build):
    library = build / "lib/librigcore.so"
    if NOT_OFFERED_YET:
        assert check(library) == (1, missing(library, NOT_OFFERED_YET), "")
    library = build / "lib/libvboard.so"
    assert check(library) == (1, missing(library, declared_operations()), "")


def test_the_check_accepts_a_library_that_offers_all(build):
    library = build / "tests/standin/librigcore.so"
    count = len(declared_operations())
    assert check(library) == (0, f"{library} offers all {count} operations\n", "")


def test_the_check_may_ask_for_one_executable_alone(build):
    asked = {
        line.split()[-1].partition("@")[0]
        for line in output("nm", "-D", "--undefined-only", build / "bin/benchrig").splitlines()
    } & declared_operations()
    library = build / "lib/librigcore.so"
    expected = f"{library} offers all {len(asked)} operations\n"
    assert check(library, build / "bin/benchrig") == (0, expected, "")
    library = build / "lib/libvboard.so"
    assert check(library, build / "bin/benchrig") == (1, missing(library, asked), "")


def test_the_check_says_what_it_cannot_check(build, tmp_path):
    prefix = "check-platform-library.sh: "
    text = tmp_path / "text"
    text.write_text("no library\n")
    library = build / "lib/librigcore.so"
    for words, variables, reason in (
        ((), {}, "usage: check-platform-library.sh LIBRARY [EXECUTABLE]"),
        (("a", "b", "c"), {}, "usage: check-platform-library.sh LIBRARY [EXECUTABLE]"),
        ((tmp_path / "none",), {}, f"{tmp_path}/none: cannot be read"),
        ((text,), {}, f"{text}: not a shared library or an executable that loads one"),
        ((library, text), {}, f"{text}: not a shared library or an executable that loads one"),
        (
            (library, build / "lib/libvboard.so"),
            {},
            f"{build}/lib/libvboard.so: asks for no operation",
        ),
        (
            (library,),
            {"BENCHRIG_HEADERS": str(tmp_path)},
            "the headers are not found, BENCHRIG_HEADERS may name their folder",
        ),
    ):
        status, stdout, stderr = check(*words, **variables)
        assert (status, stdout) == (2, ""), words
        assert stderr.startswith(prefix + reason), words
