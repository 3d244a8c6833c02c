"""The one-token changes of a C++ file."""

import re
from dataclasses import dataclass

from cpp_statements import is_call, read_functions
from cpp_tokens import read_tokens

COMPARISONS = {
    "<": ("<=", ">="),
    "<=": ("<", ">"),
    ">": (">=", "<="),
    ">=": (">", "<"),
    "==": ("!=",),
    "!=": ("==",),
}
LOGIC = {"&&": "||", "||": "&&"}
SUMS = {"+": "-", "-": "+", "+=": "-=", "-=": "+=", "++": "--", "--": "++"}
TRUTH = {"true": "false", "false": "true"}
RELEASING = {"close", "closedir", "fclose", "free", "munmap", "pclose"}


@dataclass
class Mutant:
    file: str
    line: int  # where the changed text begins
    start: int  # the changed text is text[start:end]
    end: int
    text: str  # what takes its place
    kind: str
    change: str  # what a person reads, unique among the function's lines with the same text
    source: str  # the line's text
    function: str  # the function around it, or "-"
    statement: tuple  # the lines of the statement around it; empty outside functions
    body: tuple  # the function's first and last line; empty outside functions


def mutants_of(file, text):
    """Every mutant of a file's text, in its order."""
    found = []
    tokens = read_tokens(text)
    functions = read_functions(tokens)
    for i in range(len(tokens)):
        found += _of_token(tokens, i)
    for function in functions:
        for statement in function.statements:
            found += _of_statement(text, tokens, statement)
    return _described(file, text, tokens, functions, found)


def mutated(text, mutant):
    return text[: mutant.start] + mutant.text + text[mutant.end :]


def _described(file, text, tokens, functions, found):
    lines = text.split("\n")
    mutants, seen, numbers = [], set(), {}
    for start, end, new, kind, change in sorted(found, key=lambda one: one[0]):
        if (start, end, new) in seen or text[start:end] == new:
            continue
        seen.add((start, end, new))
        line = text.count("\n", 0, start) + 1
        source = lines[line - 1].strip()
        function, *around = _around(tokens, functions, start)
        change = " ".join(change.split())
        key = function, source, change
        number = numbers[key] = numbers.get(key, 0) + 1
        if number > 1:
            change += f" ({number})"
        mutants.append(Mutant(file, line, start, end, new, kind, change, source, function, *around))
    return mutants


def _around(tokens, functions, place):
    """The name and the lines of the function around a place, with the innermost statement's lines."""
    for function in functions:
        first, last = tokens[function.first], tokens[function.last]
        if first.start <= place <= last.start:
            break
    else:
        return "-", (), ()
    innermost = ()
    for statement in function.statements:
        begin, end = tokens[statement.first], tokens[statement.last]
        if statement.kind not in ("block", "other") and begin.start <= place < end.end:
            innermost = tuple(range(begin.line, end.line + 1))
    return function.name, innermost, (first.line, last.line)


def _of_token(tokens, i):
    token = tokens[i]
    if token.in_type:
        return []
    if token.kind == "number":
        return _replacements(token, "constant", _numbers(token.text))
    if token.kind == "char":
        return _replacements(token, "character", _characters(token.text))
    if token.kind == "string":
        return _replacements(token, "text", _strings(tokens, i))
    if token.text in TRUTH:
        return _replacements(token, "truth", [TRUTH[token.text]])
    if token.kind != "punct" or i == 0:
        return []
    if token.text in COMPARISONS and tokens[i - 1].text != "operator":
        return _replacements(token, "comparison", COMPARISONS[token.text])
    both_sides = token.spaced and i + 1 < len(tokens) and tokens[i + 1].spaced
    if token.text in LOGIC and both_sides:
        return _replacements(token, "logic", [LOGIC[token.text]])
    if token.text in SUMS and (len(token.text) == 2 or _has_left_side(tokens[i - 1])):
        return _replacements(token, "sum", [SUMS[token.text]])
    if token.text == "!" and tokens[i - 1].text != "operator":
        return [(token.start, token.end, "", "negation", f"drop ! of {tokens[i + 1].text}")]
    return []


