"""docs/vboard-devices.md lists every setting of every model with its default, and nothing else.

The program says what there is: a node file with nothing but a model has every setting at its default.
A row of the page may hold several settings, with one default for all or one for each:

    | `min_timeout_s`, `max_timeout_s` | `1`, `65535` (`600` on a new board) | what ... |
"""

import pathlib
import re

import pytest

PAGE = pathlib.Path(__file__).resolve().parents[2] / "docs/vboard-devices.md"
HEADER = "| setting | default | meaning |\n|---|---|---|\n"
DEFAULT = re.compile(r"(?:`([^`]*)`|none)(?: \(`([^`]*)` on a new board\))?(?:, |$)")

# The section of the page, the model, and its node on a new board.
SECTIONS = [
    ("Clock", "rtc", "dev/rtc0"),
    ("Watchdog", "watchdog", "dev/watchdog"),
    ("Display", "lcd", "dev/lcd"),
    ("IC card", "iccard", "dev/iccard"),
    ("G-sensor", "gyro", "dev/gyro"),
    ("Flash", "mtd", "dev/mtd1"),
    ("Disk", "sata_disk", "dev/sda"),
    ("Storage driver", "korstorage", "dev/korstorage"),
    ("Physical memory", "phys_mem", "dev/mem"),
    ("Reserved memory", "korcmem", "dev/korcmem"),
    ("Process events", "connector", "netlink/connector"),
    ("Network interfaces", "interface", "net/ppp0"),
]
COMMON = ["model", "medium", "medium_size", "number", "type", "byte_us"]


def page_sections():
    """{heading: text}; what comes before the first one is under the empty heading."""
    parts = re.split(r"^## (.*)\n", PAGE.read_text(encoding="utf-8"), flags=re.M)
    return {"": parts[0]} | dict(zip(parts[1::2], parts[2::2]))


def page_settings(section):
    """{setting: (default, value on a new board, None when nothing is said about it)}"""
    text = page_sections()[section]
    assert text.count(HEADER) == 1, section
    rows = re.match(r"(?:\|.*\n)*", text[text.index(HEADER) + len(HEADER) :])[0]
    found = {}
    for row in rows.splitlines():
        keys, defaults, _ = (cell.strip() for cell in row.strip("|").split(" | ", 2))
        keys = re.findall(r"`([^`]+)`", keys)
        pieces = list(DEFAULT.finditer(defaults))
        assert "".join(piece[0] for piece in pieces) == defaults, row
        values = [(piece[1] or "", piece[2]) for piece in pieces if piece[0]]
        values *= len(keys) if len(values) == 1 else 1
        assert len(keys) == len(values), row
        assert not found.keys() & set(keys), row
        found |= dict(zip(keys, values))
    return found


def shown_settings(board, node):
    """{setting: default} of a node whose settings all are at their defaults."""
    lines = board.vboard("show", board.directory, node).decode().splitlines()
    begin = next(i for i, line in enumerate(lines) if line.split()[:2] == ["setting", "value"])
    found = {}
    for line in lines[begin + 1 :]:
        if not line:
            break
        key, value, default = line[2:].split()[:3]
        assert value == default or key == "model", line
        found[key] = "" if default == "-" else default
    return found


def model_settings(board, model):
    """{setting: default} of a model of devices, without the common ones."""
    board.path("dev/node").write_text(f"model = {model}\n")
    found = shown_settings(board, "/dev/node")
    return {key: value for key, value in found.items() if key not in COMMON}


def template_settings(board, node):
    lines = board.path(node).read_text(encoding="utf-8").splitlines()
    pairs = [line.split("=", 1) for line in lines if "=" in line and not line.startswith("#")]
    return {key.strip(): value.strip() for key, value in pairs}


def test_every_model_has_a_section(board):
    models = {model for _, model, _ in SECTIONS} | {"socket"}  # a socket has no settings
    assert model_settings(board, "socket") == {}
    done = board.run_command(
        [board.build / "bin/vboard", "set", board.directory, "/dev/rtc0", "model", "none"]
    )
    known = done.stderr.decode().strip().split("there is: ")[1].split()
    assert set(known) == models
    rows = re.findall(r"^\| \[`[^`]+`\]\(#[\w-]+\) \| `(\w+)` \|", page_sections()[""], re.M)
    assert set(rows) == models - {"socket"}


@pytest.mark.parametrize("section, model, node", SECTIONS)
def test_the_settings_of_a_model_are_on_the_page(board, section, model, node):
    page = page_settings(section)
    wanted = model_settings(board, model)
    # A section may also say what the common setting "medium" is for.
    common = {"medium": ""} if node.startswith("dev/") and "medium" in page else {}
    assert {key: default for key, (default, _) in page.items()} == wanted | common


@pytest.mark.parametrize("section, node", [(one[0], one[2]) for one in SECTIONS])
def test_what_differs_on_a_new_board_is_on_the_page(board, section, node):
    fresh = template_settings(board, node)
    for key, (default, on_new_board) in page_settings(section).items():
        if "#" not in key and key != "ipv4":  # each interface has an address of its own
            differs = fresh.get(key, default) not in (default, "")
            assert on_new_board == (fresh[key] if differs else None), key


def test_the_settings_of_every_device_are_on_the_page(board):
    board.path("dev/node").write_text("model = socket\n")
    assert list(shown_settings(board, "/dev/node")) == COMMON
    page = page_settings("")
    assert {key: default for key, (default, _) in page.items()} == shown_settings(
        board, "/dev/node"
    )


def test_the_settings_of_a_part_that_takes_firmware_are_on_the_page(board):
    fresh = template_settings(board, "firmware/cpld")
    board.path("firmware/cpld").write_text("# nothing\n")
    page = page_settings("Attributes")
    assert {key: default for key, (default, _) in page.items()} == shown_settings(
        board, "firmware/cpld"
    )
    assert page["medium"][1] == fresh["medium"]
