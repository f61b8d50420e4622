#!/usr/bin/python3
"""Settings across releases: the real settings service, built from the small "before" and
"after" models of gen/tests/migration, started in turn on one device root (before, after,
before, after) with the user changing settings in between, as a unit that is updated, stepped
back and updated again.

The "after" model declares against release 1.0.0 (the "before" model) a renamed variable
(Volume -> Loudness), renamed enum entries (Teal -> Cyan, and Zenith -> Apex inside a struct
array), a narrowed range that clamps (Speed), a narrowed range that keeps aside (Zoom), a retired
variable (Legacy), a new variable (Contrast) and a changed default (Title). Each start is checked
for what the memories hold, what ".current.stp.kept" keeps and the service's lines about every
key it did not store as it stood; the after release's memtool previews a user setup of the
before release; a user setup of the before release is loaded into the after release; a factory
reset clears what was kept. No value may be lost silently, a value comes back whenever the
running release can hold it, and the value the user set last wins.

On the host the script runs itself again inside a device root (tools/devroot/devroot exec);
there it plays the supervisor and the user interface (faults.py's machinery): it starts the
broker once and each service in turn, reads and writes the memories through /dev/shm with each
model's catalogue.json and posts the change events. It prints one line per step and "FAIL: ..."
for every check that does not hold; the exit status is 0 only when all held.
"""

import argparse
import json
import os
import shlex
import signal
import struct
import subprocess
import sys

sys.dont_write_bytecode = True
HERE = os.path.dirname(os.path.realpath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "faults"))

import faults  # noqa: E402

KEPT = faults.CURRENT + ".kept"
STUDIO = faults.SETUPS + "Studio.stp"


class Checks:
    def __init__(self):
        self.failed = 0

    def expect(self, condition, text):
        if not condition:
            self.failed += 1
            print(f"FAIL: {text}", flush=True)

    def equal(self, have, want, what):
        self.expect(have == want, f"{what}: {have!r}, expected {want!r}")


def read(path):
    try:
        with open(path, encoding="utf-8", errors="replace") as stream:
            return stream.read()
    except OSError:
        return None


def kept():
    """The entries of .current.stp.kept: key -> {"value": ..., "instead": ...}; {} without it."""
    text = read(KEPT)
    return {} if text is None else json.loads(text)


class Model:
    """One release's programs and catalogue."""

    def __init__(self, name, service, catalogue_path, emulator):
        self.name = name
        self.service = service
        self.emulator = emulator
        self.catalogue = faults.Catalogue(catalogue_path)
        with open(catalogue_path, encoding="utf-8") as stream:
            self.structs = {s["name"]: s for s in json.load(stream)["structs"]}

    def start(self, checks):
        """A ready service, with the kernel log read from here on."""
        log_start = os.path.getsize("/dev/kmsg")
        service = faults.Service([*self.emulator, self.service])
        state = service.wait_ready(120.0)
        checks.expect(state == "ready", f"{self.name}: the service is {state}, not ready")
        service.log_start = log_start
        return service

    def stop(self, service, checks):
        status = service.stop(120.0)
        checks.equal(status, 0, f"{self.name}: exit status after SIGTERM")

    @staticmethod
    def log(service):
        with open("/dev/kmsg", "rb") as stream:
            stream.seek(service.log_start)
            return stream.read().decode("utf-8", "replace")

    def member(self, device, variable, index, name, value=None):
        """Reads (or writes, posting nothing) member `name` of struct element `index`."""
        entry = device.catalogue.variable("MemPersistent", variable)
        member = next(m for m in self.structs[entry["type"]]["members"] if m["name"] == name)
        at = device.HEADER + entry["offset"] + index * entry["elementSize"] + member["offset"]
        data = device.memory("MemPersistent")
        if member["kind"] == "enum":
            entries = self.catalogue.enums[member["type"]]
            if value is None:
                return entries[struct.unpack_from("<I", data, at)[0]]
            struct.pack_into("<I", data, at, entries.index(value))
        else:
            if value is None:
                return bytes(data[at:at + member["size"]]).split(b"\0", 1)[0]
            data[at:at + len(value) + 1] = value + b"\0"
        return entry["event"]


def change(device, values):
    for name, value in values.items():
        device.change("MemPersistent", name, value)


def values(device, names):
    return {name: device.get("MemPersistent", name) for name in names}


def wait_saved(checks, what, *texts):
    saved = faults.wait_until(lambda: all(t in (read(faults.CURRENT) or "") for t in texts), 30.0)
    checks.expect(saved, f"{what}: .current.stp never held {texts}")


