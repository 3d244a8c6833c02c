"""C++ text as tokens, with what the mutants need to know of each: its place, the space around it and
whether it belongs to a type.

This is no compiler's reader. It relies on clang-format's layout where C++ itself is ambiguous: a "<"
without a space in front of it opens template arguments, one with a space compares.
"""

import re
from dataclasses import dataclass

PUNCTUATORS = (
    "<<= >>= <=> ... ->* :: -> ++ -- << >> <= >= == != && || += -= *= /= %= &= |= ^= ## .*".split()
)
NOT_TYPES = "return else case do goto sizeof new delete".split()
OPENERS = {"(": ")", "[": "]", "{": "}"}

_TOKEN = re.compile(
    r"""(?P<space>\s+|\\\n)
      | (?P<comment>//(?:\\\n|[^\n])*|/\*.*?\*/)
      | (?P<raw>(?:u8|[uUL])?R"(?P<mark>[^(\s\\]*)\(.*?\)(?P=mark)")
      | (?P<string>(?:u8|[uUL])?"(?:\\.|[^"\\\n])*")
      | (?P<char>(?:u8|[uUL])?'(?:\\.|[^'\\\n])+')
      | (?P<number>\.?[0-9](?:[eEpP][+-]|'[0-9a-zA-Z]|[0-9a-zA-Z_.])*)
      | (?P<word>[A-Za-z_][A-Za-z_0-9]*)
      | (?P<punct>"""
    + "|".join(map(re.escape, PUNCTUATORS))
    + r"""|.)""",
    re.X | re.S,
)


@dataclass
class Token:
    kind: str  # word, number, string, raw, char, punct
    text: str
    start: int
    end: int
    line: int
    spaced: bool  # a space, a comment or a line's end in front of it
    in_type: bool = False  # of template arguments, an array's extent, an assertion, an attribute
    partner: int = -1  # the index of the matching bracket


def read_tokens(text):
    """The tokens of a file, without comments and preprocessor lines."""
    tokens = []
    at, line, spaced = 0, 1, True
    while at < len(text):
        directive = _directive(text, at)
        if directive:
            line += text.count("\n", at, directive)
            at, spaced = directive, True
            continue
        match = _TOKEN.match(text, at)
        kind = match.lastgroup if match.lastgroup != "mark" else "raw"
        if kind in ("space", "comment"):
            spaced = True
        else:
            tokens.append(Token(kind, match.group(), at, match.end(), line, spaced))
            spaced = False
        line += match.group().count("\n")
        at = match.end()
    _pair_brackets(tokens)
    _mark_template_arguments(tokens)
    _mark_declarations(tokens)
    return tokens


def _directive(text, at):
    """Where the preprocessor line that begins at `at` ends; 0 when none begins there."""
    if at and text[at - 1] != "\n":
        return 0
    match = re.compile(r"[ \t]*#(?:\\\n|[^\n])*\n?").match(text, at)
    return match.end() if match else 0


def _pair_brackets(tokens):
    open_ones = []
    for i, token in enumerate(tokens):
        if token.kind != "punct":
            continue
        if token.text in OPENERS:
            open_ones.append(i)
        elif token.text in OPENERS.values() and open_ones:
            if OPENERS[tokens[open_ones[-1]].text] == token.text:
                token.partner = open_ones.pop()
                tokens[token.partner].partner = i


def _mark(tokens, first, last):
    for token in tokens[first : last + 1]:
        token.in_type = True


def _mark_template_arguments(tokens):
    for i, token in enumerate(tokens):
        if token.kind != "punct" or token.text != "<" or i == 0 or token.in_type:
            continue
        before = tokens[i - 1]
        if before.text == "template" or (before.kind == "word" and not token.spaced):
            last = template_end(tokens, i)
            if last:
                _mark(tokens, i, last)


def template_end(tokens, first):
    """The index of the ">" that closes the template arguments opened at `first`, or 0."""
    depth, i = 0, first
    while i < len(tokens):
        text = tokens[i].text
        if tokens[i].kind != "punct":
            pass
        elif text == "<":
            depth += 1
        elif text in (">", ">>"):
            depth -= len(text)
            if depth <= 0:
                return i
        elif text in "([{" and tokens[i].partner > i:
            i = tokens[i].partner
        elif text in ";)]}" or text in ("&&", "||"):
            return 0
        i += 1
    return 0


def _mark_declarations(tokens):
    """Assertions, attributes, aliases and the extents of declared arrays."""
    for i, token in enumerate(tokens):
        following = tokens[i + 1] if i + 1 < len(tokens) else None
        if token.text in ("static_assert", "alignas", "__attribute__", "decltype", "asm"):
            if following and following.partner > i:
                _mark(tokens, i, following.partner)
        elif token.text in ("using", "typedef"):
            end = i
            while end < len(tokens) and tokens[end].text != ";":
                end += 1
            _mark(tokens, i, end)
        elif token.text == "[" and token.partner > i:
            attribute = following is not None and following.text == "["
            if attribute or (i >= 2 and not token.spaced and _declares_array(tokens, i)):
                _mark(tokens, i, token.partner)


def _declares_array(tokens, i):
    """Whether the "[" at `i` begins an extent: a type is in front of the name."""
    name, before = tokens[i - 1], tokens[i - 2]
    if name.text == ")":  # char (&out)[16]
        return tokens[name.partner + 1].text in ("*", "&")
    if name.text == "]":  # the second extent
        return name.in_type
    if name.kind != "word":
        return False
    if before.text == "*":  # with spaces on both sides it multiplies
        return tokens[i - 3].kind == "word" and not (before.spaced and name.spaced)
    return before.in_type if before.kind == "punct" else before.text not in NOT_TYPES
