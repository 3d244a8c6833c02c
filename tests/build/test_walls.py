"""Which room of the sources includes which: docs/architecture.md, "Rules of dependency"."""

import pathlib
import re

TOP = pathlib.Path(__file__).resolve().parents[2]
PAGE = TOP / "docs/architecture.md"

VBOARD_ROOMS = (
    "vboard/base",
    "vboard/board",
    "vboard/interposer/core",
    "vboard/interposer/models",
    "vboard/interposer/wrap",
    "vboard/launcher",
)


def allowed_rooms():
    """{room: rooms that it may include} from the page's table of the virtual board's rooms."""
    table = PAGE.read_text(encoding="utf-8").split("| room of the virtual board |")[1]
    rows = re.findall(r"^\| `(vboard/[\w/]+)` \|[^|]*\| ([^|]*) \|$", table, re.M)
    return {room: re.findall(r"`([\w/]+)`", rooms) for room, rooms in rows}


def room_of(name):
    return next((room for room in VBOARD_ROOMS if name.startswith(f"{room}/")), None)


def includes(folder):
    """(file, name in the include) of every include of the tree's own headers."""
    for file in sorted((TOP / folder).rglob("*")):
        if file.suffix in (".cpp", ".h"):
            text = file.read_text(encoding="utf-8")
            for name in re.findall(r'^#include "(.*)"', text, re.M):
                yield str(file.relative_to(TOP)), name


def test_every_room_of_the_virtual_board_includes_only_what_the_page_says():
    allowed = allowed_rooms()
    assert sorted(allowed) == sorted(VBOARD_ROOMS)
    seen = set()
    wrong = []
    for file, name in includes("vboard"):
        room = room_of(file)
        target = room_of(name) or "/".join(name.split("/")[:2])
        seen.add((room, target))
        if target != room and target not in allowed[room]:
            wrong.append(f"{file} includes {name}")
    assert wrong == []
    # The page allows nothing that nobody needs.
    unused = {(room, one) for room, rooms in allowed.items() for one in rooms} - seen
    assert unused == set()


def test_products_do_not_include_one_another():
    for folder in ("src", "platform", "include"):
        for file, name in includes(folder):
            assert not name.startswith("vboard/"), f"{file} includes {name}"
    for file, name in includes("vboard"):
        assert name.startswith(("vboard/", "platform/driver/")), f"{file} includes {name}"


def test_subsystems_do_not_include_one_another():
    subsystems = {path.name for path in (TOP / "src").iterdir() if path.is_dir()}
    for file, name in includes("src"):
        mine, target = file.split("/")[1], name.split("/")[0]
        if target not in subsystems or target in (mine, "common") or mine == "app":
            continue
        assert name == "app/build_stamp.h", f"{file} includes {name}"
