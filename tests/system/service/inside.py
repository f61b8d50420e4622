#!/usr/bin/python3
"""Scenarios that run inside the device root, beside the broker and the
settings service (as the COMMAND of `devroot run`).

Each scenario acts as another process of the device would (through memtool or
a raw broker client), prints what it saw, one "name: value" line each, and
exits 0 when every check held, 1 with a "FAIL: ..." line otherwise.
"""

import argparse
import json
import os
import re
import shlex
import signal
import socket
import struct
import subprocess
import sys
import time

SOCKET = "/var/volatile/message-broker.socket"
SETUPS = "/var//SETUPS/"
CURRENT = SETUPS + ".current.stp"
# The service writes its start-up change (the product version it publishes
# and hears back) about a second after it is ready.
SETTLE = 2.5
SHM_HEADER = 4


class Failure(Exception):
    pass


def check(condition, text):
    if not condition:
        raise Failure(text)


def say(name, value):
    print(f"{name}: {value}", flush=True)


def read(path):
    with open(path, encoding="utf-8") as stream:
        return stream.read()


def wait_for(predicate, limit):
    """Seconds until predicate() held, or None after `limit` seconds."""
    start = time.monotonic()
    while time.monotonic() - start < limit:
        if predicate():
            return time.monotonic() - start
        time.sleep(0.01)
    return None


def current_has(text):
    def holds():
        try:
            return text in read(CURRENT)
        except OSError:
            return False
    return holds


class Memtool:
    def __init__(self, command):
        self.command = shlex.split(command)

    def run(self, *arguments):
        done = subprocess.run(self.command + list(arguments), capture_output=True, text=True,
                              timeout=60)
        check(done.returncode == 0, f"memtool {' '.join(arguments)}: status {done.returncode}: "
              f"{done.stdout}{done.stderr}")
        return done.stdout.strip()


