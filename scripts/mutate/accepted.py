"""tests/mutants_accepted.txt: the mutants that no test can tell from the original.

An entry is a paragraph; a line that begins with "#" is a comment:

    file:   src/board/rtc.cpp
    in:     test_clock
    line:   sleep(1);
    change: 1 -> 2
    why:    what stays the same for a user, and why

"in" is the function, or "-". The line is its text, so that an entry outlives changes elsewhere in the
file. The same change in a further line with that text has a number: "1 -> 2 (2)".
"""

from dataclasses import dataclass

FIELDS = ("file", "in", "line", "change", "why")


@dataclass
class Entry:
    number: int  # of its first line
    fields: dict
    used: bool = False


class Wrong(Exception):
    """The list cannot be read."""


def read_accepted(text):
    entries, current = [], {}
    began = 0
    for number, line in enumerate([*text.split("\n"), ""], 1):
        if line.startswith("#"):
            continue
        if line.strip():
            if line[0] == " " and current:  # the reason's next line
                current["why"] = f"{current.get('why', '')} {line.strip()}"
                continue
            name, colon, value = line.partition(":")
            if not colon or name not in FIELDS or name in current:
                raise Wrong(f"line {number}: not one of {', '.join(FIELDS)} of an entry")
            began = began if current else number
            current[name] = value.strip()
        elif current:
            missing = [name for name in FIELDS if not current.get(name)]
            if missing:
                raise Wrong(f"the entry of line {began} has no {', '.join(missing)}")
            entries.append(Entry(began, current))
            current = {}
    return entries


def entry_for(entries, mutant):
    for entry in entries:
        if _key(mutant) == tuple(entry.fields[name] for name in FIELDS[:4]):
            entry.used = True
            return entry
    return None


def _key(mutant):
    return mutant.file, mutant.function, mutant.source, mutant.change


def entry_text(mutant):
    """The entry that a survivor would have, without its reason."""
    return "".join(f"{name + ':':8}{value}\n" for name, value in zip(FIELDS, _key(mutant)))