def logged(checks, model, service, *lines):
    log = model.log(service)
    for line in lines:
        checks.expect(line in log, f"{model.name}: no log line \"{line}\"")


def request(checks, device, flag):
    checks.expect(device.request("MemUserSetups", flag, 60.0), f"{flag} was not served")


def step_before(before, checks):
    """The before release: the user makes settings and saves the user setup "Studio"."""
    service = before.start(checks)
    device = faults.Device(before.catalogue)
    try:
        change(device, {"Brightness": 7, "Volume": 80, "KnobColour": "Teal", "Speed": 15,
                        "Zoom": 40, "Legacy": True, "Title": b"Night"})
        device.post(before.member(device, "Lenses", 0, "LensName", b"Alpha"))
        device.post(before.member(device, "Lenses", 0, "LensMaker", "Zenith"))
        wait_saved(checks, "before", '"Volume": 80,', '"Zenith"', '"Title": "Night"')
        device.set("MemUserSetups", "UserSetupSave", b"Studio")
        request(checks, device, "UserSetupAcceptSaveFileName")
        checks.expect(read(STUDIO) is not None, "the user setup Studio.stp was not saved")
    finally:
        device.close()
        before.stop(service, checks)
    print("before: settings made, Studio.stp saved", flush=True)


def step_after(after, memtool, checks):
    """The update: every declared change read as the after model says; the user changes
    settings."""
    service = after.start(checks)
    device = faults.Device(after.catalogue)
    try:
        checks.equal(values(device, ["Brightness", "Loudness", "KnobColour", "Speed", "Zoom",
                                     "Title", "Contrast"]),
                     {"Brightness": 7, "Loudness": 80, "KnobColour": "Cyan", "Speed": 10,
                      "Zoom": 5, "Title": b"Night", "Contrast": 5}, "after the update")
        checks.equal((after.member(device, "Lenses", 0, "LensName"),
                      after.member(device, "Lenses", 0, "LensMaker")), (b"Alpha", "Apex"),
                     "after the update, Lenses[0]")
        entries = kept()
        checks.equal(entries.get("Speed"), {"value": "15", "instead": "10"}, "kept Speed")
        checks.equal(entries.get("Zoom"), {"value": "40", "instead": "5"}, "kept Zoom")
        checks.equal(entries.get("Legacy"), {"value": "true"}, "kept Legacy")
        checks.equal(entries.get("Volume"), {"value": "80"}, "the copy under Volume")
        checks.equal(entries.get("KnobColour"), {"value": "Teal"}, "the copy of KnobColour")
        checks.expect('"Zenith"' in entries.get("Lenses", {}).get("value", ""),
                      f"the copy of Lenses lacks Zenith: {entries.get('Lenses')}")
        logged(checks, after, service,
               "Volume: read as Loudness, its former name",
               "KnobColour: former entry Teal read as Cyan",
               "Lenses: former entry Zenith read as Apex",
               "Speed: 15 is outside 0..10, stored the nearest bound 10",
               "Zoom: kept aside, outside 0..20",
               "Legacy: not stored, the variable was retired (the unit always works the new way)")
        preview(memtool, checks)
        change(device, {"Loudness": 60, "Contrast": 9, "Zoom": 15})
        wait_saved(checks, "after", '"Loudness": 60,', '"Contrast": 9,', '"Zoom": 15\n')
    finally:
        device.close()
        after.stop(service, checks)
    checks.expect("Zoom" not in kept(), "the kept Zoom did not give way to the value set since")
    print("after: update read, user changed Loudness, Contrast and Zoom", flush=True)


def preview(memtool, checks):
    """The after release's memtool tells what loading the before release's Studio.stp does."""
    text = subprocess.run([*memtool, "preview", STUDIO], capture_output=True, text=True,
                          timeout=120)
    checks.equal(text.returncode, 0, f"memtool preview: {text.stderr}")
    lines = text.stdout.splitlines()
    for line in ("Brightness: stored", "Volume: read as Loudness, its former name",
                 "KnobColour: former entry Teal read as Cyan",
                 "Speed: 15 is outside 0..10, stored the nearest bound 10",
                 "Zoom: kept aside, outside 0..20",
                 "Legacy: not stored, the variable was retired (the unit always works the new way)",
                 "ProductName: skipped, product information is never loaded",
                 "10 keys: 2 stored, 1 former name, 2 mapped entry, 1 clamped, 1 retired, "
                 "1 kept aside, 2 skipped"):
        checks.expect(line in lines, f"memtool preview: no line \"{line}\" in\n{text.stdout}")
    done = subprocess.run([*memtool, "preview", STUDIO, "--json"], capture_output=True,
                          text=True, timeout=120)
    document = json.loads(done.stdout)
    checks.equal(document["counts"], {"stored": 2, "formerName": 1, "mappedEntry": 2,
                                      "clamped": 1, "retired": 1, "keptAside": 1, "skipped": 2},
                 "memtool preview --json counts")
    speed = next(key for key in document["keys"] if key["key"] == "Speed")
    checks.equal((speed["outcome"], speed["value"], speed["stored"]), ("clamped", "15", "10"),
                 "memtool preview --json Speed")
    print(f"preview: {lines[-1]}", flush=True)


