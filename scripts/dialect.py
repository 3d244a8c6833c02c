#!/usr/bin/env python3
"""The rules of our C++ dialect that no formatter or compiler checks.

    dialect.py [--fix] FILE...    prints each deviation; --fix mends those that can be mended

CONTRIBUTING.md lists the rules. Headers in include/ are C as well as C++, so that the rules about
std:: and about C headers do not hold there. After --fix, clang-format lays the lines out again.
"""

import re
import sys
from collections import namedtuple

TOKEN = re.compile(
    r"""
    (?P<space>(?:\s|\\\n)+)
  | (?P<comment>//(?:[^\n\\]|\\.|\\\n)*|/\*.*?\*/)
  | (?P<string>(?:u8|[uUL])?R"(?P<tag>[^(\s]*)\(.*?\)(?P=tag)"
             | (?:u8|[uUL])?"(?:[^"\\\n]|\\.)*"
             | (?:u8|[uUL])?'(?:[^'\\\n]|\\.)*')
  | (?P<include>\#[ ]*include[ ]*(?:<[^>]*>|"[^"]*"))
  | (?P<number>\.?\d(?:[eEpP][+-]|'\w|[\w.])*)
  | (?P<word>[A-Za-z_]\w*)
  | (?P<mark>->\*|->|\+\+|--|::|<<|>>|&&|\|\||[-+*/%&|^=!<>]=|\#\#|.)
    """,
    re.DOTALL | re.VERBOSE,
)
DIRECTIVE = re.compile(r"^[ \t]*#(?:[^\n\\]|\\.|\\\n)*", re.MULTILINE | re.DOTALL)

# In C++'s own headers, for the types in std:: that they declare.
CPP_HEADERS = {"stddef.h": "cstddef", "stdint.h": "cstdint"}
C_HEADERS = {
    "c" + name: name + ".h"
    for name in "assert ctype errno fenv float inttypes limits locale setjmp signal stdarg stdio "
    "stdlib string time uchar wchar wctype".split()
}
C_NAMES = set(
    """
    FILE va_list fclose feof ferror fflush fgetc fgets fopen fprintf fputc fputs fread freopen fscanf
    fseek ftell fwrite getc getchar perror printf putc putchar puts rewind scanf setbuf setvbuf
    snprintf sprintf sscanf tmpfile ungetc vfprintf vprintf vsnprintf vsprintf _Exit abort atexit atof
    atoi atol atoll bsearch calloc exit free getenv malloc qsort quick_exit rand realloc srand strtod
    strtof strtol strtold strtoll strtoul strtoull system memchr memcmp memcpy memmove memset strcat
    strchr strcmp strcoll strcpy strcspn strerror strlen strncat strncmp strncpy strpbrk strrchr
    strspn strstr strtok strxfrm isalnum isalpha isblank iscntrl isdigit isgraph islower isprint
    ispunct isspace isupper isxdigit tolower toupper asctime clock ctime difftime gmtime localtime
    mktime strftime time raise signal
    """.split()
)
STD_TYPES = re.compile(r"u?int(8|16|32|64|ptr|max)_t|size_t|ptrdiff_t")
UNSIGNED_OF = {"int", "char", "long", "short", "__int128"}

Token = namedtuple("Token", "kind text start end")
Edit = namedtuple("Edit", "start end text")
Finding = namedtuple("Finding", "at message edits")


def tokens_of(text):
    found = []
    for match in TOKEN.finditer(text):
        kind = match.lastgroup if match.lastgroup != "tag" else "string"
        if kind != "space":
            found.append(Token(kind, match.group(), match.start(), match.end()))
    return found


def end_of_group(tokens, at):
    """The index of the bracket that closes the one at `at`."""
    depth = 0
    for i in range(at, len(tokens)):
        if tokens[i].kind == "mark":
            if tokens[i].text in "([{":
                depth += 1
            elif tokens[i].text in ")]}":
                depth -= 1
                if depth == 0:
                    return i
    return len(tokens) - 1


