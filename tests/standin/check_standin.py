"""Checks the stand-in librigcore itself: check_standin.py LIBRARY HEADERS

A stand-in that overlooked a call would make every test that uses it pass. Each case loads the library
into a fresh Python process, calls operations there and looks at the status and at the report.
"""

import os
import pathlib
import re
import subprocess
import sys
import tempfile
import unittest

LIBRARY, HEADERS = sys.argv[1], pathlib.Path(sys.argv[2])

# What runs in the process under test.
PREAMBLE = """
import ctypes, errno, os, signal, sys
from ctypes import byref, c_char_p, c_int, c_uint32, create_string_buffer
rig = ctypes.CDLL(sys.argv[1], use_errno=True)
"""


def run(script, code):
    """(status, report or None, stdout) of a process that runs `code` against the lines of `script`."""
    with tempfile.TemporaryDirectory() as directory:
        scratch = pathlib.Path(directory)
        (scratch / "script").write_text("".join(line + "\n" for line in script), encoding="utf-8")
        variables = dict(
            os.environ, RIG_SCRIPT=str(scratch / "script"), RIG_REPORT=str(scratch / "report")
        )
        done = subprocess.run(
            [sys.executable, "-c", PREAMBLE + code, LIBRARY],
            env=variables,
            capture_output=True,
            timeout=60,
            check=False,
            text=True,
        )
        report = scratch / "report"
        return done.returncode, report.read_text() if report.exists() else None, done.stdout


