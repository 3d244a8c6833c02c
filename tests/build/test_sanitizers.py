"""Which files of a build the sanitizers watch. BENCHRIG_SANITIZE names those of the build."""

import os
import pathlib
import subprocess

import pytest

MARKS = {"address": "__asan_", "undefined": "__ubsan_", "thread": "__tsan_"}

TOOLBOX = ["bin/benchrig", "lib/librigcore.so"]
VIRTUAL_BOARD = ["bin/vboard", "lib/libvboard.so"]


@pytest.mark.parametrize("file", TOOLBOX + VIRTUAL_BOARD)
def test_a_file_calls_the_sanitizers_of_its_build_and_no_others(file):
    chosen = set(os.environ["BENCHRIG_SANITIZE"].split(",")) & set(MARKS)
    if file in VIRTUAL_BOARD:
        chosen.discard("thread")
    done = subprocess.run(
        ["nm", "--dynamic", "--undefined-only", pathlib.Path(os.environ["BENCHRIG_BUILD"]) / file],
        capture_output=True,
        check=True,
        text=True,
    )
    names = [line.split()[-1] for line in done.stdout.splitlines()]
    called = {
        sanitizer
        for sanitizer, mark in MARKS.items()
        if any(name.startswith(mark) for name in names)
    }
    assert called == chosen


def test_the_launcher_loads_a_run_time_only_where_there_is_one():
    launcher = pathlib.Path(os.environ["BENCHRIG_BUILD"]) / "bin/vboard"
    wanted = "address" in os.environ["BENCHRIG_SANITIZE"].split(",")
    assert (b":/" in launcher.read_bytes() and b"/libasan.so." in launcher.read_bytes()) == wanted
