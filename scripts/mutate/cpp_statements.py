"""The functions of a file and the statements in them, from its tokens."""

from dataclasses import dataclass, field

from cpp_tokens import template_end

DECLARING = set(
    "auto bool char class const constexpr double enum extern float int long short signed static "
    "static_assert struct template thread_local typedef union unsigned using void volatile".split()
)
SCOPES = {"namespace", "struct", "class", "union", "extern"}
ASSIGNING = {"=", "+=", "-=", "*=", "/=", "%=", "&=", "|=", "^=", "<<=", ">>="}


@dataclass
class Statement:
    """The tokens first..last. Of if, for, while and switch it is the part in parentheses."""

    kind: str  # expression, declaration, return, jump, condition, header, block, other
    first: int
    last: int
    siblings: list = field(repr=False, default=None)  # the statements of the same block, in order


@dataclass
class Function:
    name: str
    first: int
    last: int
    statements: list


def read_functions(tokens):
    """Every function with a body, in order; a lambda is part of the function around it."""
    kinds = _brace_kinds(tokens)
    functions = []
    i = 0
    while i < len(tokens):
        if kinds.get(i) == "block":
            found = []
            _read_block(tokens, kinds, i + 1, tokens[i].partner, found)
            functions.append(Function(_name(tokens, i), i, tokens[i].partner, found))
            i = tokens[i].partner
        i += 1
    return functions


def _name(tokens, brace):
    """The name in front of the parameters of the body that `brace` opens."""
    i = brace - 1
    while i > 0 and tokens[i].text not in (";", "}", "{"):
        if tokens[i].text == ")" and tokens[i].partner > 0:
            before = tokens[tokens[i].partner - 1]
            if before.kind == "word" and before.text not in ("noexcept", "alignas"):
                return before.text
            i = tokens[i].partner
        i -= 1
    return "-"


def _brace_kinds(tokens):
    """For each "{" that is closed: block, scope, or values (initialisers, enumerators)."""
    kinds = {}
    around = []
    for i, token in enumerate(tokens):
        if token.kind != "punct":
            continue
        if token.text == "{" and token.partner > i:
            kinds[i] = _brace_kind(tokens, i, kinds[around[-1]] if around else "scope")
            around.append(i)
        elif token.text == "}" and around and token.partner == around[-1]:
            around.pop()
    return kinds


def _brace_kind(tokens, i, parent):
    if i == 0:
        return "block"
    before = tokens[i - 1]
    if before.text == ")" or before.text in ("else", "do", "try", "const", "noexcept", "mutable"):
        return "block"
    if before.kind == "punct" and before.text in (";", "{", "}", ":"):
        return "block" if parent == "block" else "values"
    if before.text == "]":
        opener = tokens[before.partner - 1]
        return "values" if opener.kind == "word" and opener.text != "return" else "block"
    # A scope's name or a return type: what the declaration began with decides.
    start = i - 1
    while start >= 0 and tokens[start].text not in (";", "{", "}", "="):
        if tokens[start].text == "->" and tokens[start - 1].text == ")":
            return "block"
        if tokens[start].text == "enum":
            return "values"
        if tokens[start].text in SCOPES and parent != "values":
            if tokens[start - 1].text != "enum":
                return "scope"
        start -= 1
    return "values"


def _read_block(tokens, kinds, i, end, found):
    siblings = []
    while i < end:
        i = _read_statement(tokens, kinds, i, end, found, siblings)
    return siblings


def _add(found, siblings, kind, first, last):
    statement = Statement(kind, first, last, siblings)
    found.append(statement)
    siblings.append(statement)


def _read_statement(tokens, kinds, i, end, found, siblings):
    """Reads the statement that begins at `i`; the index after it."""
    text = tokens[i].text
    if text == ";":
        return i + 1
    if text == "{" and kinds.get(i) == "block":
        _add(found, siblings, "block", i, tokens[i].partner)
        _read_block(tokens, kinds, i + 1, tokens[i].partner, found)
        return tokens[i].partner + 1
    if text in ("if", "while", "for", "switch"):
        return _read_control(tokens, kinds, i, end, found, siblings)
    if text in ("else", "do", "try"):
        # A sibling that is never swapped or dropped keeps its neighbours apart.
        _add(found, siblings, "other", i, i)
        return _read_statement(tokens, kinds, i + 1, end, found, []) if i + 1 < end else end
    if text in ("case", "default") or (i + 1 < end and tokens[i + 1].text == ":"):
        first = i
        while i < end and tokens[i].text != ":":
            i += 1
        _add(found, siblings, "other", first, i)
        return i + 1
    return _read_simple(tokens, kinds, i, end, found, siblings)


def _read_control(tokens, kinds, i, end, found, siblings):
    word = tokens[i].text
    opener = i + 1
    while opener < end and tokens[opener].text != "(":
        opener += 1
    closer = tokens[opener].partner
    if opener >= end or closer < 0:
        return end
    _add(found, siblings, "condition" if word in ("if", "while") else "header", opener, closer)
    _read_lambdas(tokens, kinds, opener, closer, found)
    if closer + 1 >= end:
        return end
    return _read_statement(tokens, kinds, closer + 1, end, found, [])


def _read_simple(tokens, kinds, i, end, found, siblings):
    last = i
    while last < end and tokens[last].text != ";":
        if tokens[last].text in ("(", "[", "{") and tokens[last].partner > last:
            last = tokens[last].partner
        last += 1
    last = min(last, end - 1)
    first = tokens[i].text
    if first == "return":
        kind = "return"
    elif first in ("break", "continue"):
        kind = "jump"
    elif first == "goto" or tokens[last].text != ";":
        kind = "other"
    else:
        kind = "expression" if _is_expression(tokens, i, last) else "declaration"
    _add(found, siblings, kind, i, last)
    _read_lambdas(tokens, kinds, i, last, found)
    return last + 1


def _read_lambdas(tokens, kinds, first, last, found):
    i = first
    while i < last:
        if kinds.get(i) == "block":
            _read_block(tokens, kinds, i + 1, tokens[i].partner, found)
            i = tokens[i].partner
        i += 1


def _is_expression(tokens, i, last):
    if tokens[i].text in ("*", "(", "++", "--", "::"):
        return True
    if tokens[i].kind != "word" or tokens[i].text in DECLARING:
        return False
    i = after_name(tokens, i)
    text = tokens[i].text if i <= last else ";"
    return text in ("(", "[", ".", "->", "++", "--") or text in ASSIGNING


def after_name(tokens, i):
    """The index after a qualified name with its template arguments."""
    while True:
        i += 1
        if tokens[i].text == "<" and tokens[i].in_type:
            i = template_end(tokens, i) + 1
        if tokens[i].text != "::":
            return i
        i += 1


def is_call(tokens, statement):
    """Whether an expression statement is one call and nothing else: name(...);"""
    if statement.kind != "expression" or tokens[statement.last - 1].text != ")":
        return False
    opener = tokens[statement.last - 1].partner
    if opener <= statement.first:
        return False
    return all(
        token.kind == "word" or token.in_type or token.text in ("::", ".", "->")
        for token in tokens[statement.first : opener]
    )
