#!/usr/bin/python3
"""Fault group "broker clients": hostile clients against the real message
broker and settings service in a device root, while a well-behaved
subscriber counts every event it must receive.

Run from the host, it prints exactly one line,

    broker clients: tried N / crashed C / hung H / settings lost L

and exits 1 when C, H or L is not 0 (details of what went wrong go to
standard error).  N counts the hostile actions tried; C a broker or service
that died; H a peer that stopped answering (the broker to a probe, the
service to a change, a subscriber whose count stalled, a client that could
not connect within the semaphore's bound); L events the subscriber lost or
received corrupted, and a change the service did not save.

Two device roots:
1. `devroot run` with the real broker and service; this script runs inside
   as its COMMAND ("inside"), with `faultpeer exchange` (two ServerConnections
   of the project: a publisher that keeps within a window of a subscriber,
   which checks every record) running throughout.  Hostile actions, chosen
   by a seeded random sequence: half records, garbage, floods of records
   nobody reads, a burst of the service's own events with odd indexes, a
   subscriber that never reads, connection storms; a probe through the
   broker (a record written in two pieces must come back whole) after each.
   Then a client takes the readiness semaphore and is killed holding it, and
   a new client must still connect within the bound.  Finally a change made
   with memtool must reach the service's settings file.
2. `devroot run` whose service is started only after a client died holding
   the semaphore (faultpeer with FAULT_PEER_THEN_EXEC): the real service
   must still become ready and log that it connected without the semaphore.

--long runs the first part for 300 s with larger floods instead of 15 s.
"""

import argparse
import json
import os
import random
import re
import shlex
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.realpath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "service"))
from test_service import kmsglines, line_pattern  # noqa: E402  (the service's log helpers)

SOCKET = "/var/volatile/message-broker.socket"
CURRENT = "/var//SETUPS/.current.stp"
RECORD = struct.Struct("<III")
# faultpeer's stream ids and the probes' ids: hostile bytes never carry them.
STREAM_BASE = 0x4A000000
PROBE_BASE = 0x4B000000
RESERVED = (STREAM_BASE, PROBE_BASE + 0x01000000)
# Ids nobody subscribes to, for floods.
SINK_BASE = 0x70000000
SUBSCRIBE, SUBSCRIBE_ALL = 1, 3
# Events the service subscribes to: settings, an array element, requests
# (whose flags are false, so the service only looks at them).
SERVICE_EVENTS = ("VarFocusTorqueChanged", "VarIrisTorqueChanged",
                  "VarLensMarkerFocusValue0Changed", "VarUserSetupAcceptLoadFileNameChanged",
                  "VarFactoryResetChanged")
SEMAPHORE_BOUND = 3.0
WARN_NO_SEMAPHORE = "/message-broker-ready not free after 3000 ms, connecting without it"


def note(text):
    print(text, file=sys.stderr, flush=True)


# ---- inside the device root ----------------------------------------------

class Tally:
    def __init__(self):
        self.tried = 0
        self.hung = 0
        self.lost = 0

    def hang(self, text):
        self.hung += 1
        note(f"hung: {text}")

    def lose(self, text):
        self.lost += 1
        note(f"lost: {text}")


def connect(timeout):
    """A blocking connect, as the device's clients make it: while the broker's
    backlog is full it waits (up to `timeout`) instead of failing at once."""
    client = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
    seconds = int(timeout)
    client.setsockopt(socket.SOL_SOCKET, socket.SO_SNDTIMEO,
                      struct.pack("@ll", seconds, int((timeout - seconds) * 1e6)))
    try:
        client.connect(SOCKET)
    except OSError:
        client.close()
        raise
    client.settimeout(timeout)
    return client


def records(*triples):
    return b"".join(RECORD.pack(*triple) for triple in triples)


def harmless(data):
    """Hostile bytes with every record-aligned id out of the streams' and probes' way."""
    data = bytearray(data)
    for at in range(0, len(data) - 3, RECORD.size):
        (word,) = struct.unpack_from("<I", data, at)
        if RESERVED[0] <= word < RESERVED[1]:
            struct.pack_into("<I", data, at, SINK_BASE)
    return bytes(data)


