"""Tries one-token changes of the sources and says which ones no test notices: see scripts/mutate.sh."""

import argparse
import concurrent.futures
import json
import os
import pathlib
import queue
import random
import re
import shutil
import signal
import sys
import threading
import time

from accepted import Wrong, entry_for, entry_text, read_accepted
from build_tree import CLI_TARGETS, PRODUCTS, Failed, Workshop, copy_tree, hash_of, must, ninja, run
from build_tree import python_with_pytest
from mutants import mutants_of, mutated
from test_map import TestMap
from test_notes import HERE, UNIT, UNIT_TESTS, make_notes, unit_environment

TOP = HERE.parents[1]
WORK = TOP / "build/mutate"
ACCEPTED = "tests/mutants_accepted.txt"
SAMPLED = ("src", "platform")
# A run takes longer with a mutant than without one when tests fail or wait; these are far above.
CLI_HANGS_AFTER = 30
SURVIVED, KILLED, NOT_COMPILED, SAME_CODE = "SURVIVED", "killed", "not compiled", "same code"


def main():
    options = read_options()
    os.chdir(TOP)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    # With nohup, a test's program would inherit that it is ignored; a handler is not inherited.
    if signal.getsignal(signal.SIGHUP) == signal.SIG_IGN:
        signal.signal(signal.SIGHUP, lambda *_: None)
    try:
        entries = read_accepted(text_of(ACCEPTED)) if (TOP / ACCEPTED).exists() else []
        mutants = chosen(options)
        if options.list:
            for one in mutants:
                print(f"{one.file}:{one.line}: {one.kind}: {one.change}")
            print(f"{len(mutants)} mutants")
            return 0
        return report(entries, try_all(options, mutants, entries))
    except (Failed, Wrong) as error:
        print(f"mutate.sh: {error}", file=sys.stderr)
        return 2


def read_options():
    parser = argparse.ArgumentParser(
        prog="mutate.sh",
        description="Changes one token at a time and runs the tests that reach it. Without FILE or "
        "--sample: in the lines that a change touched. Exit status 1: no test noticed some changes.",
    )
    parser.add_argument("files", nargs="*", metavar="FILE", help="all of these files")
    parser.add_argument("--base", metavar="REV", help="the change since REV, not since upstream")
    parser.add_argument("--sample", nargs="?", type=int, const=300, metavar="N", help="N of all")
    parser.add_argument("--seed", type=int, default=1, metavar="N", help="another sample")
    parser.add_argument("--jobs", type=int, default=1, metavar="N", help="mutants side by side")
    parser.add_argument("--list", action="store_true", help="only print the mutants")
    parser.add_argument("--time", type=float, metavar="SECONDS", help="stop after a while")
    parser.add_argument(
        "--continue", dest="resume", action="store_true", help="keep the results of the last run"
    )
    options = parser.parse_args()
    if (options.files != []) + (options.base is not None) + (options.sample is not None) > 1:
        parser.error("FILE, --base and --sample exclude each other")
    if options.jobs < 1:
        parser.error("--jobs takes a number from 1 on")
    return options


# --- which mutants ---


def text_of(file):
    return (TOP / file).read_bytes().decode()


def sources(folders):
    found = [path for folder in folders for path in (TOP / folder).rglob("*")]
    return sorted(str(path.relative_to(TOP)) for path in found if path.suffix in (".cpp", ".h"))


def all_mutants(files):
    return [mutant for file in files for mutant in mutants_of(file, text_of(file))]


def chosen(options):
    if options.sample is not None:
        mutants = all_mutants(sources(SAMPLED))
        count = min(options.sample, len(mutants))
        return random.Random(options.seed).sample(mutants, count)
    if options.files:
        files = []
        for file in options.files:
            path = pathlib.Path(os.environ.get("MUTATE_FROM", ".")) / file
            if not path.resolve().is_relative_to(TOP) or not path.is_file():
                raise Failed(f"{file}: no file of the tree")
            files.append(str(path.resolve().relative_to(TOP)))
        return all_mutants(files)
    touched = touched_lines(options.base or default_base())
    mutants = all_mutants(file for file in sources(PRODUCTS) if file in touched)
    return [one for one in mutants if touched[one.file].intersection(lines_of(one))]


