"""The recipes of CONTRIBUTING.md for device models, followed step by step in a copy of the tree."""

import os
import pathlib
import re
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]

MODEL = """// /dev/dimmer, a lamp whose brightness is a setting.

#include "vboard/interposer/models/host.h"
#include "vboard/interposer/models/models.h"

#include <sys/ioctl.h>

namespace vboard {
namespace {

using enum Direction;
using enum SettingKind;

constexpr std::uint32_t kGetLevel = _IOR('d', 1, std::uint32_t);

constexpr Setting kSettings[] = {
    {.key = "level", .kind = kNumber, .otherwise = "50", .help = "brightness", .most = 100},
};

int get_level(OpenFile &file, std::uint32_t &out) {
  out = static_cast<std::uint32_t>(setting_number(file, "level"));
  return 0;
}

constexpr Request kRequests[] = {
    {.number = kGetLevel, .name = "GET_LEVEL", .direction = kOut, .handler = answers<get_level>},
};

}  // namespace

extern constexpr Model kDimmerModel = {
    .name = "dimmer",
    .settings = kSettings,
    .requests = kRequests,
};

}  // namespace vboard
"""
SET_HANDLER = """int set_level(OpenFile &file, std::uint32_t &level) {
  return level > 100 ? -EINVAL : store_number(file, "level", level);
}

"""
SET_ROW = """    {.number = _IOW('d', 2, std::uint32_t),
     .name = "SET_LEVEL",
     .direction = kIn,
     .handler = answers<set_level>},
"""
SECTION = """## Dimmer

A lamp. Request: `GET_LEVEL`.

| setting | default | meaning |
|---|---|---|
| `level` | `50` (`20` on a new board) | brightness, at most 100 |

"""
TEST = """def test_the_dimmer_is_on_a_new_board(board):
    assert board.path("dev/dimmer").exists()
"""


def insert(file, text, before):
    """Puts a text in front of another one that the file has once."""
    old = file.read_text(encoding="utf-8")
    assert old.count(before) == 1, (file, before)
    file.write_text(old.replace(before, text + before), encoding="utf-8")


def add_documents(tree):
    page = tree / "docs/vboard-devices.md"
    insert(page, "| [`/dev/dimmer`](#dimmer) | `dimmer` | a lamp |\n", "| [`/dev/mem`]")
    insert(page, SECTION, "## Attributes\n")


def add_tests(tree):
    (tree / "tests/cli/test_dimmer.py").write_text(TEST, encoding="utf-8")
    row = '    ("Dimmer", "dimmer", "dev/dimmer"),\n'
    insert(tree / "tests/cli/test_vboard_devices_page.py", row, '    ("Flash", ')


MODELS = "vboard/interposer/models"

# What each step of the page does to the tree, by the place that it names.
NEW_MODEL = {
    f"{MODELS}/dimmer.cpp": lambda tree: (tree / MODELS / "dimmer.cpp").write_text(MODEL, "utf-8"),
    f"{MODELS}/models.h": lambda tree: insert(
        tree / MODELS / "models.h",
        "extern const Model kDimmerModel;\n",
        "extern const Model kGyroModel;",
    ),
    f"{MODELS}/models.cpp": lambda tree: insert(
        tree / MODELS / "models.cpp", "    &kDimmerModel,\n", "    &kGyroModel,"
    ),
    "vboard/template/dev/dimmer": lambda tree: (tree / "vboard/template/dev/dimmer").write_text(
        "model = dimmer\nlevel = 20\n", "utf-8"
    ),
    "docs/vboard-devices.md": add_documents,
    "tests/cli/": add_tests,
}
NEW_REQUEST = [
    ("include/platform/driver/", lambda tree: None),  # the number is no board's own
    (
        f"{MODELS}/dimmer.cpp",
        lambda tree: insert(tree / MODELS / "dimmer.cpp", SET_HANDLER, "constexpr Request kReq"),
    ),
    (
        f"{MODELS}/dimmer.cpp",
        lambda tree: insert(tree / MODELS / "dimmer.cpp", SET_ROW, "};\n\n}  // namespace\n"),
    ),
]


def recipe(heading):
    page = (ROOT / "CONTRIBUTING.md").read_text(encoding="utf-8")
    return page.split(f"\n## {heading}\n")[1].split("\n## ")[0]


def places(heading):
    """The place that each numbered step of a recipe begins with, in order."""
    steps = re.findall(r"^(\d+)\. `([^`]+)`: ", recipe(heading), re.M)
    assert [int(number) for number, _ in steps] == list(range(1, len(steps) + 1))
    return [place for _, place in steps]


def run(*words, status=0, cwd=None, **variables):
    """A command that ends with the status; its standard output and standard error."""
    done = subprocess.run(
        list(map(str, words)),
        capture_output=True,
        check=False,
        cwd=cwd,
        env={**os.environ, **variables},
        text=True,
    )
    assert done.returncode == status, (words, done.stdout[-2000:], done.stderr[-2000:])
    return done.stdout, done.stderr


