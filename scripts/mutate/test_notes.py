"""Notes of which tests reach which lines.

Unit tests are run a case each, the cli tests with pytest_mutate.py, all with programs that note the
blocks which they reach (reached.c). The notes are kept by test file: they are made again for a file
whose text changed, and for all files when the products changed.
"""

import concurrent.futures
import hashlib
import json
import math
import os
import pathlib
import re
import shutil
import time

from build_tree import PRODUCTS, hash_of, make_build, must, python_with_pytest, run
from reached import SHARED, reached

HERE = pathlib.Path(__file__).resolve().parent
PROGRAMS = ("bin/benchrig", "bin/vboard", "lib/librigcore.so", "lib/libvboard.so")
UNIT_TESTS = "tests/unit/unit_tests"
UNIT = "unit "  # in front of a unit test's name
MAPPED = (*PRODUCTS, "tests")  # a unit test's own lines tell which tables it reads


def make_notes(tree, folder, scratch, jobs, say):
    """The notes of each test file, and the lines of each file that have code. What is noted already is
    taken from `folder`."""
    folder.mkdir(parents=True, exist_ok=True)
    common = _hash_of_products(tree)
    names = sorted(file.name for file in (tree / "tests/cli").glob("test_*.py"))
    keys = {name: _key(common, tree, f"tests/cli/{name}") for name in names}
    keys["unit"] = _key(common, tree, "tests/unit/")
    parts = {name: _kept(folder / f"{name}.json", key) for name, key in keys.items()}
    missing = [name for name, part in parts.items() if part is None]
    blocks = _kept(folder / "blocks.json", common)
    build = folder / "build"
    if missing or blocks is None:
        say(f"building for the map of {len(missing)} of {len(parts)} test files")
        _build(tree, build)
        blocks = {"key": common, **_read_blocks(tree, build)}
        (folder / "blocks.json").write_text(json.dumps(blocks), encoding="utf-8")
    # The longest first, so that two end together.
    missing.sort(key=lambda name: _size(tree, name))

    def make(name):
        rows = _run_unit(build, scratch) if name == "unit" else _run_cli(tree, build, scratch, name)
        part = {"key": keys[name], **_part(rows, blocks["programs"])}
        (folder / f"{name}.json").write_text(json.dumps(part), encoding="utf-8")
        say(f"mapped {name}: {len(part['tests'])} tests, {sum(part['seconds']):.0f} s")
        return name, part

    with concurrent.futures.ThreadPoolExecutor(jobs) as pool:
        parts.update(pool.map(make, missing))
    return parts.values(), blocks["code"]


def _size(tree, name):
    return -(tree / "tests/cli" / name).stat().st_size if name != "unit" else -math.inf


def _hash_of_products(tree):
    def wanted(name):
        if name.startswith("tests/"):
            is_test_file = re.match(r"tests/(cli/test_|unit/|build/)", name)
            return not is_test_file and not name.endswith(".txt")
        return name.startswith((*(f"{one}/" for one in PRODUCTS), "cmake", "CMake", "docs/"))

    own = hash_of(HERE, lambda name: name in ("reached.c", "pytest_mutate.py", "test_notes.py"))
    return f"{hash_of(tree, wanted)} {own}"


def _key(common, tree, prefix):
    own = hash_of(tree, lambda name: name.startswith(prefix))
    return hashlib.sha256(f"{common}{own}".encode()).hexdigest()


def _kept(file, key):
    try:
        content = json.loads(file.read_text(encoding="utf-8"))
    except (OSError, ValueError):
        return None
    return content if content["key"] == key else None


def _build(tree, build):
    build.mkdir(parents=True, exist_ok=True)
    hook = build / "reached.o"
    must(["cc", "-O2", "-fPIC", "-c", HERE / "reached.c", "-o", hook])
    # A build type of its own, since the known ones optimise: here each line keeps its code.
    link = f"{hook} -Wl,--build-id"
    make_build(
        tree,
        build,
        "-DCMAKE_BUILD_TYPE=Mutate",
        "-DCMAKE_CXX_FLAGS_MUTATE=-O0 -g -w -fsanitize-coverage=trace-pc",
        *(f"-DCMAKE_{kind}_LINKER_FLAGS={link}" for kind in ("EXE", "SHARED", "MODULE")),
    )


# --- blocks and lines ---


