"""Process events of this machine's kernel, as proctrace and forkstat see them in one run.

usage: process_events.py BENCHRIG PROCESSES

Both listen while PROCESSES short processes are started one after another, each of which is a fork,
an exec and an exit. Prints how many of these events each has told, and the processor time that it
took, as a ratio to forkstat's. The trace goes to a file, which keeps up: then proctrace may lose
nothing, and the status is 1 when it does.

Listening takes the superuser, and process numbers that are the machine's: no container with
processes of its own. Elsewhere this says so and compares nothing.
"""

import os
import re
import signal
import subprocess
import sys
import tempfile
import time

PATIENCE = 10.0  # seconds until a listener that says nothing counts as deaf
TELLS = {
    "forkstat": re.compile(r"^\S+ (fork|exec|exit) +(\d+) ", re.MULTILINE),
    "proctrace": re.compile(r"^(fork|exec|exit) (?:.*-> )?pid=(\d+)/", re.MULTILINE),
}


def start_process():
    """A process that ends at once; its number."""
    child = os.posix_spawn("/bin/true", ["true"], {})
    os.waitpid(child, 0)
    return child


def events_told(name, log):
    """The pairs of event and process in a listener's output."""
    with open(log, encoding="utf-8", errors="replace") as stream:
        return set(TELLS[name].findall(stream.read()))


def hears(name, log, listener):
    """Whether a listener tells of a process before the patience ends: then, since events come in
    order, it has told of the earlier ones too, or lost them."""
    end = time.monotonic() + PATIENCE
    while time.monotonic() < end and listener.poll() is None:
        process = str(start_process())
        time.sleep(0.05)
        if ("exit", process) in events_told(name, log):
            return True
    return False


def processor_time(listener):
    """Ends a listener as Ctrl-C does; the seconds of processor time that it took."""
    os.kill(listener.pid, signal.SIGINT)
    _, _, usage = os.wait4(listener.pid, 0)
    return usage.ru_utime + usage.ru_stime


def main():
    benchrig, processes = sys.argv[1], int(sys.argv[2])
    commands = {
        "forkstat": ["forkstat", "-l", "-e", "fork,exec,exit"],
        "proctrace": [benchrig, "btdbg", "proctrace"],
    }
    with tempfile.TemporaryDirectory() as folder:
        logs = {name: os.path.join(folder, name) for name in commands}
        listeners = {}
        for name, command in commands.items():
            with open(logs[name], "w", encoding="utf-8") as log:
                listeners[name] = subprocess.Popen(command, stdout=log, stderr=log)
        deaf = [name for name in commands if not hears(name, logs[name], listeners[name])]
        if deaf:
            for listener in listeners.values():
                listener.kill()
                listener.wait()
            print(
                f"not compared: no process events for {' and '.join(deaf)} here (that takes the "
                "superuser, outside of containers)"
            )
            for name in deaf:
                with open(logs[name], encoding="utf-8", errors="replace") as log:
                    print("".join(f"  {name}: {line}" for line in log.readlines()[-3:]), end="")
            return
        started = {str(start_process()) for _ in range(processes)}
        for name in commands:
            hears(name, logs[name], listeners[name])
        told, times = {}, {}
        for name, listener in listeners.items():
            times[name] = processor_time(listener)
            told[name] = sum(process in started for _, process in events_told(name, logs[name]))
    for name in commands:
        print(
            f"{name:<12} {told[name]:7} of {3 * len(started)} events   "
            f"processor time {times[name] / times['forkstat']:5.3f}"
        )
    if told["proctrace"] < 3 * len(started):
        sys.exit("process_events.py: proctrace has lost events")


if __name__ == "__main__":
    main()