def after_head(tokens, at):
    """Past the parentheses of the if, for, while or switch at `at`."""
    at += 1
    if tokens[at].text == "constexpr":
        at += 1
    return end_of_group(tokens, at) + 1


def after_statement(tokens, at):
    text = tokens[at].text
    if text == "{":
        return end_of_group(tokens, at) + 1
    if text == "if":
        at = after_statement(tokens, after_head(tokens, at))
        if at < len(tokens) and tokens[at].text == "else":
            at = after_statement(tokens, at + 1)
        return at
    if text in ("for", "while", "switch"):
        return after_statement(tokens, after_head(tokens, at))
    if text == "do":
        return end_of_group(tokens, after_statement(tokens, at + 1) + 1) + 2
    while at < len(tokens) and tokens[at].text != ";":
        if tokens[at].text in ("(", "[", "{"):
            at = end_of_group(tokens, at)
        elif tokens[at].text in (")", "]", "}"):
            return at
        at += 1
    return at + 1


class Source:
    def __init__(self, text, is_c=False):
        self.text = text
        self.is_c = is_c
        everything = tokens_of(text)
        self.comments = [token for token in everything if token.kind == "comment"]
        self.tokens = [token for token in everything if token.kind != "comment"]
        self.directives = [match.span() for match in DIRECTIVE.finditer(text)]
        # Statements are followed outside of directives only.
        self.code = [token for token in self.tokens if not self.in_directive(token.start)]

    def in_directive(self, at):
        return any(start <= at < end for start, end in self.directives)

    def has_line_of_its_own(self, start, end):
        """Whether a comment with a line of its own, or a directive, lies in between."""
        return any(start < begin < end for begin, _ in self.directives) or any(
            start < comment.start < end
            and self.text[self.text.rindex("\n", 0, comment.start) : comment.start].isspace()
            for comment in self.comments
        )


def branches_of(source, at):
    """The bodies, as (first token, past the last), of the if chain or loop at `at`."""
    tokens = source.code
    bodies = []
    while True:
        body = after_head(tokens, at)
        end = after_statement(tokens, body)
        bodies.append((body, end))
        if tokens[at].text != "if" or end >= len(tokens) or tokens[end].text != "else":
            return bodies
        at = end + 1
        if tokens[at].text != "if":
            bodies.append((at, after_statement(tokens, at)))
            return bodies


def needs_braces(source, body, end):
    tokens = source.code
    if tokens[body].text == "{":
        if source.has_line_of_its_own(tokens[body].start, tokens[end - 1].start):
            return True
        if tokens[body + 1].text == "}" or after_statement(tokens, body + 1) != end - 1:
            return True
        body += 1
        if tokens[body].text.startswith(("EXPECT_", "ASSERT_")):
            return True  # those expand to an if of their own, which compilers warn about
    return tokens[body].text in ("{", "if", "for", "while", "switch", "do")


def without_brace(text, at, is_opening):
    """The edit that drops a brace, and its line where it is alone there."""
    start, end = at, at + 1
    line = text.rindex("\n", 0, at)
    if not is_opening and text[line:at].isspace() and text[end : end + 1] == "\n":
        return Edit(line, end, "")
    if is_opening and text[end : end + 1] == "\n":
        start -= len(text[line:at]) - len(text[line:at].rstrip(" "))
    return Edit(start, end, "")


def after_trailing_comment(source, at):
    for comment in source.comments:
        if comment.start >= at:
            return comment.end if source.text[at : comment.start].strip(" ") == "" else at
    return at


def check_braces(source):
    tokens = source.code
    for i, token in enumerate(tokens):
        if token.kind != "word" or token.text not in ("if", "for", "while"):
            continue
        if i > 0 and tokens[i - 1].text == "else":
            continue
        bodies = branches_of(source, i)
        if tokens[bodies[0][0]].text == ";":
            continue  # the end of do ... while
        wanted = any(needs_braces(source, *body) for body in bodies)
        for body, end in bodies:
            first, last = tokens[body], tokens[end - 1]
            if wanted and first.text != "{":
                message = "braces: around a nested statement, and on all branches or none"
                close = after_trailing_comment(source, last.end)
                edits = [Edit(first.start, first.start, "{"), Edit(close, close, "\n}")]
                yield Finding(first.start, message, edits)
            elif not wanted and first.text == "{":
                edits = [
                    without_brace(source.text, first.start, True),
                    without_brace(source.text, last.start, False),
                ]
                yield Finding(first.start, "no braces around a single statement", edits)


