#!/usr/bin/env python3
"""Runs a browser engine process and records how it ended.

The browser engine puts this program in front of the command lines of its page and plug-in
processes. "start PID TYPE" and "end PID TYPE STATUS" go to the file that the environment names;
STATUS is the exit code, or minus the number of the signal that ended it.
"""
import os
import signal
import subprocess
import sys

KIND = next(word for word in sys.argv if word.startswith("--type=")).removeprefix("--type=")
SIGNALS = (signal.SIGTERM, signal.SIGINT)


def record(line):
    with open(os.environ["MPBP_PROCESS_RECORD"], "a", encoding="ascii") as out:
        out.write(line + "\n")


# No signal is lost between the start and the wait.
signal.pthread_sigmask(signal.SIG_BLOCK, SIGNALS)
child = subprocess.Popen(
    sys.argv[1:], close_fds=False,
    preexec_fn=lambda: signal.pthread_sigmask(signal.SIG_UNBLOCK, SIGNALS))
record(f"start {child.pid} {KIND}")
for number in SIGNALS:
    signal.signal(number, lambda number, _: child.send_signal(number))
signal.pthread_sigmask(signal.SIG_UNBLOCK, SIGNALS)
status = child.wait()
record(f"end {child.pid} {KIND} {status}")
sys.exit(status if status >= 0 else 128 - status)
