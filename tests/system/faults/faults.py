"""Shared machinery of the fault battery's Python groups.

A group is a script in groups/ that the runner (battery) starts on the host
with the battery's options.  A Python group calls main(name, run): on the
host, main runs the same script again inside a throw-away device root
(tools/devroot/devroot exec); there, run(context, tally) starts the real
broker and service, makes its faults, and counts what happened in the tally,
whose summary line

    <group>: tried N / crashed C / hung H / settings lost L

is the group's result.  The exit status is 0 only when C, H and L are 0 and
nothing else failed.

Inside the root the driver is the parent of the broker and the service: it
takes the service's SIGUSR1 itself (SIGUSR1 and SIGCHLD are blocked and
taken with sigtimedwait), reads and writes the memories through /dev/shm with
the catalogue's offsets, and posts events on its own broker connection, so it
needs no other program of the build (and no emulator) for that.
"""

import argparse
import json
import mmap
import os
import re
import shlex
import shutil
import signal
import socket
import struct
import subprocess
import sys
import time
import traceback

HERE = os.path.dirname(os.path.realpath(__file__))
SETUPS = "/var//SETUPS/"
CURRENT = SETUPS + ".current.stp"
BACKUP = CURRENT + ".backup"
# A change beside the ten settings (not at its default), which turns the file
# that holds them into the backup.
MARK = ("MenuScrollSpeed", 4)
DAMAGED = CURRENT + ".damaged"
SOCKET = "/var/volatile/message-broker.socket"
SEMAPHORE = "/dev/shm/sem.message-broker-ready"
SUMMARY = re.compile(r"^(?P<group>[^:\n]+): tried (?P<tried>\d+) / crashed (?P<crashed>\d+) / "
                     r"hung (?P<hung>\d+) / settings lost (?P<lost>\d+)$")
WATCHED = {signal.SIGUSR1, signal.SIGCHLD}
CHILD_DEFAULTS = (signal.SIGPIPE, signal.SIGXFSZ, signal.SIGINT, signal.SIGTERM,
                  signal.SIGUSR1, signal.SIGCHLD)
POLL = 0.01


def options_parser():
    """The options every group takes (the runner passes them all)."""
    parser = argparse.ArgumentParser()
    parser.add_argument("--devroot", required=True)
    parser.add_argument("--service", required=True)
    parser.add_argument("--broker", required=True)
    parser.add_argument("--memtool", required=True)
    parser.add_argument("--catalogue", required=True)
    parser.add_argument("--build", required=True, help="build folder, bound read-only")
    parser.add_argument("--emulator", default="")
    parser.add_argument("--long", action="store_true", help="the long run: larger samples")
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    return parser


def main(group, run, var_size=None):
    """Runs `run(context, tally)` for `group` inside a device root; exits with its status.

    var_size: the size in bytes of a tmpfs for /var (a small disk), or None.
    """
    options, _unknown = options_parser().parse_known_args()
    if not options.inside:
        argv = [options.devroot, "exec", "--bind-ro", options.build, "--bind-ro", HERE]
        if var_size is not None:
            argv += ["--var-size", str(var_size)]
        argv += ["--", "/usr/bin/python3", os.path.realpath(sys.argv[0]), *sys.argv[1:],
                 "--inside"]
        sys.exit(subprocess.run(argv, check=False).returncode)
    tally = Tally(group)
    context = None
    try:
        context = Context(options)
        run(context, tally)
    except Exception:  # noqa: BLE001 - a broken group is reported, not hidden
        tally.fail("the group stopped early:\n" + traceback.format_exc())
    finally:
        if context is not None:
            context.close()
    sys.exit(tally.report())


class Tally:
    """Counts the tries and what went wrong; prints a line for each problem."""

    def __init__(self, group):
        self.group = group
        self.tried = 0
        self.crashed = 0
        self.hung = 0
        self.lost = 0
        self.failed = 0

    @staticmethod
    def say(text):
        print(text, flush=True)

    def crash(self, what):
        self.crashed += 1
        self.say(f"CRASH: {what}")

    def hang(self, what):
        self.hung += 1
        self.say(f"HANG: {what}")

    def loss(self, what):
        self.lost += 1
        self.say(f"LOST: {what}")

    def fail(self, what):
        """A problem that is neither crash, hang nor loss (a file outside the folder...)."""
        self.failed += 1
        self.say(f"FAIL: {what}")

    def report(self):
        self.say(f"{self.group}: tried {self.tried} / crashed {self.crashed} / hung {self.hung} / "
                 f"settings lost {self.lost}")
        return 0 if self.crashed + self.hung + self.lost + self.failed == 0 else 1


