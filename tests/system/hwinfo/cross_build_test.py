"""The record written by one build reads back identically in the other:
the ARM hwinfo (through the emulator) and the native hwinfo on one device
root, and the same assignments leaving the same bytes in either build.

Usage: cross_build_test.py --devroot PATH --arm-hwinfo BINARY --emulator CMD
                           --native-build DIR [--bind-ro PATH]...
An empty --native-build skips the test (exit status 77) with a message.
"""

import argparse
import os
import sys
import unittest

import hwinfodevice as hw

CONFIG = argparse.Namespace()
SKIPPED = 77

KEYS = ["version", "length", "checksum", "serial", "board", "revision", "k",
        *hw.INTEGERS, "knob_linearization", "update_requested", "unused", "boot_failed",
        "boot_failed_counter"]

FIRST_VALUES = [
    "serial=SN-ARM-0001", "board=mainboard-a", "revision=3.1", "k=0.9975",
    "knob_position_min=17", "knob_position_max=4000000000", "slider_position_min=3",
    "slider_position_max=1023", "zoom_zero_pos_x=2047", "zoom_zero_pos_y=2049",
    "bemf_gain=-1", "cal_comp=65536", "cal_bemf=12abc",
    "knob_linearization=0,3,9,27,81,243,729", "update_requested=1", "boot_failed=1",
    "boot_failed_counter=9",
]

SECOND_VALUES = [
    "serial=SN-X86-0002", "board=mainboard-b", "revision=3.2", "k=",
    "knob_position_min=4294967295", "cal_comp=7", "knob_linearization=1=2=3",
    "update_requested=0", "boot_failed_counter=31",
]


class CrossBuildTest(unittest.TestCase):
    def setUp(self):
        self.arm = hw.program(CONFIG.arm_hwinfo, CONFIG.emulator)
        self.native = hw.program(CONFIG.native_hwinfo, "")

    def device(self):
        device = hw.Device(CONFIG.devroot, CONFIG.bind_ro)
        self.addCleanup(device.close)
        return device

    def run_ok(self, device, program, *arguments):
        status, out, err = device.run(program, *arguments)
        self.assertEqual(status, 0, f"{program} {arguments}: {err}")
        return out

    def views(self, device, program):
        """Everything program reports about the record: print and every key."""
        return [self.run_ok(device, program, "print"),
                *(self.run_ok(device, program, "get", key) for key in KEYS)]

    def assert_same_reading(self, device):
        mmc = device.mmc_image()
        page = device.register_page()
        self.assertEqual(self.views(device, self.arm), self.views(device, self.native))
        self.assertEqual(device.mmc_image(), mmc, "reading changed the record")
        self.assertEqual(device.register_page(), page, "reading changed the register")

    def test_record_written_by_arm_reads_the_same_natively(self):
        device = self.device()
        self.run_ok(device, self.arm, "set", *FIRST_VALUES)
        self.assertEqual(self.run_ok(device, self.native, "get", "serial"), "SN-ARM-0001\n")
        self.assertEqual(self.run_ok(device, self.native, "get", "bemf_gain"), "4294967295\n")
        self.assert_same_reading(device)

    def test_record_written_natively_reads_the_same_on_arm(self):
        device = self.device()
        self.run_ok(device, self.native, "set", *FIRST_VALUES)
        self.run_ok(device, self.native, "set", *SECOND_VALUES)
        self.assertEqual(self.run_ok(device, self.arm, "get", "knob_linearization"), "1=2=3\n")
        self.assertEqual(self.run_ok(device, self.arm, "get", "boot_failed_counter"), "15\n")
        self.assert_same_reading(device)

    def test_both_builds_write_the_same_bytes(self):
        arm_device = self.device()
        native_device = self.device()
        for values in (FIRST_VALUES, SECOND_VALUES):
            self.run_ok(arm_device, self.arm, "set", *values)
            self.run_ok(native_device, self.native, "set", *values)
            self.assertEqual(arm_device.mmc_image(), native_device.mmc_image())
            self.assertEqual(arm_device.register_page(), native_device.register_page())
        record = arm_device.record()
        self.assertEqual(hw.word(record, hw.CHECKSUM),
                         hw.reference_crc(record[12:hw.RECORD_SIZE]))
        self.run_ok(arm_device, self.arm, "reset")
        self.run_ok(native_device, self.native, "reset")
        self.assertEqual(arm_device.mmc_image(), native_device.mmc_image())


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--devroot", required=True)
    parser.add_argument("--arm-hwinfo", required=True)
    parser.add_argument("--emulator", required=True)
    parser.add_argument("--native-build", default="")
    parser.add_argument("--bind-ro", action="append", default=[])
    options, rest = parser.parse_known_args()
    if not options.native_build:
        print("SKIPPED: no native build to compare with; configure the ARM build with "
              "-DSM_NATIVE_BUILD_DIR=<native build folder>")
        return SKIPPED
    native = os.path.join(options.native_build, "apps", "hwinfo", "hwinfo")
    if not os.access(native, os.X_OK):
        print(f"FAILED: {native} is missing; build the target hwinfo in {options.native_build}")
        return 1
    vars(CONFIG).update(vars(options))
    CONFIG.native_hwinfo = native
    CONFIG.bind_ro = [*options.bind_ro, os.path.abspath(options.native_build)]
    result = unittest.main(argv=[sys.argv[0], *rest], verbosity=2, exit=False).result
    return 0 if result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
