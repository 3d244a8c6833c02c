"""What an installed benchrig takes: file, memory, libraries.

Usage: size.py BUILD-DIRECTORY...
"""

import collections
import pathlib
import re
import subprocess
import sys
import tempfile

# What each run does; those with True need a device, and the virtual board's part is in their figure.
RUNS = [
    (False, ["version"]),
    (False, ["bt2"]),
    (True, ["bt1", "rtc"]),
    (True, ["bt2", "uenv", "list"]),
    (True, ["bt1", "iccard", "autotest"]),
]


def output(*words):
    return subprocess.run(list(map(str, words)), capture_output=True, text=True, check=True).stdout


def is_arm(program):
    return re.search(r"Machine:\s+ARM", output("readelf", "-h", program)) is not None


def sections(program):
    """{what a group of sections is: bytes}, of those that a run maps."""
    sizes = collections.Counter()
    for line in output("readelf", "-SW", program).splitlines():
        fields = re.match(
            r"\s*\[ *\d+\] (\.\S+)\s+(\S+)\s+\w+\s+\w+\s+(\w+)\s+\w+\s+([A-Z]*)", line
        )
        if fields is None or "A" not in fields[4]:
            continue
        name, kind, size, flags = fields[1], fields[2], int(fields[3], 16), fields[4]
        if "X" in flags:
            sizes["code"] += size
        elif kind == "NOBITS":
            sizes["variables that start as zero (not in the file)"] += size
        elif "W" in flags:
            sizes["variables, and addresses that the loader fills in"] += size
        elif name in (".rodata", ".eh_frame", ".eh_frame_hdr", ".ARM.exidx", ".ARM.extab"):
            sizes["texts and tables"] += size
        else:
            sizes["symbols and relocations for the loader"] += size
    return sizes


def subsystem_of(object_file):
    found = re.search(r"benchrig_objects\.dir/(\w+)/|benchrig\.dir/(\w+)/", object_file)
    if found:
        return "src/" + (found[1] or found[2])
    return "libm, linked in" if "libm" in object_file else "start code"


def subsystems(link_map):
    """{subsystem: bytes} of what the linker kept of each object."""
    text = link_map.read_text(encoding="utf-8")
    text = text[text.index("\nLinker script and memory map") :]
    sizes = collections.Counter()
    # " .text.name   0xADDRESS  0xSIZE object.o"; a long name has the rest on a line of its own.
    for size, object_file in re.findall(
        r"^ \.(?:text|rodata|data|bss)\S*\s+0x\w+\s+0x(\w+) (\S+)$", text, re.M
    ):
        sizes[subsystem_of(object_file)] += int(size, 16)
    return sizes


def peak_memory(directory, words, board=()):
    """Kilobytes, measured on the virtual board when `board` has the words that start it."""
    peak = directory / "peak"
    if not peak.exists():
        output("cc", "-O2", "-o", peak, pathlib.Path(__file__).with_name("peak.c"))
    done = subprocess.run(
        [*map(str, board), str(peak), *map(str, words)], capture_output=True, check=False
    )
    return int(done.stderr.split()[-1])


def print_table(title, sizes):
    print(f"  {title}")
    for name, size in sizes.most_common():
        print(f"    {size:8}  {name}")


def print_memory(build, directory):
    board = [build / "bin/vboard", "run", "--speed", "max", "--"]
    print("  peak memory, KiB")
    print(f"    {peak_memory(directory, ['true']):8}  a program that only ends")
    print(
        f"    {peak_memory(directory, ['true'], board):8}  a program that only ends, on the virtual board"
    )
    for on_board, words in RUNS:
        peak = peak_memory(directory, [build / "bin/benchrig", *words], board if on_board else ())
        print(
            f"    {peak:8}  benchrig {' '.join(words)}{', on the virtual board' if on_board else ''}"
        )


def report(build):
    program = build / "bin/benchrig"
    arm = is_arm(program)
    with tempfile.TemporaryDirectory() as name:
        directory = pathlib.Path(name)
        stripped = directory / "benchrig"
        output("arm-linux-gnueabihf-strip" if arm else "strip", "-o", stripped, program)
        print(
            f"{build.name}: {'32-bit ARM' if arm else 'this machine'}, {stripped.stat().st_size} bytes stripped"
        )
        print_table("sections", sections(stripped))
        print_table("subsystems", subsystems(build / "src/benchrig.map"))
        print(
            "  needs",
            ", ".join(re.findall(r"\(NEEDED\).*\[(.+)\]", output("readelf", "-dW", program))),
        )
        if not arm:  # an emulator's memory says nothing
            print_memory(build, directory)


def main():
    if len(sys.argv) < 2:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    for build in sys.argv[1:]:
        report(pathlib.Path(build))
    return 0


if __name__ == "__main__":
    sys.exit(main())
