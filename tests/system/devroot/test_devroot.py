#!/usr/bin/python3
"""System tests of tools/devroot/devroot, run from the host.

The broker and the service are stand-ins (fakebroker.cpp, fakeservice.cpp)
built for the tree's target; for ARM they run through --emulator.
"""

import argparse
import os
import shlex
import signal
import subprocess
import sys
import tempfile
import time
import unittest

BROKER_SOCKET = "/var/volatile/message-broker.socket"
BROKER_SEMAPHORE = "/dev/shm/sem.message-broker-ready"
SERVICE_PROGRAM_FIELD = "devroot_fake_service  "
ARGS = None
sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..", "..",
                                "tools", "devroot"))
import kmsglines  # noqa: E402


def host_kernel_log():
    """The host's kernel log records, or None where it cannot be read."""
    try:
        fd = os.open("/dev/kmsg", os.O_RDONLY | os.O_NONBLOCK)
    except OSError:
        return None
    records = []
    try:
        while True:
            try:
                records.append(os.read(fd, 8192).decode("utf-8", "replace"))
            except BlockingIOError:
                return records
            except OSError:
                # EPIPE: a record was overwritten while reading; go on.
                continue
    finally:
        os.close(fd)


class DevrootTest(unittest.TestCase):
    counter = 0

    def setUp(self):
        self.work = tempfile.TemporaryDirectory(prefix="devroot-test-")
        DevrootTest.counter += 1
        self.marker = f"devroot-fake-{os.getpid()}-{DevrootTest.counter}"

    def tearDown(self):
        self.work.cleanup()

    def path(self, name):
        return os.path.join(self.work.name, name)

    def devroot(self, mode, *options, command=(), env=None, timeout=60):
        argv = [ARGS.devroot, mode, "--bind-ro", ARGS.bind_ro, *options]
        if command:
            argv += ["--", *command]
        environment = dict(os.environ, DEVROOT_FAKE_MARKER=self.marker)
        environment.update(env or {})
        return subprocess.run(argv, capture_output=True, text=True, env=environment,
                              timeout=timeout)

    def run_options(self, broker=True, timeout="10"):
        options = ["--service", ARGS.service, "--timeout", timeout]
        if broker:
            options += ["--broker", ARGS.broker]
        if ARGS.emulator:
            options += ["--emulator", ARGS.emulator]
        return options

    def native(self, program):
        return shlex.split(ARGS.emulator) + [program]


