#!/usr/bin/python3
"""System tests of the settings service: the real settings-manager and
message-broker in a device root made by tools/devroot/devroot, run from the
host.  Scenarios that act on the device from inside run as inside.py.
"""

import argparse
import collections
import json
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

ARGS = None
HERE = os.path.dirname(os.path.realpath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "..", "..", "tools", "devroot"))
import kmsglines  # noqa: E402
SERVICE_FIELD = f"{'settings-manager':>20}  "


def line_pattern(level, source, message):
    """A whole kernel-log line of the service: program, level, location, message."""
    return re.compile(re.escape(SERVICE_FIELD + f"{level:<12}" + f"{source:>20}:") +
                      r"[ \d]{3}\d " + re.escape(message) + "$")


def emulated(program):
    """A program of the build as one shell command, through the emulator if there is one."""
    return shlex.join(shlex.split(ARGS.emulator) + [program])


def inside(scenario, *options):
    """The command line that plays one scenario of inside.py in a device root."""
    return ["/usr/bin/python3", os.path.join(HERE, "inside.py"), scenario,
            "--memtool", emulated(ARGS.memtool), *options]


class ServiceTest(unittest.TestCase):
    def setUp(self):
        self.work = tempfile.TemporaryDirectory(prefix="service-test-")
        self.root = os.path.join(self.work.name, "root")

    def tearDown(self):
        self.work.cleanup()

    def devroot_run(self, *options, command=(), root_option="--keep"):
        argv = [ARGS.devroot, "run", root_option, self.root, "--bind-ro", ARGS.build,
                "--bind-ro", HERE, "--broker", ARGS.broker, "--service", ARGS.service,
                "--timeout", "20", *options]
        if ARGS.emulator:
            argv += ["--emulator", ARGS.emulator]
        if command:
            argv += ["--", *command]
        return subprocess.run(argv, capture_output=True, text=True, timeout=240)

    def devroot_exec(self, *command, root=None, root_option="--keep"):
        """Runs one program of the build (through the emulator, unless it is a tool of the
        host) in a new device root, or with root_option "--root" in the existing one."""
        emulator = shlex.split(ARGS.emulator) if command[0].startswith(ARGS.build) else []
        argv = [ARGS.devroot, "exec", root_option, root or self.root, "--bind-ro", ARGS.build,
                "--bind-ro", HERE, "--", *emulator, *command]
        return subprocess.run(argv, capture_output=True, text=True, timeout=240)

    def scenario(self, name, *options):
        command = inside(name, "--catalogue", ARGS.catalogue, "--service", emulated(ARGS.service))
        done = self.devroot_run(*options, command=command)
        report = done.stdout + done.stderr
        self.assertEqual(done.returncode, 0, report)
        self.assertIn("ready\n", done.stdout)
        self.assertIn("command: exit status 0\n", done.stdout, report)
        self.assertIn("service: exit status 0\n", done.stdout, report)
        return done.stdout

    def log(self):
        return kmsglines.read_lines(os.path.join(self.root, "kmsg.log"))

    def service_messages(self):
        return [line[60:] for line in self.log() if line.startswith(SERVICE_FIELD)]

    def file(self, path):
        with open(os.path.join(self.root, "var", path), encoding="utf-8") as stream:
            return stream.read()

    def assertLogged(self, level, source, message):
        pattern = line_pattern(level, source, message)
        self.assertTrue(any(pattern.match(line) for line in self.log()),
                        f"no line {pattern.pattern} in\n" + "\n".join(self.log()))