def post_all(ids):
    """Posts one record per event id through a raw broker connection."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
        client.connect(SOCKET)
        client.sendall(b"".join(struct.pack("<III", event, 0, 0) for event in ids))
        time.sleep(0.2)


def store_unheard(options, name, value):
    """Stores an int of MemPersistent without posting its change event, as a process
    whose event did not reach the service."""
    with open(options.catalogue, encoding="utf-8") as stream:
        catalogue = json.load(stream)
    persistent = next(memory for memory in catalogue["memories"]
                      if memory["name"] == "MemPersistent")
    variable = next(variable for variable in persistent["variables"] if variable["name"] == name)
    with open("/dev/shm/MemPersistent", "r+b") as memory:
        memory.seek(SHM_HEADER + variable["offset"])
        memory.write(struct.pack("<i", value))


def subscriptions(options, _memtool):
    """The service writes only what changed, so a value is changed first without its
    event: an event the service hears makes it save that value, one it does not hear
    does not."""
    with open(options.catalogue, encoding="utf-8") as stream:
        catalogue = json.load(stream)
    events = catalogue["events"]
    subscribed = {events.index(name) for name in catalogue["subscriptions"]}
    say("subscriptions", len(catalogue["subscriptions"]))
    time.sleep(SETTLE)
    store_unheard(options, "FocusTorque", 4)
    before = os.stat(CURRENT).st_mtime_ns
    others = [event for event in range(6, len(events)) if event not in subscribed]
    post_all(others)
    time.sleep(SETTLE)
    check(os.stat(CURRENT).st_mtime_ns == before,
          "an event the service did not subscribe to caused a write")
    say("unsubscribed posted", len(others))
    post_all(sorted(subscribed))
    written = wait_for(lambda: os.stat(CURRENT).st_mtime_ns != before, 3.0)
    check(written is not None, "the subscribed events caused no write")
    check('"FocusTorque": 4,\n' in read(CURRENT), "the write lacks the changed value")
    say("subscribed posted", len(subscribed))


def change(_options, memtool):
    time.sleep(SETTLE)
    start = time.monotonic()
    memtool.run("set", "MemPersistent", "FocusTorque", "3")
    posted = time.monotonic() - start
    landed = wait_for(current_has('"FocusTorque": 3,\n'), 5.0)
    check(landed is not None, "the change never reached .current.stp")
    say("posted after", f"{posted:.3f}")
    say("written after", f"{posted + landed:.3f}")
    check(landed <= 1.5, f"written {landed:.3f} s after the post")


def factory_reset(_options, memtool):
    time.sleep(SETTLE)
    with open(SETUPS + "Studio.stp", "w", encoding="utf-8") as setup:
        setup.write('{"FocusTorque": 4}')
    memtool.run("set", "MemPersistent", "FocusTorque", "4")
    check(wait_for(current_has('"FocusTorque": 4,\n'), 5.0) is not None,
          "the change never reached .current.stp")
    memtool.run("request", "MemGuiLocal", "FactoryReset", "--timeout", "10")
    say("FactoryReset", memtool.run("get", "MemGuiLocal", "FactoryReset"))
    say("FocusTorque", memtool.run("get", "MemPersistent", "FocusTorque"))
    say("folder", sorted(os.listdir(SETUPS)))
    check(memtool.run("get", "MemPersistent", "FocusTorque") == "2", "FocusTorque not reset")
    check(os.listdir(SETUPS) == [], "the settings folder was not emptied")


def user_setups(_options, memtool):
    time.sleep(SETTLE)
    memtool.run("set", "MemPersistent", "FocusTorque", "4")
    memtool.run("set", "MemUserSetups", "UserSetupSave", "Studio")
    memtool.run("request", "MemUserSetups", "UserSetupAcceptSaveFileName")
    check('"FocusTorque": 4,\n' in read(SETUPS + "Studio.stp"), "Studio.stp lacks the value")
    check(memtool.run("get", "MemUserSetups", "UserSetupSave") == "", "the name was not cleared")
    check(memtool.run("get", "MemUserSetups", "UserSetupFileCheckDone") == "true",
          "the check was not reported")
    listed = wait_for(lambda: memtool.run("get", "MemUserSetups", "UserSetupListSize") == "1", 5.0)
    check(listed is not None, "the list did not follow the folder")
    say("entry 0", memtool.run("get", "MemUserSetups", "UserSetupList", "0"))
    memtool.run("set", "MemPersistent", "FocusTorque", "1")
    check(wait_for(current_has('"FocusTorque": 1,\n'), 5.0) is not None,
          "the change never reached .current.stp")
    memtool.run("set", "MemUserSetups", "UserSetupSelectedFileIndex", "0")
    memtool.run("request", "MemUserSetups", "UserSetupAcceptLoadFileName")
    check(memtool.run("get", "MemPersistent", "FocusTorque") == "4", "the setup was not loaded")
    check('"FocusTorque": 4,\n' in read(CURRENT), ".current.stp was not rewritten at once")
    memtool.run("request", "MemUserSetups", "UserSetupAddNew")
    proposed = memtool.run("get", "MemUserSetups", "UserSetupSave")
    say("proposed", proposed)
    check(re.fullmatch(r"\d{6}_\d{4}", proposed) is not None, "no proposed name")


def current_identity():
    """The inode and modification time of .current.stp: a save replaces the file."""
    status = os.stat(CURRENT)
    return status.st_ino, status.st_mtime_ns


def idle(_options, _memtool):
    time.sleep(SETTLE)
    seen = current_identity()
    writes = 0
    end = time.monotonic() + 5.0
    while time.monotonic() < end:
        now = current_identity()
        if now != seen:
            writes += 1
            seen = now
        time.sleep(0.02)
    say("writes while idle", writes)
    check(writes == 0, "an idle service wrote its settings")


def second_instance(options, memtool):
    time.sleep(SETTLE)
    memtool.run("set", "MemPersistent", "FocusTorque", "4")
    check(wait_for(current_has('"FocusTorque": 4,\n'), 5.0) is not None,
          "the change never reached .current.stp")
    before = current_identity()
    memories = sorted(os.listdir("/dev/shm"))
    signals = []
    previous = signal.signal(signal.SIGUSR1, lambda number, _frame: signals.append(number))
    try:
        done = subprocess.run(shlex.split(options.service), capture_output=True, text=True,
                              timeout=60)
        time.sleep(0.5)
    finally:
        signal.signal(signal.SIGUSR1, previous)
    say("second instance", f"exit status {done.returncode}")
    say("second instance says", done.stderr.strip())
    check(done.returncode == 1, "the second instance did not fail")
    check("already running" in done.stderr, "no 'already running'")
    check(signals == [], "the second instance signalled its parent")
    check(sorted(os.listdir("/dev/shm")) == memories, "the memories changed")
    check(memtool.run("get", "MemPersistent", "FocusTorque") == "4",
          "the running service's memory was re-initialised")
    check(current_identity() == before, "the settings file was written")


BROKER_SEMAPHORE = "/dev/shm/sem.message-broker-ready"


def broker_listens():
    if not os.path.exists(BROKER_SEMAPHORE):
        return False
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
        try:
            client.connect(SOCKET)
        except OSError:
            return False
    return True


def start_broker(options):
    broker = subprocess.Popen(shlex.split(options.broker), stdin=subprocess.DEVNULL,
                              stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    check(wait_for(broker_listens, 20.0) is not None, "the broker does not listen")
    return broker


def stop(process, name):
    process.send_signal(signal.SIGTERM)
    status = process.wait(timeout=20)
    say(name, f"exit status {status}")
    return status


def broker_restart(options, memtool):
    """Plays the supervisor itself (devroot run stops at a broker's end): starts
    broker and service, kills the broker, starts it again, and checks that the
    service still saves changes and answers requests."""
    broker = start_broker(options)
    signals = []
    signal.signal(signal.SIGUSR1, lambda number, _frame: signals.append(number))
    service = subprocess.Popen(shlex.split(options.service), stdin=subprocess.DEVNULL)
    try:
        check(wait_for(lambda: signals, 20.0) is not None, "the service did not get ready")
        time.sleep(SETTLE)
        broker.kill()
        broker.wait(timeout=20)
        say("broker", "killed")
        # Long enough for several reconnect attempts while no broker is there.
        time.sleep(2.5)
        check(service.poll() is None, "the service ended without its broker")
        # A change made while no broker carried its event.
        store_unheard(options, "FocusTorque", 4)
        before = current_identity()
        broker = start_broker(options)
        say("broker", "started again")
        # Once connected again the service saves what it may have missed.
        check(wait_for(lambda: current_identity() != before, 10.0) is not None,
              "the service did not save after the broker came back")
        check('"FocusTorque": 4,\n' in read(CURRENT), "the missed change was not saved")
        time.sleep(1.2)
        start = time.monotonic()
        memtool.run("set", "MemPersistent", "FocusTorque", "3")
        landed = wait_for(current_has('"FocusTorque": 3,\n'), 5.0)
        check(landed is not None, "a change after the restart never reached .current.stp")
        say("written after", f"{time.monotonic() - start:.3f}")
        memtool.run("request", "MemUserSetups", "UserSetupAddNew", "--timeout", "10")
        proposed = memtool.run("get", "MemUserSetups", "UserSetupSave")
        say("proposed", proposed)
        check(re.fullmatch(r"\d{6}_\d{4}", proposed) is not None, "the request was not answered")
    finally:
        service_status = stop(service, "service")
        stop(broker, "broker")
    check(service_status == 0, "the service did not end with status 0")


SCENARIOS = {"subscriptions": subscriptions, "change": change, "factory-reset": factory_reset,
             "user-setups": user_setups, "idle": idle, "second-instance": second_instance,
             "broker-restart": broker_restart}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("scenario", choices=sorted(SCENARIOS))
    parser.add_argument("--memtool", required=True, help="memtool, emulator included")
    parser.add_argument("--catalogue")
    parser.add_argument("--service", help="settings-manager, emulator included")
    parser.add_argument("--broker", help="message-broker, emulator included")
    options = parser.parse_args()
    try:
        SCENARIOS[options.scenario](options, Memtool(options.memtool))
    except (Failure, OSError, subprocess.SubprocessError) as failure:
        print(f"FAIL: {failure}", flush=True)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