def start_of_operand(tokens, at):
    """The index at which the operand begins that ends at `at`."""
    while True:
        if tokens[at].text in (")", "]"):
            closing, depth = at, 0
            for at in range(closing, -1, -1):
                depth += {")": 1, "]": 1, "(": -1, "[": -1}.get(tokens[at].text, 0)
                if depth == 0:
                    break
            if tokens[closing].text == ")" and tokens[at - 1].kind != "word":
                return at
            at -= 1
        elif tokens[at - 1].text in (".", "->", "::"):
            at -= 2
        else:
            return at


def opener_of(tokens, at):
    """The index of the bracket that `at` lies in, -1 at the outermost level."""
    depth = 0
    for i in range(at - 1, -1, -1):
        if tokens[i].kind == "mark":
            if tokens[i].text in ")]}":
                depth += 1
            elif tokens[i].text in "([{":
                if depth == 0:
                    return i
                depth -= 1
    return -1


def check_prefix(source):
    tokens = source.tokens
    for i, token in enumerate(tokens):
        if token.text not in ("++", "--") or i < 2 or i + 1 >= len(tokens):
            continue
        operand_end = tokens[i - 1]
        if operand_end.kind != "word" and operand_end.text not in (")", "]"):
            continue
        if tokens[i + 1].text not in (";", ")", ","):
            continue
        start = start_of_operand(tokens, i - 1)
        before = tokens[start - 1].text
        opener = opener_of(tokens, start)
        in_for = opener > 0 and tokens[opener].text == "(" and tokens[opener - 1].text == "for"
        if before == ")":
            head = opener_of(tokens, start - 1)
            is_unused = tokens[head - 1].text in ("if", "for", "while")
        elif before in (",", "("):
            is_unused = in_for
        else:
            is_unused = before in (";", "{", "}", "else", "do", ":")
        if is_unused and (in_for or tokens[i + 1].text in (";", ",")):
            at = tokens[start].start
            edits = [Edit(at, at, token.text), Edit(token.start, token.end, "")]
            yield Finding(token.start, f"{token.text} comes first where its value is unused", edits)


def check_names(source):
    tokens = source.tokens
    for i, token in enumerate(tokens):
        if token.kind == "include":
            header = re.search(r"<(.*)>", token.text)
            better = {**C_HEADERS, **CPP_HEADERS}.get(header and header[1])
            if better:
                edit = Edit(token.start, token.end, f"#include <{better}>")
                yield Finding(token.start, f"<{better}>, not <{header[1]}>", [edit])
        if token.kind != "word":
            continue
        before = tokens[i - 1].text if i > 0 else ""
        after = tokens[i + 1].text if i + 1 < len(tokens) else ""
        if STD_TYPES.fullmatch(token.text) and before not in ("::", ".", "->"):
            edit = Edit(token.start, token.start, "std::")
            yield Finding(token.start, f"std::{token.text}", [edit])
        if token.text in C_NAMES and before == "::" and i > 1 and tokens[i - 2].text == "std":
            edit = Edit(tokens[i - 2].start, token.start, "")
            yield Finding(token.start, f"{token.text} without std::", [edit])
        if token.text == "unsigned" and after not in UNSIGNED_OF and before not in UNSIGNED_OF:
            edit = Edit(token.end, token.end, " int")
            yield Finding(token.start, "unsigned int", [edit])
        if token.text == "NULL":
            yield Finding(token.start, "nullptr", [Edit(token.start, token.end, "nullptr")])


def is_object(source, name):
    """Whether a lower-case name is an object's: types of C and of the kernel are so, too."""
    return re.fullmatch(r"k[A-Z]\w*", name) or re.search(
        rf"[\w>*&\])(]\s*[\s*&]\(?{name}\)?\s*(\[[^\]]*\])*\s*[;=,):{{]", source.text
    )


