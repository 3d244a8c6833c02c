"""The commands that the documents show do what they are shown for.

A command that runs tests must select at least one: test runners are silent about a filter that
matches nothing. A command of the virtual board must succeed on a board. Lines with words such as NODE
or with brackets are forms for a person to fill in, not commands.
"""

import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

import pytest
from conftest import environment, program

ROOT = pathlib.Path(__file__).resolve().parents[2]
DOCUMENTS = [ROOT / "README.md", ROOT / "CONTRIBUTING.md", *sorted((ROOT / "docs").rglob("*.md"))]
FORM = re.compile(r"\[|\.\.\.|\b(NODE|KEY|VALUE|FILE|NAME|ATTRIBUTE|COMMAND|CHIP)\b")


def indented(document):
    """Lines of indented blocks, without their comments."""
    lines = re.findall(r"^    (\S.*)$", document.read_text(encoding="utf-8"), re.M)
    return [re.sub(r"\s+#.*", "", line) for line in lines]


def inline(document):
    return re.findall(r"`([^`\n]+)`", document.read_text(encoding="utf-8"))


def shown(*starts):
    """(document, command) of every command that begins so, whatever variables are set before it."""
    return [
        (document, line)
        for document in DOCUMENTS
        for line in indented(document) + inline(document)
        if re.sub(r"^(\w+=\S+ )+", "", line).startswith(starts)
    ]


def named(rows):
    return [
        pytest.param(line, id=f"{document.relative_to(ROOT)}: {line}") for document, line in rows
    ]


def output_of(words, **options):
    done = subprocess.run(
        list(map(str, words)),
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        stdin=subprocess.DEVNULL,
        timeout=300,
        check=False,
        **options,
    )
    return done.returncode, done.stdout.decode(errors="replace")


def built(build, name):
    """A file of the build; an emulated build keeps some of its files one folder above."""
    return build / name if (build / name).exists() else build.parent / name


def count_in(pattern, text):
    """The number in `text`; fails the test when it is 0 or missing."""
    found = re.search(pattern, text)
    assert found and int(found.group(1)) > 0, text
    return int(found.group(1))


# --- test runners -------------------------------------------------------------------------------


UNIT = shown("build/debug/tests/unit/unit_tests ")
PYTEST = shown("python3 -m pytest ")
CTEST = shown("ctest ")


def test_every_runner_is_shown_somewhere():
    assert UNIT and PYTEST and CTEST


@pytest.mark.parametrize("command", named(UNIT))
def test_unit_tests_are_selected_and_pass(build, command):
    words = shlex.split(command)
    file = built(build, "tests/unit/unit_tests")
    status, text = output_of([*program(file), *words[1:]])
    count_in(r"\[==========\] Running (\d+) tests?", text)
    assert status == 0, text


@pytest.mark.parametrize("command", named(PYTEST))
def test_cli_tests_are_selected_and_pass(build, tmp_path, command):
    words = [word for word in shlex.split(command) if not re.match(r"\w+=", word)]
    assert words[:3] == ["python3", "-m", "pytest"]
    files = [word for word in words[3:] if word.startswith("tests/")]
    assert files
    words = [sys.executable, *words[1:], "-p", "no:cacheprovider", "--basetemp", tmp_path / "work"]
    whole_folder = any((ROOT / file).is_dir() for file in files)
    if whole_folder:  # with this test in it
        words.append("--collect-only")
    status, text = output_of(
        words, cwd=ROOT, env=dict(os.environ, BENCHRIG_BUILD=str(build), PYTEST_ADDOPTS="")
    )
    count_in(r"(\d+) tests collected" if whole_folder else r"(\d+) passed", text)
    assert status == 0, text


@pytest.mark.parametrize("command", named(CTEST))
def test_ctest_finds_tests(build, command):
    # Finds them only: the run that this test belongs to has them as well.
    words = shlex.split(command)
    at = words.index("--preset")
    words[at : at + 2] = ["--test-dir", built(build, "CTestTestfile.cmake").parent]
    status, text = output_of([*words, "-N"])
    count_in(r"Total Tests: (\d+)", text)
    assert status == 0, text


def test_presets_exist():
    presets = json.loads((ROOT / "CMakePresets.json").read_text(encoding="utf-8"))
    kinds = {"cmake": "configurePresets", "cmake --build": "buildPresets", "ctest": "testPresets"}
    wanted = 0
    for document in DOCUMENTS:
        for line in indented(document) + inline(document):
            for start, name in re.findall(r"(cmake --build|cmake|ctest) --preset (\S+)", line):
                assert name in {row["name"] for row in presets[kinds[start]]}, (document, line)
                wanted += 1
    assert wanted > 0


# --- the virtual board --------------------------------------------------------------------------


def on_a_board(board, tmp_path, command):
    """A documented command of vboard on `board`; DIR and "board" are its directory."""
    words = shlex.split(command)
    words[0] = board.build / "bin/vboard"
    words = [board.directory if word in ("DIR", "board") else word for word in words]
    if "--" in words:
        at = words.index("--") + 1
        words[at] = board.build / "bin" / words[at]
    status, text = output_of(words, cwd=tmp_path, env=environment())
    assert status == 0, (command, text)


BOARD_COMMANDS = [
    (document, line)
    for document, line in shown("vboard set DIR", "vboard fault DIR", "vboard show DIR")
    if line in indented(document) and not FORM.search(line)
]


def test_commands_of_the_virtual_board_are_shown():
    assert len(BOARD_COMMANDS) >= 20


@pytest.mark.parametrize("command", named(BOARD_COMMANDS))
def test_command_of_the_virtual_board_succeeds(board, tmp_path, command):
    if "overlays/" in command:
        board.run("bt2", "dtbofs", "/chosen", "test", "aaaa")
    on_a_board(board, tmp_path, command)


def test_the_first_session_of_the_readme(make_board, tmp_path):
    board = make_board()
    commands = [line for line in indented(ROOT / "README.md") if line.startswith("vboard ")]
    assert commands[0] == "vboard new board"
    for command in commands[1:]:
        on_a_board(board, tmp_path, command)
