#!/usr/bin/python3
"""Plays the init system inside a device root, the way a service manager
starts units of Type=notify: it binds a datagram socket, names it in
NOTIFY_SOCKET, starts the message broker and then the settings service as its
children, and waits for each one's READY=1.

The moment a program's READY=1 arrives, the program is stopped (SIGSTOP) while
its readiness is checked, so that what is seen is what held when it notified:
the broker's socket and semaphore exist; every memory of the catalogue exists
with its size, and the settings file was loaded (a value seeded into
.current.stp is in MemPersistent).  Then it checks that no SIGUSR1 reached
this process, the service's parent.  Last, it starts the service once more
without NOTIFY_SOCKET, which must signal SIGUSR1 as before and send nothing.

Report on standard output, one line each (the host side compares them):
  broker: READY=1, socket and semaphore there
  service: READY=1, N memories, FocusTorque 3
  service: no SIGUSR1
  service without NOTIFY_SOCKET: SIGUSR1, no datagram
  service: exit status 0        (each service run)
  broker: exit status 0
A failed check prints "FAIL: ..." and ends with status 1.
"""

import argparse
import json
import os
import shlex
import signal
import socket
import stat
import struct
import sys
import time

BROKER_SOCKET = "/var/volatile/message-broker.socket"
BROKER_SEMAPHORE = "/dev/shm/sem.message-broker-ready"
SETUPS = "/var//SETUPS/"
NOTIFY_SOCKET = "/run/init/notify"
SEEDED_NAME, SEEDED_VALUE = "FocusTorque", 3
SHM_HEADER = 4
NO_SIGUSR1_WAIT = 1.0
CHILD_DEFAULTS = (signal.SIGPIPE, signal.SIGINT, signal.SIGTERM, signal.SIGUSR1,
                  signal.SIGCHLD)


class Failure(Exception):
    pass


def check(condition, text):
    if not condition:
        raise Failure(text)


def say(text):
    print(text, flush=True)


def is_socket(path):
    try:
        return stat.S_ISSOCK(os.stat(path).st_mode)
    except FileNotFoundError:
        return False


class InitSystem:
    def __init__(self, emulator, timeout):
        self.emulator = shlex.split(emulator)
        self.timeout = timeout
        os.makedirs(os.path.dirname(NOTIFY_SOCKET), exist_ok=True)
        self.socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_PASSCRED, 1)
        self.socket.bind(NOTIFY_SOCKET)
        signal.pthread_sigmask(signal.SIG_BLOCK, {signal.SIGUSR1})

    def start(self, program, notify):
        environment = {name: value for name, value in os.environ.items()
                       if name != "NOTIFY_SOCKET"}
        if notify:
            environment["NOTIFY_SOCKET"] = NOTIFY_SOCKET
        argv = self.emulator + [program]
        return os.posix_spawnp(argv[0], argv, environment, setsigmask=(),
                               setsigdef=CHILD_DEFAULTS)

    def receive(self, seconds):
        """The next datagram's text and sender pid, or None after `seconds`."""
        self.socket.settimeout(seconds)
        try:
            data, ancillary, _, _ = self.socket.recvmsg(256, socket.CMSG_SPACE(12))
        except (TimeoutError, BlockingIOError):
            return None
        sender = None
        for level, kind, payload in ancillary:
            if level == socket.SOL_SOCKET and kind == socket.SCM_CREDENTIALS:
                sender = struct.unpack("iII", payload[:12])[0]
        return data.decode("utf-8", "replace"), sender

    def wait_ready(self, name, pid):
        """Waits for pid's READY=1 and stops pid at once; fails on anything else."""
        message = self.receive(self.timeout)
        check(message is not None, f"{name}: no datagram within {self.timeout:g} s")
        os.kill(pid, signal.SIGSTOP)
        check(message == ("READY=1", pid), f"{name}: got {message!r}, not READY=1 from {pid}")

    def usr1_senders(self):
        senders = []
        while True:
            info = signal.sigtimedwait({signal.SIGUSR1}, 0)
            if info is None:
                return senders
            senders.append(info.si_pid)

    def wait_usr1(self, pid):
        deadline = time.monotonic() + self.timeout
        while time.monotonic() < deadline:
            info = signal.sigtimedwait({signal.SIGUSR1}, 0.05)
            if info is not None:
                return info.si_pid == pid
        return False

    def stop(self, name, pid):
        os.kill(pid, signal.SIGTERM)
        deadline = time.monotonic() + self.timeout
        while time.monotonic() < deadline:
            done, status = os.waitpid(pid, os.WNOHANG)
            if done:
                check(os.WIFEXITED(status), f"{name}: ended by signal {os.WTERMSIG(status)}")
                say(f"{name}: exit status {os.WEXITSTATUS(status)}")
                return
            time.sleep(0.02)
        os.kill(pid, signal.SIGKILL)
        os.waitpid(pid, 0)
        raise Failure(f"{name}: did not end within {self.timeout:g} s of SIGTERM")


