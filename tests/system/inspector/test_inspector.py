#!/usr/bin/python3
"""System tests of the inspector, `memtool serve`: the real broker, settings
service and memtool in device roots made by tools/devroot/devroot, run from
the host.  The scenarios themselves run inside the root (scenarios.py).

  --suite api      the API through an HTTP client: every route and status,
                   the token, a foreign origin, read-only, a client that stops
                   reading, the service and the broker restarted under it, an
                   ordinary user in the daemons' group and one outside it
  --suite browser  the page in Debian's Chromium through playwright-core; exits
                   77 (skipped) with the reason when Chromium or the npm
                   package is not installed (tools/install-deps installs both)
"""

import argparse
import os
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

ARGS = None
HERE = os.path.dirname(os.path.realpath(__file__))
SYSTEM_TESTS = os.path.dirname(HERE)
SKIPPED = 77


def emulated(program):
    return shlex.join(shlex.split(ARGS.emulator) + [program])


class InspectorTest(unittest.TestCase):
    def setUp(self):
        self.work = tempfile.TemporaryDirectory(prefix="inspector-test-")
        self.root = os.path.join(self.work.name, "root")

    def tearDown(self):
        self.work.cleanup()

    def scenario(self, name, *options, binds=(), user_switch=False):
        command = ["/usr/bin/python3", os.path.join(HERE, "scenarios.py"), name,
                   "--memtool", emulated(ARGS.memtool), "--service", emulated(ARGS.service),
                   "--broker", emulated(ARGS.broker), *options]
        argv = [ARGS.devroot, "exec", "--keep", self.root, "--bind-ro", ARGS.build,
                "--bind-ro", SYSTEM_TESTS]
        if user_switch:
            argv.append("--user-switch")
        for path in binds:
            argv += ["--bind", path]
        done = subprocess.run(argv + ["--", *command], capture_output=True, text=True,
                              timeout=540)
        sys.stderr.write(done.stdout)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return done.stdout


class ApiTest(InspectorTest):
    def test_routes_statuses_access_and_a_client_that_stops_reading(self):
        output = self.scenario("api")
        self.assertIn("statuses: 200 400 401 403 404 405 as listed\n", output)
        self.assertIn("serve: exit status 0\n", output)

    def test_the_service_and_the_broker_restarted_under_a_running_inspector(self):
        output = self.scenario("restart")
        self.assertIn("events after the broker's restart: yes\n", output)
        self.assertIn("serve: exit status 0\n", output)


    def test_an_ordinary_user_in_the_daemons_group_and_one_outside_it(self):
        output = self.scenario("group", user_switch=True)
        self.assertIn("member of the group: reads, sets and streams\n", output)
        self.assertIn("outside the group: memtool serve: /dev/shm/", output)


class BrowserTest(InspectorTest):
    def test_the_page_in_chromium(self):
        os.makedirs(ARGS.screenshots, exist_ok=True)
        for name in ("inspector.png", "inspector-tablet.png"):
            if os.path.exists(os.path.join(ARGS.screenshots, name)):
                os.remove(os.path.join(ARGS.screenshots, name))
        output = self.scenario("browser", "--screenshots", ARGS.screenshots,
                               binds=[ARGS.screenshots])
        self.assertIn("refusal shown: ", output)
        for name in ("inspector.png", "inspector-tablet.png"):
            self.assertTrue(os.path.getsize(os.path.join(ARGS.screenshots, name)) > 0)


def browser_missing():
    """Why the browser test cannot run here, or None."""
    if not os.path.exists("/usr/bin/chromium"):
        return "Debian's chromium is not installed (tools/install-deps installs it)"
    if shutil.which("node") is None:
        return "node is not installed"
    if not os.path.isdir(os.path.join(HERE, "browser", "node_modules", "playwright-core")):
        return ("playwright-core is not installed in tests/system/inspector/browser "
                "(tools/install-deps runs npm ci there)")
    return None


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--suite", choices=["api", "browser"], required=True)
    parser.add_argument("--devroot", required=True)
    parser.add_argument("--service", required=True)
    parser.add_argument("--broker", required=True)
    parser.add_argument("--memtool", required=True)
    parser.add_argument("--build", required=True)
    parser.add_argument("--emulator", default="")
    parser.add_argument("--screenshots", help="where the browser test keeps its screenshots")
    ARGS, rest = parser.parse_known_args()
    if ARGS.suite == "browser":
        reason = browser_missing()
        if reason:
            print(f"skipped: {reason}")
            return SKIPPED
    test = ApiTest if ARGS.suite == "api" else BrowserTest
    suite = unittest.defaultTestLoader.loadTestsFromTestCase(test)
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