def step_back(before, checks):
    """The step back: what the before release can hold comes back; the user changes
    settings."""
    service = before.start(checks)
    device = faults.Device(before.catalogue)
    try:
        checks.equal(values(device, ["Brightness", "Volume", "KnobColour", "Speed", "Zoom",
                                     "Legacy", "Title"]),
                     {"Brightness": 7, "Volume": 60, "KnobColour": "Teal", "Speed": 15,
                      "Zoom": 15, "Legacy": True, "Title": b"Night"}, "after the step back")
        checks.equal(before.member(device, "Lenses", 0, "LensMaker"), "Zenith",
                     "after the step back, Lenses[0].LensMaker")
        # What the before release cannot hold of the after release's document is kept aside.
        entries = kept()
        checks.equal(entries.get("Contrast"), {"value": "9"}, "kept Contrast")
        checks.equal(entries.get("Loudness"), {"value": "60"}, "kept Loudness")
        checks.equal(entries.get("KnobColour"), {"value": "Cyan", "instead": "Teal"},
                     "kept KnobColour")
        checks.expect('"Apex"' in entries.get("Lenses", {}).get("value", ""),
                      f"the kept Lenses lack Apex: {entries.get('Lenses')}")
        checks.equal(sorted(entries), ["Contrast", "KnobColour", "Lenses", "Loudness"],
                     "kept by the before release")
        logged(checks, before, service, "Contrast: kept aside, no variable of that name",
               "Volume: the value kept aside is stored again: 60",
               "Speed: the value kept aside is stored again: 15",
               "Legacy: the value kept aside is stored again: true")
        change(device, {"Volume": 70, "Legacy": False, "KnobColour": "Blue"})
        wait_saved(checks, "step back", '"Volume": 70,', '"Legacy": false,')
    finally:
        device.close()
        before.stop(service, checks)
    checks.expect("KnobColour" not in kept(), "the kept KnobColour did not give way")
    print("before again: values back, user changed Volume, Legacy and KnobColour", flush=True)


def damage_current_file():
    """Breaks the line of Brightness in .current.stp and removes the backup: the service must
    read the rest line by line."""
    document = read(faults.CURRENT)
    with open(faults.CURRENT, "w", encoding="utf-8") as stream:
        stream.write(document.replace('"Brightness": 7,', '"Brightness" 7,'))
    os.remove(faults.BACKUP)


