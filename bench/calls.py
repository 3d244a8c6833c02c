"""What single calls cost on a virtual board: calls.py VBOARD CALLS ROUNDS

CALLS is the program of calls.c. Prints each as a ratio to the same program without a board, and requests
of a device, which a PC lacks, as a ratio to ioctl() without a board. All by turns in one run.
"""

import pathlib
import subprocess
import sys
import tempfile


def measured(words):
    text = subprocess.run(words, check=True, capture_output=True).stdout.decode()
    return {name: float(value) for name, value in map(str.split, text.splitlines())}


def main(vboard, calls, rounds):
    with tempfile.TemporaryDirectory() as work:
        file = pathlib.Path(work) / "file"
        file.touch()
        board = pathlib.Path(work) / "board"
        subprocess.run([vboard, "new", board], check=True)
        words = [calls, file, str(rounds)]
        on_board = [vboard, "run", "--speed", "max", "--board", board, "--", *words]
        best = {}
        for _ in range(5):
            for place, command in (("", words), ("board ", on_board)):
                for name, value in measured(command).items():
                    best[place + name] = min(value, best.get(place + name, value))
        for name in [name for name in best if name.startswith("board ")]:
            plain = best.get(name.removeprefix("board "), best["ioctl"])
            print(
                f"  {name.removeprefix('board '):14} {best[name]:8.0f} ns {best[name] / plain:6.2f}"
            )


if __name__ == "__main__":
    main(sys.argv[1], sys.argv[2], int(sys.argv[3]))
