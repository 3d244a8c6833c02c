"""Descriptor 0 is a descriptor like any other: a program that is started without standard input gets it
from its first open(), and everything works as with one."""

import pytest

WITHOUT_INPUT = ["sh", "-c", 'exec "$@" <&-', "sh"]
DATE = "2024-01-05 09:05:03"

COMMANDS = [
    "version",
    "bt1 rtc autotest",
    "bt1 alarm autotest",
    "bt1 alarm input 3",
    "bt1 alarm output 1",
    "bt1 beep 1",
    "bt1 lcd -i -r -s 0",
    "bt1 vgadet",
    "bt1 gsensor -i -g",
    "bt1 gsensor autotest",
    "bt1 iccard autotest",
    "bt1 bootparam set",
    "bt1 bootparam autotest",
    "bt1 cpldinfo get",
    "bt1 wdt",
    "bt2 uenv list",
    "bt2 bsp ver",
    "bt2 hdsmart /dev/sda",
    "bt2 blktrace sdz",
    "bt2 hdstatus 0",
    "bt2 stor -l",
    "bt2 stor -s sda 0",
    "bt2 korcmem -g 9",
    "bt2 mem_hotplug 0x80000000 0x18000000",
    "bt2 dtbofs /chosen test aaaa",
    "bt2 dtbofcell /chosen testu64 2 0x11223344 0x55667788",
    "btdbg mem fill 2000 18 ff",
    "btdbg mem dump 2000 10 out",
    "btdbg pstat /proc/1033/stat",
    "btdbg getconf PATH_MAX /tmp",
]


@pytest.mark.parametrize("command", COMMANDS)
def test_without_standard_input(make_board, build, command):
    words = command.split()
    usual = make_board().run(*words, date=DATE)
    without = make_board().run_command([*WITHOUT_INPUT, build / "bin/benchrig", *words], date=DATE)
    assert (without.status, without.stdout, without.stderr) == (
        usual.status,
        usual.stdout,
        usual.stderr,
    )