def describe(status):
    if os.WIFSIGNALED(status):
        number = os.WTERMSIG(status)
        return f"killed by signal {number} ({signal.Signals(number).name})"
    return f"exit status {os.WEXITSTATUS(status)}"


class Child:
    """A program started by the driver, with the default signal handling."""

    def __init__(self, argv, environment=None):
        self.argv = argv
        self.pid = os.posix_spawnp(argv[0], argv, environment or os.environ, setsigmask=(),
                                   setsigdef=CHILD_DEFAULTS)
        self.status = None

    @property
    def running(self):
        self.reap()
        return self.status is None

    def reap(self):
        if self.status is None:
            pid, status = os.waitpid(self.pid, os.WNOHANG)
            if pid:
                self.status = status

    def wait(self, seconds):
        """The exit status, or None when the program is still running after `seconds`."""
        deadline = time.monotonic() + seconds
        while self.running:
            left = deadline - time.monotonic()
            if left <= 0:
                return None
            signal.sigtimedwait({signal.SIGCHLD}, min(left, 0.1))
        return self.status

    def signal(self, number):
        if self.running:
            os.kill(self.pid, number)

    def stop(self, seconds):
        """SIGTERM, then the exit status; None (and SIGKILL) when it did not end in time."""
        self.signal(signal.SIGTERM)
        status = self.wait(seconds)
        if status is None:
            self.signal(signal.SIGKILL)
            self.wait(seconds)
        return status


class Service(Child):
    def wait_ready(self, seconds):
        """'ready' when the SIGUSR1 came, 'ended' when the service ended first, 'timeout'."""
        deadline = time.monotonic() + seconds
        while True:
            left = deadline - time.monotonic()
            if left <= 0:
                return "timeout"
            info = signal.sigtimedwait(WATCHED, min(left, 0.1))
            if info is not None and info.si_signo == signal.SIGUSR1 and info.si_pid == self.pid:
                return "ready"
            if not self.running:
                return "ended"


class Catalogue:
    def __init__(self, path):
        with open(path, encoding="utf-8") as stream:
            data = json.load(stream)
        self.memories = {memory["name"]: memory for memory in data["memories"]}
        self.enums = {enum["name"]: enum["entries"] for enum in data["enums"]}
        self.events = {name: number for number, name in enumerate(data["events"])}

    def variable(self, memory, name):
        for variable in self.memories[memory]["variables"]:
            if variable["name"] == name:
                return variable
        raise KeyError(f"{memory} has no variable {name}")


class Device:
    """The memories of a running service and a broker connection to post events."""

    HEADER = 4

    def __init__(self, catalogue):
        self.catalogue = catalogue
        self.maps = {}
        self.connection = None

    def close(self):
        for mapped in self.maps.values():
            mapped.close()
        self.maps = {}
        if self.connection is not None:
            self.connection.close()
            self.connection = None

    def memory(self, name):
        if name not in self.maps:
            fd = os.open("/dev/shm/" + name, os.O_RDWR)
            try:
                size = self.catalogue.memories[name]["size"] + self.HEADER
                self.maps[name] = mmap.mmap(fd, size)
            finally:
                os.close(fd)
        return self.maps[name]

    def location(self, memory, name, index):
        variable = self.catalogue.variable(memory, name)
        return variable, self.HEADER + variable["offset"] + index * variable["elementSize"]

    def get(self, memory, name, index=0):
        variable, at = self.location(memory, name, index)
        data = self.memory(memory)
        kind = variable["kind"]
        if kind == "int":
            return struct.unpack_from("<i", data, at)[0]
        if kind == "float":
            return struct.unpack_from("<f", data, at)[0]
        if kind == "bool":
            return data[at] != 0
        if kind == "enum":
            entry = struct.unpack_from("<I", data, at)[0]
            entries = self.catalogue.enums[variable["type"]]
            return entries[entry] if entry < len(entries) else entry
        raw = bytes(data[at:at + variable["elementSize"]])
        return raw.split(b"\0", 1)[0]

    def set(self, memory, name, value, index=0):
        variable, at = self.location(memory, name, index)
        data = self.memory(memory)
        kind = variable["kind"]
        if kind == "int":
            struct.pack_into("<i", data, at, value)
        elif kind == "float":
            struct.pack_into("<f", data, at, value)
        elif kind == "bool":
            data[at] = 1 if value else 0
        elif kind == "enum":
            struct.pack_into("<I", data, at, self.catalogue.enums[variable["type"]].index(value))
        else:
            size = variable["elementSize"]
            text = bytes(value)[:size - 1]
            data[at:at + len(text) + 1] = text + b"\0"
        return variable["event"]

    def post(self, event):
        record = struct.pack("<III", event, 0, 0)
        for attempt in range(2):
            try:
                if self.connection is None:
                    self.connection = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
                    self.connection.connect(SOCKET)
                self.connection.sendall(record)
                return
            except OSError:
                if self.connection is not None:
                    self.connection.close()
                    self.connection = None
                if attempt:
                    raise

    def change(self, memory, name, value, index=0):
        self.post(self.set(memory, name, value, index))

    def request(self, memory, flag, seconds, alive=lambda: True):
        """Sets the request flag and posts its event; True when the service cleared it in
        time.  Gives up early when alive() turns false."""
        self.change(memory, flag, True)
        return wait_until(lambda: not self.get(memory, flag) or not alive(), seconds) and \
            not self.get(memory, flag)