def _read_blocks(tree, build):
    """For each program, by build ID, the lines of each block; and all lines that have code."""
    programs, code = {}, {}
    for name in (*PROGRAMS, UNIT_TESTS):
        notes = must(["readelf", "-n", build / name])
        blocks = _blocks_of(build / name, str(tree) + "/")
        programs[re.search(r"Build ID: (\w+)", notes).group(1)] = blocks
        for lines in blocks.values():
            for file, line in lines:
                code.setdefault(file, set()).add(line)
    return {"programs": programs, "code": {file: sorted(lines) for file, lines in code.items()}}


def _blocks_of(program, root):
    """{place: [[file, line], ...]}: a block lasts from its call of the hook to the next one."""
    blocks, current, place = {}, None, None
    in_front, expect_place = [], False
    for line in must(["objdump", "-dl", "--no-show-raw-insn", program]).splitlines():
        if line.endswith(">:"):  # a function begins
            current, in_front, place = None, [], None
        elif line.startswith("/"):
            file, _, number = line.partition(" (")[0].rpartition(":")
            place = None
            file = os.path.normpath(file)
            if file.startswith(root) and number.isdigit():
                place = [file[len(root) :], int(number)]
                if place[0].split("/")[0] not in MAPPED:
                    place = None
        elif line.startswith(" ") and ":\t" in line:
            if expect_place:
                current = blocks.setdefault(int(line.partition(":")[0], 16), [])
                current += [one for one in in_front if one not in current]
                in_front, expect_place = [], False
            if "<__sanitizer_cov_trace_pc" in line:
                # The call itself has the block's first line.
                expect_place, in_front = True, in_front + ([place] if place else [])
            elif place and current is None:
                in_front.append(place)
            elif place and place not in current:
                current.append(place)
    return {str(place): lines for place, lines in blocks.items() if lines}


# --- runs ---


def _run_cli(tree, build, scratch, name):
    work = scratch / f"map-{name}"
    shutil.rmtree(work, ignore_errors=True)
    work.mkdir(parents=True)
    env = dict(
        os.environ,
        BENCHRIG_BUILD=str(build),
        PYTHONDONTWRITEBYTECODE="1",
        PYTHONPATH=str(HERE),
        MUTATE_REPORT=str(work / "report"),
        MUTATE_MAPS=str(work / "maps"),
    )
    words = [python_with_pytest(build), "-m", "pytest", "-q", "-p", "no:cacheprovider"]
    words += ["-p", "pytest_mutate", f"--basetemp={work / 'pytest'}", f"tests/cli/{name}"]
    status, output = run(words, cwd=tree, env=env)
    if status not in (0, 1):
        raise RuntimeError(output)
    rows = [json.loads(line) for line in (work / "report").read_text("utf-8").splitlines()]
    shutil.rmtree(work, ignore_errors=True)
    return rows


def _run_unit(build, scratch):
    rows = []
    for case in unit_cases(build / UNIT_TESTS):
        maps = scratch / "map-unit"
        shutil.rmtree(maps, ignore_errors=True)
        maps.mkdir(parents=True)
        env = dict(unit_environment(), MUTATE_COVERAGE=str(maps))
        started = time.monotonic()
        status, _ = run(
            [build / UNIT_TESTS, f"--gtest_filter={case}"], cwd=build, timeout=120, env=env
        )
        seconds = time.monotonic() - started
        row = {"test": UNIT + case, "seconds": seconds, "passed": status == 0}
        rows.append({**row, "reached": reached(maps)})
    return rows


def unit_environment():
    """The caller's, without its folder for temporary files: some cases need a short name."""
    return {name: value for name, value in os.environ.items() if name != "TMPDIR"}


def unit_cases(program):
    cases, suite = [], ""
    for line in must([program, "--gtest_list_tests"]).splitlines():
        name = line.partition("#")[0].rstrip()
        if line.startswith("  "):
            cases.append(suite + name.strip())
        elif name.endswith("."):
            suite = name
    return [case for case in cases if "DISABLED_" not in case]


def _part(rows, programs):
    """Runs' reached places as lines, with a bit for each test."""
    tests = [row for row in rows if row["test"] != SHARED]
    bits = {}
    for row in rows:
        bit = (1 << len(tests)) - 1 if row["test"] == SHARED else 1 << tests.index(row)
        lines = set()
        for program, places in row["reached"].items():
            blocks = programs.get(program, {})
            for place in places:
                lines.update(map(tuple, blocks.get(str(place), ())))
        for file, line in lines:
            mine = bits.setdefault(file, {})
            mine[line] = mine.get(line, 0) | bit
    return {
        "tests": [row["test"] for row in tests],
        "seconds": [round(row["seconds"], 3) for row in tests],
        "failed": [row["test"] for row in tests if not row["passed"]],
        "lines": {f: {line: f"{b:x}" for line, b in mine.items()} for f, mine in bits.items()},
    }
