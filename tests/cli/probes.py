"""Small programs on a virtual board: the probe makes the calls that a test lists, and prints their results."""

import pytest

from conftest import word_size

# The build for a 32-bit machine has one more, with 64-bit time.
BUILDS = ["probe", "probe_plain", *(["probe_time64"] if word_size() == 4 else [])]


@pytest.fixture(params=BUILDS)
def probe(build, request):
    """Builds of the same program, which import different names of libc's functions."""
    return build / "tests/probes" / request.param


@pytest.fixture
def one_probe(build):
    return build / "tests/probes/probe"


def steps(text):
    """The probe's words for calls written as "open /dev/lcd rdwr; write ff*1024; close"."""
    return text.replace(";", " ").split()


def run_steps(board, program, text, **options):
    return board.run_command([program, *steps(text)], **options)


def lines(run, status=0):
    """What the probe printed, after it has ended as it should."""
    assert run.stderr == b""
    assert run.status == status, run.stdout
    return run.stdout.decode().splitlines()