def receive_exactly(client, size, timeout):
    data = b""
    end = time.monotonic() + timeout
    while len(data) < size and time.monotonic() < end:
        client.settimeout(max(0.01, end - time.monotonic()))
        try:
            chunk = client.recv(size - len(data))
        except socket.timeout:
            break
        if not chunk:
            break
        data += chunk
    return data


class Inside:
    def __init__(self, options):
        self.options = options
        self.rng = random.Random(options.seed)
        self.tally = Tally()
        self.scale = options.scale
        self.timeout = options.timeout
        self.kept = []   # connections left open (deaf subscribers, idle clients)
        self.probes = 0
        with open(options.catalogue, encoding="utf-8") as stream:
            events = json.load(stream)["events"]
        self.service_ids = [events.index(name) for name in SERVICE_EVENTS]

    def probe(self):
        """A record written in two pieces must come back whole through the broker."""
        self.probes += 1
        probe_id = PROBE_BASE + self.probes
        record = records((probe_id, 1, self.probes))
        try:
            with connect(self.timeout) as client:
                client.sendall(records((SUBSCRIBE, 0, 0), (probe_id, 0, 0)) + record[:5])
                time.sleep(0.02)
                client.sendall(record[5:])
                echoed = receive_exactly(client, len(record), self.timeout)
        except OSError as error:
            self.tally.hang(f"probe {self.probes}: {error}")
            return
        if len(echoed) < len(record):
            self.tally.hang(f"probe {self.probes}: {len(echoed)} of 12 bytes came back")
        elif echoed != record:
            self.tally.lose(f"probe {self.probes}: came back as {echoed.hex()}")

    def half_record(self):
        client = connect(self.timeout)
        client.sendall(self.rng.randbytes(self.rng.randint(1, 11)))
        if self.rng.random() < 0.5:
            self.kept.append(client)
        else:
            client.close()

    def lone_command(self):
        client = connect(self.timeout)
        client.sendall(records((self.rng.choice((1, 2)), 0, 0)))
        client.close()

    def garbage(self):
        with connect(self.timeout) as client:
            size = self.rng.randint(1, int(65536 * self.scale))
            client.sendall(harmless(self.rng.randbytes(size)))

    def flood(self):
        count = int(self.rng.randint(20000, 100000) * self.scale)
        ids = [SINK_BASE + self.rng.randrange(1 << 20) for _ in range(64)]
        data = records(*((ids[i % 64], i & 1, i) for i in range(count)))
        with connect(self.timeout) as client:
            client.sendall(data)

    def service_events(self):
        """A burst of the service's own events, with odd indexes."""
        odd = (0, 1, 0xFFFFFFFF, 0x80000000, 1 << 20)
        burst = [(self.rng.choice(self.service_ids), self.rng.choice((0, 1, 2, 0xFFFFFFFF)),
                  self.rng.choice(odd)) for _ in range(int(500 * self.scale) + 1)]
        with connect(self.timeout) as client:
            client.sendall(records(*burst))

    def deaf_subscriber(self):
        """Subscribes to everything and never reads; the broker must drop it alone."""
        if sum(1 for kept in self.kept if kept.fileno() >= 0) > 8:
            return
        client = connect(self.timeout)
        client.sendall(records((SUBSCRIBE_ALL, 0, 0)))
        self.kept.append(client)

    def storm(self):
        clients = []
        try:
            for _ in range(self.rng.randint(20, int(250 * self.scale) + 20)):
                clients.append(connect(self.timeout))
                if self.rng.random() < 0.3:
                    clients[-1].sendall(self.rng.randbytes(self.rng.randint(1, 30)))
        finally:
            self.rng.shuffle(clients)
            for client in clients:
                client.close()

    ACTIONS = ("half_record", "lone_command", "garbage", "flood", "service_events",
               "deaf_subscriber", "storm")

    def hostile_phase(self, seconds):
        end = time.monotonic() + seconds
        while time.monotonic() < end:
            action = self.rng.choice(self.ACTIONS)
            try:
                getattr(self, action)()
            except OSError as error:
                # A hostile client may well be dropped by the broker midway.
                note(f"{action}: {error}")
            self.tally.tried += 1
            self.probe()
        for client in self.kept:
            client.close()

    def faultpeer(self, *arguments):
        return shlex.split(self.options.faultpeer) + list(arguments)

    def dead_holder(self):
        """A client dies holding the semaphore; the next client must still connect."""
        self.tally.tried += 1
        held = subprocess.run(self.faultpeer("hold-semaphore"), capture_output=True, text=True,
                              timeout=60)
        if held.returncode != -signal.SIGKILL or "held" not in held.stdout:
            self.tally.hang(f"the holder did not take the semaphore: {held.returncode} "
                            f"{held.stdout}{held.stderr}")
            return
        start = time.monotonic()
        after = subprocess.run(self.faultpeer("exchange", "--seconds", "0.5"),
                               capture_output=True, text=True, timeout=120)
        took = time.monotonic() - start
        note(f"after a dead holder: {after.stdout.strip()} in {took:.1f} s")
        match = re.search(r"connect-ms (\d+) (\d+)", after.stdout)
        if after.returncode != 0 or not match:
            self.tally.hang(f"no exchange after a dead holder: {after.stdout}{after.stderr}")
        elif int(match.group(1)) > (SEMAPHORE_BOUND + self.timeout / 5) * 1000:
            self.tally.hang(f"connecting after a dead holder took {match.group(1)} ms")

    def service_saves(self):
        """The service still hears a change and saves it."""
        memtool = shlex.split(self.options.memtool)
        with open(CURRENT, encoding="utf-8") as stream:
            current = stream.read()
        value = self.rng.choice([value for value in ("1", "2", "3", "4")
                                 if f'"FocusTorque": {value},\n' not in current])
        done = subprocess.run(memtool + ["set", "MemPersistent", "FocusTorque", value],
                              capture_output=True, text=True, timeout=120)
        if done.returncode != 0:
            self.tally.hang(f"memtool set: {done.returncode} {done.stdout}{done.stderr}")
            return
        end = time.monotonic() + self.timeout
        while time.monotonic() < end:
            with open(CURRENT, encoding="utf-8") as stream:
                if f'"FocusTorque": {value},\n' in stream.read():
                    return
            time.sleep(0.05)
        self.tally.lose(f"FocusTorque {value} never reached {CURRENT}")

    def run(self):
        exchange = subprocess.Popen(
            self.faultpeer("exchange", "--seconds", str(self.options.seconds + 2),
                           "--window", str(self.options.window), "--stall", str(self.timeout)),
            stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
        try:
            self.hostile_phase(self.options.seconds)
            out, err = exchange.communicate(timeout=self.options.seconds + 120)
        except subprocess.TimeoutExpired:
            exchange.kill()
            out, err = exchange.communicate()
            self.tally.hang("the exchange did not end")
        note(out.strip() + ("\n" + err.strip() if err.strip() else ""))
        self.judge_exchange(exchange.returncode, out)
        self.dead_holder()
        self.service_saves()
        print("result " + json.dumps(vars(self.tally)), flush=True)
        return 0

    def judge_exchange(self, status, out):
        match = re.search(r"sent (\d+) received (\d+) bad (\d+) stalled (\d)", out)
        if not match:
            self.tally.hang(f"the exchange reported nothing (status {status})")
            return
        sent, received, bad, stalled = (int(group) for group in match.groups())
        if stalled:
            self.tally.hang(f"the subscriber's count stalled at {received} of {sent}")
        self.tally.lost += bad + max(0, sent - received)
        if sent == 0:
            self.tally.hang("the exchange sent nothing")


def inside(options):
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(1))
    return Inside(options).run()


