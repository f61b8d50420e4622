#!/usr/bin/python3
"""The security battery, run inside a device root as root with the switch to
other users kept (devroot exec --user-switch): it plays the init system for
the real message broker and settings service (tests/system/readiness),
started without any capability as their units start them, and attacks them as
the unprivileged user 65534 ("nobody", in no group of the device) and, for
what a program of the device may do, as a member of the daemons' group (uid
65533), each step run through setpriv.

One line per attack on standard output, "<attack>: <outcome>", where the
outcome says how it was refused or survived and with which figures; a line
starting with "FAIL" when it was not.  Exit status 1 on any failure.

Attacks: squatting each object before the start, in folders that anyone may
write (a memory, the readiness semaphore, the socket path, the lock folder, a
link as the settings folder, the old lock file held locked); reading and
writing a memory, opening the semaphore, connecting to the broker, taking the
lock, planting links in the settings folder; as a member, links in the place
of ".current.stp" and of its temporary file, then floods of clients,
subscriptions, unread data, records and log-worthy garbage, and unchanged
change events.  Throughout, a well-behaved subscriber of root must receive
every record it asked for, the service must keep saving a change, and
(natively) the broker's peak resident size during each flood (VmHWM, reset
before it) must stay under 16 MB.  Last, a settings folder that another user
made and that cannot be removed refuses the start: no readiness, exit status
1.

--long runs the floods at the sizes of docs/robustness.md (1100 clients, 2
million subscriptions, 200 clients that never read, a 4-second flood); --only
NAME runs one attack of the floods, and --umask MASK starts the daemons with
that umask (for measuring an earlier release, whose objects' modes came from
it).
"""

import argparse
import os
import re
import socket
import stat
import struct
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.realpath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "readiness"))
sys.dont_write_bytecode = True
import initsystem  # noqa: E402

NOBODY = 65534
MEMBER = 65533
SOCKET_PATH = "/var/volatile/message-broker.socket"
SEMAPHORE = "/dev/shm/sem.message-broker-ready"
LOCK_FOLDER = "/var/volatile/settings-manager"
OLD_LOCK = "/var/volatile/settings-manager.lock"
SETUPS = "/var/SETUPS"
CURRENT = SETUPS + "/.current.stp"
TEMPORARY = SETUPS + "/..current.stp.tmp"
KMSG = "/dev/kmsg"
SUBSCRIBE, SUBSCRIBE_ALL = 1, 3
FOCUS_TORQUE_CHANGED = 167
RECORD = struct.Struct("<III")
RSS_LIMIT_KB = 16 * 1024
CLIENT_CAP = 512


class Failure(Exception):
    pass


FAILED = []


def report(attack, outcome):
    print(f"{attack}: {outcome}", flush=True)


def fail(attack, why):
    FAILED.append(attack)
    print(f"FAIL {attack}: {why}", flush=True)


def daemon_gid():
    return os.getgid()


def as_user(uid, code, groups=()):
    """Runs python code as uid (its own group, and `groups`); its output."""
    prefix = ["setpriv", f"--reuid={uid}", f"--regid={uid}"]
    prefix += [f"--groups={','.join(map(str, groups))}"] if groups else ["--clear-groups"]
    done = subprocess.run(prefix + ["--", sys.executable, "-c", code], capture_output=True,
                          text=True, timeout=120)
    return done.stdout.strip() + done.stderr.strip()


TRY = """
import errno, os, socket, sys
def attempt(action):
    try:
        action()
        print("done")
    except OSError as error:
        print("refused (" + errno.errorcode.get(error.errno, str(error.errno)) + ")")
"""


def attempt(uid, action, groups=()):
    return as_user(uid, TRY + f"attempt(lambda: {action})", groups)


def kmsg_text():
    with open(KMSG, "rb") as log:
        return log.read().decode("utf-8", "replace")