@pytest.fixture(scope="module")
def tree(tmp_path_factory):
    """A copy of the sources after all steps, with the virtual board built."""
    copy = tmp_path_factory.mktemp("tree") / "source"
    (copy / "tests").mkdir(parents=True)
    for name in ("CMakeLists.txt", "cmake", "docs", "include", "platform", "scripts", "src"):
        run("cp", "-r", ROOT / name, copy / name)
    for name in ("vboard", "tests/cli"):
        run("cp", "-r", ROOT / name, copy / name)
    for place in places("Add a device model"):
        NEW_MODEL[place](copy)
    for _, step in NEW_REQUEST:
        step(copy)
    # Where a preset has it: ccache then knows what the lane compiled.
    kind = "-DCMAKE_BUILD_TYPE=Release"
    run(
        "cmake",
        "-S",
        copy,
        "-B",
        copy / "build/release",
        "-G",
        "Ninja",
        kind,
        "-DBENCHRIG_TESTS=OFF",
    )
    build = ("cmake", "--build", copy / "build/release", "--target", "vboard_interposer", "vboard")
    run(*build, CCACHE_BASEDIR=str(copy), CCACHE_NOHASHDIR="1")
    return copy


@pytest.fixture
def vboard(tree):
    return tree / "build/release/bin/vboard"


@pytest.fixture
def board(vboard, tmp_path):
    run(vboard, "new", tmp_path / "board")
    return tmp_path / "board"


def test_the_steps_are_those_of_the_page():
    assert places("Add a device model") == list(NEW_MODEL)
    assert places("Add a request to a model") == [place for place, _ in NEW_REQUEST]


def test_the_device_answers(vboard, board):
    script = """
import fcntl, os, struct
fd = os.open("/dev/dimmer", os.O_RDWR)
level = lambda: struct.unpack("I", fcntl.ioctl(fd, 0x80046401, bytes(4)))[0]
print(level())
fcntl.ioctl(fd, 0x40046402, struct.pack("I", 70))
print(level())
"""
    words = ["run", "--board", board, "--trace", board.parent / "trace", "--"]
    assert run(vboard, *words, sys.executable, "-S", "-c", script) == ("20\n70\n", "")
    requests = re.findall(r"ioctl /dev/dimmer (\w+)", (board.parent / "trace").read_text("utf-8"))
    assert requests == ["GET_LEVEL", "SET_LEVEL", "GET_LEVEL"]
    assert (board / "dev/dimmer").read_text("utf-8") == "model = dimmer\nlevel = 70\n"


def test_the_commands_know_its_settings_and_requests(vboard, board):
    assert run(vboard, "check", board) == ("", "")
    _, reason = run(vboard, "set", board, "/dev/dimmer", "level", "101", status=125)
    assert 'level: "101" is not allowed; it may be a number from 0 to 100' in reason
    run(vboard, "set", board, "/dev/dimmer", "level", "100")
    run(vboard, "fault", board, "add", "/dev/dimmer", "ioctl:SET_LEVEL", "errno=EIO")
    _, reason = run(
        vboard, "fault", board, "add", "/dev/dimmer", "ioctl:SET", "errno=EIO", status=125
    )
    assert "/dev/dimmer has no request SET; perhaps: SET_LEVEL" in reason
    assert run(vboard, "check", board) == ("", "")


def test_its_tests_pass_and_notice_a_setting_that_the_page_lacks(tree):
    files = ("tests/cli/test_dimmer.py", "tests/cli/test_vboard_devices_page.py")
    words = (sys.executable, "-m", "pytest", "-q", "-p", "no:cacheprovider", *files)
    chosen = ("-k", "dimmer or Dimmer or every_model")
    build = {"BENCHRIG_BUILD": str(tree / "build/release")}
    passed, _ = run(*words, *chosen, cwd=tree, **build)
    assert "4 passed" in passed
    page = tree / "docs/vboard-devices.md"
    whole = page.read_text("utf-8")
    row = re.search(r"^\| `level` .*\n", whole, re.M)[0]
    page.write_text(whole.replace(row, ""), "utf-8")
    failed, _ = run(*words, *chosen, cwd=tree, status=1, **build)
    page.write_text(whole, "utf-8")
    failures = re.findall(r"^FAILED .*::(\w+)\[Dimmer-dimmer-", failed, re.M)
    assert failures == ["test_the_settings_of_a_model_are_on_the_page"]


def test_a_model_of_ones_own(vboard, tmp_path):
    """The two commands of the page, with the headers alone."""
    (text,) = re.findall(r"(?:^    .*\n)+", recipe("Bring a model of your own"), re.M)
    script = f'set -e\nvboard() {{ "$VBOARD" "$@"; }}\n{text}'.replace(
        "libmine.so\n", '"$OUT"\n', 1
    )
    script = script.replace("cp libmine.so", 'cp "$OUT"').replace("DIR", '"$BOARD"')
    board = tmp_path / "board"
    names = {"VBOARD": str(vboard), "OUT": str(tmp_path / "libmine.so"), "BOARD": str(board)}
    run("sh", "-c", script, cwd=ROOT, **names)
    assert run(vboard, "check", board) == ("", "")
    _, reason = run(vboard, "set", board, "/dev/buttons", "count", "0", status=125)
    assert "it may be a number from 1 to 32" in reason