# ---- on the host ----------------------------------------------------------

def devroot_run(options, root, command=(), service=None, env=None, stop_after=None):
    argv = [options.devroot, "run", "--keep", root, "--bind-ro", options.build,
            "--bind-ro", HERE, "--bind-ro", os.path.realpath(os.path.join(HERE, "..", "service")),
            "--bind-ro", os.path.realpath(os.path.join(HERE, "..", "..", "..", "tools", "devroot")),
            "--broker", options.broker, "--service", service or options.service,
            "--timeout", "30"]
    if stop_after is not None:
        argv += ["--stop-after", str(stop_after)]
    if options.emulator:
        argv += ["--emulator", options.emulator]
    if command:
        argv += ["--", *command]
    return subprocess.run(argv, capture_output=True, text=True, timeout=options.seconds + 600,
                          env=env)


def judge_run(report, tally):
    """Counts what the supervisor's report says of the broker and the service."""
    lines = report.splitlines()
    if "ready" not in lines:
        tally["hung"] += 1
        note("the service was not ready:\n" + report)
    for program in ("broker", "service"):
        if f"{program}: exit status 0" not in lines:
            ended = [line for line in lines if line.startswith(f"{program}:")]
            if any("did not end" in line for line in ended):
                tally["hung"] += 1
            else:
                tally["crashed"] += 1
            note(f"{program}: " + "; ".join(ended))