def lines_of(mutant):
    return range(
        mutant.line, mutant.line + text_of(mutant.file).count("\n", mutant.start, mutant.end) + 1
    )


def default_base():
    status, output = run(["git", "merge-base", "HEAD", "@{upstream}"])
    return output.strip() if status == 0 else "HEAD~1"


def touched_lines(base):
    """The lines of each file that differ from a revision, files that git does not know included."""
    touched, file = {}, None
    difference = ["git", "diff", "-U0", "--no-color", "--no-ext-diff", "--no-prefix", base, "--"]
    for line in must([*difference, *PRODUCTS]).splitlines():
        if line.startswith("+++ "):
            file = line[4:]
        hunk = re.match(r"@@ \S+ \+(\d+)(?:,(\d+))? @@", line)
        if hunk:
            first, count = int(hunk.group(1)), int(hunk.group(2) or 1)
            touched.setdefault(file, set()).update(range(first, first + count))
    unknown = must(["git", "ls-files", "-o", "--exclude-standard", "--", *PRODUCTS])
    for file in unknown.splitlines():
        touched[file] = set(range(1, text_of(file).count("\n") + 2))
    return touched


# --- trying them ---


class Results:
    """What came out, also as lines of a file, for --continue."""

    def __init__(self, file, head, resume):
        self.file = file
        self.rows = {}
        if resume and file.exists():
            first, *lines = file.read_text(encoding="utf-8").splitlines()
            if json.loads(first) != head:
                raise Failed("the last run was of another tree or of other mutants: no --continue")
            for line in lines:
                row = json.loads(line)
                self.rows[row["mutant"]] = row
        else:
            file.write_text(json.dumps(head) + "\n", encoding="utf-8")

    def add(self, mutant, outcome, by):
        row = {"mutant": key_of(mutant), "outcome": outcome, "by": by}
        self.rows[row["mutant"]] = row
        with open(self.file, "a", encoding="utf-8") as file:
            file.write(json.dumps(row) + "\n")


def key_of(mutant):
    return f"{mutant.file} {mutant.start} {mutant.end} {mutant.text}"


def try_all(options, mutants, entries):
    """[(mutant, outcome, by what), ...] in the mutants' order."""
    started = time.monotonic()
    WORK.mkdir(parents=True, exist_ok=True)
    scratch = pathlib.Path(os.environ.get("TMPDIR", WORK)) / "mutate-scratch"
    shutil.rmtree(scratch, ignore_errors=True)
    scratch.mkdir(parents=True)

    workshops = [
        Workshop(TOP, WORK if i == 0 else WORK / f"job{i + 1}") for i in range(options.jobs)
    ]
    tree = workshops[0].tree
    copy_tree(TOP, tree)
    head = {"tree": hash_of(tree), "mutants": [options.files, options.sample, options.seed]}
    results = Results(WORK / "results.jsonl", head, options.resume)
    left = [one for one in mutants if key_of(one) not in results.rows]
    if left:
        notes = make_notes(tree, WORK / "coverage", scratch, max(2, options.jobs), say)
        tests = TestMap(tree, *notes)
        say("building")
        for workshop in workshops:
            workshop.prepare()
        broken = broken_tests(tests, workshops[0], scratch)
        for name in broken:
            say(f"fails without a mutant, and is not used: {name}")
        deadline = started + options.time if options.time else None
        workers = Workers(workshops, tests, set(broken), scratch, deadline)
        workers.try_each(left, results, entries, len(mutants))
    rows = [(one, results.rows.get(key_of(one))) for one in mutants]
    shutil.rmtree(scratch, ignore_errors=True)
    return [(one, row["outcome"], row["by"]) for one, row in rows if row]


def say(text):
    print(f"mutate.sh: {text}", file=sys.stderr, flush=True)


def broken_tests(tests, workshop, scratch):
    """Those that fail in the coverage build and in this one, too."""
    broken = []
    for name in sorted(tests.failed):
        if run_tests(tests, workshop, [name], scratch / "broken"):
            broken.append(name)
    return broken


