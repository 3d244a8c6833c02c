"""What the unattended run of bt1 writes: shared by the tests of the runner."""

TESTS = [
    "rtc",
    "beep",
    "alarm",
    "lcd",
    "vgadet",
    "gsensor",
    "iccard",
    "bootparam",
    "cpldinfo",
    "wdt",
]
VGADET_USAGE = b"\nUsage: vgadet\n\n\n\n"


def heading(test):
    return b"\n\n[AUTOTEST] %s is operating...\n" % test.encode()


def report(failed):
    """The verdict block with the tests of `failed` as ERROR."""
    return b"\n\n\nRESULT:\n" + b"".join(
        b"[RESULT] %s test is %s!\n" % (test.encode(), b"ERROR" if test in failed else b"OK")
        for test in TESTS
    )


def progress(printed):
    """The headings in order, each followed by what its test printed on standard error."""
    assert set(printed) <= set(TESTS)
    return b"".join(heading(test) + printed.get(test, b"") for test in TESTS)
