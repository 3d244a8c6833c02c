"""A device model of somebody else's board, in a library that a node file names (tests/plugin/buttons.cpp)."""

import shutil
import sys

import pytest

from conftest import EMULATOR, is_instrumented

PRELUDE = """
import errno, fcntl, os, select, struct, sys, threading
READ, WRITE = 2 << 30, 1 << 30
GET_COUNT = READ | 4 << 16 | ord("b") << 8 | 1
PRESS = WRITE | 4 << 16 | ord("b") << 8 | 3
GET_EVENTS = READ | 4 << 16 | ord("b") << 8 | 4
def get_name(size):
    return READ | size << 16 | ord("b") << 8 | 2
def number(fd, request):
    return struct.unpack("i", fcntl.ioctl(fd, request, bytes(4)))[0]
def press(fd, button):
    fcntl.ioctl(fd, PRESS, struct.pack("I", button))
fd = os.open("/dev/buttons", os.O_RDWR)
"""


@pytest.fixture
def buttons(board):
    if EMULATOR or is_instrumented(board.build):
        pytest.skip("the interpreter of this machine cannot load this build's libraries")
    board.path("dev/buttons").write_text(
        f"model = {board.build}/tests/plugin/buttons.so\n", encoding="utf-8"
    )
    return board


def python(board, script, **options):
    run = board.run_command([sys.executable, "-S", "-c", PRELUDE + script], **options)
    return run


def printed(board, script, **options):
    run = python(board, script, **options)
    assert (run.status, run.stderr) == (0, b"")
    return run.stdout.decode().split()


def test_settings_and_defaults(buttons):
    assert printed(buttons, "print(number(fd, GET_COUNT))") == ["4"]
    buttons.path("dev/buttons").write_text(
        buttons.path("dev/buttons").read_text(encoding="utf-8") + "count = 7\nname = front\n"
    )
    script = "print(number(fd, GET_COUNT), fcntl.ioctl(fd, get_name(16), bytes(16)).decode())"
    assert printed(buttons, script) == ["7", "front" + "\0" * 11]


@pytest.mark.parametrize("size, name", [(1, "p"), (5, "panel"), (600, "panel" + "\0" * 595)])
def test_a_request_whose_length_is_part_of_its_number(buttons, size, name):
    # ioctl() of the interpreter takes 1024 bytes.
    script = f"print(fcntl.ioctl(fd, get_name({size}), bytearray({size})))"
    script += (
        f"\nroom = bytearray({size}); fcntl.ioctl(fd, get_name({size}), room); print(room.hex())"
    )
    assert printed(buttons, script) == [str(min(size, 5)), name.encode().hex()]


def test_requests_have_their_names_in_traces_and_faults(buttons):
    buttons.fault("/dev/buttons ioctl:PRESS errno=EIO nth=2")
    script = (
        "press(fd, 3)\ntry:\n    press(fd, 2)\nexcept OSError as error:\n    print(error.errno)"
    )
    run = python(buttons, script)
    assert run.stdout == b"5\n"
    assert [line for line in run.requests if "PRESS" in line] == [
        "ioctl /dev/buttons PRESS in=03000000 = 0",
        "ioctl /dev/buttons PRESS in=02000000 = EIO",
    ]


def test_an_unknown_request_is_enotty(buttons):
    script = "try:\n    number(fd, READ | 4 << 16 | ord('b') << 8 | 9)\nexcept OSError as error:\n"
    assert printed(buttons, script + "    print(error.errno)") == ["25"]


def test_a_descriptor_that_is_handed_out_can_be_waited_on_and_read(buttons):
    script = """
events = number(fd, GET_EVENTS)
print(events > fd, select.select([events], [], [], 0)[0])
press(fd, 2); press(fd, 1)
print(select.select([events], [], [], 5)[0] == [events], struct.unpack("II", os.read(events, 8)))
print(select.select([events], [], [], 0)[0])
"""
    assert printed(buttons, script) == ["True", "[]", "True", "(2,", "1)", "[]"]