def escape(text):
    """A string value as the settings document holds it."""
    out = []
    for byte in text:
        if byte < 0x20 or byte == 0x7f or byte in b'"\\':
            out.append(f"\\u00{byte:02x}")
        else:
            out.append(chr(byte))
    return "".join(out)


class Settings:
    """Ten settings of every kind, none at its default: what a user made."""

    def __init__(self, catalogue):
        def other_entry(name):
            variable = catalogue.variable("MemPersistent", name)
            entries = catalogue.enums[variable["type"]]
            return next(entry for entry in entries if entry != variable["default"])

        self.values = {
            "FocusTorque": 4, "DisplayBrightness": 3, "SoundVolume": 9,
            "KnobLock": True, "GuiRotate": True,
            "Language": other_entry("Language"), "KnobColor": other_entry("KnobColor"),
            "CircleofConfusion": 0.05,
            "UserButton4_Name": b'Take "2" \\ [x]',
            "LensFileFavouriteFolder": b'/var/LENS"X\\/\t',
        }

    def apply(self, device):
        for name, value in self.values.items():
            device.change("MemPersistent", name, value)

    def missing_in(self, device):
        """The names whose value the memory does not hold."""
        missing = []
        for name, value in self.values.items():
            held = device.get("MemPersistent", name)
            if isinstance(value, float):
                same = struct.pack("<f", value) == struct.pack("<f", held)
            else:
                same = held == value
            if not same:
                missing.append(f"{name}={held!r}")
        return missing

    def lines(self):
        """The document lines of the ten values (each followed by a comma)."""
        result = []
        for name, value in self.values.items():
            if isinstance(value, bool):
                text = "true" if value else "false"
            elif isinstance(value, float):
                text = f"{value:.6f}"
            elif isinstance(value, bytes):
                text = f'"{escape(value)}"'
            elif isinstance(value, str):
                text = f'"{value}"'
            else:
                text = str(value)
            result.append(f'"{name}": {text},\n')
        return result

    def in_file(self, path):
        try:
            with open(path, encoding="utf-8", errors="replace") as stream:
                text = stream.read()
        except OSError:
            return False
        return text.endswith("\n}") and all(line in text for line in self.lines())


def file_has(path, text):
    try:
        with open(path, encoding="utf-8", errors="replace") as stream:
            return text in stream.read()
    except OSError:
        return False


def wait_until(predicate, seconds):
    deadline = time.monotonic() + seconds
    while not predicate():
        if time.monotonic() > deadline:
            return False
        time.sleep(POLL)
    return True


