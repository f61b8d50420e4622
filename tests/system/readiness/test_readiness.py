#!/usr/bin/python3
"""The broker and the settings service under a played init system that asks
for READY=1 through NOTIFY_SOCKET (initsystem.py, run in a device root)."""

import argparse
import sys
import unittest

import readinesscheck

ARGS = None


class ReadinessTest(unittest.TestCase):
    def test_ready_is_notified_after_start_up_and_replaces_sigusr1(self):
        done = readinesscheck.play_init_system(ARGS.devroot, ARGS.broker, ARGS.service,
                                               ARGS.catalogue, [ARGS.build], ARGS.emulator)
        self.assertEqual(done.stdout.splitlines(), readinesscheck.EXPECTED_REPORT,
                         done.stdout + done.stderr)
        self.assertEqual(done.returncode, 0, done.stderr)


def main():
    global ARGS
    parser = argparse.ArgumentParser()
    parser.add_argument("--devroot", required=True)
    parser.add_argument("--broker", required=True)
    parser.add_argument("--service", required=True)
    parser.add_argument("--catalogue", required=True)
    parser.add_argument("--build", required=True, help="build folder, bound read-only")
    parser.add_argument("--emulator", default="")
    ARGS, rest = parser.parse_known_args()
    unittest.main(argv=[sys.argv[0]] + rest, verbosity=2)


if __name__ == "__main__":
    main()