def test_each_descriptor_has_its_own_place(buttons):
    script = """
first = number(fd, GET_EVENTS); press(fd, 0)
second = number(fd, GET_EVENTS)
print(select.select([first, second], [], [], 0)[0] == [first])
"""
    assert printed(buttons, script) == ["True"]


@pytest.mark.parametrize("speed", ["1", "max"])
def test_a_reader_that_waits_is_woken_by_another_thread(buttons, speed):
    script = """
events = number(fd, GET_EVENTS)
threading.Timer(0.2, press, (fd, 3)).start()
print(struct.unpack("II", os.read(events, 8)))
"""
    assert printed(buttons, script, speed=speed) == ["(1,", "3)"]


def test_a_device_that_wakes_others_often_does_not_keep_them_waiting(buttons):
    """The thread that presses has the device's lock, the one that waits has the clock's."""
    script = """
events = number(fd, GET_EVENTS)
presses = threading.Thread(target=lambda: [press(fd, 1) for _ in range(2000)])
presses.start()
seen = 0
while presses.is_alive():
    if select.select([events], [], [], 0.01)[0]:
        seen = struct.unpack("II", os.read(events, 8))[0]
print(seen > 0)
"""
    assert printed(buttons, script) == ["True"]


def test_a_reader_that_waits_is_woken_by_another_process(buttons):
    script = """
events = number(fd, GET_EVENTS)
if os.fork() == 0:
    select.select([], [], [], 0.2)
    press(fd, 2)
    os._exit(0)
print(struct.unpack("II", os.read(events, 8)))
os.wait()
"""
    assert printed(buttons, script, speed="1") == ["(1,", "2)"]


def test_memory_of_the_device_is_shared_by_the_processes_of_a_run_and_gone_with_it(buttons):
    script = """
events = number(fd, GET_EVENTS)
os.system("%s -S -c '%s'")
print(struct.unpack("II", os.read(events, 8)))
""" % (
        sys.executable,
        "import fcntl, struct; "
        'fcntl.ioctl(open(chr(47) + chr(100) + \\"ev/buttons\\"), 0x40046203, struct.pack(chr(73), 1))',
    )
    assert printed(buttons, script) == ["(1,", "1)"]
    # A new run begins with nothing: the count starts again.
    assert printed(buttons, script) == ["(1,", "1)"]


def test_a_descriptor_that_is_handed_out_goes_to_children(buttons):
    script = """
events = number(fd, GET_EVENTS)
press(fd, 3)
os.set_inheritable(events, True)
os.execv(sys.executable, [sys.executable, "-S", "-c",
    "import os, struct; print(struct.unpack('II', os.read(%d, 8)))" % events])
"""
    assert printed(buttons, script) == ["(1,", "3)"]


def test_the_library_may_lie_beside_the_node_file(buttons):
    shutil.copy(buttons.build / "tests/plugin/buttons.so", buttons.path("dev/buttons.so"))
    buttons.path("dev/buttons").write_text("model = ./buttons.so\n", encoding="utf-8")
    assert printed(buttons, "print(number(fd, GET_COUNT))") == ["4"]


@pytest.mark.parametrize(
    "name, reason",
    [
        ("./missing.so", b"missing.so: cannot open shared object file"),
        ("./rtc0", b"dev/./rtc0: "),
    ],
)
def test_a_library_that_is_none(buttons, name, reason):
    buttons.path("dev/buttons").write_text(f"model = {name}\n", encoding="utf-8")
    run = python(buttons, "")
    assert reason in run.stderr
    assert b"no such model" in run.stderr
    assert b"No such device or address" in run.stderr


def test_a_library_without_a_model(buttons):
    buttons.path("dev/buttons").write_text(
        f"model = {buttons.build}/tests/plugin/plugin.so\n", encoding="utf-8"
    )
    assert b"the library of a model has no vboard_model()" in python(buttons, "").stderr
