"""Start-up of whole processes, compared in one run.

usage: startup.py ROOT ROUNDS NAME=COMMAND...

Runs the commands by turns below the directory ROOT and prints each one's median wall time and its
ratio to the first one's. Interleaving makes the machine's mood the same for all of them: only the
ratios mean anything.
"""

import os
import shlex
import statistics
import sys
import time


def wall_time(command, null):
    """Seconds from spawning a command to having reaped it, its output thrown away."""
    redirect = [(os.POSIX_SPAWN_DUP2, null, 1)]
    start = time.perf_counter()
    child = os.posix_spawn(command[0], command, {}, file_actions=redirect)
    _, status = os.waitpid(child, 0)
    elapsed = time.perf_counter() - start
    if status != 0:
        sys.exit(f"startup.py: {shlex.join(command)} ended with wait status {status}")
    return elapsed


def main():
    root, rounds = sys.argv[1], int(sys.argv[2])
    names, commands = [], []
    for argument in sys.argv[3:]:
        name, _, command = argument.partition("=")
        names.append(name)
        commands.append(shlex.split(command))
    null = os.open(os.devnull, os.O_WRONLY)
    os.chroot(root)
    os.chdir("/")
    for command in commands:
        wall_time(command, null)
    times = [[] for _ in commands]
    for _ in range(rounds):
        for slot, command in zip(times, commands):
            slot.append(wall_time(command, null))
    medians = [statistics.median(slot) for slot in times]
    for name, median in zip(names, medians):
        print(f"{name:<34} {median * 1e6:9.1f} us   {median / medians[0]:5.3f}")


if __name__ == "__main__":
    main()