class RunTest(DevrootTest):
    def test_ready_service_and_broker_stop_with_status_zero(self):
        root = self.path("root")
        result = self.devroot("run", "--keep", root, *self.run_options(), "--stop-after", "0.3")
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        self.assertEqual(result.stdout.splitlines(), [
            "broker: socket ready", "ready", "service: exit status 0", "broker: exit status 0"])
        messages = [line[60:] for line in kmsglines.read_lines(os.path.join(root, "kmsg.log"))]
        self.assertEqual(sorted(messages), sorted([
            "fake broker listening", "fake service started", "fake service stopping",
            "fake broker stopping"]))

    def test_the_host_paths_are_untouched(self):
        root = self.path("root")
        volatile_before = os.path.exists("/var/volatile")
        result = self.devroot("run", "--keep", root, *self.run_options(), "--stop-after", "0.1")
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        self.assertTrue(os.path.exists(os.path.join(root, "shm", self.marker)))
        self.assertTrue(os.path.exists(os.path.join(root, "var", "volatile", self.marker)))
        self.assertFalse(os.path.exists(os.path.join("/dev/shm", self.marker)))
        self.assertFalse(os.path.exists(os.path.join("/var/volatile", self.marker)))
        self.assertEqual(os.path.exists("/var/volatile"), volatile_before)
        records = host_kernel_log()
        if records is not None:
            self.assertFalse([r for r in records if "fake service started" in r])

    def test_lines_of_several_processes_are_recorded_whole(self):
        writers, lines = 4, 300
        root = self.path("root")
        result = self.devroot("run", "--keep", root, *self.run_options(broker=False),
                              "--stop-after", "0", "--follow",
                              env={"DEVROOT_FAKE_WRITERS": str(writers),
                                   "DEVROOT_FAKE_LINES": str(lines)})
        self.assertEqual(result.returncode, 0, result.stdout + result.stderr)
        recorded = kmsglines.read_lines(os.path.join(root, "kmsg.log"))
        written = [line for line in recorded if " writer " in line]
        self.assertEqual(len(written), writers * lines)
        seen = set()
        for line in written:
            self.assertTrue(line.startswith(SERVICE_PROGRAM_FIELD + "LogLight    "), line)
            text = line.split(" writer ", 1)[1]
            writer, _, number, filler = text.split(" ")
            self.assertEqual(filler, chr(ord("a") + int(writer)) * 400, line[:80])
            seen.add((int(writer), int(number)))
        self.assertEqual(seen, {(w, n) for w in range(writers) for n in range(lines)})
        echoed = [kmsglines.strip(line) for line in result.stderr.splitlines()
                  if " writer " in line]
        self.assertEqual(sorted(echoed), sorted(written))

    def test_a_service_that_never_signals_is_reported_not_ready(self):
        result = self.devroot("run", *self.run_options(broker=False, timeout="0.5"),
                              env={"DEVROOT_FAKE_MODE": "silent"})
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout.splitlines(), [
            "not ready (no SIGUSR1 from the service within 0.5 s)", "service: exit status 0"])

    def test_a_broker_without_socket_is_reported_and_the_service_not_started(self):
        result = self.devroot("run", *self.run_options(timeout="0.5"),
                              env={"DEVROOT_FAKE_BROKER": "nosocket"})
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout.splitlines(), [
            f"not ready (broker socket {BROKER_SOCKET} or semaphore {BROKER_SEMAPHORE} "
            "did not appear within 0.5 s)",
            "broker: exit status 0"])

    def test_a_missing_service_program_is_reported(self):
        result = self.devroot("run", "--service", "/nonexistent/service", "--timeout", "1")
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout.splitlines(), [
            "not ready (cannot start /nonexistent/service: No such file or directory "
            "(is its folder bound into the root?))"])

    def test_the_service_exit_status_decides(self):
        result = self.devroot("run", *self.run_options(), "--stop-after", "0",
                              env={"DEVROOT_FAKE_EXIT": "5"})
        self.assertEqual(result.returncode, 1)
        self.assertIn("service: exit status 5", result.stdout.splitlines())
        self.assertIn("broker: exit status 0", result.stdout.splitlines())

    def test_a_service_that_ends_by_itself_fails_the_run(self):
        result = self.devroot("run", *self.run_options(broker=False),
                              env={"DEVROOT_FAKE_MODE": "ends"})
        self.assertEqual(result.returncode, 1)
        self.assertEqual(result.stdout.splitlines(), [
            "ready", "service: ended by itself, exit status 3"])

    def test_the_command_runs_inside_and_its_status_counts(self):
        check = ["/bin/sh", "-c", f'test -S {BROKER_SOCKET} && test -f /dev/shm/"$1" && exit "$2"',
                 "check", self.marker]
        failed = self.devroot("run", *self.run_options(), command=check + ["7"])
        self.assertEqual(failed.returncode, 1)
        self.assertEqual(failed.stdout.splitlines(), [
            "broker: socket ready", "ready", "command: exit status 7", "service: exit status 0",
            "broker: exit status 0"])
        passed = self.devroot("run", *self.run_options(), command=check + ["0"])
        self.assertEqual(passed.returncode, 0, passed.stdout + passed.stderr)

    def test_a_second_sandbox_shares_the_root_and_ctrl_c_stops_the_run(self):
        root = self.path("root")
        argv = [ARGS.devroot, "run", "--keep", root, "--bind-ro", ARGS.bind_ro,
                *self.run_options()]
        runner = subprocess.Popen(argv, stdout=subprocess.PIPE, text=True,
                                  env=dict(os.environ, DEVROOT_FAKE_MARKER=self.marker))
        try:
            self.assertEqual(runner.stdout.readline(), "broker: socket ready\n")
            self.assertEqual(runner.stdout.readline(), "ready\n")
            client = self.devroot("exec", "--root", root, command=[
                "/bin/sh", "-c",
                f'test -S {BROKER_SOCKET} && cat /dev/shm/"$1" && echo client > /dev/kmsg',
                "client", self.marker])
            self.assertEqual(client.returncode, 0, client.stderr)
            self.assertEqual(client.stdout, "shm\n")
            runner.send_signal(signal.SIGINT)
            rest = runner.stdout.read().splitlines()
            self.assertEqual(runner.wait(timeout=30), 0)
        finally:
            if runner.poll() is None:
                runner.kill()
                runner.wait()
        self.assertEqual(rest, ["service: exit status 0", "broker: exit status 0"])
        with open(os.path.join(root, "kmsg.log")) as log:
            self.assertIn("client", log.read().splitlines())