def owner_mode(path):
    status = os.lstat(path)
    return status.st_uid, status.st_gid, status.st_mode & 0o7777


# ---- before the start


# What uid 65534 makes before the daemons start, in /dev/shm (mode 1777 as on
# the device) and, as on a device whose /var and /var/volatile anyone may
# write, there.
SQUATS = {
    "squat memory MemGuiLocal": "[open('/dev/shm/MemGuiLocal', 'wb').write(b'x' * 64), "
                                "os.chmod('/dev/shm/MemGuiLocal', 0o666)]",
    "squat readiness semaphore": f"open('{SEMAPHORE}', 'wb').write(b'x' * 32)",
    "squat broker socket": f"socket.socket(socket.AF_UNIX).bind('{SOCKET_PATH}')",
    "squat lock folder": f"os.mkdir('{LOCK_FOLDER}', 0o777)",
    "squat settings folder": f"os.symlink('/tmp', '{SETUPS}')",
}
# The path each squat leaves, what the daemon calls it in its log line, and the
# owner, type and mode of what must be there once the daemons run.
SQUATTED = {
    "squat memory MemGuiLocal": ("/dev/shm/MemGuiLocal", "memory", stat.S_IFREG, 0o660),
    "squat readiness semaphore": (SEMAPHORE, "semaphore", stat.S_IFREG, 0o660),
    "squat broker socket": (SOCKET_PATH, "socket", stat.S_IFSOCK, 0o660),
    "squat lock folder": (LOCK_FOLDER, "lock folder", stat.S_IFDIR, 0o700),
    "squat settings folder": (SETUPS, "settings folder", stat.S_IFDIR, 0o770),
}
HOLD_OLD_LOCK = f"""
import fcntl, sys, time
lock = open('{OLD_LOCK}', 'w')
fcntl.flock(lock, fcntl.LOCK_EX)
print('held', flush=True)
sys.stdin.read()
"""


