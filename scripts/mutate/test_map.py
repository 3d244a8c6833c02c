"""Which tests reach a mutant."""

import pathlib
import re

from cpp_statements import read_functions
from cpp_tokens import read_tokens
from test_notes import MAPPED


class TestMap:
    def __init__(self, tree, notes, code):
        self.tree = tree
        self.tests = []  # names
        self.seconds = {}
        self.failed = set()  # those that fail in the coverage build
        self.lines = {}  # {file: {line: a bit for each test}}
        self.code = {file: set(lines) for file, lines in code.items()}  # the lines that have code
        self.includers = {}
        self.outlines = {}
        for part in notes:
            self.add(part)

    def add(self, part):
        """Adds the notes of one test file."""
        shift = len(self.tests)
        self.tests += part["tests"]
        self.seconds.update(zip(part["tests"], part["seconds"]))
        self.failed.update(part["failed"])
        for file, lines in part["lines"].items():
            mine = self.lines.setdefault(file, {})
            for line, bits in lines.items():
                mine[int(line)] = mine.get(int(line), 0) | int(bits, 16) << shift

    def tests_for(self, mutant, text):
        """The tests that reach a mutant, and what of it they were seen to reach: its line, statement or
        function; of a constant or a table what uses it, or its file. Where no test was seen to reach
        the code, those with the file's name, and "name"."""
        last = mutant.line + text.count("\n", mutant.start, mutant.end)
        nearest = {
            "line": range(mutant.line, last + 1),
            "statement": mutant.statement,
            "function": range(mutant.body[0], mutant.body[1] + 1) if mutant.body else (),
        }
        code = self.code.get(mutant.file, set())
        for how, lines in nearest.items():
            lines = code.intersection(lines)
            if lines:
                names = self._named(self._union(mutant.file, lines))
                return (names, how) if names else (self._by_name(mutant.file), "name")
        files = self._files_of(mutant.file)
        names = self._named(self._of_uses(mutant, files))
        if names:
            return names, "uses"
        bits = 0
        for file in files:
            bits |= self._union(file, self.code.get(file, ()))
        names = self._named(bits)
        return (names, "file") if names else (self._by_name(mutant.file), "name")

    def _union(self, file, lines):
        bits = 0
        for line in lines:
            bits |= self.lines.get(file, {}).get(line, 0)
        return bits

    def _named(self, bits):
        return [name for i, name in enumerate(self.tests) if bits >> i & 1]

    def _files_of(self, file):
        """A file with those that include it or its header."""
        self.includers = self.includers or _includers(self.tree)
        files = [file, str(pathlib.PurePath(file).with_suffix(".h"))]
        for one in files:
            files += [each for each in self.includers.get(one, ()) if each not in files]
        return [one for one in files if (self.tree / one).is_file()]

    def _of_uses(self, mutant, files):
        """What reaches a line that names what the mutant's line declares, or a constant made of it."""
        bits, names = 0, [self._outline(mutant.file).declared.get(mutant.line)]
        for name in names:
            for file in files if name else ():
                outline, code = self._outline(file), self.code.get(file, set())
                for line in outline.lines.get(name, ()):
                    lines = code.intersection([line]) or code.intersection(outline.body(line))
                    bits |= self._union(file, lines)
                    other = outline.declared.get(line)
                    if not lines and other not in names:
                        names.append(other)
        return bits

    def _outline(self, file):
        if file not in self.outlines:
            self.outlines[file] = Outline((self.tree / file).read_bytes().decode())
        return self.outlines[file]

    def _by_name(self, file):
        stem = pathlib.PurePath(file).stem
        return [name for name in self.tests if re.match(rf"test_{stem}(_\w+)?\.py::", name)]


class Outline:
    """The lines of each word of a file, its functions, and what its other lines declare."""

    def __init__(self, text):
        tokens = read_tokens(text)
        self.lines = {}  # {word: lines}
        for token in tokens:
            if token.kind == "word":
                self.lines.setdefault(token.text, set()).add(token.line)
        functions = read_functions(tokens)
        self.bodies = [range(tokens[f.first].line, tokens[f.last].line + 1) for f in functions]
        self.declared = {}  # {line: name}
        self._read_declarations(tokens, {f.first for f in functions})

    def _read_declarations(self, tokens, bodies):
        first = i = 0
        while i < len(tokens):
            text = tokens[i].text if tokens[i].kind == "punct" else ""
            if text == ";":
                name = _declared_name(tokens[first:i])
                self.declared.update(
                    dict.fromkeys(range(tokens[first].line, tokens[i].line + 1), name)
                )
            elif text == "{" and tokens[i].partner > i:
                words = {one.text for one in tokens[first:i]}
                if "enum" in words:
                    self._read_enumerators(tokens[i : tokens[i].partner])
                if i in bodies or "=" in words or not words & {"namespace", "extern"}:
                    i = tokens[i].partner
            # A scope was opened or closed, a function has ended, or a declaration.
            if text in (";", "}") or tokens[i].text == "{" or tokens[i].partner in bodies:
                first = i + 1
            i += 1

    def _read_enumerators(self, tokens):
        for before, token in zip(tokens, tokens[1:]):
            if before.text in ("{", ",") and token.kind == "word":
                self.declared[token.line] = token.text

    def body(self, line):
        return next((body for body in self.bodies if line in body), ())


def _declared_name(tokens):
    """The name in front of the first "=", "[", "{" or "(" of a declaration."""
    for before, token in zip(tokens, tokens[1:]):
        if token.kind == "punct" and token.text in ("=", "[", "{", "(") and not before.in_type:
            return before.text if before.kind == "word" else None
    return None


def _includers(tree):
    """For each header of the tree the files that include it."""
    found = {}
    for folder in MAPPED:
        for file in (tree / folder).rglob("*"):
            if file.suffix not in (".cpp", ".h"):
                continue
            for name in re.findall(r'^#include "(.*)"', file.read_text(encoding="utf-8"), re.M):
                for root in ("", "src", "include"):
                    if (tree / root / name).exists():
                        header = str(pathlib.PurePath(root) / name)
                        found.setdefault(header, []).append(str(file.relative_to(tree)))
    return found
