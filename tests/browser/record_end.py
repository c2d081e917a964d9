#!/usr/bin/env python3
"""Runs a browser engine process and records how it ended.

The browser engine puts this program in front of the command lines of its page and plug-in
processes. "start PID TYPE" and "end PID TYPE STATUS" go to the file that the environment names;
STATUS is the exit code, or minus the number of the signal that ended it.
"""
import os
import signal
import sys


def record(line):
    out = os.open(os.environ["MPBP_PROCESS_RECORD"], os.O_WRONLY | os.O_APPEND | os.O_CREAT, 0o600)
    os.write(out, (line + "\n").encode())
    os.close(out)


def main():
    kind = next(word for word in sys.argv if word.startswith("--type=")).removeprefix("--type=")
    # No child of this process is missed, and no signal is lost between the fork and the wait.
    signals = {signal.SIGTERM, signal.SIGINT, signal.SIGCHLD}
    signal.pthread_sigmask(signal.SIG_BLOCK, signals)
    pid = os.fork()
    if pid == 0:
        signal.pthread_sigmask(signal.SIG_UNBLOCK, signals)
        os.execv(sys.argv[1], sys.argv[1:])
    record(f"start {pid} {kind}")
    while True:
        number = signal.sigwait(signals)
        if number != signal.SIGCHLD:
            os.kill(pid, number)
            continue
        ended, status = os.waitpid(pid, os.WNOHANG)
        if ended == pid:
            break
    status = os.waitstatus_to_exitcode(status)
    record(f"end {pid} {kind} {status}")
    return status if status >= 0 else 128 - status


if __name__ == "__main__":
    sys.exit(main())
