#!/usr/bin/python3
"""Scenarios of the inspector (memtool serve) that run inside a device root.

Each scenario plays the supervisor itself (starts the real broker and
settings service), starts `memtool serve` and talks to it through an HTTP
client as a browser's page would.  It prints what it saw, one "name: value"
line each, and exits 0 when every check held, 1 with a "FAIL: ..." line
otherwise.
"""

import argparse
import contextlib
import http.client
import json
import os
import select
import shlex
import shutil
import signal
import socket
import struct
import subprocess
import sys
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "service"))
from inside import SOCKET, SETUPS, Failure, check, say, start_broker, stop, wait_for  # noqa: E402


class Device:
    """The broker and the settings service, started and stopped as a supervisor would."""

    def __init__(self, options):
        self.options = options
        self.ready = []
        signal.signal(signal.SIGUSR1, lambda number, _frame: self.ready.append(number))
        self.broker = start_broker(options)
        self.service = None
        self.start_service()

    def start_service(self):
        self.ready.clear()
        self.service = subprocess.Popen(shlex.split(self.options.service), stdin=subprocess.DEVNULL)
        check(wait_for(lambda: self.ready, 60.0) is not None, "the service did not get ready")

    def stop_service(self):
        check(stop(self.service, "service") == 0, "the service did not end with status 0")

    def restart_broker(self):
        self.broker.kill()
        self.broker.wait(timeout=20)
        self.broker = start_broker(self.options)

    def stop(self):
        if self.service.poll() is None:
            self.stop_service()
        stop(self.broker, "broker")


def memtool(options, *arguments):
    return subprocess.run(shlex.split(options.memtool) + list(arguments), capture_output=True,
                          text=True, timeout=120)


def memtool_json(options, *arguments):
    done = memtool(options, *arguments, "--json")
    check(done.returncode == 0, f"memtool {' '.join(arguments)}: {done.stderr}")
    return json.loads(done.stdout)


class Inspector:
    """A running `memtool serve` and an HTTP client of it."""

    def __init__(self, options, *arguments, prefix=()):
        command = [*prefix, *shlex.split(options.memtool), "serve", "--listen", "127.0.0.1:0",
                   *arguments]
        # The signals are sent as the inspector's user: root in the device
        # root may not signal another user's process.
        self.prefix = list(prefix)
        self.process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                        stderr=subprocess.PIPE, text=True)
        ready, _, _ = select.select([self.process.stdout], [], [], 60)
        check(ready, "memtool serve printed no address")
        self.url = self.process.stdout.readline().strip()
        check(self.url.startswith("http://127.0.0.1:"), f"the first line is no address: {self.url}")
        address = self.url[len("http://"):].split("/")[0]
        self.host = address
        self.port = int(address.split(":")[1])
        self.token = self.url.partition("?token=")[2] or None

    def request(self, method, path, body=None, token=True, headers=None):
        """(status, headers, body text) of one request; the token as a bearer header
        unless `token` is False or a text to send instead."""
        sent = dict(headers or {})
        if token is True:
            token = self.token
        if token:
            sent["Authorization"] = "Bearer " + token
        connection = http.client.HTTPConnection("127.0.0.1", self.port, timeout=60)
        try:
            connection.request(method, path, body=body, headers=sent)
            response = connection.getresponse()
            return response.status, dict(response.getheaders()), response.read().decode()
        finally:
            connection.close()

    def get_json(self, path):
        status, _, body = self.request("GET", path)
        check(status == 200, f"GET {path}: {status} {body}")
        return json.loads(body)

    def expect(self, status, method, path, body=None, **options):
        got, _, text = self.request(method, path, body, **options)
        check(got == status, f"{method} {path}: {got} {text!r}, expected {status}")
        return text

    def end(self, number=signal.SIGTERM):
        """Signals the process and returns its exit status and standard error."""
        if self.prefix:
            subprocess.run([*self.prefix, "kill", f"-{int(number)}", str(self.process.pid)],
                           check=True, timeout=30)
        else:
            self.process.send_signal(number)
        try:
            _, error = self.process.communicate(timeout=30)
        except subprocess.TimeoutExpired:
            self.process.kill()
            raise Failure("memtool serve did not end after the signal")
        return self.process.returncode, error