def _replacements(token, kind, texts):
    return [(token.start, token.end, new, kind, f"{token.text} -> {new}") for new in texts]


def _has_left_side(before):
    if before.kind == "word":
        return before.text not in ("return", "case", "operator")
    return before.kind != "punct" or before.text in (")", "]")


# --- values ---


def _numbers(text):
    """A constant by one; of a mask, the lowest and the highest bit."""
    match = re.fullmatch(r"(0[xX][0-9a-fA-F']+|0[bB][01']+|[0-9][0-9']*)([uUlLzZ]*)", text)
    if not match:
        match = re.fullmatch(r"([0-9']*\.?[0-9']*)(?:[eE][+-]?[0-9]+)?[fFlL]?", text)
        if not match or text[:2] in ("0x", "0X"):
            return []
        # Of a fraction the digit in front of the point, which every form has or may be given.
        whole, point, rest = text.partition(".")
        return [f"{int(whole or '0') + 1}{point}{rest}"] if point else []
    digits, suffix = match.group(1).replace("'", ""), match.group(2)
    if digits[:2] in ("0x", "0X"):
        value, width = int(digits, 16), len(digits) - 2
        upper = any(c in "ABCDEF" for c in digits)
        changed = [value ^ 1]
        if value > 1:
            changed.append(value ^ 1 << (value.bit_length() - 1))
        form = f"{{:#0{width + 2}{'X' if upper else 'x'}}}"
        return [form.format(one).replace("0X", "0x") + suffix for one in changed]
    if digits[:2] in ("0b", "0B"):
        return [f"0b{int(digits, 2) ^ 1:0{len(digits) - 2}b}{suffix}"]
    if digits[0] == "0" and len(digits) > 1:
        return [f"0{int(digits, 8) ^ 1:0{len(digits) - 1}o}{suffix}"]
    value = int(digits)
    return [f"{one}{suffix}" for one in (value + 1, value - 1) if one >= 0]


_CHARACTER = re.compile(r"\\x[0-9a-fA-F]+|\\[0-7]{1,3}|\\.|[^\\]", re.S)
_ESCAPES = {
    "\\n": "\\r",
    "\\r": "\\n",
    "\\t": " ",
    "\\0": "\\1",
    "\\\\": "/",
    '\\"': "'",
    "\\'": '"',
}


def _other_character(character, quote):
    """A character as it stands in a literal, changed by one; None when it is left alone."""
    if character in _ESCAPES:
        return _ESCAPES[character]
    if character.startswith("\\x"):
        return character[:-1] + f"{int(character[-1], 16) ^ 1:X}"
    if re.fullmatch(r"\\[0-7]+", character):
        return character[:-1] + str(int(character[-1]) ^ 1)
    if character.startswith("\\") or not " " <= character < "~":
        return None
    other = chr(ord(character) + 1)
    return chr(ord(character) - 1) if other in (quote, "\\", "%") else other


def _characters(text):
    prefix, inside = text[: text.index("'")], text[text.index("'") + 1 : -1]
    if not _CHARACTER.fullmatch(inside):
        return []
    other = _other_character(inside, "'")
    return [f"{prefix}'{other}'"] if other else []


_CONVERSION = re.compile(r"%[-+ #0]*(?:\*|\d+)?(?:\.(?:\*|\d+)?)?(?:hh|h|ll|l|j|z|t|L)?[a-zA-Z%]")


def _strings(tokens, i):
    """One byte of a text, and the widths of its conversions."""
    text = tokens[i].text
    before = tokens[i - 1].text if i else ""
    if before in ("extern", "operator") or text.endswith('""'):
        return []
    opening = text.index('"') + 1
    inside = text[opening:-1]
    changed = []
    conversions = list(_CONVERSION.finditer(inside))
    for match in conversions:
        digit = re.search(r"[1-9](?=\D*$)", match.group())
        if digit:
            at = match.start() + digit.start()
            changed.append(inside[:at] + str(int(inside[at]) % 9 + 1) + inside[at + 1 :])
    candidates = [
        match
        for match in _CHARACTER.finditer(inside)
        if not any(one.start() <= match.start() < one.end() for one in conversions)
        and _other_character(match.group(), '"')
    ]
    # A letter or a digit shows best; a space or an escape where there is nothing else. The byte
    # after a hexadecimal escape must not become one of its digits.
    plain = [one for one in candidates if one.group().isalnum()] or candidates
    for one in plain[:1]:
        other = _other_character(one.group(), '"')
        changed.append(inside[: one.start()] + other + inside[one.end() :])
    return [f'{text[:opening]}{one}"' for one in changed]