def squat():
    """The squats as uid 65534, and a process of that user that holds the lock
    file of earlier releases locked (end it by closing its input)."""
    modes = {folder: os.stat(folder).st_mode & 0o7777 for folder in ("/var", "/var/volatile")}
    for folder in modes:
        os.chmod(folder, 0o1777)
    try:
        outcomes = {attack: attempt(NOBODY, action) for attack, action in SQUATS.items()}
        holder = subprocess.Popen(["setpriv", f"--reuid={NOBODY}", f"--regid={NOBODY}",
                                   "--clear-groups", "--", sys.executable, "-c", HOLD_OLD_LOCK],
                                  stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
        outcomes["squat old lock file"] = holder.stdout.readline().strip()
    finally:
        for folder, mode in modes.items():
            os.chmod(folder, mode)
    return outcomes, holder


def judge_squats(outcomes, log):
    for attack, outcome in outcomes.items():
        if attack == "squat old lock file":
            if outcome == "held":
                report(attack, "no obstacle: the service started while uid 65534 held it "
                               "locked")
            else:
                fail(attack, f"uid 65534 could not take it: {outcome}")
            continue
        if outcome != "done":
            fail(attack, f"uid 65534 could not make it: {outcome}")
            continue
        path, what, kind, mode = SQUATTED[attack]
        status = os.lstat(path)
        found = (status.st_uid, status.st_gid, stat.S_IFMT(status.st_mode),
                 status.st_mode & 0o7777)
        logged = path.replace("/var/SETUPS", "/var//SETUPS")
        line = f"Removed {what} {logged}, which belonged to uid {NOBODY}"
        if found == (0, daemon_gid(), kind, mode) and line in log:
            report(attack, f"replaced (log: \"{line} ...\"), now uid 0 gid {daemon_gid()} "
                           f"mode {mode:04o}")
        else:
            fail(attack, f"found uid {found[0]} gid {found[1]} type {found[2]:o} mode "
                         f"{found[3]:o}, log line found: {line in log}")


def capabilities(pid):
    with open(f"/proc/{pid}/status", encoding="utf-8") as status:
        return {line.split(":")[0]: int(line.split()[1], 16) for line in status
                if line.startswith("Cap")}


def judge_capabilities(daemons):
    held = {name: capabilities(pid) for name, pid in daemons.items()}
    if all(not any(sets.values()) for sets in held.values()):
        report("capabilities of the daemons", "none (CapEff, CapPrm, CapBnd and CapAmb all 0)")
    else:
        fail("capabilities of the daemons", str(held))


# ---- while running


def refused_as_nobody():
    attacks = {
        "read a memory": "open('/dev/shm/MemPersistent', 'rb').read(4)",
        "write a memory": "open('/dev/shm/MemGuiLocal', 'r+b').write(b'\\x01')",
        "open the readiness semaphore": f"open('{SEMAPHORE}', 'r+b')",
        "connect to the broker": f"socket.socket(socket.AF_UNIX).connect('{SOCKET_PATH}')",
        "take the lock": f"open('{LOCK_FOLDER}/settings-manager.lock', 'rb')",
        "plant a link as .current.stp": f"os.symlink('/etc/shadow', '{CURRENT}.tmp')",
        "plant a link as a user setup": f"os.symlink('/etc/shadow', '{SETUPS}/evil.stp')",
        "flood the broker with clients": "[socket.socket(socket.AF_UNIX).connect("
                                         f"'{SOCKET_PATH}') for _ in range(20)]",
    }
    for attack, action in attacks.items():
        outcome = attempt(NOBODY, action)
        if outcome.startswith("refused"):
            report(attack + " as uid 65534", outcome)
        else:
            fail(attack + " as uid 65534", outcome)
    member = attempt(MEMBER, "open('/dev/shm/MemPersistent', 'rb').read(4)", [daemon_gid()])
    if member == "done":
        report("read a memory as a member of the daemons' group", "allowed")
    else:
        fail("read a memory as a member of the daemons' group", member)


LINK_VICTIMS = {"/tmp/victim-of-the-temporary": TEMPORARY, "/tmp/victim-of-the-file": CURRENT}
PLANT_LINKS = """
import os
for victim, path in %r.items():
    if os.path.lexists(path):
        os.remove(path)
    os.symlink(victim, path)
print("done")
"""


def links_as_member(memtool):
    """A member of the group may write the settings folder: it puts links to files
    of root in the place of ".current.stp" and of its temporary file.  The next save
    replaces both and writes through neither."""
    attack = "links in the settings folder as a member"
    for victim in LINK_VICTIMS:
        with open(victim, "w", encoding="utf-8") as file:
            file.write("untouched")
    before = kmsg_text()
    planted = as_user(MEMBER, PLANT_LINKS % LINK_VICTIMS, [daemon_gid()])
    if planted != "done":
        fail(attack, f"could not plant them: {planted}")
        return
    saved = service_saves(memtool)
    log = kmsg_text()[len(before):]
    problems = [saved] if saved else []
    for victim in LINK_VICTIMS:
        with open(victim, encoding="utf-8") as file:
            if file.read() != "untouched":
                problems.append(f"{victim} was written through the link")
    status = os.lstat(CURRENT)
    if not stat.S_ISREG(status.st_mode) or status.st_uid != 0:
        problems.append(".current.stp is not the service's file")
    lines = [f"Removed link {TEMPORARY.replace('/var/SETUPS', '/var//SETUPS')}, which "
             f"belonged to uid {MEMBER}",
             f"Replacing link {CURRENT.replace('/var/SETUPS', '/var//SETUPS')}, which belonged "
             f"to uid {MEMBER}"]
    problems += [f"no line \"{line}\"" for line in lines if line not in log]
    if problems:
        fail(attack, "; ".join(problems))
    else:
        report(attack, "replaced by the next save, nothing written through them (log: "
                       + "; ".join(f'"{line} ..."' for line in lines) + ")")


class Subscriber:
    """A well-behaved client of root that subscribes to one id and counts."""

    def __init__(self, event):
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.connect(SOCKET_PATH)
        self.socket.sendall(RECORD.pack(SUBSCRIBE, 0, 0) + RECORD.pack(event, 0, 0))
        self.socket.setblocking(False)
        self.pending = b""
        self.received = []

    def drain(self, seconds=0.0):
        deadline = time.monotonic() + seconds
        while True:
            try:
                data = self.socket.recv(65536)
                if not data:
                    raise Failure("the broker closed a well-behaved subscriber")
                self.pending += data
            except BlockingIOError:
                if time.monotonic() >= deadline:
                    break
                time.sleep(0.01)
        whole = len(self.pending) // RECORD.size * RECORD.size
        self.received += [RECORD.unpack_from(self.pending, at) for at in range(0, whole, 12)]
        self.pending = self.pending[whole:]


def rss_kb(pid, field="VmHWM"):
    """The program's peak resident size (since the last reset_peak), or its
    current one with field="VmRSS", in kB."""
    with open(f"/proc/{pid}/status", encoding="utf-8") as status:
        for line in status:
            if line.startswith(field + ":"):
                return int(line.split()[1])
    return 0


def reset_peak(pid):
    """Starts the peak resident size anew from the current one."""
    with open(f"/proc/{pid}/clear_refs", "w", encoding="utf-8") as clear:
        clear.write("5")


MEMBER_CODE = """
import os, socket, struct, sys, time
R = struct.Struct("<III")
PATH = "%s"
def connect():
    s = socket.socket(socket.AF_UNIX)
    s.connect(PATH)
    return s
"""


def member_run(body):
    return as_user(MEMBER, MEMBER_CODE % SOCKET_PATH + body, [daemon_gid()])


def flood_clients(count):
    return member_run(f"""
import select
held, refused = [], 0
for _ in range({count}):
    try:
        held.append(connect())
    except OSError:
        refused += 1
time.sleep(0.5)
watch = select.poll()
for s in held:
    watch.register(s, select.POLLIN)
closed = len(watch.poll(0))
print(len(held) - closed, "kept,", closed + refused, "closed at once")
""")


def flood_subscriptions(count):
    return member_run(f"""
s = connect()
for first in range(2000, 2000 + {count}, 50000):
    s.sendall(b"".join(R.pack(1, 0, 0) + R.pack(first + i, 0, 0) for i in range(50000)))
print({count}, "distinct ids sent")
""")


def flood_unread(count, seconds):
    return member_run(f"""
held = []
for _ in range({count}):
    s = connect()
    s.sendall(R.pack(3, 0, 0))
    held.append(s)
publisher = connect()
publisher.setblocking(False)
record = R.pack({FOCUS_TORQUE_CHANGED}, 0, 0) * 4096
end = time.monotonic() + {seconds}
while time.monotonic() < end:
    try:
        publisher.send(record)
    except BlockingIOError:
        time.sleep(0.001)
    except OSError:
        break
print("done")
""")


def flood_records(seconds):
    return member_run(f"""
s = connect()
s.setblocking(False)
record = R.pack({FOCUS_TORQUE_CHANGED}, 0, 0) * 4096
end, sent = time.monotonic() + {seconds}, 0
while time.monotonic() < end:
    try:
        sent += s.send(record)
    except BlockingIOError:
        time.sleep(0.001)
    except OSError:
        break
print(sent // 12, "records")
""")


def flood_garbage(clients):
    return member_run(f"""
for _ in range({clients}):
    s = connect()
    s.sendall(R.pack(1, 0, 0) + R.pack(0xFFFFFFF0, 0, 0))
    s.close()
print("done")
""")


def misbehaviour_lines(text):
    return sum(1 for line in text.splitlines() if "message-broker" in line and
               ("Refused a client" in line or "refused" in line or "closing" in line or
                "left out" in line))


def saved_focus_torque():
    with open(CURRENT) as current:
        found = re.search(r'"FocusTorque": (\d+),', current.read())
    return int(found.group(1)) if found else None


def service_saves(memtool):
    """Changes FocusTorque (1 to 4) with memtool and waits until .current.stp
    holds the new value."""
    value = (saved_focus_torque() or 1) % 4 + 1
    done = subprocess.run(memtool + ["set", "MemPersistent", "FocusTorque", str(value)],
                          capture_output=True, text=True, timeout=60)
    if done.returncode != 0:
        return f"memtool failed: {done.stderr.strip()}"
    deadline = time.monotonic() + 10
    while time.monotonic() < deadline:
        if saved_focus_torque() == value:
            return ""
        time.sleep(0.1)
    return f"FocusTorque {value} not saved within 10 s"


def floods(options, broker, memtool):
    """The broker attacks as a member; after each the well-behaved subscriber
    got everything, the service was never cut off from the broker and saves,
    and the broker stayed small."""
    sizes = {"clients": 1100, "subscriptions": 2000000, "unread": 200, "seconds": 4.0} \
        if options.long else {"clients": CLIENT_CAP + 40, "subscriptions": 100000, "unread": 20,
                              "seconds": 1.0}
    attacks = [
        ("flood the broker with clients", lambda: flood_clients(sizes["clients"])),
        ("flood the broker with subscriptions",
         lambda: flood_subscriptions(sizes["subscriptions"])),
        ("clients that never read", lambda: flood_unread(sizes["unread"], sizes["seconds"])),
        ("flood the service's events", lambda: flood_records(sizes["seconds"])),
        ("log-worthy garbage", lambda: flood_garbage(200)),
    ]
    for name, action in attacks:
        if options.only and options.only != name:
            continue
        subscriber = Subscriber(FOCUS_TORQUE_CHANGED)
        before = kmsg_text()
        if options.measured:
            reset_peak(broker)
            start_rss = rss_kb(broker, "VmRSS")
        outcome = action()
        after = kmsg_text()[len(before):]
        rss = rss_kb(broker) if options.measured else None
        problems = []
        try:
            subscriber.drain(0.5)
        except Failure as error:
            problems.append(str(error))
        saved = service_saves(memtool)
        if saved:
            problems.append(saved)
        try:
            subscriber.drain(1.0)
        except Failure as error:
            problems.append(str(error))
        if not any(record[0] == FOCUS_TORQUE_CHANGED for record in subscriber.received):
            problems.append("the well-behaved subscriber received nothing")
        lines = misbehaviour_lines(after)
        cut_off = after.count("Lost the connection to the message broker")
        if cut_off:
            problems.append(f"the service was cut off from the broker {cut_off} times")
        if rss is not None and rss > RSS_LIMIT_KB:
            problems.append(f"broker resident {rss} kB")
        if name == "log-worthy garbage" and lines > 30:
            problems.append(f"{lines} log lines about misbehaving clients")
        peak = f"{start_rss} -> peak {rss} kB resident" if rss is not None else \
            "resident size not measured (emulator or sanitizers)"
        figures = f"{outcome}; broker {peak}; service saved; " \
                  f"{len(subscriber.received)} records to the subscriber; " \
                  f"{lines} misbehaviour log lines"
        subscriber.socket.close()
        if problems:
            fail(name + " as a member", "; ".join(problems) + f" ({figures})")
        else:
            report(name + " as a member", "survived: " + figures)


def unchanged_events(memtool):
    before = os.stat(CURRENT)
    post = memtool + ["post", "VarFocusTorqueChanged"]
    for _ in range(6):
        subprocess.run(post, capture_output=True, timeout=60)
        time.sleep(0.4)
    time.sleep(1.5)
    after = os.stat(CURRENT)
    same = (before.st_ino, before.st_mtime_ns) == (after.st_ino, after.st_mtime_ns)
    nobody = attempt(NOBODY, f"socket.socket(socket.AF_UNIX).connect('{SOCKET_PATH}')")
    if same and nobody.startswith("refused"):
        report("unchanged change events", f"nothing written after 6 events; as uid 65534 "
                                          f"{nobody}")
    else:
        fail("unchanged change events", f"file rewritten: {not same}; as uid 65534: {nobody}")
    return after


def refused_start(init, options):
    """A settings folder of another user that cannot be removed."""
    os.makedirs("/var/SETUPS.kept")
    os.rename(SETUPS, "/var/SETUPS.kept/SETUPS")
    os.chmod("/var", 0o1777)
    made = as_user(NOBODY, f"import os; os.mkdir('{SETUPS}'); open('{SETUPS}/x', 'w')")
    os.chmod("/var", 0o755)
    if made:
        fail("settings folder of another user, not removable", f"could not make it: {made}")
        return
    service = init.start(options.service, notify=True)
    message = init.receive(options.timeout)
    _, status = os.waitpid(service, 0)
    code = os.WEXITSTATUS(status) if os.WIFEXITED(status) else -1
    if message is None and code == 1:
        report("settings folder of another user, not removable", "start refused: no readiness,"
                                                                 " exit status 1")
    else:
        fail("settings folder of another user, not removable",
             f"notification {message!r}, exit status {code}")


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--broker", required=True)
    parser.add_argument("--service", required=True)
    parser.add_argument("--memtool", required=True)
    parser.add_argument("--emulator", default="")
    parser.add_argument("--timeout", type=float, default=20.0)
    parser.add_argument("--long", action="store_true")
    parser.add_argument("--sanitized", action="store_true",
                        help="the daemons carry the sanitizers: their resident size is theirs")
    parser.add_argument("--only")
    parser.add_argument("--umask", type=lambda text: int(text, 8),
                        help="the daemons' umask (an earlier release takes its modes from it)")
    options = parser.parse_args()
    if options.umask is not None:
        os.umask(options.umask)
    options.emulated = bool(options.emulator.strip())
    # Under the emulator the resident size is the emulator's, with the sanitizers
    # their shadow memory's: only a plain native build is measured.
    options.measured = not options.emulated and not options.sanitized
    memtool = options.emulator.split() + [options.memtool]
    os.makedirs(SETUPS.rsplit("/", 1)[0], exist_ok=True)
    squats, holder = squat() if not options.only else ({}, None)
    init = initsystem.InitSystem(options.emulator, options.timeout)
    # The daemons hold no capability, as their units start them.
    init.emulator = ["setpriv", "--bounding-set=-all", "--inh-caps=-all", "--"] + init.emulator
    broker = init.start(options.broker, notify=True)
    init.wait_ready("broker", broker)
    os.kill(broker, initsystem.signal.SIGCONT)
    service = init.start(options.service, notify=True)
    init.wait_ready("service", service)
    os.kill(service, initsystem.signal.SIGCONT)
    if not options.only:
        holder.stdin.close()
        holder.wait(timeout=60)
        judge_squats(squats, kmsg_text())
        judge_capabilities({"broker": broker, "service": service})
        refused_as_nobody()
        links_as_member(memtool)
    floods(options, broker, memtool)
    if not options.only:
        kept = unchanged_events(memtool)
        init.stop("service", service)
        after = os.stat(CURRENT)
        if (kept.st_ino, kept.st_mtime_ns) == (after.st_ino, after.st_mtime_ns):
            report("stop after no change", "nothing written")
        else:
            fail("stop after no change", ".current.stp was rewritten")
        refused_start(init, options)
    else:
        init.stop("service", service)
    init.stop("broker", broker)
    return 1 if FAILED else 0


if __name__ == "__main__":
    sys.exit(main())
