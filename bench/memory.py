"""Physical memory to a file and back, compared with dd in one run.

usage: memory.py VBOARD BENCHRIG ROUNDS

On a new virtual board, `mem dump` and `mem fillfile` move 1 MiB and 16 MiB between a file and
/dev/mem; dd moves the same bytes between the same file and the medium that is the board's memory.
Prints the median wall time of each, by turns, and its ratio to dd's. `mem ?`, which moves nothing,
shows what of it is the start of a program on a virtual board; dd starts bare.
"""

import os
import statistics
import subprocess
import sys
import tempfile
import time

ADDRESS = 0x0100_0000


def wall_time(command):
    """Seconds from starting a command to its end, its output thrown away."""
    start = time.perf_counter()
    subprocess.run(command, check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    return time.perf_counter() - start


def contents(file, start, size):
    with open(file, "rb") as stream:
        stream.seek(start)
        return stream.read(size)


def check(name, file, start, wanted):
    """The bytes have to have arrived; before every round they were others."""
    if contents(file, start, len(wanted)) != wanted:
        sys.exit(f"memory.py: {name} moved other bytes than it should")


def compare(mem, memory, folder, size, rounds):
    """Median times by name; every command begins with a target that holds zeros."""
    source, target = os.path.join(folder, "source"), os.path.join(folder, "target")
    copy = ["dd", "bs=1M"]
    into = [f"of={memory}", "conv=notrunc", "oflag=seek_bytes", f"seek={ADDRESS}"]
    out_of = [f"if={memory}", "iflag=skip_bytes,count_bytes", f"skip={ADDRESS}", f"count={size}"]
    commands = {
        "dd into memory": (memory, ADDRESS, copy + [f"if={source}"] + into),
        "mem fillfile": (memory, ADDRESS, mem + ["fillfile", f"{ADDRESS:x}", "0", source]),
        "dd from memory": (target, 0, copy + out_of + [f"of={target}"]),
        "mem dump": (target, 0, mem + ["dump", f"{ADDRESS:x}", f"{size:x}", target]),
        "mem ? (start alone)": (None, 0, mem + ["?"]),
    }
    times = {name: [] for name in commands}
    for _ in range(rounds):
        wanted = os.urandom(size)
        with open(source, "wb") as stream:
            stream.write(wanted)
        for name, (file, start, command) in commands.items():
            if file is not None:
                with open(file, "r+b" if file == memory else "wb") as stream:
                    stream.seek(start)
                    stream.write(bytes(size))
            times[name].append(wall_time(command))
            if file is not None:
                check(name, file, start, wanted)
    return {name: statistics.median(slot) for name, slot in times.items()}


def main():
    vboard, benchrig, rounds = sys.argv[1], sys.argv[2], int(sys.argv[3])
    with tempfile.TemporaryDirectory() as folder:
        board = os.path.join(folder, "board")
        wall_time([vboard, "new", board])
        mem = [vboard, "run", "--board", board, "--", benchrig, "btdbg", "mem"]
        wall_time(mem + ["?"])  # makes the medium
        memory = os.path.join(board, "media/phys_mem")
        for size in 1 << 20, 16 << 20:
            medians = compare(mem, memory, folder, size, rounds)
            peers = {"mem fillfile": "dd into memory", "dd into memory": "dd into memory"}
            for name, median in medians.items():
                ratio = median / medians[peers.get(name, "dd from memory")]
                print(f"{size >> 20:2} MiB  {name:<27} {median * 1e6:9.1f} us   {ratio:5.3f}")


if __name__ == "__main__":
    main()