class EventStream:
    """A client of /api/events that reads the server-sent events itself."""

    def __init__(self, inspector, receive_buffer=None):
        self.socket = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        if receive_buffer:
            self.socket.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, receive_buffer)
        self.socket.connect(("127.0.0.1", inspector.port))
        self.socket.sendall(f"GET /api/events?token={inspector.token} HTTP/1.1\r\n"
                            f"Host: {inspector.host}\r\n\r\n".encode())
        self.buffer = b""
        self.ended = False
        self.received = 0
        if receive_buffer:
            return  # a client that does not read
        head = self.read_until(b"\r\n\r\n", 30)
        check(head is not None and head.startswith(b"HTTP/1.1 200 "), f"no event stream: {head}")
        check(b"Content-Type: text/event-stream" in head, f"not an event stream: {head}")

    def fill(self, timeout):
        ready, _, _ = select.select([self.socket], [], [], timeout)
        if not ready:
            return False
        data = self.socket.recv(262144)
        if not data:
            self.ended = True
            return False
        self.received += len(data)
        self.buffer += data
        return True

    def read_until(self, marker, timeout):
        end = time.monotonic() + timeout
        while marker not in self.buffer:
            left = end - time.monotonic()
            if left <= 0 or self.ended or not self.fill(left):
                if self.ended or left <= 0:
                    return None
        part, _, self.buffer = self.buffer.partition(marker)
        return part

    def next(self, timeout=30):
        """The next event's JSON object, or None after `timeout` seconds."""
        while True:
            block = self.read_until(b"\n\n", timeout)
            if block is None:
                return None
            lines = [line for line in block.split(b"\n") if line.startswith(b"data: ")]
            if lines:
                check(len(lines) == 1, f"an event of several data lines: {block}")
                return json.loads(lines[0][len(b"data: "):])

    def wait_for(self, predicate, timeout=30):
        end = time.monotonic() + timeout
        while time.monotonic() < end:
            event = self.next(end - time.monotonic())
            if event is None:
                return None
            if predicate(event):
                return event
        return None

    def closed_within(self, timeout):
        end = time.monotonic() + timeout
        while not self.ended and time.monotonic() < end:
            self.buffer = b""
            self.fill(end - time.monotonic())
        return self.ended