# --- statements ---


def _of_statement(text, tokens, statement):
    first, last = tokens[statement.first], tokens[statement.last]
    whole = text[first.start : last.end]
    if statement.kind == "jump":
        other = "continue" if first.text == "break" else "break"
        return [
            (first.start, first.end, other, "jump", f"{first.text} -> {other}"),
            (first.start, last.end, ";", "jump", f"drop {whole}"),
        ]
    if statement.kind == "return":
        return _of_return(text, tokens, statement)
    if statement.kind == "condition":
        return _of_condition(text, tokens, statement.first + 1, statement.last)
    if statement.kind != "expression":
        return []
    return [
        (first.start, last.end, ";", _drop_kind(tokens, statement), f"drop {whole}"),
        *_swap(text, tokens, statement),
    ]


def _drop_kind(tokens, statement):
    first, second = tokens[statement.first].text, tokens[statement.first + 1].text
    if first == "errno":
        return "errno"
    return "release" if first in RELEASING and second == "(" else "statement"


def _swap(text, tokens, statement):
    """Two neighbouring calls in the other order, such as a print and a wait."""
    at = next(i for i, one in enumerate(statement.siblings) if one is statement)
    if at + 1 == len(statement.siblings) or not is_call(tokens, statement):
        return []
    following = statement.siblings[at + 1]
    if not is_call(tokens, following) or following.first != statement.last + 1:
        return []
    start, middle = tokens[statement.first].start, tokens[statement.last].end
    again, end = tokens[following.first].start, tokens[following.last].end
    one, other = text[start:middle], text[again:end]
    return [(start, end, other + text[middle:again] + one, "order", f"swap {one} with {other}")]


def _of_return(text, tokens, statement):
    inside = tokens[statement.first + 1 : statement.last]
    if not inside:
        return []
    start, end = inside[0].start, inside[-1].end
    if len(inside) == 1 and inside[0].kind == "number":
        number = inside[0].text
        return [(start, end, "-1", "return", "return 0 -> return -1")] if number == "0" else []
    whole = text[start:end]
    negative = len(inside) == 2 and inside[0].text == "-" and inside[1].kind == "number"
    if negative or whole in ("{}", "nullptr", *TRUTH):
        return []
    return [(start, end, "{}", "return", f"return {whole} -> return {{}}")]


def _of_condition(text, tokens, first, end):
    """A "!" in front of each operand that has no comparison of its own to turn."""
    found, start, i = [], first, first
    while i < end:
        token = tokens[i]
        if token.text == ";" or (token.text in LOGIC and not token.in_type):
            if token.text != ";":
                found += _negated(text, tokens, start, i)
            start = i + 1
        elif token.text in ("(", "[", "{") and token.partner > i:
            closer = token.partner
            if token.text == "(" and i == start and tokens[closer + 1].text in (*LOGIC, ")"):
                found += _of_condition(text, tokens, i + 1, closer)
                start = closer + 1
            i = closer
        i += 1
    return found + _negated(text, tokens, start, end)


def _negated(text, tokens, first, end):
    if first >= end:
        return []
    inside = tokens[first:end]
    flat, i = [], first
    while i < end:
        flat.append(tokens[i])
        i = tokens[i].partner + 1 if tokens[i].partner > i else i + 1
    if inside[0].text == "!" or any(
        one.text in COMPARISONS and not one.in_type or one.text in ("=", "?") for one in flat
    ):
        return []
    whole = text[inside[0].start : inside[-1].end]
    simple = all(one.kind != "punct" or one.text in ("(", "[", ".", "->", "::") for one in flat)
    new = f"!{whole}" if simple else f"!({whole})"
    return [(inside[0].start, inside[-1].end, new, "negation", f"{whole} -> {new}")]