class Workers:
    def __init__(self, workshops, tests, broken, scratch, deadline):
        self.workshops = queue.Queue()
        for workshop in workshops:
            self.workshops.put(workshop)
        self.jobs = len(workshops)
        self.tests = tests
        self.broken = broken
        self.scratch = scratch
        self.deadline = deadline
        self.lock = threading.Lock()

    def try_each(self, mutants, results, entries, total):
        def one(mutant):
            if self.deadline and time.monotonic() > self.deadline:
                return
            workshop = self.workshops.get()
            try:
                began = time.monotonic()
                outcome, by = self.try_one(workshop, mutant)
                with self.lock:
                    results.add(mutant, outcome, by)
                    seconds = time.monotonic() - began
                    print_line(mutant, outcome, by, entries, len(results.rows), total, seconds)
            finally:
                self.workshops.put(workshop)

        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            try:
                for done in [pool.submit(one, mutant) for mutant in mutants]:
                    done.result()
            except BaseException:
                # Those that are being tried end by themselves, and restore their sources.
                pool.shutdown(wait=False, cancel_futures=True)
                raise

    def try_one(self, workshop, mutant):
        text = text_of(mutant.file)
        changed = workshop.change(mutant.file, mutated(text, mutant))
        try:
            objects = workshop.objects.get(mutant.file, [])
            cores = 2 if self.jobs == 1 else 1
            if not builds(workshop, objects, cores):
                return NOT_COMPILED, ""
            if workshop.same_objects(objects):
                return SAME_CODE, ""
            names, how = self.tests.tests_for(mutant, text)
            names = [name for name in names if name not in self.broken]
            scratch = self.scratch / workshop.build.parent.name
            if any(name.startswith(UNIT) for name in names):
                if not builds(workshop, ["unit_tests"], cores):
                    return NOT_COMPILED, "linked"
            killer = run_tests(self.tests, workshop, unit_of(names), scratch)
            if not killer and len(unit_of(names)) < len(names):
                if not builds(workshop, CLI_TARGETS, cores):
                    return NOT_COMPILED, "linked"
                killer = run_tests(self.tests, workshop, cli_of(names), scratch, mutant)
            if killer:
                return KILLED, killer
            reach = "no test reaches it" if how == "name" else f"{len(names)} tests reach the {how}"
            return SURVIVED, reach
        finally:
            workshop.restore(changed)


def builds(workshop, targets, cores):
    """Whether the compiler and the linker take the mutant."""
    status, output = ninja(workshop.build, *targets, cores=cores)
    if status < 0 or re.search(r"^Killed|terminated with signal|signal terminated", output, re.M):
        raise Failed(f"the build was ended from outside\n{output}")
    return status == 0


def unit_of(names):
    return [name for name in names if name.startswith(UNIT)]


def cli_of(names):
    return [name for name in names if not name.startswith(UNIT)]


def run_tests(tests, workshop, names, scratch, mutant=None):
    """What noticed the mutant: a test's name, or a time-out; "" when nothing did."""
    seconds = sum(tests.seconds[name] for name in names)
    unit, cli = unit_of(names), cli_of(names)
    if unit:
        filters = ":".join(name[len(UNIT) :] for name in unit)
        words = [workshop.build / UNIT_TESTS, f"--gtest_filter={filters}"]
        words += ["--gtest_brief=1", "--gtest_fail_fast"]
        status, output = run(
            words, cwd=workshop.build, timeout=20 + 10 * seconds, env=unit_environment()
        )
        if status != 0:
            failed = re.search(r"\[  FAILED  \] ([\w./]+)", output)
            return f"{UNIT}{failed.group(1)}" if failed else f"unit tests, {ending(status)}"
    return run_cli(workshop, cli, scratch, seconds, mutant) if cli else ""