class LifecycleTest(ServiceTest):
    def test_sigterm_in_the_loop_ends_with_status_zero_and_a_saved_file(self):
        done = self.devroot_run("--stop-after", "1.5")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertEqual(done.stdout.splitlines(),
                         ["broker: socket ready", "ready", "service: exit status 0",
                          "broker: exit status 0"])
        self.assertLogged("LogLight", "eventpoll.cpp", "SIG 15: Terminated")
        self.assertLogged("LogLight", "productinfo.cpp", "SW: 0.0.0-dev unknown")
        current = self.file("SETUPS/.current.stp")
        self.assertTrue(current.startswith('{\n"AUXTorque": 2,\n'))
        self.assertTrue(current.endswith('\n"ZoomTorque": 2\n}'))

    def test_a_folder_that_cannot_be_created_reports_no_readiness_and_fails(self):
        made = self.devroot_run("--stop-after", "0")
        self.assertEqual(made.returncode, 0, made.stdout + made.stderr)
        var = os.path.join(self.root, "var")
        shutil.rmtree(os.path.join(var, "SETUPS"))
        os.truncate(os.path.join(self.root, "kmsg.log"), 0)
        os.chmod(var, 0o555)
        try:
            done = self.devroot_run("--stop-after", "5", root_option="--root")
        finally:
            os.chmod(var, 0o755)
        self.assertEqual(done.stdout.splitlines(),
                         ["broker: socket ready",
                          "not ready (service ended before signalling, exit status 1)",
                          "service: ended by itself, exit status 1", "broker: exit status 0"],
                         done.stderr)
        self.assertFalse(os.path.exists(os.path.join(var, "SETUPS")))
        self.assertLogged("Error", "settingsmanager.cpp", "Could not create the settings folder.")
        self.assertLogged("Error", "settingsmanager.cpp",
                          "Monitoring the user-setup folder is not possible")
        messages = self.service_messages()
        self.assertNotIn("SIG 15: Terminated", messages)

    def test_a_missing_product_info_file_is_unknown(self):
        done = self.devroot_run("--stop-after", "0.5", "--no-product-info")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertLogged("Error", "productinfo.cpp", "Could not read product info.")
        self.assertIn('"ProductVersion": "Unknown",\n', self.file("SETUPS/.current.stp"))


class CommandLineTest(ServiceTest):
    def assert_untouched_device(self):
        self.assertEqual(os.listdir(os.path.join(self.root, "shm")), [])
        self.assertEqual(os.listdir(os.path.join(self.root, "var", "volatile")), [])
        self.assertFalse(os.path.exists(os.path.join(self.root, "var", "SETUPS")))
        with open(os.path.join(self.root, "kmsg"), encoding="utf-8") as log:
            self.assertEqual(log.read(), "")

    def test_version_prints_the_project_version_and_touches_nothing(self):
        done = self.devroot_exec(ARGS.service, "--version")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertRegex(done.stdout, r"^settings-manager \d+\.\d+\.\d+\n$")
        self.assert_untouched_device()

    def test_help_prints_the_usage_and_touches_nothing(self):
        done = self.devroot_exec(ARGS.service, "--help")
        self.assertEqual(done.returncode, 0, done.stderr)
        self.assertTrue(done.stdout.startswith("Usage: settings-manager [--help | --version]\n"))
        self.assert_untouched_device()

    def test_any_other_argument_is_a_usage_error_that_touches_nothing(self):
        done = self.devroot_exec(ARGS.service, "--frobnicate")
        self.assertEqual(done.returncode, 2)
        self.assertEqual(done.stdout, "")
        self.assertIn("unexpected argument '--frobnicate'", done.stderr)
        self.assert_untouched_device()

    def test_a_second_instance_touches_nothing_of_the_running_one(self):
        output = self.scenario("second-instance")
        self.assertIn("second instance: exit status 1\n", output)
        self.assertIn("already running", output)
        self.assertNotIn("Waiting for server", self.service_messages()[1:])


class FailedStartTest(ServiceTest):
    def test_an_error_that_ends_the_start_is_logged_and_the_settings_file_stays(self):
        made = self.devroot_exec("/bin/true")
        self.assertEqual(made.returncode, 0, made.stderr)
        seed = os.path.join(self.root, "var", "SETUPS")
        os.makedirs(seed)
        good = '{\n"FocusTorque": 4\n}'
        with open(os.path.join(seed, ".current.stp"), "w", encoding="utf-8") as stream:
            stream.write(good)
        # No broker: the connection cannot be made and start-up ends with an exception.
        done = self.devroot_exec(ARGS.service, root_option="--root")
        self.assertEqual(done.returncode, 1, done.stdout + done.stderr)
        self.assertEqual(self.file("SETUPS/.current.stp"), good)
        log = kmsglines.read_lines(os.path.join(self.root, "kmsg"))
        ending = re.compile(re.escape(SERVICE_FIELD + f"{'Error':<12}" + f"{'main.cpp':>20}:") +
                            r"[ \d]{3}\d Ending after an unexpected error: .+$")
        self.assertTrue(any(ending.match(line) for line in log), "\n".join(log))


