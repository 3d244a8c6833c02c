"""A pytest plug-in, loaded with -p. What it does depends on the environment:

MUTATE_ONLY     a file with the identities of the tests to run, a line each
MUTATE_HANGS    seconds after which a command of a test hangs
MUTATE_REPORT   a file that takes a JSON line for each test: its identity, time, whether it passed and
                the places of the programs that it reached (see reached.c)
MUTATE_MAPS     with MUTATE_REPORT, a folder for the programs' maps
"""

import json
import os
import pathlib
import shutil
import subprocess
import sys
import time

import pytest
from reached import SHARED, reached


def identity(item):
    return f"{item.path.name}::{item.nodeid.partition('::')[2]}"


def pytest_collection_modifyitems(config, items):
    hangs = os.environ.get("MUTATE_HANGS")
    if hangs and "conftest" in sys.modules:
        sys.modules["conftest"].HANGS_AFTER_SECONDS = float(hangs)
    listed = os.environ.get("MUTATE_ONLY")
    if not listed:
        return
    wanted = set(pathlib.Path(listed).read_text(encoding="utf-8").split("\n"))
    others = [item for item in items if identity(item) not in wanted]
    items[:] = [item for item in items if identity(item) in wanted]
    config.hook.pytest_deselected(items=others)


def pytest_configure(config):
    if os.environ.get("MUTATE_REPORT"):
        config.pluginmanager.register(Reports(), "mutate_reports")


def keep_in_environments(name):
    """Hands a variable on to every program that is started, also with an environment of its own."""
    start = subprocess.Popen.__init__

    def start_with_it(self, *arguments, **options):
        if options.get("env") is not None:
            options["env"] = {**options["env"], name: os.environ[name]}
        start(self, *arguments, **options)

    subprocess.Popen.__init__ = start_with_it


class Reports:
    def __init__(self):
        self.file = pathlib.Path(os.environ["MUTATE_REPORT"])
        maps = pathlib.Path(os.environ["MUTATE_MAPS"])
        self.own, self.shared = maps / "own", maps / "shared"
        self.passed = True
        for folder in (self.own, self.shared):
            folder.mkdir(parents=True)
        os.environ["MUTATE_COVERAGE"] = str(self.shared)
        keep_in_environments("MUTATE_COVERAGE")

    def write(self, name, seconds, folder):
        line = {"test": name, "seconds": seconds, "passed": self.passed, "reached": reached(folder)}
        with open(self.file, "a", encoding="utf-8") as file:
            file.write(json.dumps(line) + "\n")

    @pytest.hookimpl(hookwrapper=True)
    def pytest_runtest_protocol(self, item):
        shutil.rmtree(self.own)
        self.own.mkdir()
        self.passed = True
        started = time.monotonic()
        os.environ["MUTATE_COVERAGE"] = str(self.own)
        yield
        os.environ["MUTATE_COVERAGE"] = str(self.shared)
        self.write(identity(item), time.monotonic() - started, self.own)

    @pytest.hookimpl(hookwrapper=True)
    def pytest_fixture_setup(self, fixturedef):
        before = os.environ["MUTATE_COVERAGE"]
        if fixturedef.scope != "function":
            os.environ["MUTATE_COVERAGE"] = str(self.shared)
        yield
        os.environ["MUTATE_COVERAGE"] = before

    def pytest_runtest_logreport(self, report):
        self.passed = self.passed and not report.failed

    def pytest_sessionfinish(self):
        self.passed = True
        self.write(SHARED, 0, self.shared)
