"""The hwinfo tool on a device root: every command, the record and register
bytes it leaves, and the command lines it must refuse without writing.

Usage: tool_test.py --devroot PATH --hwinfo BINARY [--emulator CMD] [--bind-ro PATH]...
"""

import argparse
import json
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

    def test_help_version_and_wrong_usage(self):
        for word in ("--help", "-h", "help"):
            status, out, _ = self.hwinfo(word)
            self.assertEqual(status, 0)
            self.assertTrue(out.startswith("Usage: hwinfo COMMAND"), out)
            for command in ("print", "parameters", "get", "set", "reset", "keys"):
                self.assertIn(f"\n  hwinfo {command}", out)
        status, out, _ = self.hwinfo("--version")
        self.assertEqual(status, 0)
        self.assertRegex(out, r"^hwinfo [0-9]+\.[0-9]+\.[0-9]+\n$")
        for command in ("print", "parameters", "get", "set", "reset", "keys"):
            status, out, _ = self.hwinfo(command, "--help")
            self.assertEqual(status, 0, command)
            self.assertTrue(out.startswith(f"Usage: hwinfo {command}"), out)
        for arguments in ([], ["frobnicate"], ["get"], ["get", "a", "b"], ["set"],
                          ["print", "x"], ["reset", "x"], ["print", "--jsn"]):
            status, out, err = self.hwinfo(*arguments)
            self.assertEqual(status, 2, arguments)
            self.assertEqual(out, "")
            self.assertIn("Usage: hwinfo", err)
        status, _, err = self.hwinfo("prnt")
        self.assertEqual(err.splitlines()[0], 'hwinfo: unknown command "prnt". Did you mean: print?')

    def test_reading_an_empty_device_fails_and_writes_nothing(self):
        mmc = self.device.mmc_image()
        for arguments in (["print"], ["print", "--json"], ["get", "serial"], ["parameters"]):
            status, out, err = self.hwinfo(*arguments)
            self.assertEqual(status, 1, arguments)
            self.assertEqual(out, "")
            self.assertEqual(err, f"hwinfo {arguments[0]}: the hardware record is not valid: its "
                                  "stored length 0 is shorter than the record's layout; it is "
                                  "left as it is (hwinfo reset writes the defaults)\n")
            self.assertEqual(self.device.mmc_image(), mmc)
            self.assertEqual(self.device.kernel_log(), "")

    def test_set_on_an_empty_device_extends_the_record_first(self):
        status, out, err = self.hwinfo("set", "serial=SN-0")
        self.assertEqual(status, 0, err)
        self.assertEqual(err, "hwinfo set: the hardware record was not valid (its stored length 0 "
                              "is shorter than the record's layout); it is repaired first with "
                              "the record's defaults\n")
        self.assertIn("Differents length, setting new values to default.",
                      self.device.kernel_log())
        record = self.device.record()
        self.assert_valid_record(record)
        self.assertEqual(hw.text(record, hw.SERIAL, 30), "SN-0")
        self.assertEqual(record[hw.BOARD:hw.RECORD_SIZE], bytes(hw.RECORD_SIZE - hw.BOARD))
        status, out, err = self.hwinfo("print")
        self.assertEqual(status, 0, err)
        checksum = hw.word(record, hw.CHECKSUM)
        lines = out.splitlines()
        self.assertEqual(len(lines), 20)
        self.assertEqual(lines[0], "                  version:         5 (0x00000005)")
        self.assertEqual(lines[2], "                 checksum: %9u (0x%08x)" % (checksum, checksum))
        self.assertEqual(lines[3], "                   serial: SN-0")
        self.assertEqual(lines[17], "         update_requested:         0 (0x00000000)")
        self.assertNotIn("unused", out)

    def test_print_and_get_as_json(self):
        self.written("serial=SN-\"5\"", "board=B\\1", "cal_comp=4294967295")
        self.device.set_register(0x80000015)
        status, out, err = self.hwinfo("print", "--json")
        self.assertEqual(status, 0, err)
        values = json.loads(out)
        record = self.device.record()
        self.assertEqual(list(values), ["version", "length", "checksum", "serial", "board",
                                        "revision", "k", *hw.INTEGERS, "knob_linearization",
                                        "update_requested", "boot_failed", "boot_failed_counter"])
        self.assertEqual(values["version"], 5)
        self.assertEqual(values["checksum"], hw.word(record, hw.CHECKSUM))
        self.assertEqual(values["serial"], 'SN-"5"')
        self.assertEqual(values["board"], "B\\1")
        self.assertEqual(values["cal_comp"], 4294967295)
        self.assertEqual(values["update_requested"], 1)
        self.assertEqual(values["boot_failed_counter"], 5)
        self.assertTrue(out.startswith('{\n  "version": 5,\n'), out)
        for key, expected in (("serial", '"SN-\\"5\\""\n'), ("cal_comp", "4294967295\n"),
                              ("boot_failed", "1\n"), ("k", '""\n')):
            status, out, err = self.hwinfo("get", key, "--json")
            self.assertEqual((status, out), (0, expected), err)

    def test_keys_need_no_device(self):
        with open(self.device.path("mmcblk1"), "r+b") as image:
            image.truncate(0)
        status, out, err = self.hwinfo("keys")
        self.assertEqual(status, 0, err)
        self.assertEqual(out.split(), ["version", "length", "checksum", *EXPECTED_PARAMETERS.split()[:13],
                                       "knob_linearization", "update_requested", "boot_failed",
                                       "boot_failed_counter"])
        status, out, err = self.hwinfo("keys", "--writable")
        self.assertEqual((status, out), (0, EXPECTED_PARAMETERS.replace(" ", "\n")), err)

    def test_parameters(self):
        self.written("serial=SN-1")
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

    def test_get_of_an_unknown_key_is_wrong_usage(self):
        status, out, err = self.hwinfo("get", "nothing")
        self.assertEqual(status, 2)
        self.assertEqual(out, "")
        self.assertEqual(err, "hwinfo get: unknown key: nothing\nUsage: hwinfo get KEY [--json]\n")
        status, out, err = self.hwinfo("get", "serail")
        self.assertEqual(status, 2)
        self.assertEqual(err.splitlines()[0], "hwinfo get: unknown key: serail. Did you mean: serial?")

    def test_refused_command_lines_change_nothing(self):
        self.written("serial=SN-1", "cal_comp=3")
        self.device.set_register(0x8000001A)
        refusals = [
            (["serial=NEW", "nothing=1"], 2, "hwinfo set: unknown key: nothing\n"),
            (["serial=NEW", "serial"], 2, "hwinfo set: not a KEY=VALUE assignment: serial\n"),
            (["serial=NEW", "version=4"], 1, "hwinfo set: version: version is private.\n"),
            (["board=NEW", "checksum=0"], 1, "hwinfo set: checksum: checksum is private.\n"),
            (["serial=NEW", "unused=5"], 1, "hwinfo set: unused: unused is hidden.\n"),
            (["board=NEW", "serial=" + "x" * 29], 1, "hwinfo set: serial: String too long\n"),
            (["serial=NEW", "cal_comp=abc"], 1, "hwinfo set: cal_comp: not a number: abc\n"),
            (["serial=NEW", "cal_comp=4294967296"], 1,
             "hwinfo set: cal_comp: number out of range: 4294967296\n"),
            (["update_requested=0", "boot_failed=x"], 1,
             "hwinfo set: boot_failed: not a number: x\n"),
            (["cal_comp=x", "version=1", "k=" + "k" * 40], 1,
             "hwinfo set: cal_comp: not a number: x\nhwinfo set: version: version is private.\n"
             "hwinfo set: k: String too long\n"),
        ]
        for assignments, expected_status, message in refusals:
            with self.subTest(assignments=assignments):
                mmc = self.device.mmc_image()
                page = self.device.register_page()
                status, out, err = self.hwinfo("set", *assignments)
                self.assertEqual(status, expected_status)
                self.assertEqual(out, "")
                self.assertTrue(err.startswith(message + "hwinfo set: nothing written\n"), err)
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

    def test_damaged_record_is_reported_by_reading_and_repaired_by_set(self):
        self.written("serial=SN-3", "cal_bemf=8")
        record = bytearray(self.device.record())
        record[hw.SERIAL + 1] ^= 0x01
        self.device.write_record(bytes(record))
        mmc = self.device.mmc_image()
        stored = hw.word(record, hw.CHECKSUM)
        computed = hw.reference_crc(record[12:hw.RECORD_SIZE])
        for arguments in (["get", "serial"], ["print"], ["parameters"]):
            status, out, err = self.hwinfo(*arguments)
            self.assertEqual((status, out), (1, ""), arguments)
            self.assertEqual(err, f"hwinfo {arguments[0]}: the hardware record is not valid: its "
                                  f"stored checksum 0x{stored:08x} does not match its contents "
                                  f"(0x{computed:08x}); it is left as it is (hwinfo reset writes "
                                  "the defaults)\n")
            self.assertEqual(self.device.mmc_image(), mmc)
            self.assertNotIn("Wrong checksum", self.device.kernel_log())
        status, _, err = self.hwinfo("set", "board=B-4")
        self.assertEqual(status, 0, err)
        self.assertIn("it is repaired first", err)
        self.assertIn("Wrong checksum, setting defaults.", self.device.kernel_log())
        record = self.device.record()
        self.assert_valid_record(record)
        self.assertEqual(hw.text(record, hw.SERIAL, 30), "0000")
        self.assertEqual(hw.text(record, hw.BOARD, 30), "B-4")
        self.assertEqual(hw.word(record, hw.INTEGERS["cal_bemf"]), 0)

    def test_erased_record_is_reported_and_left_as_it_is(self):
        self.device.write_record(b"\xff" * hw.RECORD_REGION)
        mmc = self.device.mmc_image()
        status, out, err = self.hwinfo("print")
        self.assertEqual((status, out), (1, ""))
        self.assertIn("its stored length 4294967295 reaches past the record's region", err)
        self.assertEqual(self.device.mmc_image(), mmc)

    def test_truncated_image_fails_and_stays_as_it_is(self):
        with open(self.device.path("mmcblk1"), "r+b") as image:
            image.truncate(hw.RECORD_OFFSET + 10)
        mmc = self.device.mmc_image()
        status, out, err = self.hwinfo("print")
        self.assertEqual(status, 1)
        self.assertEqual(out, "")
        self.assertTrue(err.startswith("hwinfo print: cannot open the hardware record (/dev/mmcblk1) "
                                       "and the boot status register (/dev/mem): /dev/mmcblk1 ends "
                                       "before the block"), err)
        self.assertNotIn(".cpp:", err)
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