def memories(catalogue):
    with open(catalogue, encoding="utf-8") as stream:
        return json.load(stream)["memories"]


def seeded_value(persistent):
    variable = next(v for v in persistent["variables"] if v["name"] == SEEDED_NAME)
    with open("/dev/shm/" + persistent["name"], "rb") as memory:
        memory.seek(SHM_HEADER + variable["offset"])
        return struct.unpack("<i", memory.read(4))[0]


def check_memories(records):
    for memory in records:
        path = "/dev/shm/" + memory["name"]
        check(os.path.exists(path), f"service: READY=1 before {path} exists")
        check(os.path.getsize(path) == SHM_HEADER + memory["size"],
              f"service: READY=1 while {path} has {os.path.getsize(path)} bytes")


def play(options):
    records = memories(options.catalogue)
    os.makedirs(SETUPS, exist_ok=True)
    with open(SETUPS + ".current.stp", "w", encoding="utf-8") as current:
        current.write(f'{{\n"{SEEDED_NAME}": {SEEDED_VALUE}\n}}')
    init = InitSystem(options.emulator, options.timeout)

    broker = init.start(options.broker, notify=True)
    init.wait_ready("broker", broker)
    check(is_socket(BROKER_SOCKET), f"broker: READY=1 before {BROKER_SOCKET} exists")
    check(os.path.exists(BROKER_SEMAPHORE), f"broker: READY=1 before {BROKER_SEMAPHORE} exists")
    os.kill(broker, signal.SIGCONT)
    say("broker: READY=1, socket and semaphore there")

    service = init.start(options.service, notify=True)
    init.wait_ready("service", service)
    check_memories(records)
    value = seeded_value(records[0])
    check(value == SEEDED_VALUE, f"service: READY=1 while {SEEDED_NAME} is {value}, not the "
          f"loaded {SEEDED_VALUE}")
    os.kill(service, signal.SIGCONT)
    say(f"service: READY=1, {len(records)} memories, {SEEDED_NAME} {value}")
    time.sleep(NO_SIGUSR1_WAIT)
    senders = init.usr1_senders()
    check(not senders, f"service: SIGUSR1 from {senders} under NOTIFY_SOCKET")
    extra = init.receive(0)
    check(extra is None, f"service: a second datagram {extra!r}")
    say("service: no SIGUSR1")
    init.stop("service", service)

    service = init.start(options.service, notify=False)
    check(init.wait_usr1(service), f"service without NOTIFY_SOCKET: no SIGUSR1 within "
          f"{options.timeout:g} s")
    stray = init.receive(NO_SIGUSR1_WAIT)
    check(stray is None, f"service without NOTIFY_SOCKET: a datagram {stray!r}")
    say("service without NOTIFY_SOCKET: SIGUSR1, no datagram")
    init.stop("service", service)
    init.stop("broker", broker)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--broker", required=True)
    parser.add_argument("--service", required=True)
    parser.add_argument("--catalogue", required=True)
    parser.add_argument("--emulator", default="")
    parser.add_argument("--timeout", type=float, default=20.0)
    options = parser.parse_args()
    try:
        play(options)
    except (Failure, OSError) as failure:
        print(f"FAIL: {failure}", flush=True)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