class Context:
    """The programs of the build inside the device root, and the running broker."""

    def __init__(self, options):
        signal.pthread_sigmask(signal.SIG_BLOCK, WATCHED)
        self.options = options
        self.emulator = shlex.split(options.emulator)
        self.long = options.long
        self.catalogue = Catalogue(options.catalogue)
        self.settings = Settings(self.catalogue)
        # Waits: readiness and ends take seconds natively, much longer under the emulator.
        self.timeout = 60.0 if self.emulator else 20.0
        self.broker = None

    @property
    def emulated(self):
        return bool(self.emulator)

    def command(self, program, *arguments, prefix=()):
        return [*prefix, *self.emulator, program, *arguments]

    def start_broker(self):
        self.broker = Child(self.command(self.options.broker))
        if not wait_until(lambda: os.path.exists(SOCKET) and os.path.exists(SEMAPHORE),
                          self.timeout):
            raise RuntimeError("the broker did not start")

    def ensure_broker(self, tally):
        if self.broker is None:
            self.start_broker()
        elif not self.broker.running:
            tally.crash(f"the broker ended, {describe(self.broker.status)}")
            self.start_broker()

    def start_service(self, tally, what, prefix=()):
        """A ready service, or None after counting the crash or hang."""
        self.ensure_broker(tally)
        service = Service(self.command(self.options.service, prefix=prefix))
        state = service.wait_ready(self.timeout)
        if state == "ready":
            return service
        if state == "ended":
            tally.crash(f"{what}: the service ended before it was ready, "
                        f"{describe(service.status)}")
        else:
            tally.hang(f"{what}: no readiness within {self.timeout:g} s")
            service.signal(signal.SIGKILL)
            service.wait(self.timeout)
        return None

    def stop_service(self, service, tally, what):
        """Stops with SIGTERM; True when it ended with status 0 in time."""
        if not service.running:
            tally.crash(f"{what}: the service ended by itself, {describe(service.status)}")
            return False
        status = service.stop(self.timeout)
        if status is None:
            tally.hang(f"{what}: the service did not end within {self.timeout:g} s of SIGTERM")
            return False
        if status != 0:
            tally.crash(f"{what}: the service ended with {describe(status)} after SIGTERM")
            return False
        return True

    def check_settings(self, tally, what):
        """Starts the service, counts a loss when the ten settings are not all there, stops it."""
        service = self.start_service(tally, what + " (restart)")
        if service is None:
            return False
        device = Device(self.catalogue)
        try:
            missing = self.settings.missing_in(device)
        finally:
            device.close()
        if missing:
            tally.loss(f"{what}: after a restart {', '.join(missing)}")
        return self.stop_service(service, tally, what + " (restart)") and not missing

    def make_settings(self, tally):
        """A settings folder whose current file and backup hold the ten settings.  The
        service writes .current.stp only when its content changes, so once the ten settings
        are in it, one more change (MARK, none of the ten) is saved: the file with the ten
        settings becomes the backup, and the new one holds them too."""
        reset_folder()
        service = self.start_service(tally, "making the settings")
        if service is None:
            raise RuntimeError("the service did not start for making the settings")
        device = Device(self.catalogue)
        try:
            self.settings.apply(device)
            if not wait_until(lambda: self.settings.in_file(CURRENT), self.timeout):
                raise RuntimeError("the ten settings never reached .current.stp")
            device.change("MemPersistent", MARK[0], MARK[1])
            if not wait_until(lambda: self.settings.in_file(BACKUP) and
                              file_has(CURRENT, f'"{MARK[0]}": {MARK[1]},\n'), self.timeout):
                raise RuntimeError("the ten settings never reached .current.stp.backup")
        finally:
            device.close()
        if not self.stop_service(service, tally, "making the settings"):
            raise RuntimeError("the service did not stop after making the settings")

    def close(self):
        if self.broker is not None:
            self.broker.stop(self.timeout)


def reset_folder():
    shutil.rmtree(SETUPS, ignore_errors=True)


def snapshot(folder):
    """Copies the settings folder (hidden files included) to `folder`."""
    shutil.rmtree(folder, ignore_errors=True)
    shutil.copytree(SETUPS, folder, symlinks=True)


def restore(folder):
    reset_folder()
    shutil.copytree(folder, SETUPS, symlinks=True)


def outside_files(before):
    """Files that appeared in /var outside the settings folder since `before` was taken."""
    return sorted(set(files_of_var()) - set(before))


def files_of_var():
    found = []
    for folder, folders, files in os.walk("/var"):
        folders[:] = [name for name in folders if os.path.join(folder, name) != "/var/SETUPS"]
        found += [os.path.join(folder, name) for name in files]
    return found