class Standin(unittest.TestCase):
    def good(self, script, code, stdout=""):
        self.assertEqual(run(script, code), (0, "", stdout))

    def bad(self, script, code, report):
        self.assertEqual(run(script, code)[:2], (99, report + "\n"))

    def test_exports_every_operation_of_the_headers_and_nothing_else(self):
        declared = set()
        for header in HEADERS.glob("*.h"):
            text = re.sub(r"/\*.*?\*/", "", header.read_text(), flags=re.S)
            declared |= set(re.findall(r"RIG_API\s+[a-z0-9_]+\s+(rig\w+)\s*[(;]", text))
        names = subprocess.run(
            ["nm", "-D", "--defined-only", LIBRARY], capture_output=True, check=True, text=True
        ).stdout
        self.assertEqual({line.split()[-1] for line in names.splitlines()}, declared)
        self.assertEqual(len(declared), 73)

    def test_answers_results_outputs_and_errno(self):
        self.good(
            [
                "rig_beep 7 = 0",
                "# a comment, and an empty line",
                "",
                "rig_alarm_input -> 2 = 0",
                'rig_uenv_get "bootargs" 256 -> "console=ttyS0" = 0',
                'rig_uenv_get "none" 256 = -1 errno=2',
                "rig_bootparam_get 256 -> hex:00*250.07.00*5 = 0",
                "rig_kernel_version = 0x00060c22",
            ],
            """
assert rig.rig_beep(7) == 0
word = c_uint32(9)
assert rig.rig_alarm_input(byref(word)) == 0 and word.value == 2
value = create_string_buffer(b"x" * 255, 256)
assert rig.rig_uenv_get(b"bootargs", value, 256) == 0 and value.value == b"console=ttyS0"
assert rig.rig_uenv_get(b"none", value, 256) == -1 and ctypes.get_errno() == errno.ENOENT
assert value.value == b"console=ttyS0"
block = create_string_buffer(256)
assert rig.rig_bootparam_get(block, 256) == 0
assert block.raw == bytes(250) + bytes([7]) + bytes(5)
assert rig.rig_kernel_version() == 0x60c22
""",
        )

    def test_reports_another_call(self):
        self.bad(
            ["rig_detect_vga = 1"],
            "rig.rig_beep(7)",
            "unexpected: rig_beep 7, expected: rig_detect_vga (script line 1)",
        )

    def test_reports_another_argument(self):
        self.bad(
            ["", "rig_beep 1 = 0"],
            "rig.rig_beep(7)",
            "unexpected: rig_beep 7, expected: rig_beep 1 (script line 2; argument 1 differs)",
        )

    def test_reports_the_byte_that_differs(self):
        self.bad(
            ["rig_bootparam_set hex:00*250.01.00*5 256 = 0"],
            "rig.rig_bootparam_set(bytes(250) + bytes([2]) + bytes(5), 256)",
            "unexpected: rig_bootparam_set hex:00*250.02.00*5 256, expected: rig_bootparam_set "
            "hex:00*250.01.00*5 256 (script line 1; argument 1 differs at byte 250: 02, "
            "expected 01)",
        )

    def test_reports_a_call_after_the_last_line(self):
        self.bad(
            ["rig_beep 1 = 0"],
            "rig.rig_beep(1); rig.rig_beep(0)",
            "unexpected: rig_beep 0, expected: no further call",
        )

    def test_reports_an_empty_script_that_is_called(self):
        self.bad(
            [], "rig.rig_detect_vga()", "unexpected: rig_detect_vga, expected: no further call"
        )

    def test_reports_what_is_left_over(self):
        status, report, _ = run(
            ["rig_beep 1 = 0", "rig_beep 0 = 0", "rig_beep 1 = 0"], "rig.rig_beep(1)"
        )
        self.assertEqual((status, report), (0, "left over: rig_beep 0 = 0 (and 1 more)\n"))

    def test_reports_what_is_left_over_by_a_process_that_is_killed(self):
        status, report, _ = run(
            ["rig_beep 1 = 0", "rig_beep 0 = 0"],
            "rig.rig_beep(1); os.kill(os.getpid(), signal.SIGKILL)",
        )
        self.assertEqual((status, report), (-9, "left over: rig_beep 0 = 0\n"))

    def test_keeps_what_the_program_printed_before_an_unexpected_call(self):
        libc = "ctypes.CDLL(None).printf(b'printed'); rig.rig_beep(1)"
        self.assertEqual(run([], libc)[2], "printed")

    def test_stores_only_the_outputs_that_a_line_gives(self):
        self.good(
            ["rig_alarm_input = -1 errno=5"],
            """
word = c_uint32(9)
assert rig.rig_alarm_input(byref(word)) == -1 and word.value == 9 and ctypes.get_errno() == 5
""",
        )

    def test_copies_a_value_without_its_nul_where_only_that_has_room(self):
        self.good(
            ['rigabi_get_value "sysboot" "autoupdate" 1 -> "1" = 0'],
            """
two = create_string_buffer(b"??", 2)
assert rig.rigabi_get_value(b"sysboot", b"autoupdate", two, 1) == 0 and two.raw == b"1?"
""",
        )

    def test_refuses_an_output_that_does_not_fit(self):
        self.bad(
            ['rig_uenv_key 0 4 -> "bootcmd" = 0'],
            "rig.rig_uenv_key(0, create_string_buffer(4), 4)",
            "script line 1: rig_uenv_key: this output is a text that fits the caller's buffer",
        )

    def test_runs_the_upgrade_callback_and_compares_rig_verbose(self):
        code = """
class Request(ctypes.Structure):
    _fields_ = [("item", c_uint32), ("source", c_uint32), ("partition", c_uint32),
                ("reserved", ctypes.c_ubyte * 20), ("callback", ctypes.c_void_p),
                ("cookie", c_uint32), ("path", c_char_p), ("tail", ctypes.c_ubyte * 252)]
def told(cookie, progress):
    words = ctypes.cast(progress, ctypes.POINTER(c_int))
    print("%x" % cookie, words[0], words[1], words[2],
          ctypes.string_at(progress + 12).decode(), flush=True)
    return RESULT
RESULT = 0
callback = ctypes.CFUNCTYPE(c_int, c_uint32, ctypes.c_void_p)(told)
request = Request(item=1, source=1, cookie=0x12345678, path=b"a.bin",
                  callback=ctypes.cast(callback, ctypes.c_void_p))
"""
        line = (
            'rig_upgrade 1 1 0 0x12345678 "a.bin" verbose=1 -> 0x12345678 0 50 1 "writing" '
            '0x12345678 -5 60 1 "bad \\"block\\"" = -5'
        )
        self.good(
            [line],
            code
            + """
c_int.in_dll(rig, "rig_verbose").value = 1
assert rig.rig_upgrade(byref(request)) == -5
""",
            '12345678 0 50 1 writing\n12345678 -5 60 1 bad "block"\n',
        )
        call = (
            'unexpected: rig_upgrade 1 1 0 305419896 "a.bin", expected: '
            'rig_upgrade 1 1 0 305419896 "a.bin" '
        )
        self.bad(
            [line],
            code + "rig.rig_upgrade(byref(request))",
            call + "(script line 1; rig_verbose is 0)",
        )
        self.bad(
            [line.replace(" verbose=1", "")],
            code + "RESULT = 1\nrig.rig_upgrade(byref(request))",
            "unexpected: rig_upgrade with a callback that does not return 0",
        )
        self.bad(
            [line],
            code + "request.tail[251] = 1\nrig.rig_upgrade(byref(request))",
            "unexpected: rig_upgrade with reserved bytes that are not 0",
        )

    def test_fills_a_device_list(self):
        self.good(
            ['rig_stor_devlist -> 2 "msa" 1 1 "mmcblk0" 0 0 = 0'],
            """
listed = create_string_buffer(644)
assert rig.rig_stor_devlist(listed) == 0
assert listed.raw == (b"msa".ljust(32, b"\\0") + b"\\1\\0\\0\\0" * 2 + b"mmcblk0".ljust(40, b"\\0") +
                      bytes(560) + b"\\2\\0\\0\\0")
""",
        )
        self.bad(
            ["rig_stor_devlist -> 0 = 0"],
            "rig.rig_stor_devlist(b'x' + bytes(643))",
            "unexpected: rig_stor_devlist with a list that is not zeroed",
        )

    def test_takes_null_and_escapes(self):
        self.good(
            ['rig_md5sum_files null "a\\tb\\x41\\\\" = 0'],
            'assert rig.rig_md5sum_files(None, b"a\\tbA\\\\") == 0',
        )
        self.bad(
            ['rig_md5sum_files "list" "a" = 0'],
            'rig.rig_md5sum_files(None, b"a")',
            'unexpected: rig_md5sum_files null "a", expected: rig_md5sum_files "list" "a" '
            "(script line 1; argument 1 differs)",
        )

    def test_compares_a_property_and_a_thread(self):
        self.good(
            [
                'rig_dtb_overlay 1 "/chosen" "test" 1 "aaaa" 4 = 0',
                'rig_thread_set_cpu "self" 3 = 0',
            ],
            """
class Property(ctypes.Structure):
    _fields_ = [("node", c_char_p), ("name", c_char_p), ("type", c_uint32), ("value", c_char_p),
                ("length", c_uint32)]
assert rig.rig_dtb_overlay(byref(Property(b"/chosen", b"test", 1, b"aaaa", 4)), 1) == 0
me = ctypes.CDLL(None).pthread_self
me.restype = ctypes.c_ulong
assert rig.rig_thread_set_cpu(ctypes.c_ulong(me()), 3) == 0
""",
        )

    def test_refuses_lines_that_make_no_sense(self):
        for line, message in [
            ("rig_beep 1", 'no "= RESULT": rig_beep 1'),
            ("rig_beep one = 0", 'neither a number, a "text", a hex:block nor null: one = 0'),
            ("rig_beep 1 = 0 0", "more behind the result: 0"),
            ('rig_beep "1 = 0', 'a text without its end: "1 = 0'),
            ("rig_beep hex:0 = 0", "a block is pairs of hexadecimal digits: hex:0 = 0"),
            (
                "rig_beep hex:00*4ff = 0",
                "a run is XX*N, followed by '.' or a blank: hex:00*4ff = 0",
            ),
            ("rig_beep 1 -> 2 = 0", "rig_beep: more outputs than the operation has"),
        ]:
            with self.subTest(line):
                self.bad([line], "rig.rig_beep(1)", "script line 1: " + message)

    def test_dispatches_for_real(self):
        self.good(
            [],
            """
Handler = ctypes.CFUNCTYPE(c_int, c_int, ctypes.POINTER(c_char_p))
class Row(ctypes.Structure):
    _fields_ = [("name", c_char_p), ("handler", Handler), ("group", c_int), ("about", c_char_p)]
seen = []
def handler(argc, argv):
    seen.append((argc, argv[0], argv[1]))
    return -7
table = (Row * 3)(Row(b"all", Handler(), 0, b"ALL test"), Row(b"get", Handler(handler), 0, b"one"))
def process(*words):
    vector = (c_char_p * (len(words) + 1))(*words)
    return rig.rig_applets_process(b"uenv", table, len(words), vector)
assert process(b"uenv", b"get", b"key") == -7 and seen == [(2, b"get", b"key")]
for words in [(b"uenv",), (b"uenv", b"none"), (b"uenv", b"all")]:
    assert process(*words) == 1
assert len(seen) == 1
""",
            ("uenv\n" + "  all              ALL test\n  get              one\n") * 3,
        )


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
