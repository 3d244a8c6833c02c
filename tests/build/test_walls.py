"""Which room of the sources includes which (docs/architecture.md, "Rules of dependency"), and how headers and
their sources belong together."""

import pathlib
import re

import pytest

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


# --- headers and their sources ---------------------------------------------------------------------

# Comments, texts and characters; the quote of 1'000 is none.
LITERAL = re.compile(r"""//[^\n]*|"(?:\\.|[^"\\\n])*"|(?<![0-9A-Fa-f])'(?:\\.|[^'\\\n])+'""")
DIRECTIVE = re.compile(r"^#(?:[^\n]*\\\n)*[^\n]*$", re.M)
OPENS_SCOPE = re.compile(r"\bnamespace\b[^{;]*\{|\bextern\s*\{")


def outline(text):
    """What is left of a file without comments, texts and directives, with "{}" for each body."""
    text = OPENS_SCOPE.sub("", DIRECTIVE.sub("", LITERAL.sub("", text)))
    depth = 0
    kept = []
    for letter in text:
        if letter == "{":
            if depth == 0:
                kept.append("{}")
            depth += 1
        elif letter == "}":
            depth = max(depth - 1, 0)  # a namespace ends at depth 0
        elif depth == 0:
            kept.append(letter)
    return "".join(kept)


def functions(file, ending):
    """The names of the functions that a file declares (ending ";") or defines (ending "{}")."""
    found = []
    for statement, end in re.findall(r"([^;{}]*)(;|\{\})", outline(file.read_text("utf-8"))):
        name = re.match(r"[^(=]*\b(?!static_assert)(\w+)\(.*\)\s*$", statement, re.S)
        if name and end == ending:
            found.append(name[1])
    return found


def not_in_their_source(header):
    """The functions that a header declares and the source of its name does not define."""
    source = header.with_suffix(".cpp")
    defined = functions(source, "{}") if source.exists() else []
    declared = functions(header, ";")
    return [name for name in sorted(set(declared)) if defined.count(name) < declared.count(name)]


def test_every_source_of_the_virtual_board_includes_its_own_header_first():
    wrong = []
    for header in sorted((TOP / "vboard").rglob("*.h")):
        source = header.with_suffix(".cpp")
        if source.exists():
            first = re.search(r"^#include (.*)$", source.read_text("utf-8"), re.M)[1]
            if first != f'"{header.relative_to(TOP)}"':
                wrong.append(f"{source.relative_to(TOP)} includes {first} first")
    assert wrong == []


@pytest.mark.parametrize("room", ["vboard/base", "vboard/board", "vboard/interposer/core"])
def test_a_function_is_defined_in_the_source_of_its_header(room):
    headers = sorted((TOP / room).glob("*.h"))
    assert sum(len(functions(header, ";")) for header in headers) > 5
    wrong = {str(header.relative_to(TOP)): not_in_their_source(header) for header in headers}
    assert {header: names for header, names in wrong.items() if names} == {}


def test_outlines(tmp_path):
    header = tmp_path / "one.h"
    header.write_text(
        """// A note with f(int);
#define MACRO(x) \\
  g(x);
namespace a {
struct Record {
  int member(int);
};
extern "C" {
int first(int (&one)[3],
          const char *other = ")(");
}
[[noreturn]] void twice(int);
void twice(char letter = '{');
inline int whole(int) { return twice(1'000), 2'000; }
static_assert(sizeof(Record) == 1);
inline constexpr int kOne = whole(1);
extern int (*pointer);
}  // namespace a
""",
        encoding="utf-8",
    )
    assert functions(header, ";") == ["first", "twice", "twice"]
    assert functions(header, "{}") == ["whole"]
    assert not_in_their_source(header) == ["first", "twice"]
    header.with_suffix(".cpp").write_text(
        "namespace a {\nvoid twice(int) { first(); }\nint first(int (&one)[3], const char *) {}\n}\n",
        encoding="utf-8",
    )
    assert not_in_their_source(header) == ["twice"]
