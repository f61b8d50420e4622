"""The hwinfo tool on a device root: every command, the record and register
bytes it leaves, and the command lines it must refuse without writing.

Usage: tool_test.py --devroot PATH --hwinfo BINARY [--emulator CMD] [--bind-ro PATH]...
"""

import argparse
import struct
import sys
import unittest

import hwinfodevice as hw

CONFIG = argparse.Namespace()

EXPECTED_PARAMETERS = (
    "serial board revision k knob_position_min knob_position_max slider_position_min "
    "slider_position_max zoom_zero_pos_x zoom_zero_pos_y bemf_gain cal_comp cal_bemf "
    "knob_linearization update_requested boot_failed boot_failed_counter\n")


class ToolTest(unittest.TestCase):
    def setUp(self):
        self.device = hw.Device(CONFIG.devroot, CONFIG.bind_ro)
        self.addCleanup(self.device.close)
        self.program = hw.program(CONFIG.hwinfo, CONFIG.emulator)

    def hwinfo(self, *arguments):
        return self.device.run(self.program, *arguments)

    def assert_valid_record(self, record):
        self.assertEqual(hw.word(record, hw.VERSION), 5)
        self.assertEqual(hw.word(record, hw.LENGTH), hw.RECORD_SIZE)
        self.assertEqual(hw.word(record, hw.CHECKSUM),
                         hw.reference_crc(record[12:hw.RECORD_SIZE]))

    def written(self, *assignments):
        status, out, err = self.hwinfo("set", *assignments)
        self.assertEqual(status, 0, err)
        self.assertEqual(out, "")

    def test_help_and_wrong_usage(self):
        status, out, _ = self.hwinfo("--help")
        self.assertEqual(status, 0)
        self.assertIn("Usage: hwinfo COMMAND", out)
        for arguments in ([], ["frobnicate"], ["get"], ["get", "a", "b"], ["set"],
                          ["print", "x"], ["reset", "x"]):
            status, _, err = self.hwinfo(*arguments)
            self.assertEqual(status, 2, arguments)
            self.assertIn("Usage: hwinfo COMMAND", err)

    def test_print_on_an_empty_device_extends_the_record(self):
        status, out, err = self.hwinfo("print")
        self.assertEqual(status, 0, err)
        record = self.device.record()
        self.assert_valid_record(record)
        self.assertEqual(record[12:], bytes(len(record) - 12))
        checksum = hw.word(record, hw.CHECKSUM)
        lines = out.splitlines()
        self.assertEqual(len(lines), 20)
        self.assertEqual(lines[0], "                  version:         5 (0x00000005)")
        self.assertEqual(lines[2], "                 checksum: %9u (0x%08x)" % (checksum, checksum))
        self.assertEqual(lines[3], "                   serial: ")
        self.assertEqual(lines[17], "         update_requested:         0 (0x00000000)")
        self.assertNotIn("unused", out)
        self.assertIn("Differents length, setting new values to default.",
                      self.device.kernel_log())

    def test_parameters(self):
        status, out, _ = self.hwinfo("parameters")
        self.assertEqual(status, 0)
        self.assertEqual(out, EXPECTED_PARAMETERS)

    def test_set_several_fields_and_read_them_back(self):
        self.device.set_register(0x00000010)
        self.written("serial=SN-7", "board=main=c", "knob_position_min=12",
                     "boot_failed_counter=21", "update_requested=1")
        record = self.device.record()
        self.assert_valid_record(record)
        self.assertEqual(hw.text(record, hw.SERIAL, 30), "SN-7")
        self.assertEqual(hw.text(record, hw.BOARD, 30), "main=c")
        self.assertEqual(record[132:136], struct.pack("<I", 12))
        self.assertEqual(self.device.register(), 0x80000015)
        for key, value in (("serial", "SN-7"), ("board", "main=c"),
                           ("knob_position_min", "12"), ("boot_failed", "1"),
                           ("boot_failed_counter", "5"), ("update_requested", "1")):
            status, out, err = self.hwinfo("get", key)
            self.assertEqual((status, out), (0, value + "\n"), err)

    def test_get_of_an_unknown_key_fails(self):
        status, out, err = self.hwinfo("get", "nothing")
        self.assertEqual(status, 1)
        self.assertEqual(out, "")
        self.assertIn("unknown key: nothing", err)

    def test_refused_command_lines_change_nothing(self):
        self.written("serial=SN-1", "cal_comp=3")
        self.device.set_register(0x8000001A)
        refusals = [
            (["serial=NEW", "nothing=1"], "unknown key: nothing"),
            (["serial=NEW", "version=4"], "version is private."),
            (["board=NEW", "checksum=0"], "checksum is private."),
            (["board=NEW", "serial=" + "x" * 29], "String too long"),
            (["serial=NEW", "cal_comp=abc"], "not a number: abc"),
            (["serial=NEW", "cal_comp=4294967296"], "number out of range"),
            (["update_requested=0", "boot_failed=x"], "not a number: x"),
            (["serial=NEW", "serial"], "not a KEY=VALUE assignment: serial"),
        ]
        for assignments, message in refusals:
            with self.subTest(assignments=assignments):
                mmc = self.device.mmc_image()
                page = self.device.register_page()
                status, out, err = self.hwinfo("set", *assignments)
                self.assertEqual(status, 1)
                self.assertEqual(out, "")
                self.assertIn(message, err)
                self.assertEqual(self.device.mmc_image(), mmc)
                self.assertEqual(self.device.register_page(), page)

    def test_reset_restores_the_defaults_and_keeps_the_register(self):
        self.written("serial=SN-9", "k=kk", "cal_bemf=77", "boot_failed=1")
        status, _, err = self.hwinfo("reset")
        self.assertEqual(status, 0, err)
        record = self.device.record()
        self.assert_valid_record(record)
        self.assertEqual(hw.text(record, hw.SERIAL, 30), "0000")
        self.assertEqual(hw.text(record, hw.BOARD, 30), "prototype")
        self.assertEqual(hw.text(record, hw.REVISION, 30), "1.0")
        self.assertEqual(hw.text(record, hw.K, 30), "")
        self.assertEqual(hw.word(record, hw.INTEGERS["cal_bemf"]), 0)
        self.assertEqual(self.device.register(), 0x00000010)

    def test_damaged_record_is_reset_when_opened(self):
        self.written("serial=SN-3")
        record = bytearray(self.device.record())
        record[hw.SERIAL + 1] ^= 0x01
        self.device.write_record(bytes(record))
        status, out, _ = self.hwinfo("get", "serial")
        self.assertEqual((status, out), (0, "0000\n"))
        self.assertIn("Wrong checksum, setting defaults.", self.device.kernel_log())

    def test_truncated_image_fails_and_stays_as_it_is(self):
        with open(self.device.path("mmcblk1"), "r+b") as image:
            image.truncate(hw.RECORD_OFFSET + 10)
        mmc = self.device.mmc_image()
        status, out, err = self.hwinfo("print")
        self.assertEqual(status, 1)
        self.assertEqual(out, "")
        self.assertIn("/dev/mmcblk1 ends before the block", err)
        self.assertEqual(self.device.mmc_image(), mmc)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--devroot", required=True)
    parser.add_argument("--hwinfo", required=True)
    parser.add_argument("--emulator", default="")
    parser.add_argument("--bind-ro", action="append", default=[])
    options, rest = parser.parse_known_args()
    vars(CONFIG).update(vars(options))
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2)


if __name__ == "__main__":
    main()
