"""The changes that scripts/mutate.sh makes, and its list of accepted ones; nothing is built."""

import pathlib
import subprocess
import sys

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "scripts/mutate"))

# pylint: disable=wrong-import-position
from accepted import Wrong, entry_for, entry_text, read_accepted  # noqa: E402
from mutants import mutants_of, mutated  # noqa: E402


def changes(text):
    return [(one.line, one.change) for one in mutants_of("x.cpp", text)]


def in_body(statements):
    """The changes of statements in a function; the first statement is line 2."""
    return changes("void f() {\n" + statements + "\n}\n")


def results(text, kind):
    """The texts that the mutants of one kind make."""
    return [mutated(text, one) for one in mutants_of("x.cpp", text) if one.kind == kind]


@pytest.mark.parametrize(
    "statement, expected",
    [
        ("if (a < b) g();", ["< -> <=", "< -> >="]),
        ("if (a <= b) g();", ["<= -> <", "<= -> >"]),
        ("if (a > b) g();", ["> -> >=", "> -> <="]),
        ("if (a >= b) g();", [">= -> >", ">= -> <"]),
        ("if (a == b) g();", ["== -> !="]),
        ("if (a != b) g();", ["!= -> =="]),
        ("if (a) g();", ["a -> !a"]),
        ("if (!a) g();", ["drop ! of a"]),
        ("if (a & b) g();", ["a & b -> !(a & b)"]),
        ("if (a->b(c) && !d) g();", ["a->b(c) -> !a->b(c)", "&& -> ||", "drop ! of d"]),
        (
            "if ((a || b) && c == d) g();",
            ["a -> !a", "|| -> &&", "b -> !b", "&& -> ||", "== -> !="],
        ),
        ("while (int n = a()) g();", []),
        ("for (;; ++i) g();", ["++ -> --"]),
    ],
)
def test_conditions(statement, expected):
    assert in_body(statement) == [(2, change) for change in [*expected, "drop g();"]]


@pytest.mark.parametrize(
    "statement, expected",
    [
        ("int n = a + b - c;", ["+ -> -", "- -> +"]),
        ("int n = -a;", []),
        ("int n = f(-1);", ["1 -> 2", "1 -> 0"]),
        ("int n = 0;", ["0 -> 1"]),
        ("auto n = 10'000ull;", ["10'000ull -> 10001ull", "10'000ull -> 9999ull"]),
        ("int n = 0x0C;", ["0x0C -> 0x0D", "0x0C -> 0x04"]),
        ("int n = 0x80u;", ["0x80u -> 0x81u", "0x80u -> 0x00u"]),
        ("int n = 0b10;", ["0b10 -> 0b11"]),
        ("int mode = 0644;", ["0644 -> 0645"]),
        ("double d = 0.5;", ["0.5 -> 1.5"]),
        ("bool b = true;", ["true -> false"]),
        ("char c = 'a';", ["'a' -> 'b'"]),
        (r"char c = '\n';", [r"'\n' -> '\r'"]),
        (r"char c = '\xA3';", [r"'\xA3' -> '\xA2'"]),
        ("char c = '&';", ["'&' -> '%'"]),  # the next one would end the literal
        ("char text[16];", []),
        ("unsigned char *text[16];", []),
        ("char text[16][32];", []),
        ("char (&text)[16] = other;", []),
        ("g(&text[16]);", ["drop g(&text[16]);", "16 -> 17", "16 -> 15"]),
        ("char c = text[16];", ["16 -> 17", "16 -> 15"]),
        ("static_assert(sizeof(A) == 4);", []),
        ("using A = B<3>;", []),
        ("std::array<int, 3> a = b<4>();", []),
        ("auto a = static_cast<int>(b) << 2;", ["2 -> 3", "2 -> 1"]),
        ("int n = 1;  // 2 + 3", ["1 -> 2", "1 -> 0"]),
    ],
)
def test_values(statement, expected):
    assert in_body(statement) == [(2, change) for change in expected]


@pytest.mark.parametrize(
    "literal, expected",
    [
        (r'"\nabc"', [r'"\nbbc"']),
        (r'"\xB6 ok"', [r'"\xB6 pk"']),
        (r'"\n"', [r'"\r"']),
        (r'"%d %s"', [r'"%d!%s"']),
        (r'"%02x,"', [r'"%03x,"', r'"%02x-"']),
        (r'"%-9.2f"', [r'"%-9.3f"']),
        ('""', []),
    ],
)
def test_texts(literal, expected):
    assert results(f"const char *t = {literal};", "text") == [
        f"const char *t = {one};" for one in expected
    ]


def test_statements_are_dropped():
    text = """\
      errno = EIO;
      close(file);
      print(a,
            b);
      *out = size;
      a::b<c>(d);
      int n = g();
      Type other(n);
      (void)n;"""
    assert in_body(text) == [
        (2, "drop errno = EIO;"),
        (3, "drop close(file);"),
        (3, "swap close(file); with print(a, b);"),
        (4, "drop print(a, b);"),
        (6, "drop *out = size;"),
        (7, "drop a::b<c>(d);"),
        (10, "drop (void)n;"),
    ]