def run_cli(workshop, names, scratch, seconds, mutant):
    shutil.rmtree(scratch, ignore_errors=True)
    scratch.mkdir(parents=True)
    (scratch / "only").write_text("\n".join(names), encoding="utf-8")
    files = {}
    for name in names:
        files.setdefault(name.partition("::")[0], []).append(name)
    # The applet's own tests first, then the files with the fewest.
    stem = pathlib.PurePath(mutant.file).stem if mutant else ""
    order = sorted(files, key=lambda name: (not name.startswith(f"test_{stem}"), len(files[name])))
    env = dict(
        os.environ,
        BENCHRIG_BUILD=str(workshop.build),
        PYTHONDONTWRITEBYTECODE="1",
        PYTHONPATH=str(HERE),
        MUTATE_ONLY=str(scratch / "only"),
        MUTATE_HANGS=str(CLI_HANGS_AFTER),
    )
    words = [python_with_pytest(workshop.build), "-m", "pytest", "-x", "-q", "-rfE", "--tb=no"]
    words += ["-p", "no:cacheprovider", "-p", "pytest_mutate", f"--basetemp={scratch / 'pytest'}"]
    words += [f"tests/cli/{name}" for name in order]
    # A mutant ends the toolbox, not pytest: that was somebody else, who decides nothing.
    for _ in range(3):
        status, output = run(words, cwd=workshop.tree, env=env, timeout=120 + 10 * seconds)
        if status is None or status >= 0 and "KeyboardInterrupt" not in output:
            break
    else:
        raise Failed(f"the tests were ended from outside, {ending(status)}")
    shutil.rmtree(scratch, ignore_errors=True)
    if status == 0:
        return ""
    if status is not None and status > 2:
        raise Failed(output)
    failed = re.search(r"^(?:FAILED|ERROR) tests/cli/(.*?)(?: - .*)?$", output, re.M)
    return failed.group(1) if failed else f"cli tests, {ending(status)}"


def ending(status):
    if status is None:
        return "which did not end"
    return f"signal {-status}" if status < 0 else f"status {status}"


# --- printing ---


def print_line(mutant, outcome, by, entries, number, total, seconds):
    if outcome == SURVIVED and entry_for(entries, mutant):
        outcome = "survived, accepted"
    by = f" by {by}" if outcome == KILLED else f" ({by})" if by else ""
    place = f"{mutant.file}:{mutant.line}"
    change = mutant.change if len(mutant.change) <= 100 else mutant.change[:97] + "..."
    print(f"[{number}/{total}] {place}: {change}: {outcome}{by} [{seconds:.0f} s]", flush=True)


def report(entries, results):
    """Prints the survivors and the totals; the exit status."""
    counts = dict.fromkeys((KILLED, SURVIVED, NOT_COMPILED, SAME_CODE), 0)
    survivors, accepted = [], 0
    for mutant, outcome, by in results:
        counts[outcome] += 1
        entry = entry_for(entries, mutant)
        if outcome == SURVIVED and entry:
            accepted += 1
        elif outcome == SURVIVED:
            survivors.append((mutant, by))
        elif entry and outcome != NOT_COMPILED:
            print(f"{ACCEPTED}:{entry.number}: not needed: {outcome} {by}")
    if survivors:
        print("\nNo test noticed:")
    for mutant, by in survivors:
        print(f"\n{mutant.file}:{mutant.line}: {mutant.kind}, {by}")
        print(entry_text(mutant), end="")
    print()
    for file in sorted({entry.fields["file"] for entry in entries}):
        for mutant in mutants_of(file, text_of(file)) if (TOP / file).is_file() else ():
            entry_for(entries, mutant)
    for entry in entries:
        if not entry.used:
            print(f"{ACCEPTED}:{entry.number}: stale: there is no such mutant")
    tried = counts[KILLED] + counts[SURVIVED]
    share = 100 * len(survivors) / tried if tried else 0
    print(
        f"{tried} mutants: {counts[KILLED]} killed, {len(survivors)} survived ({share:.1f} %), "
        f"{accepted} accepted; not counted: {counts[NOT_COMPILED]} not compiled, "
        f"{counts[SAME_CODE]} same code"
    )
    return 1 if survivors else 0


if __name__ == "__main__":
    sys.exit(main())
