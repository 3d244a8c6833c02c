"""What a build leaves: the stamp, a reproducible executable, an installation that works."""

import os
import pathlib
import re
import subprocess

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
# 5 January 2024, 09:05:03 UTC: fields that a padded stamp would show with zeros.
EPOCH = "1704445503"


def run(*words, epoch=None):
    """A command that must succeed; its standard output."""
    environment = {name: value for name, value in os.environ.items() if name != "SOURCE_DATE_EPOCH"}
    environment["LC_ALL"] = "C"
    if epoch:
        environment["SOURCE_DATE_EPOCH"] = epoch
    done = subprocess.run(list(map(str, words)), capture_output=True, check=False, env=environment)
    assert done.returncode == 0, (words, done.stdout[-2000:], done.stderr[-2000:])
    return done.stdout


def configure(source, build, *options):
    run(
        "cmake",
        "-S",
        source,
        "-B",
        build,
        "-G",
        "Ninja",
        "-DCMAKE_BUILD_TYPE=Release",
        "-DBENCHRIG_TESTS=OFF",
        *options,
    )
    return build


def build_benchrig(build, epoch=None):
    run("cmake", "--build", build, "--target", "benchrig", epoch=epoch)
    return build / "bin/benchrig"


def stamp_of(benchrig):
    """The stamp that `version` prints: the last line's text behind "build "."""
    line = run(benchrig, "version").split(b"\n")[-2]
    return re.fullmatch(rb"benchrig v2\.0\.0 build (.*)\r", line).group(1)


@pytest.fixture(scope="module")
def source(tmp_path_factory):
    """A copy of the sources that a test may touch."""
    copy = tmp_path_factory.mktemp("tree") / "source"
    copy.mkdir()
    for name in ("CMakeLists.txt", "cmake", "include", "platform", "src", "vboard"):
        run("cp", "-r", ROOT / name, copy / name)
    return copy


def test_source_date_epoch_fixes_the_stamp_and_any_later_build_stamps_anew(source, tmp_path):
    build = configure(source, tmp_path / "build")
    assert stamp_of(build_benchrig(build, EPOCH)) == b"2024-1-5 9:5:3"

    # Something else than the stamp's own source changes.
    (source / "src/board/beep.cpp").touch()
    later = stamp_of(build_benchrig(build))
    assert re.fullmatch(rb"20\d\d-\d{1,2}-\d{1,2} \d{1,2}:\d{1,2}:\d{1,2}", later)
    assert later != b"2024-1-5 9:5:3"


def test_two_builds_for_one_moment_are_equal_byte_for_byte(source, tmp_path):
    first = configure(source, tmp_path / "first")
    second = configure(source, tmp_path / "second")
    for build in (first, second):
        build_benchrig(build, EPOCH)
    assert (first / "bin/benchrig").read_bytes() == (second / "bin/benchrig").read_bytes()
    assert (first / "lib/librigcore.so").read_bytes() == (second / "lib/librigcore.so").read_bytes()


def test_an_installation_runs_the_toolbox_on_a_virtual_board(source, tmp_path):
    build = configure(source, tmp_path / "build")
    run("cmake", "--build", build)
    prefix = tmp_path / "installed"
    run("cmake", "--install", build, "--prefix", prefix, "--strip")
    run("rm", "-rf", build)
    output = run(
        prefix / "bin/vboard",
        "run",
        "--speed",
        "max",
        "--",
        prefix / "bin/benchrig",
        "bt1",
        "beep",
        "1",
    )
    assert output == b"open beep.\n"
    assert (prefix / "include/platform/applets.h").is_file()
    assert (prefix / "share/benchrig/board.conf.example").is_file()
