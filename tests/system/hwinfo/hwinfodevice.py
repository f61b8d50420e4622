"""A device root kept in a temporary folder, on which hwinfo programs run.

The root's eMMC image and physical-memory image are plain files in the
folder: the tests prepare and check them with ordinary file reads and writes
while the programs inside the root map them as the real devices.
"""

import os
import shlex
import struct
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.realpath(__file__)), "..", "..", "..",
                                "tools", "devroot"))
import kmsglines  # noqa: E402

RECORD_OFFSET = 0x100000
RECORD_REGION = 0x10000
RECORD_SIZE = 348
REGISTER_ADDRESS = 0x020CC068

# Offsets of the record's fields, from its byte layout.
VERSION, LENGTH, CHECKSUM = 0, 4, 8
SERIAL, BOARD, REVISION, K = 12, 42, 72, 102
INTEGERS = {
    "knob_position_min": 132, "knob_position_max": 136, "slider_position_min": 140,
    "slider_position_max": 144, "zoom_zero_pos_x": 148, "zoom_zero_pos_y": 152,
    "bemf_gain": 156, "cal_comp": 160, "cal_bemf": 164,
}
KNOB_LINEARIZATION = 168

# devroot's heading of the kernel-log lines it adds to the standard error of a
# program that failed; they are read through kernel_log() instead.
DEVROOT_LOG_HEADER = "devroot: kernel log of the run:\n"


def reference_crc(data):
    """CRC-32/MPEG-2 bit by bit: polynomial 0x04C11DB7, MSB first, initial
    value 0xFFFFFFFF, no final exclusive-or."""
    crc = 0xFFFFFFFF
    for byte in data:
        for bit in range(7, -1, -1):
            top = crc >> 31
            crc = (crc << 1) & 0xFFFFFFFF
            if ((byte >> bit) & 1) != top:
                crc ^= 0x04C11DB7
    return crc


def word(data, at):
    return struct.unpack_from("<I", data, at)[0]


def text(data, at, width):
    field = data[at:at + width]
    return field.split(b"\0", 1)[0].decode("latin-1")


class Device:
    """One device root; run() starts a program inside it."""

    def __init__(self, devroot, binds):
        self._temp = tempfile.TemporaryDirectory(prefix="hwinfo-root-")
        self.folder = os.path.join(self._temp.name, "root")
        self.devroot = devroot
        self.binds = binds
        self._devroot_exec(["--keep", self.folder], ["true"])

    def close(self):
        self._temp.cleanup()

    def _devroot_exec(self, root_options, command):
        line = [self.devroot, "exec", *root_options]
        for path in self.binds:
            line += ["--bind-ro", path]
        line += ["--", *command]
        return subprocess.run(line, capture_output=True, text=True, timeout=120)

    def run(self, program, *arguments):
        """Runs program (a list: emulator words and the binary) with arguments;
        returns (status, stdout, stderr), stderr as the program wrote it.  The
        kernel log holds this run's lines."""
        open(self.path("kmsg"), "wb").close()
        done = self._devroot_exec(["--root", self.folder], [*program, *arguments])
        return done.returncode, done.stdout, done.stderr.split(DEVROOT_LOG_HEADER, 1)[0]

    def path(self, name):
        return os.path.join(self.folder, name)

    def kernel_log(self):
        """The run's kernel-log text as the kernel keeps it (priority prefixes off)."""
        with open(self.path("kmsg"), "rb") as log:
            return kmsglines.strip(log.read().decode("latin-1"))

    def record(self):
        with open(self.path("mmcblk1"), "rb") as image:
            image.seek(RECORD_OFFSET)
            return image.read(RECORD_REGION)

    def write_record(self, data):
        with open(self.path("mmcblk1"), "r+b") as image:
            image.seek(RECORD_OFFSET)
            image.write(data)

    def mmc_image(self):
        with open(self.path("mmcblk1"), "rb") as image:
            return image.read()

    def register_page(self):
        """The register's page of physical memory, the words beside it included."""
        with open(self.path("mem"), "rb") as image:
            image.seek(REGISTER_ADDRESS & ~0xFFF)
            return image.read(0x1000)

    def register(self):
        return word(self.register_page(), REGISTER_ADDRESS & 0xFFF)

    def set_register(self, value):
        with open(self.path("mem"), "r+b") as image:
            image.seek(REGISTER_ADDRESS)
            image.write(struct.pack("<I", value))


def program(binary, emulator):
    """The command words that run binary, through the emulator if one is given."""
    return [*shlex.split(emulator), binary] if emulator else [binary]