def step_again(after, checks):
    """The update again, on a damaged .current.stp without a backup: every line that can be read
    counts, the last values set win; user setups of the before release, and one naming a variable
    by both its names, load without adding to what is kept; a factory reset clears it."""
    damage_current_file()
    service = after.start(checks)
    device = faults.Device(after.catalogue)
    try:
        checks.equal(values(device, ["Brightness", "Loudness", "Contrast", "KnobColour", "Speed",
                                     "Zoom"]),
                     {"Brightness": 5, "Loudness": 70, "Contrast": 9, "KnobColour": "Blue",
                      "Speed": 10, "Zoom": 15}, "after the second update")
        checks.expect(read(faults.DAMAGED) is not None, "the damaged file was not kept")
        logged(checks, after, service,
               "Could not read line 2 of .current.stp.damaged: \"Brightness\" 7,",
               "Volume: read as Loudness, its former name")
        entries = kept()
        checks.equal(entries.get("Legacy"), {"value": "false"}, "kept Legacy")
        checks.equal(entries.get("Speed"), {"value": "15", "instead": "10"}, "kept Speed")
        checks.equal(entries.get("Volume"), {"value": "70"}, "the copy under Volume")
        checks.expect("Loudness" not in entries and "Contrast" not in entries,
                      f"entries of the step back stayed: {sorted(entries)}")
        setup = read(STUDIO)
        # The service fills the list just after it reported ready.
        faults.wait_until(lambda: device.get("MemUserSetups", "UserSetupListSize") > 0, 30.0)
        listed = [device.get("MemUserSetups", "UserSetupList", i)
                  for i in range(device.get("MemUserSetups", "UserSetupListSize"))]
        checks.expect(b"Studio.stp" in listed, f"Studio.stp is not listed: {listed}")
        device.set("MemUserSetups", "UserSetupSelectedFileIndex", listed.index(b"Studio.stp"))
        request(checks, device, "UserSetupAcceptLoadFileName")
        checks.equal(values(device, ["Loudness", "Zoom", "Speed"]),
                     {"Loudness": 80, "Zoom": 15, "Speed": 10}, "after loading Studio.stp")
        checks.equal(read(STUDIO), setup, "Studio.stp after its load")
        checks.expect("Zoom" not in kept(), "the user setup's Zoom was kept aside")
        with open(faults.SETUPS + "Both.stp", "w", encoding="utf-8") as stream:
            stream.write('{\n"Loudness": 33,\n"Volume": 44\n}')
        faults.wait_until(lambda: device.get("MemUserSetups", "UserSetupListSize") == 2, 30.0)
        device.set("MemUserSetups", "UserSetupSelectedFileIndex", 0)
        request(checks, device, "UserSetupAcceptLoadFileName")
        checks.equal(device.get("MemPersistent", "Loudness"), 33, "Loudness after Both.stp")
        logged(checks, after, service,
               "Volume: kept aside, the current name Loudness is in the document too")
        checks.expect(device.request("MemGuiLocal", "FactoryReset", 60.0),
                      "the factory reset was not served")
        checks.expect(read(KEPT) is None, "the factory reset left .current.stp.kept")
    finally:
        device.close()
        after.stop(service, checks)
    # Written again at shutdown: the defaults, and the copy under the former name.
    checks.expect('"Loudness": 50,' in read(faults.CURRENT), "the defaults were not saved")
    checks.equal(kept(), {"Volume": {"value": "50"}}, "kept after the factory reset")
    print("after again: last values won, Studio.stp loaded, factory reset", flush=True)


def step_fresh(after, checks):
    """A start without settings files writes the defaults first; what an earlier run kept aside
    survives it."""
    for path in (faults.CURRENT, faults.BACKUP):
        if os.path.exists(path):
            os.remove(path)
    with open(KEPT, "w", encoding="utf-8") as stream:
        stream.write('{\n"Zoom": {"value": "40", "instead": "5"}\n}')
    service = after.start(checks)
    after.stop(service, checks)
    checks.equal(kept().get("Zoom"), {"value": "40", "instead": "5"},
                 "kept Zoom after a start without settings files")
    print("after, without settings files: what was kept stays", flush=True)


def inside(options):
    signal.pthread_sigmask(signal.SIG_BLOCK, faults.WATCHED)
    emulator = shlex.split(options.emulator)
    before = Model("before", options.before, options.before_catalogue, emulator)
    after = Model("after", options.after, options.after_catalogue, emulator)
    memtool = [*emulator, options.memtool]
    checks = Checks()
    broker = faults.Child([*emulator, options.broker])
    try:
        if not faults.wait_until(lambda: os.path.exists(faults.SOCKET)
                                 and os.path.exists(faults.SEMAPHORE), 120.0):
            raise RuntimeError("the broker did not start")
        step_before(before, checks)
        step_after(after, memtool, checks)
        step_back(before, checks)
        step_again(after, checks)
        step_fresh(after, checks)
    finally:
        broker.stop(60.0)
    print(f"checks failed: {checks.failed}", flush=True)
    return 1 if checks.failed else 0


def main():
    parser = argparse.ArgumentParser()
    for name in ("devroot", "broker", "before", "after", "memtool", "before-catalogue",
                 "after-catalogue", "build"):
        parser.add_argument(f"--{name}", required=True)
    parser.add_argument("--emulator", default="")
    parser.add_argument("--inside", action="store_true", help=argparse.SUPPRESS)
    options = parser.parse_args()
    if options.inside:
        return inside(options)
    argv = [options.devroot, "exec", "--bind-ro", options.build, "--bind-ro", HERE,
            "--bind-ro", os.path.join(HERE, "..", "faults"), "--", "/usr/bin/python3",
            os.path.realpath(sys.argv[0]), *sys.argv[1:], "--inside"]
    return subprocess.run(argv, check=False, timeout=1500).returncode


if __name__ == "__main__":
    sys.exit(main())
