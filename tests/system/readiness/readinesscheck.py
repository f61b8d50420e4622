"""Runs initsystem.py in a fresh device root for a broker and a service
program, and the report it must give; used by this folder's test and by the
install test (for the installed programs)."""

import os
import subprocess

HERE = os.path.dirname(os.path.realpath(__file__))
PYTHON = "/usr/bin/python3"

EXPECTED_REPORT = [
    "broker: READY=1, socket and semaphore there",
    "service: READY=1, 20 memories, FocusTorque 3",
    "service: no SIGUSR1",
    "service: exit status 0",
    "service without NOTIFY_SOCKET: SIGUSR1, no datagram",
    "service: exit status 0",
    "broker: exit status 0",
]


def play_init_system(devroot, broker, service, catalogue, binds, emulator=""):
    """The finished devroot run of initsystem.py (stdout is its report)."""
    argv = [devroot, "exec", "--bind-ro", HERE]
    for path in binds:
        argv += ["--bind-ro", path]
    argv += ["--", PYTHON, os.path.join(HERE, "initsystem.py"), "--broker", broker,
             "--service", service, "--catalogue", catalogue, "--emulator", emulator]
    return subprocess.run(argv, capture_output=True, text=True, timeout=240)