class ExecTest(DevrootTest):
    def test_the_program_status_is_the_exit_status(self):
        result = self.devroot("exec", command=["/bin/sh", "-c", "exit 4"])
        self.assertEqual(result.returncode, 4)
        killed = self.devroot("exec", command=["/bin/sh", "-c", "kill -TERM $$"])
        self.assertEqual(killed.returncode, 128 + signal.SIGTERM)

    def test_kmsg_is_an_empty_plain_file_shown_when_the_program_fails(self):
        script = 'test -f /dev/kmsg && test ! -s /dev/kmsg && echo "$1" > /dev/kmsg && exit "$2"'
        quiet = self.devroot("exec", command=["/bin/sh", "-c", script, "s", "quiet line", "0"])
        self.assertEqual(quiet.returncode, 0)
        self.assertEqual(quiet.stderr, "")
        failed = self.devroot("exec", command=["/bin/sh", "-c", script, "s", "failing line", "2"])
        self.assertEqual(failed.returncode, 2)
        self.assertEqual(failed.stderr, "devroot: kernel log of the run:\nfailing line\n")
        shown = self.devroot("exec", command=["/bin/sh", "-c", script, "s", "shown line", "0"],
                             env={"DEVROOT_SHOW_KMSG": "1"})
        self.assertEqual(shown.stderr, "devroot: kernel log of the run:\nshown line\n")

    def test_the_device_files_and_their_seeds(self):
        default = self.devroot("exec", command=[
            "/bin/sh", "-c", "stat -c %s /dev/mmcblk1 /dev/mem && cat /product.info"])
        self.assertEqual(default.stdout, "1114112\n34394112\n0.0.0-dev\nunknown\n")

        mmc, info = self.path("mmc.img"), self.path("product.info")
        with open(mmc, "wb") as image:
            image.write(b"\0" * 0x100000 + b"RECORD" + b"\0" * 0x10000)
        with open(info, "w") as text:
            text.write("1.2.3\nabcdef\n")
        root = self.path("root")
        seeded = self.devroot("exec", "--keep", root, "--mmc", mmc, "--product-info", info,
                              command=["/bin/sh", "-c",
                                       "tail -c +1048577 /dev/mmcblk1 | head -c 6; echo; "
                                       "cat /product.info; printf written 1<> /dev/mem"])
        self.assertEqual(seeded.stdout, "RECORD\n1.2.3\nabcdef\n")
        with open(os.path.join(root, "mem"), "rb") as mem:
            self.assertEqual(mem.read(7), b"written")
        self.assertEqual(os.path.getsize(os.path.join(root, "mem")), 0x020CD000)
        self.assertLess(os.stat(os.path.join(root, "mem")).st_blocks * 512, 1 << 20)

        absent = self.devroot("exec", "--no-product-info",
                              command=["/bin/sh", "-c", "test ! -e /product.info"])
        self.assertEqual(absent.returncode, 0)

    def test_the_hosts_notify_socket_is_not_passed_in(self):
        result = self.devroot("exec", command=["/bin/sh", "-c", 'test -z "${NOTIFY_SOCKET+set}"'],
                              env={"NOTIFY_SOCKET": "/run/systemd/notify"})
        self.assertEqual(result.returncode, 0, result.stderr)

    def test_var_size_makes_var_a_small_private_disk(self):
        root = self.path("root")
        script = ("test -d /var/volatile && test -z \"$(ls /var/volatile)\" && "
                  "! head -c 300000 /dev/zero > /var/filler 2>/dev/null && "
                  "test $(stat -c %s /var/filler) -le 262144")
        small = self.devroot("exec", "--keep", root, "--var-size", "262144",
                             command=["/bin/sh", "-c", script])
        self.assertEqual(small.returncode, 0, small.stderr)
        self.assertEqual(os.listdir(os.path.join(root, "var")), ["volatile"])

    def test_shm_size_makes_shm_a_small_private_tmpfs(self):
        root = self.path("root")
        script = ("test \"$(stat -f -c %T /dev/shm)\" = tmpfs && touch /dev/shm/object && "
                  "! head -c 300000 /dev/zero > /dev/shm/filler 2>/dev/null")
        small = self.devroot("exec", "--keep", root, "--shm-size", "262144",
                             command=["/bin/sh", "-c", script])
        self.assertEqual(small.returncode, 0, small.stderr)
        self.assertEqual(os.listdir(os.path.join(root, "shm")), [])

    def test_file_modes_hold_inside(self):
        result = self.devroot("exec", command=[
            "/bin/sh", "-c", "chmod 555 /var && ! mkdir /var/x 2>/dev/null"])
        self.assertEqual(result.returncode, 0)

    def test_the_temporary_root_is_removed(self):
        temp = self.path("temp")
        os.mkdir(temp)
        result = self.devroot("exec", command=["/bin/sh", "-c", "test -f /dev/kmsg"],
                              env={"TMPDIR": temp})
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertEqual(os.listdir(temp), [])

    def test_the_temporary_root_is_removed_when_the_runner_is_killed(self):
        temp = self.path("temp")
        os.mkdir(temp)
        argv = [ARGS.devroot, "exec", "--", "/bin/sh", "-c", "echo started; sleep 30"]
        runner = subprocess.Popen(argv, stdout=subprocess.PIPE, text=True,
                                  env=dict(os.environ, TMPDIR=temp))
        self.assertEqual(runner.stdout.readline(), "started\n")
        self.assertEqual(len(os.listdir(temp)), 1)
        runner.kill()
        runner.wait()
        deadline = time.monotonic() + 10
        while os.listdir(temp) and time.monotonic() < deadline:
            time.sleep(0.05)
        self.assertEqual(os.listdir(temp), [])

    def test_an_arm_or_native_test_program_runs_inside(self):
        result = self.devroot("exec", command=self.native(ARGS.service),
                              env={"DEVROOT_FAKE_MODE": "ends"})
        self.assertEqual(result.returncode, 3)
        self.assertIn(SERVICE_PROGRAM_FIELD + "LogLight    ", result.stderr)
        self.assertIn("fake service started", result.stderr)