def hostile_clients(options, work, tally):
    emulator = shlex.split(options.emulator)
    command = ["/usr/bin/python3", os.path.realpath(__file__), "inside",
               "--memtool", shlex.join(emulator + [options.memtool]),
               "--faultpeer", shlex.join(emulator + [options.faultpeer]),
               "--catalogue", options.catalogue,
               "--seconds", str(options.seconds), "--seed", str(options.seed),
               "--scale", str(options.scale), "--window", str(options.window),
               "--timeout", str(options.timeout)]
    done = devroot_run(options, os.path.join(work, "hostile"), command)
    note(done.stderr.strip())
    judge_run(done.stdout, tally)
    results = [line for line in done.stdout.splitlines() if line.startswith("result ")]
    if not results:
        tally["hung"] += 1
        note("the hostile clients reported nothing:\n" + done.stdout)
        return
    for key, value in json.loads(results[-1][len("result "):]).items():
        tally[key] += value


def service_after_dead_holder(options, work, tally):
    tally["tried"] += 1
    root = os.path.join(work, "dead-holder")
    env = dict(os.environ,
               FAULT_PEER_THEN_EXEC=shlex.join(shlex.split(options.emulator) + [options.service]))
    done = devroot_run(options, root, service=options.faultpeer, env=env, stop_after=1)
    judge_run(done.stdout, tally)
    pattern = line_pattern("Warn", "serverconnection.cpp", WARN_NO_SEMAPHORE)
    with open(os.path.join(root, "kmsg.log"), encoding="utf-8") as stream:
        if not any(pattern.match(line) for line in kmsglines.lines(stream.read())):
            tally["hung"] += 1
            note("the service did not connect without the semaphore:\n" + done.stdout)


def host(options):
    tally = {"tried": 0, "crashed": 0, "hung": 0, "lost": 0}
    with tempfile.TemporaryDirectory(prefix="faults-broker-clients-") as temporary:
        work = options.keep or temporary
        hostile_clients(options, work, tally)
        service_after_dead_holder(options, work, tally)
    print(f"broker clients: tried {tally['tried']} / crashed {tally['crashed']} / "
          f"hung {tally['hung']} / settings lost {tally['lost']}", flush=True)
    return 1 if tally["crashed"] or tally["hung"] or tally["lost"] else 0


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("mode", nargs="?", choices=("host", "inside"), default="host")
    parser.add_argument("--devroot")
    parser.add_argument("--service")
    parser.add_argument("--broker")
    parser.add_argument("--memtool", required=True)
    parser.add_argument("--faultpeer", required=True)
    parser.add_argument("--catalogue", required=True, help="the generated catalogue.json")
    parser.add_argument("--build", help="build folder, bound read-only")
    parser.add_argument("--emulator", default="")
    parser.add_argument("--long", action="store_true", help="300 s and larger floods")
    parser.add_argument("--keep", metavar="DIR", help="keep the device roots in DIR (new or empty)")
    parser.add_argument("--seed", type=int, default=10)
    parser.add_argument("--seconds", type=float)
    parser.add_argument("--scale", type=float)
    parser.add_argument("--window", type=int)
    parser.add_argument("--timeout", type=float)
    options = parser.parse_args()
    emulated = bool(options.emulator)
    if options.seconds is None:
        options.seconds = 300 if options.long else 15
    if options.scale is None:
        options.scale = (4 if options.long else 1) * (0.25 if emulated else 1)
    if options.window is None:
        options.window = 500 if emulated else 2000
    if options.timeout is None:
        options.timeout = 20 if emulated else 10
    return inside(options) if options.mode == "inside" else host(options)


if __name__ == "__main__":
    sys.exit(main())
