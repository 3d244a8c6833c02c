"""What scripts/test.sh makes of its words and budgets; nothing is built here."""

import os
import pathlib
import re
import shutil
import subprocess

import pytest

SCRIPT = pathlib.Path(__file__).resolve().parents[2] / "scripts/test.sh"
LANES = "lint release clang asan tsan arm arm-ubsan"

# Each of these takes a program's place, and notes how it was called.
NOTE = '#!/bin/sh\necho "${0##*/} $*" >>"$NOTES"\n'


@pytest.fixture
def tree(tmp_path):
    """A copy of the script, among programs that only note their calls."""
    for name in ("scripts/setup.sh", "scripts/arm-sysroot.sh", "scripts/build-arm.sh"):
        stub(tmp_path / name, NOTE)
    for name in ("cmake", "ctest"):
        stub(tmp_path / "bin" / name, NOTE)
    stub(
        tmp_path / "bin/ccache",
        '#!/bin/sh\nprintf "cache_miss\\t%s\\n" "$(cat "$NOTES.misses" || echo 0)"\n',
    )
    shutil.copy(SCRIPT, tmp_path / "scripts/test.sh")
    return tmp_path


def stub(file, text):
    file.parent.mkdir(exist_ok=True)
    file.write_text(text)
    file.chmod(0o755)


def takes(tree, seconds):
    """Makes every lane take that long: the clock moves on from one look to the next."""
    stub(
        tree / "bin/date",
        f'#!/bin/sh\nnow=$(cat "$NOTES.clock" 2>/dev/null || echo 0)\n'
        f'echo $((now + {seconds})) | tee "$NOTES.clock"\n',
    )


def run(tree, *words, factor=None):
    """Exit status, both streams, and the calls that were noted."""
    notes = tree / "notes"
    environment = {name: value for name, value in os.environ.items() if "BENCHRIG" not in name}
    environment.update(PATH=f"{tree}/bin:{environment['PATH']}", NOTES=str(notes))
    if factor is not None:
        environment["BENCHRIG_BUDGET_FACTOR"] = factor
    done = subprocess.run(
        [tree / "scripts/test.sh", *words],
        capture_output=True,
        check=False,
        text=True,
        env=environment,
    )
    calls = notes.read_text().splitlines() if notes.exists() else []
    return done.returncode, done.stdout, done.stderr, calls


def budgets():
    table = re.search(r"<<'END'\n(.*?)\nEND", SCRIPT.read_text(), re.DOTALL).group(1)
    return {name: int(seconds) for name, seconds in map(str.split, table.splitlines())}


@pytest.mark.parametrize("words", [["nolane"], ["release", "nolane"], ["nolane", "release"]])
def test_a_lane_that_does_not_exist_ends_it_before_anything_is_set_up(tree, words):
    status, stdout, stderr, calls = run(tree, *words)
    assert (status, stdout, calls) == (2, "", [])
    assert stderr == f"test.sh: no lane 'nolane'; the lanes are: {LANES}\n"
    assert not (tree / "build").exists()


def test_a_factor_that_is_no_number_ends_it_before_anything_is_set_up(tree):
    status, stdout, stderr, calls = run(tree, "release", factor="1.5")
    assert (status, stdout, calls) == (2, "", [])
    assert stderr == "test.sh: BENCHRIG_BUDGET_FACTOR is not a whole number: 1.5\n"


def test_the_lanes_that_run_without_a_name_take_20_minutes_together():
    unnamed = re.search('^unnamed="(.*)"$', SCRIPT.read_text(), re.MULTILINE).group(1).split()
    assert unnamed == ["lint", "release", "clang", "asan", "tsan", "arm"]
    assert sum(budgets()[name] for name in unnamed) <= 20 * 60


def test_a_lane_sets_up_builds_and_tests(tree):
    takes(tree, 7)
    status, stdout, stderr, calls = run(tree, "release")
    assert (status, stderr) == (0, "")
    assert stdout.startswith(
        f"== lane release\n== lane release passed (7 s of {budgets()['release']} s)\n"
    )
    assert calls[:3] == [
        "setup.sh test",
        "cmake --preset release",
        "cmake --build --preset release",
    ]
    assert calls[3].startswith("ctest --preset release --no-tests=error ")


def test_the_clang_lane_builds_everything_and_runs_the_unit_tests(tree):
    status, _, _, calls = run(tree, "clang")
    assert status == 0
    assert calls[2] == "cmake --build --preset clang"
    assert calls[3].startswith("ctest --preset clang --label-regex unit ")


def test_a_lane_within_its_budget_passes_and_one_above_it_fails(tree):
    budget = budgets()["tsan"]
    takes(tree, budget)
    status, stdout, _, _ = run(tree, "tsan")
    assert (status, f"== lane tsan passed ({budget} s of {budget} s)\n" in stdout) == (0, True)
    takes(tree, budget + 1)
    status, stdout, stderr, _ = run(tree, "tsan")
    assert status == 1
    assert f"== lane tsan FAILED ({budget + 1} s of {budget} s)\n" in stdout
    assert stdout.endswith("== failed: tsan\n")
    assert stderr == (
        "test.sh: lane tsan is over its budget; BENCHRIG_BUDGET_FACTOR widens all budgets\n"
    )


def test_each_object_that_is_compiled_adds_a_second(tree):
    budget = budgets()["tsan"]
    stub(tree / "bin/cmake", NOTE + 'echo 100 >"$NOTES.misses"\n')
    takes(tree, budget + 100)
    status, stdout, _, _ = run(tree, "tsan")
    assert status == 0
    assert f"== lane tsan passed ({budget + 100} s of {budget + 100} s)\n" in stdout


def test_a_factor_widens_the_budgets(tree):
    budget = budgets()["asan"]
    takes(tree, budget + 1)
    status, stdout, _, _ = run(tree, "asan", factor="2")
    assert status == 0
    assert f"== lane asan passed ({budget + 1} s of {2 * budget} s)\n" in stdout


def test_a_lane_that_fails_is_named_and_does_not_stop_the_others(tree):
    stub(tree / "bin/cmake", NOTE + 'case $* in *tsan*) echo "no such thing"; exit 1 ;; esac\n')
    takes(tree, 1)
    status, stdout, _, calls = run(tree, "tsan", "asan")
    assert status == 1
    assert f"no such thing\n== lane tsan FAILED (1 s of {budgets()['tsan']} s)\n" in stdout
    assert "== lane asan passed" in stdout
    assert stdout.endswith("== failed: tsan\n")
    assert not [call for call in calls if call.startswith("ctest --preset tsan")]


def test_the_time_for_fetching_packages_does_not_count(tree):
    stub(
        tree / "scripts/setup.sh",
        NOTE + 'case $1 in arm) echo 100000 >"$NOTES.clock" ;; esac\n',
    )
    takes(tree, 5)
    status, stdout, _, calls = run(tree, "arm")
    assert status == 0
    assert f"== lane arm passed (5 s of {budgets()['arm']} s)\n" in stdout
    assert calls[:4] == ["setup.sh test", "setup.sh arm", "arm-sysroot.sh ", "build-arm.sh arm"]


def test_a_lane_whose_packages_cannot_be_fetched_is_not_built(tree):
    stub(tree / "scripts/arm-sysroot.sh", NOTE + "exit 1\n")
    status, stdout, _, calls = run(tree, "arm")
    assert status == 1
    assert stdout.endswith("== failed: arm\n")
    assert calls == ["setup.sh test", "setup.sh arm", "arm-sysroot.sh "]