def post(records):
    """Posts (id, indexed, index) records through a raw broker connection."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as client:
        client.connect(SOCKET)
        client.sendall(b"".join(struct.pack("<III", *record) for record in records))
        time.sleep(0.05)


def event_id(options, memory, variable):
    for row in memtool_json(options, "vars", memory):
        if row["name"] == variable:
            return row["eventId"]
    raise Failure(f"no variable {memory}.{variable}")


def is_change(memory, variable, index=None):
    return lambda event: (event["memory"] == memory and event["variable"] == variable and
                          event["index"] == index)


def check_listings(options, inspector):
    check(inspector.get_json("/api/memories") == memtool_json(options, "memories"),
          "/api/memories differs from memories --json")
    check(inspector.get_json("/api/vars/MemPersistent") ==
          memtool_json(options, "vars", "MemPersistent"), "/api/vars differs from vars --json")
    check(inspector.get_json("/api/describe/MemPersistent/KnobColor") ==
          memtool_json(options, "describe", "MemPersistent", "KnobColor"),
          "/api/describe differs from describe --json")
    values = inspector.get_json("/api/values/MemPersistent")
    check(len(values) == 140, f"/api/values/MemPersistent has {len(values)} variables")
    check(values == memtool_json(options, "get", "MemPersistent", *values.keys()),
          "/api/values differs from get --json")
    say("listings", "as memtool prints them")


def check_values(options, inspector):
    check(inspector.get_json("/api/get/MemPersistent/DisplayBrightness") ==
          {"value": memtool_json(options, "get", "MemPersistent", "DisplayBrightness")},
          "/api/get differs from get --json")
    table = inspector.get_json("/api/get/MemHwControl/KnobLinearizationTable")["value"]
    check(isinstance(table, list) and len(table) == 512, "an array without index is not whole")
    check(inspector.get_json("/api/get/MemHwControl/KnobLinearizationTable?index=2") ==
          {"value": table[2]}, "an element differs from the whole array's")
    struct_element = inspector.get_json("/api/get/MemPersistent/RecentLensFiles?index=4")
    check(struct_element == {"value": memtool_json(options, "get", "MemPersistent",
                                                   "RecentLensFiles", "4")},
          "a struct element differs from get --json")
    check(inspector.get_json("/api/identity") == {
        "board": memtool_json(options, "get", "MemPersistent", "ProductName"),
        "serial": memtool_json(options, "get", "MemStatic", "ProductSerial"),
        "revision": memtool_json(options, "get", "MemStatic", "ProductRevision"),
        "version": "0.0.0-dev",
        "commit": "unknown"}, "/api/identity is not the published identity")
    check(inspector.get_json("/api/setups") == [], "a fresh unit lists user setups")
    for name in ("Studio.stp", "Night.stp"):
        with open(SETUPS + name, "w", encoding="utf-8") as setup:
            setup.write('{"FocusTorque": 3}')
    listed = wait_for(lambda: len(inspector.get_json("/api/setups")) == 2, 10.0)
    check(listed is not None, "the new user setups were not listed")
    check(sorted(inspector.get_json("/api/setups")) == ["Night.stp", "Studio.stp"],
          "/api/setups is not the listed names")
    say("values", "as get --json prints them")


def check_set(options, inspector, stream):
    start = time.monotonic()
    check(json.loads(inspector.expect(200, "POST", "/api/set/MemPersistent/DisplayBrightness",
                                      "9")) == {"value": 9}, "set does not answer the value")
    answered = time.monotonic()
    event = stream.wait_for(is_change("MemPersistent", "DisplayBrightness"))
    arrived = time.monotonic()
    check(event is not None, "the change reached no event stream")
    check(set(event) == {"event", "memory", "variable", "index", "value"},
          f"an event has the keys {sorted(event)}")
    check(event == {"event": "VarDisplayBrightnessChanged", "memory": "MemPersistent",
                    "variable": "DisplayBrightness", "index": None, "value": 9}, f"{event}")
    say("set answered after", f"{answered - start:.3f}")
    say("event after the answer", f"{arrived - answered:.3f}")
    check(memtool_json(options, "get", "MemPersistent", "DisplayBrightness") == 9,
          "the value was not stored")

    refused = memtool(options, "set", "MemPersistent", "DisplayBrightness", "11")
    check(refused.returncode == 1, "memtool set took 11")
    reason = refused.stderr.strip().removeprefix("memtool set: ")
    check(inspector.expect(400, "POST", "/api/set/MemPersistent/DisplayBrightness", "11") ==
          reason, "the refusal is not memtool's reason")
    say("refusal", reason)
    for text in ("0x5", "5.5", ""):
        inspector.expect(400, "POST", "/api/set/MemPersistent/DisplayBrightness", text)
    inspector.expect(400, "POST", "/api/set/MemHwControl/KnobLinearizationTable", "1")
    inspector.expect(400, "POST", "/api/set/MemHwControl/KnobLinearizationTable?index=512", "1")
    check(json.loads(inspector.expect(
        200, "POST", "/api/set/MemHwControl/KnobLinearizationTable?index=3", "-9")) ==
        {"value": -9}, "an element was not set")
    element = stream.wait_for(is_change("MemHwControl", "KnobLinearizationTable", 3))
    check(element is not None and element["value"] == -9, f"the element's event: {element}")
    check(memtool_json(options, "get", "MemPersistent", "DisplayBrightness") == 9,
          "a refused value changed the variable")


def check_statuses(inspector):
    inspector.expect(404, "GET", "/api/get/MemPersistent/NoSuchVariable")
    inspector.expect(404, "GET", "/api/vars/MemNothing")
    inspector.expect(404, "GET", "/api/describe/MemPersistent/Nothing")
    inspector.expect(404, "POST", "/api/set/MemNothing/AUXTorque", "1")
    inspector.expect(404, "GET", "/api/nothing")
    inspector.expect(404, "GET", "/api/get/MemPersistent")
    inspector.expect(405, "GET", "/api/set/MemPersistent/AUXTorque")
    inspector.expect(405, "POST", "/api/get/MemPersistent/AUXTorque", "1")
    inspector.expect(400, "GET", "/api/get/MemPersistent/AUXTorque?index=1")
    inspector.expect(401, "GET", "/api/memories", token=False)
    inspector.expect(401, "GET", "/api/memories", token="0" * 32)
    inspector.expect(401, "GET", "/", token=False)
    inspector.expect(200, "GET", f"/api/memories?token={inspector.token}", token=False)
    own = f"http://{inspector.host}"
    inspector.expect(200, "GET", "/api/memories", headers={"Origin": own})
    inspector.expect(403, "GET", "/api/memories", headers={"Origin": "http://evil.example"})
    inspector.expect(403, "POST", "/api/set/MemPersistent/DisplayBrightness", "1",
                     headers={"Origin": "http://evil.example"})
    inspector.expect(403, "GET", "/api/memories",
                     headers={"Host": f"evil.example:{inspector.port}"})
    inspector.expect(200, "GET", "/api/memories", headers={"Host": f"localhost:{inspector.port}"})
    status, headers, page = inspector.request("GET", f"/?token={inspector.token}", token=False)
    check(status == 200 and headers["Content-Type"].startswith("text/html"), "no page")
    size = len(page.encode())
    check(size < 100 * 1024, f"the page has {size} bytes")
    check("default-src 'none'" in headers["Content-Security-Policy"], "no content policy")
    check('data-read-only="false"' in page, "the page is not writable")
    say("page bytes", size)
    say("statuses", "200 400 401 403 404 405 as listed")


def check_read_only(options, inspector):
    token = "read-only-token-1"
    watcher = Inspector(options, "--read-only", "--token", token)
    check(watcher.token is None, "a token given with --token was printed")
    watcher.token = token
    check(watcher.get_json("/api/get/MemPersistent/DisplayBrightness") == {"value": 9},
          "the read-only inspector does not read")
    watcher.expect(403, "POST", "/api/set/MemPersistent/DisplayBrightness", "3")
    watcher.expect(401, "GET", "/api/memories", token=inspector.token)
    check('data-read-only="true"' in watcher.expect(200, "GET", "/"),
          "the read-only page offers editing")
    check(memtool_json(options, "get", "MemPersistent", "DisplayBrightness") == 9,
          "the read-only inspector stored a value")
    status, error = watcher.end(signal.SIGINT)
    check(status == 0, f"Ctrl-C: exit status {status}: {error}")
    say("read-only", "reads, refuses sets with 403, ends on Ctrl-C with status 0")


def check_other_events(options, stream):
    table = event_id(options, "MemHwControl", "KnobLinearizationTable")
    post([(table, 1, 5), (table, 1, 600), (5, 0, 0)])
    element = stream.wait_for(is_change("MemHwControl", "KnobLinearizationTable", 5))
    check(element is not None and isinstance(element["value"], int), f"{element}")
    outside = stream.wait_for(is_change("MemHwControl", "KnobLinearizationTable", 600))
    check(outside is not None and outside["value"] is None, f"an index outside: {outside}")
    command = stream.wait_for(lambda event: event["event"] == "CalibAllMotor")
    check(command == {"event": "CalibAllMotor", "memory": None, "variable": None, "index": None,
                      "value": None}, f"an event of no variable: {command}")
    say("other events", "elements, an index outside, an event of no variable")


def check_slow_client(options, inspector, stream):
    """A client that stops reading its event stream is dropped while a reading one
    gets every event and requests are answered as before."""
    entries = event_id(options, "MemMedia", "FileBrowserEntries")
    slow = EventStream(inspector, receive_buffer=4096)
    time.sleep(0.5)
    start = time.monotonic()
    start_bytes = stream.received
    count = 0
    answered = []
    # Rounds of a few events (about 60 KB each), which the reading client takes
    # before the next: it stays well within what a stream may lag.
    while stream.received - start_bytes < 3 * 1024 * 1024 and count < 400:
        post([(entries, 0, 0)] * 4)
        count += 4
        before = time.monotonic()
        inspector.expect(200, "GET", "/api/get/MemPersistent/DisplayBrightness")
        answered.append(time.monotonic() - before)
        for _ in range(4):
            event = stream.wait_for(is_change("MemMedia", "FileBrowserEntries"), 60)
            check(event is not None, f"the reading stream missed events of {count}")
            check(isinstance(event["value"], list) and len(event["value"]) == 256,
                  "a whole array's event is not the whole array")
    flooded = time.monotonic() - start
    check(slow.closed_within(30), "the stream that was not read was not dropped")
    check(slow.received < stream.received - start_bytes, "the slow client got everything")
    say("flood", f"{count} events, {(stream.received - start_bytes) // count} bytes each, "
                 f"in {flooded:.1f} s")
    say("dropped after", f"{slow.received} bytes reached the slow client")
    say("slowest answer during the flood", f"{max(answered):.3f}")


@contextlib.contextmanager
def running(options):
    """The broker, the service and `memtool serve`; at the end of the block the
    inspector is ended with SIGTERM, must exit with status 0, and leaves its
    standard error in `inspector.error`."""
    device = Device(options)
    inspector = Inspector(options)
    try:
        yield device, inspector
        status, inspector.error = inspector.end(signal.SIGTERM)
        say("serve", f"exit status {status}")
        check(status == 0 and "stopped" in inspector.error,
              f"SIGTERM: {status}: {inspector.error}")
    finally:
        if inspector.process.poll() is None:
            inspector.process.kill()
        device.stop()


def api(options):
    with running(options) as (_, inspector):
        check(inspector.token is not None and len(inspector.token) == 32,
              f"no token in {inspector.url}")
        stream = EventStream(inspector)
        check_listings(options, inspector)
        check_values(options, inspector)
        check_set(options, inspector, stream)
        check_statuses(inspector)
        check_read_only(options, inspector)
        check_other_events(options, stream)
        check_slow_client(options, inspector, stream)


def restart(options):
    with running(options) as (device, inspector):
        stream = EventStream(inspector)
        check(inspector.get_json("/api/get/MemPersistent/DisplayBrightness") == {"value": 7},
              "the inspector does not read the default")
        device.stop_service()
        check(stream.closed_within(10), "the event stream stayed after the service ended")
        gone = inspector.expect(400, "GET", "/api/get/MemPersistent/DisplayBrightness")
        say("service stopped", gone)
        device.start_service()
        memtool(options, "set", "MemPersistent", "DisplayBrightness", "3")
        mapped = wait_for(lambda: inspector.request(
            "GET", "/api/get/MemPersistent/DisplayBrightness")[2] == '{"value":3}', 10.0)
        check(mapped is not None, "the inspector did not map the new memories")
        say("service started again", f"values after {mapped:.3f} s")
        stream = EventStream(inspector)
        check(memtool(options, "set", "MemPersistent", "DisplayBrightness", "4").returncode == 0,
              "memtool set failed")
        check(stream.wait_for(is_change("MemPersistent", "DisplayBrightness"), 10) is not None,
              "no event after the service's restart")

        device.restart_broker()
        say("broker", "started again")
        check(stream.closed_within(10), "the event stream stayed after the broker came back")
        stream = EventStream(inspector)
        changed = wait_for(lambda: memtool(options, "set", "MemPersistent", "DisplayBrightness",
                                           "5").returncode == 0, 10.0)
        check(changed is not None, "memtool set failed after the broker's restart")
        event = stream.wait_for(is_change("MemPersistent", "DisplayBrightness"), 10)
        check(event is not None and event["value"] == 5, "no event after the broker's restart")
        say("events after the broker's restart", "yes")
        check(json.loads(inspector.expect(200, "POST", "/api/set/MemPersistent/DisplayBrightness",
                                          "6")) == {"value": 6}, "no set after the restarts")
    check("lost the message broker" in inspector.error,
          f"the lost broker was not reported: {inspector.error}")


def as_user(uid, groups=()):
    """The setpriv prefix that runs a program as `uid`, with its own group and `groups`."""
    prefix = ["setpriv", f"--reuid={uid}", f"--regid={uid}"]
    prefix += [f"--groups={','.join(map(str, groups))}"] if groups else ["--clear-groups"]
    return prefix + ["--"]


def group(options):
    """memtool serve as an ordinary user: in the daemons' group it reads, sets
    and streams as root's does; outside it, it is refused at once, with the
    reason, and ends with status 1."""
    # The build folder may be closed to other users: memtool runs from a copy.
    words = shlex.split(options.memtool)
    shutil.copy(words[-1], "/tmp/memtool")
    os.chmod("/tmp/memtool", 0o755)
    options.memtool = shlex.join(words[:-1] + ["/tmp/memtool"])
    member = as_user(65533, [os.getgid()])
    device = Device(options)
    try:
        inspector = Inspector(options, prefix=member)
        stream = EventStream(inspector)
        check(inspector.get_json("/api/get/MemPersistent/DisplayBrightness") == {"value": 7},
              "a member of the group does not read the value")
        check(json.loads(inspector.expect(200, "POST", "/api/set/MemPersistent/DisplayBrightness",
                                          "3")) == {"value": 3}, "a member of the group cannot set")
        event = stream.wait_for(is_change("MemPersistent", "DisplayBrightness"), 10)
        check(event is not None and event["value"] == 3, "a member of the group sees no event")
        status, error = inspector.end(signal.SIGTERM)
        check(status == 0, f"the member's inspector: {status}: {error}")
        say("member of the group", "reads, sets and streams")

        outsider = subprocess.run([*as_user(65534), *shlex.split(options.memtool), "serve",
                                   "--listen", "127.0.0.1:0"], stdin=subprocess.DEVNULL,
                                  capture_output=True, text=True, timeout=60)
        check(outsider.returncode == 1 and outsider.stdout == "" and
              "this user is not allowed to use the device's memories and broker" in
              outsider.stderr and outsider.stderr.count("\n") == 1,
              f"an outsider's inspector: {outsider.returncode}: {outsider.stderr!r}")
        say("outside the group", outsider.stderr.strip())
    finally:
        device.stop()


def browser(options):
    """The page in Debian's Chromium (browser/browser.mjs), against this device."""
    with running(options) as (_, inspector):
        script = os.path.join(os.path.dirname(os.path.realpath(__file__)), "browser", "browser.mjs")
        done = subprocess.run(["/usr/bin/node", script, "--url", inspector.url, "--memtool",
                               options.memtool, "--screenshots", options.screenshots],
                              capture_output=True, text=True, timeout=240,
                              env=dict(os.environ, HOME="/tmp"))
        print(done.stdout, end="", flush=True)
        check(done.returncode == 0, f"the browser's run failed: {done.stderr[-3000:]}")


SCENARIOS = {"api": api, "restart": restart, "group": group, "browser": browser}


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("scenario", choices=sorted(SCENARIOS))
    parser.add_argument("--memtool", required=True, help="memtool, emulator included")
    parser.add_argument("--service", required=True, help="settings-manager, emulator included")
    parser.add_argument("--broker", required=True, help="message-broker, emulator included")
    parser.add_argument("--screenshots", help="the folder for the browser's screenshots")
    options = parser.parse_args()
    try:
        SCENARIOS[options.scenario](options)
    except (Failure, OSError, subprocess.SubprocessError, ValueError, KeyError) as failure:
        print(f"FAIL: {type(failure).__name__}: {failure}", flush=True)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
