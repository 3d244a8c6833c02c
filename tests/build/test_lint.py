"""scripts/lint.sh fails where it has nothing to check; nothing is checked here."""

import os
import pathlib
import shutil
import subprocess

import pytest

SCRIPTS = pathlib.Path(__file__).resolve().parents[2] / "scripts"

CHECKS = ("shellcheck", "black", "clang-format", "dialect.py")


@pytest.fixture
def tree(tmp_path):
    """A copy of the script in a folder that git does not know, with tools that find nothing wrong."""
    (tmp_path / "scripts").mkdir()
    (tmp_path / "bin").mkdir()
    for name in ("lint.sh", "dialect.py", "dialect_test.py"):
        shutil.copy(SCRIPTS / name, tmp_path / "scripts")
    for name in (
        "scripts/setup.sh",
        "bin/cmake",
        "bin/shellcheck",
        "bin/black",
        "bin/clang-format",
    ):
        program(tmp_path / name, "exit 0")
    return tmp_path


def program(file, text):
    file.write_text(f"#!/bin/sh\n{text}\n")
    file.chmod(0o755)


def lint(tree):
    environment = {name: value for name, value in os.environ.items() if "GIT_" not in name}
    environment.update(
        PATH=f"{tree}/bin:{environment['PATH']}", GIT_CEILING_DIRECTORIES=str(tree.parent)
    )
    return subprocess.run(
        [tree / "scripts/lint.sh"], capture_output=True, check=False, text=True, env=environment
    )


def test_a_folder_that_git_does_not_know_fails(tree):
    done = lint(tree)
    assert done.returncode != 0
    assert "not a git repository" in done.stderr
    assert "files" not in done.stdout


def test_a_missing_git_fails(tree):
    program(tree / "bin/git", "exit 127")
    assert lint(tree).returncode != 0


def test_checks_that_find_no_file_fail(tree):
    program(tree / "bin/git", "exit 0")
    done = lint(tree)
    assert done.returncode == 1
    for check in CHECKS:
        assert f"{check}: 0 files\n" in done.stdout
    assert f"lint.sh: failed: {' '.join(CHECKS)}\n" in done.stdout