def check_sizeof(source):
    tokens = source.tokens
    for i, token in enumerate(tokens):
        if token.text != "sizeof" or tokens[i + 1].text != "(":
            continue
        end = end_of_group(tokens, i + 1)
        inner = tokens[i + 2 : end]
        words = [part.text for part in inner]
        if inner[0].kind != "word" or not words[0][0].islower():
            continue
        if any(part.kind == "mark" and part.text not in (".", "->", "[", "]") for part in inner):
            continue  # an operator needs the parentheses
        if len(inner) == 1 and not is_object(source, words[0]):
            continue
        if len(inner) > 1 and words[1] not in (".", "->", "["):
            continue  # a type of several words
        edits = [
            Edit(tokens[i + 1].start, tokens[i + 1].end, " "),
            Edit(tokens[end].start, tokens[end].end, ""),
        ]
        yield Finding(token.start, "sizeof x: parentheses are for types", edits)


def check_static(source):
    tokens = source.code
    namespaces = []  # of each open brace, whether it is a namespace's
    for i, token in enumerate(tokens):
        before = tokens[i - 1].text if i > 0 else ";"
        if token.text == "{" and token.kind == "mark":
            head = i - 1
            while tokens[head].kind == "word" and tokens[head].text != "namespace":
                head -= 2 if tokens[head - 1].text == "::" else 1
            is_extern = tokens[i - 1].text == '"C"' and tokens[i - 2].text == "extern"
            namespaces.append(is_extern or tokens[head].text == "namespace")
        elif token.text == "}" and token.kind == "mark":
            namespaces.pop()
        elif token.text == "static" and all(namespaces) and before in (";", "{", "}", ">"):
            yield Finding(token.start, "an unnamed namespace, not static", [])


def check_banners(source):
    for comment in source.comments:
        if re.match(r"(//|/\*)\s*[-=*#~]{3,}", comment.text):
            yield Finding(comment.start, "no banners", [])


def check_includes(source):
    """The project's headers come before the system's, and those before C++'s own."""
    groups = {'"': 0, "h": 1, "c": 2}
    names = []
    for token in source.tokens:
        if token.kind == "include":
            kind = '"' if '"' in token.text else "h" if token.text.endswith(".h>") else "c"
            names.append((groups[kind], token))
    for (first, _), (second, token) in zip(names, names[1:]):
        if second < first:
            yield Finding(token.start, 'order of headers: "ours.h", <system.h>, <cpp>', [])


CHECKS = (check_braces, check_prefix, check_sizeof, check_static, check_banners)
CPP_CHECKS = (check_names, check_includes)


def findings_in(text, is_c=False):
    source = Source("\n" + text, is_c)
    found = [
        finding for check in CHECKS + (() if is_c else CPP_CHECKS) for finding in check(source)
    ]
    return source, sorted(found, key=lambda finding: finding.at)


def mended(text, is_c=False):
    """`text` with what can be mended. Braces inside of braces take a round each."""
    for _ in range(10):
        source, found = findings_in(text, is_c)
        edits = sorted((edit for finding in found for edit in finding.edits), reverse=True)
        if not edits:
            break
        text = source.text
        for edit in edits:
            text = text[: edit.start] + edit.text + text[edit.end :]
        text = text[1:]
    return text


def main(arguments):
    fix = arguments[:1] == ["--fix"]
    paths = arguments[1:] if fix else arguments
    if not paths:
        print("usage: dialect.py [--fix] FILE...", file=sys.stderr)
        return 2
    failed = False
    for path in paths:
        with open(path, encoding="utf-8") as file:
            text = file.read()
        is_c = path.startswith("include/")
        if fix and mended(text, is_c) != text:
            text = mended(text, is_c)
            with open(path, "w", encoding="utf-8") as file:
                file.write(text)
        source, found = findings_in(text, is_c)
        for finding in found:
            print(f"{path}:{source.text.count(chr(10), 0, finding.at)}: {finding.message}")
            failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