def test_kinds_of_dropped_statements():
    text = "void f() {\n  errno = EIO;\n  close(file);\n  free(b);\n  g();\n}\n"
    kinds = [one.kind for one in mutants_of("x.cpp", text) if one.change.startswith("drop")]
    assert kinds == ["errno", "release", "release", "statement"]


def test_neighbours_change_places():
    text = "void f() {\n  puts(a);  // why\n  sleep(b);\n  if (c)\n    puts(d);\n  e = g();\n}\n"
    assert results(text, "order") == [
        "void f() {\n  sleep(b);  // why\n  puts(a);\n  if (c)\n    puts(d);\n  e = g();\n}\n"
    ]


def test_the_ways_out_of_a_block():
    text = "for (;;) {\n  if (a == b)\n    break;\n  continue;\n}\nreturn;"
    assert in_body(text) == [
        (3, "== -> !="),
        (4, "break -> continue"),
        (4, "drop break;"),
        (5, "continue -> break"),
        (5, "drop continue;"),
    ]


@pytest.mark.parametrize(
    "value, expected",
    [
        ("0", ["0 -> 1", "return 0 -> return -1"]),
        ("-1", ["1 -> 2", "1 -> 0"]),
        ("false", ["false -> true"]),
        ("g(a)", ["return g(a) -> return {}"]),
        ("{}", []),
    ],
)
def test_return_values(value, expected):
    assert in_body(f"return {value};") == [(2, change) for change in expected]


def test_lines_of_the_preprocessor_and_attributes_stay():
    text = '#include "a1.h"\n#if A > 1 && \\\n    B > 2\n#endif\n[[nodiscard("3")]] int f();\n'
    assert changes(text) == []


def test_the_same_change_again_is_numbered():
    assert changes("int n = a + b + c;") == [(1, "+ -> -"), (1, "+ -> - (2)")]
    # In another line of the function with the same text, too; another function counts by itself.
    loops = "void f() {\n  break;\n  break;\n}\nvoid g() {\n  break;\n}\n"
    drops = [change for change in changes(loops) if "drop" in change[1]]
    assert drops == [(2, "drop break;"), (3, "drop break; (2)"), (6, "drop break;")]


def test_a_mutant_knows_its_function_and_its_statement():
    text = "int g(int a = 1);\n\nint f() {\n  h(a,\n    2);\n}\n"
    default, _, constant, _ = (one for one in mutants_of("x.cpp", text) if one.kind == "constant")
    assert (default.function, default.statement, default.body) == ("-", (), ())
    assert (constant.function, constant.statement, constant.body) == ("f", (4, 5), (3, 6))
    assert (constant.line, constant.source) == (5, "2);")


def test_lambdas_are_read_as_code():
    text = (
        "auto f = [](int a) {\n  g(a);\n};\nvoid h() {\n  each([&](int a) { return a < 2; });\n}\n"
    )
    assert (2, "drop g(a);") in changes(text)
    assert (5, "return a < 2 -> return {}") in changes(text)


ENTRY = """\
# What the list is for.

file:   x.cpp
in:     f
line:   sleep(1);
change: 1 -> 2
why:    nobody looks
        at the clock
"""


def test_an_accepted_mutant_is_found_by_its_text():
    (entry,) = read_accepted(ENTRY)
    assert (entry.number, entry.fields["why"]) == (3, "nobody looks at the clock")
    mutants = mutants_of("x.cpp", "\n\nvoid f() {\n    sleep(1);\n}\n")
    found = [one.change for one in mutants if entry_for([entry], one)]
    assert found == ["1 -> 2"]
    assert entry_text(mutants[1]) + "why:" == ENTRY[ENTRY.index("file:") : ENTRY.index("why:") + 4]


@pytest.mark.parametrize("text", ["file x.cpp", "file: x.cpp\nwhy: 1", "file: a\nfile: b"])
def test_a_wrong_list_is_refused(text):
    with pytest.raises(Wrong):
        read_accepted(text)


def test_every_accepted_mutant_exists():
    file = ROOT / "tests/mutants_accepted.txt"
    entries = read_accepted(file.read_text(encoding="utf-8"))
    for name in {entry.fields["file"] for entry in entries}:
        for mutant in mutants_of(name, (ROOT / name).read_bytes().decode()):
            entry_for(entries, mutant)
    assert [entry.number for entry in entries if not entry.used] == []


def test_the_sources_are_read_to_their_ends():
    """Every function of the sources is found: a mutant knows the body around each of its returns."""
    for folder in ("src", "platform"):
        for file in sorted((ROOT / folder).rglob("*.cpp")):
            mutants = mutants_of(file.name, file.read_bytes().decode())
            outside = [one for one in mutants if one.kind == "return" and one.function == "-"]
            assert outside == [], file


def test_the_command_lists_without_building():
    done = subprocess.run(
        [sys.executable, ROOT / "scripts/mutate/mutate.py", "--list", ROOT / "src/board/rtc.cpp"],
        capture_output=True,
        text=True,
        check=False,
    )
    assert (done.returncode, done.stderr) == (0, "")
    lines = done.stdout.splitlines()
    assert lines[-1] == f"{len(lines) - 1} mutants"
    assert any(line.startswith("src/board/rtc.cpp:") and "drop puts(" in line for line in lines)
