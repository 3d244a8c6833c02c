"""What a run costs on a fresh board and on one that is there: boards.py VBOARD ROUNDS

Prints processor time and wall time as ratios to `true` alone, all by turns in one run.
"""

import os
import pathlib
import resource
import statistics
import subprocess
import sys
import tempfile
import time


def spent(words, environment):
    """Processor and wall seconds of one command, its children included."""
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    started = time.perf_counter()
    subprocess.run(words, check=True, env=environment, stdout=subprocess.DEVNULL)
    wall = time.perf_counter() - started
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    processor = after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime
    return processor, wall


def main(vboard, rounds):
    with tempfile.TemporaryDirectory() as work:
        board = pathlib.Path(work) / "board"
        made = pathlib.Path(work) / "made"
        subprocess.run([vboard, "new", board], check=True)
        commands = {
            "true": ["true"],
            "true on a board": [vboard, "run", "--speed", "max", "--board", board, "--", "true"],
            "true on a fresh board": [vboard, "run", "--speed", "max", "--", "true"],
            "vboard new": [vboard, "new", made],
        }
        environment = {**os.environ, "TMPDIR": work}
        seconds = {name: [] for name in commands}
        for _ in range(rounds):
            for name, words in commands.items():
                seconds[name].append(spent(words, environment))
            subprocess.run(["rm", "-r", made], check=True)
        base = [statistics.mean(one) for one in zip(*seconds["true"])]
        for name, rows in seconds.items():
            processor, wall = (statistics.mean(one) for one in zip(*rows))
            print(
                f"  {name:24} {processor * 1e3:7.2f} ms of processor time {processor / base[0]:6.1f}"
                f"   {wall * 1e3:7.2f} ms {wall / base[1]:6.1f}"
            )


if __name__ == "__main__":
    main(sys.argv[1], int(sys.argv[2]))