def log_line(level, message):
    return f"{'settings-manager':>20}  {level:<12}{'a.cpp':>20}:   1 {message}"


class HelpTest(unittest.TestCase):
    def test_each_mode_explains_its_options(self):
        for mode in ("exec", "run"):
            result = subprocess.run([ARGS.devroot, mode, "--help"], capture_output=True,
                                    text=True, timeout=60)
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertIn("--shm-size BYTES      /dev/shm is a tmpfs of that size", result.stdout)
            self.assertIn("--stop-after S", result.stdout)


class KmsgLinesTest(unittest.TestCase):
    """The log helpers take each record's priority prefix off and check it."""

    def test_each_levels_prefix_is_taken_off(self):
        levels = {"DebugAll": 7, "DebugMost": 7, "DebugLight": 7, "LogAll": 6, "LogMost": 6,
                  "LogLight": 6, "Warn": 4, "Error": 3}
        raw = "".join(f"<{priority}>{log_line(level, level)}\n"
                      for level, priority in levels.items())
        self.assertEqual(kmsglines.lines(raw), [log_line(level, level) for level in levels])

    def test_a_line_without_prefix_continues_the_record_before_it(self):
        raw = f"<4>{log_line('Warn', 'Command cp failed:')}\nexit status 2\n<6>x"
        self.assertEqual(kmsglines.strip(raw),
                         f"{log_line('Warn', 'Command cp failed:')}\nexit status 2\nx")

    def test_a_wrong_or_missing_prefix_is_refused(self):
        for raw in (f"<6>{log_line('Error', 'failed')}\n",
                    f"<3>{log_line('Error', 'failed')}\n<3>{log_line('Warn', 'w')}\n",
                    f"{log_line('Error', 'failed')}\n", f"<>{log_line('Error', 'failed')}\n"):
            with self.assertRaises(kmsglines.PriorityError, msg=raw):
                kmsglines.strip(raw)


class FailureTest(DevrootTest):
    def test_a_sandbox_that_cannot_start_is_reported_and_nothing_runs(self):
        for mode, options in (("exec", []), ("run", self.run_options())):
            result = self.devroot(mode, "--bind-ro", "/nonexistent/devroot-path", *options,
                                  command=["/bin/sh", "-c", "echo ran"])
            self.assertEqual(result.returncode, 125, mode)
            self.assertEqual(result.stdout, "", mode)
            self.assertIn("Can't find source path /nonexistent/devroot-path", result.stderr)
            self.assertIn("devroot: bubblewrap could not make the device root (its message is "
                          "above); nothing was run; the host's /var, /dev/shm and kernel log "
                          "are never used instead", result.stderr)

    def test_missing_bubblewrap_is_reported(self):
        result = subprocess.run([sys.executable, ARGS.devroot, "exec", "--", "/bin/true"],
                                capture_output=True, text=True,
                                env=dict(os.environ, PATH="/nonexistent"))
        self.assertEqual(result.returncode, 125)
        self.assertEqual(result.stderr,
                         "devroot: bubblewrap (bwrap) is not installed; it makes the device root "
                         "(Debian package 'bubblewrap'); nothing was run; the host's /var, "
                         "/dev/shm and kernel log are never used instead\n")


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--devroot", required=True)
    parser.add_argument("--service", required=True)
    parser.add_argument("--broker", required=True)
    parser.add_argument("--bind-ro", required=True)
    parser.add_argument("--emulator", default="")
    ARGS, rest = parser.parse_known_args()
    started = time.monotonic()
    program = unittest.main(argv=[sys.argv[0]] + rest, exit=False, verbosity=2)
    print(f"devroot system tests: {time.monotonic() - started:.1f} s")
    return 0 if program.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