class IdleTest(ServiceTest):
    def test_an_idle_unit_with_a_long_board_name_writes_nothing(self):
        seed = os.path.join(self.work.name, "seed")
        made = self.devroot_exec(ARGS.hwinfo, "set", "board=ABCDEFGHIJKLMNOPQRSTUVWXY", root=seed)
        self.assertEqual(made.returncode, 0, made.stdout + made.stderr)
        output = self.scenario("idle", "--mmc", os.path.join(seed, "mmcblk1"))
        self.assertIn("writes while idle: 0\n", output)
        self.assertIn('"ProductName": "ABCDEFGHIJKLMNOPQRS",\n', self.file("SETUPS/.current.stp"))


class BrokerTest(ServiceTest):
    def test_the_service_hears_exactly_its_subscribed_events(self):
        output = self.scenario("subscriptions")
        self.assertIn("subscriptions: 148\n", output)
        with open(ARGS.catalogue, encoding="utf-8") as stream:
            catalogue = json.load(stream)
        persistent = {variable["name"] for variable in catalogue["memories"][0]["variables"]}
        changed = collections.Counter(
            message.split(" changed to ")[0]
            for message in self.service_messages() if " changed to " in message)
        self.assertEqual(set(changed), persistent)
        # ProductVersion is heard once more: the service's own start-up change; so is
        # ProductName, which the device root's blank hardware record gives as the
        # cleared record's board name, "prototype".
        changed["ProductVersion"] -= 1
        changed["ProductName"] -= 1
        self.assertEqual(set(changed.values()), {1}, changed)

    def test_a_change_by_another_process_lands_in_the_current_file(self):
        output = self.scenario("change")
        self.assertIn('"FocusTorque": 3,\n', self.file("SETUPS/.current.stp"))
        self.assertIn("FocusTorque changed to 3", self.service_messages())
        self.assertRegex(output, r"written after: [01]\.\d{3}\n")

    def test_a_factory_reset_request_empties_the_folder_and_restores_defaults(self):
        self.scenario("factory-reset")
        messages = self.service_messages()
        self.assertIn("Factory reset started", messages)
        self.assertIn("Factory reset done", messages)
        self.assertEqual(os.listdir(os.path.join(self.root, "var", "SETUPS")), [".current.stp"])
        self.assertIn('"FocusTorque": 2,\n', self.file("SETUPS/.current.stp"))

    def test_a_user_setup_is_saved_and_loaded_again(self):
        output = self.scenario("user-setups")
        self.assertIn('"FocusTorque": 4,\n', self.file("SETUPS/Studio.stp"))
        self.assertIn('"FocusTorque": 4,\n', self.file("SETUPS/.current.stp"))
        self.assertIn('entry 0: {"UserSetupFileName": {"value":"Studio.stp"', output)


class BrokerRestartTest(ServiceTest):
    def test_the_service_survives_a_restart_of_the_broker(self):
        done = self.devroot_exec(*inside("broker-restart", "--catalogue", ARGS.catalogue,
                                         "--service", emulated(ARGS.service),
                                         "--broker", emulated(ARGS.broker)))
        log = kmsglines.read_lines(os.path.join(self.root, "kmsg"))
        report = done.stdout + done.stderr + "\n".join(log)
        self.assertEqual(done.returncode, 0, report)
        self.assertIn("broker: started again\n", done.stdout)
        self.assertIn("service: exit status 0\n", done.stdout)
        lost = [line for line in log if "Lost the connection to the message broker" in line]
        self.assertEqual(len(lost), 1, report)
        self.assertRegex(lost[0], line_pattern("Error", "settingsmanager.cpp",
                                               "Lost the connection to the message broker"))
        messages = [line[60:] for line in log if line.startswith(SERVICE_FIELD)]
        self.assertEqual(messages.count("Connected again"), 1, report)
        self.assertIn("FocusTorque changed to 3", messages)
        self.assertIn('"FocusTorque": 3,\n', self.file("SETUPS/.current.stp"))


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--devroot", required=True)
    parser.add_argument("--service", required=True)
    parser.add_argument("--broker", required=True)
    parser.add_argument("--memtool", required=True)
    parser.add_argument("--hwinfo", required=True)
    parser.add_argument("--catalogue", required=True)
    parser.add_argument("--build", required=True, help="build folder, bound read-only")
    parser.add_argument("--emulator", default="")
    ARGS, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)


if __name__ == "__main__":
    main()
