"""The tools in the shell: bash completion of memtool and hwinfo, run by bash
itself against the programs of this build, their manual pages formatted by
groff without a warning and naming every command of --help, and the install
rules that put both where bash-completion and man look.

Usage: shell_test.py --memtool BINARY --hwinfo BINARY --source DIR --build DIR
                     [--emulator CMD]
"""

import argparse
import os
import re
import shlex
import subprocess
import sys
import tempfile
import unittest

CONFIG = argparse.Namespace()

DEFAULT_BREAKS = "\"'><=;|&(:"


class Shell:
    """A folder on the PATH holding memtool and hwinfo, each a script that
    runs this build's program (through the emulator for ARM builds)."""

    def __init__(self):
        self._temp = tempfile.TemporaryDirectory(prefix="tools-shell-")
        self.bin = self._temp.name
        for name, binary in (("memtool", CONFIG.memtool), ("hwinfo", CONFIG.hwinfo)):
            path = os.path.join(self.bin, name)
            with open(path, "w") as script:
                script.write("#!/bin/sh\nexec %s %s \"$@\"\n" %
                             (CONFIG.emulator, shlex.quote(binary)))
            os.chmod(path, 0o755)

    def close(self):
        self._temp.cleanup()

    def bash(self, script):
        environment = dict(os.environ, PATH=self.bin + ":" + os.environ.get("PATH", "/usr/bin"))
        done = subprocess.run(["bash", "--norc", "--noprofile", "-c", script], env=environment,
                              capture_output=True, text=True, timeout=120)
        return done.returncode, done.stdout, done.stderr

    def complete(self, program, line, breaks=DEFAULT_BREAKS):
        """The completions that bash's function for program offers with the
        cursor at the end of line; COMP_WORDS split as bash splits them."""
        words = re.findall(r"[^\s=]+|=", line) if "=" in breaks else line.split()
        if line.endswith(" ") or not line:
            words.append("")
        elif "=" in breaks and line.endswith("="):
            words.append("")
        completion = os.path.join(CONFIG.source, "apps", program,
                                  program + ".bash-completion")
        script = (f"source {shlex.quote(completion)}\n"
                  f"COMP_WORDBREAKS={shlex.quote(breaks)}\n"
                  f"COMP_LINE={shlex.quote(line)}\n"
                  f"COMP_POINT={len(line)}\n"
                  f"COMP_WORDS=({' '.join(shlex.quote(word) for word in words)})\n"
                  f"COMP_CWORD={len(words) - 1}\n"
                  f"_{program} {program} {shlex.quote(words[-1])} "
                  f"{shlex.quote(words[-2] if len(words) > 1 else '')}\n"
                  "printf '%s\\n' \"${COMPREPLY[@]}\"\n")
        status, out, err = self.bash(script)
        if status != 0 or err:
            raise AssertionError(f"completion of {line!r}: status {status}: {err}")
        return [reply for reply in out.split("\n") if reply]


class CompletionTest(unittest.TestCase):
    def setUp(self):
        self.shell = Shell()
        self.addCleanup(self.shell.close)

    def test_the_functions_are_registered(self):
        for program in ("memtool", "hwinfo"):
            completion = os.path.join(CONFIG.source, "apps", program, program + ".bash-completion")
            status, out, err = self.shell.bash(f"source {shlex.quote(completion)}\n"
                                               f"complete -p {program}")
            self.assertEqual((status, err), (0, ""))
            self.assertEqual(out, f"complete -F _{program} {program}\n")

    def test_memtool_commands_and_options(self):
        complete = self.shell.complete
        self.assertEqual(complete("memtool", "memtool de"), ["describe"])
        self.assertEqual(complete("memtool", "memtool --v"), ["--version"])
        commands = complete("memtool", "memtool ")
        for command in ("memories", "vars", "describe", "get", "set", "reset", "dump", "load",
                        "preview", "post", "watch", "request", "names"):
            self.assertIn(command, commands)
        self.assertEqual(complete("memtool", "memtool dump --c"), ["--compact"])
        self.assertEqual(sorted(complete("memtool", "memtool watch --")),
                         ["--count", "--help", "--json", "--timeout", "--values"])
        self.assertEqual(complete("memtool", "memtool watch --count "), [])

    def test_memtool_memory_variable_and_value_names(self):
        complete = self.shell.complete
        self.assertEqual(complete("memtool", "memtool get MemPers"), ["MemPersistent"])
        self.assertEqual(len(complete("memtool", "memtool dump MemApp ")), 20)
        self.assertEqual(complete("memtool", "memtool get MemPersistent CinefadeD"),
                         ["CinefadeDisplayModeValue"])
        self.assertEqual(complete("memtool", "memtool get MemPersistent AUXTorque Bluet"),
                         ["BluetoothPower"])
        self.assertEqual(complete("memtool", "memtool describe MemPersistent AUXTorque B"), [])
        self.assertEqual(complete("memtool", "memtool set MemPersistent CinefadeDisplayModeValue "),
                         ["Default", "Filter", "Distance"])
        self.assertEqual(complete("memtool", "memtool set MemPersistent BluetoothPower t"),
                         ["true"])
        self.assertEqual(complete("memtool", "memtool set MemPersistent CinefadeDisplayModeValue=Di"),
                         ["Distance"])
        self.assertEqual(complete("memtool", "memtool set MemPersistent CinefadeDisplayModeValue=Di",
                                  breaks=" \t\n"),
                         ["CinefadeDisplayModeValue=Distance"])
        self.assertEqual(complete("memtool", "memtool set MemPersistent AUXTorque=2 Bluetooth"),
                         ["BluetoothPower="])
        self.assertEqual(complete("memtool", "memtool reset MemApp AppLog"), ["AppLogLevel"])
        self.assertEqual(complete("memtool", "memtool set MemApp AppLogLevel Warn"), ["Warn"])

    def test_memtool_events_and_files(self):
        complete = self.shell.complete
        self.assertEqual(complete("memtool", "memtool watch VarAUXTorqueCh"),
                         ["VarAUXTorqueChanged"])
        self.assertEqual(complete("memtool", "memtool post CalibAll"), ["CalibAllMotor"])
        folder = tempfile.mkdtemp(dir=self.shell.bin)
        open(os.path.join(folder, "saved-settings.json"), "w").close()
        self.assertEqual(complete("memtool", f"memtool load {folder}/saved"),
                         [f"{folder}/saved-settings.json"])
        open(os.path.join(folder, "Studio.stp"), "w").close()
        self.assertEqual(complete("memtool", f"memtool preview {folder}/Stu"),
                         [f"{folder}/Studio.stp"])
        self.assertEqual(sorted(complete("memtool", "memtool preview --")), ["--help", "--json"])

    def test_hwinfo_commands_and_keys(self):
        complete = self.shell.complete
        self.assertEqual(complete("hwinfo", "hwinfo pr"), ["print"])
        commands = complete("hwinfo", "hwinfo ")
        status, out, _ = self.shell.bash("hwinfo --help")
        self.assertEqual(status, 0)
        listed = re.findall(r"^  hwinfo ([a-z]+)", out, re.MULTILINE)
        self.assertEqual(listed, ["print", "parameters", "get", "set", "reset", "keys"])
        for command in listed:
            self.assertIn(command, commands)
        self.assertEqual(complete("hwinfo", "hwinfo get ser"), ["serial"])
        self.assertEqual(complete("hwinfo", "hwinfo get ch"), ["checksum"])
        self.assertEqual(complete("hwinfo", "hwinfo set boot_failed_c"), ["boot_failed_counter="])
        self.assertEqual(complete("hwinfo", "hwinfo set serial=A ch"), [])
        self.assertEqual(complete("hwinfo", "hwinfo print --j"), ["--json"])
        self.assertEqual(complete("hwinfo", "hwinfo keys --w"), ["--writable"])


class ManualPageTest(unittest.TestCase):
    def page(self, program):
        return os.path.join(CONFIG.source, "apps", program, program + ".1")

    def test_pages_format_without_a_warning(self):
        for program in ("memtool", "hwinfo"):
            done = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-z", self.page(program)],
                                  capture_output=True, text=True)
            self.assertEqual((done.returncode, done.stderr), (0, ""), program)

    def test_pages_describe_every_command(self):
        shell = Shell()
        self.addCleanup(shell.close)
        for program in ("memtool", "hwinfo"):
            done = subprocess.run(["groff", "-man", "-Tascii", "-P-cbou", self.page(program)],
                                  capture_output=True, text=True)
            self.assertEqual(done.returncode, 0)
            text = done.stdout
            self.assertTrue(text.startswith(f"{program.upper()}(1)"), text[:80])
            for section in ("NAME", "SYNOPSIS", "DESCRIPTION", "COMMANDS", "EXIT STATUS"):
                self.assertIn(f"\n{section}\n", text)
            status, out, _ = shell.bash(f"{program} --help")
            self.assertEqual(status, 0)
            commands = re.findall(rf"^  {program} ([a-z]+)", out, re.MULTILINE)
            self.assertGreater(len(commands), 5)
            described = text[text.index("\nCOMMANDS\n"):text.index("\nOPTIONS\n")]
            for command in commands:
                self.assertRegex(described, rf"\n       {command}( |\n)", f"{program} {command}")


class InstallTest(unittest.TestCase):
    def test_tools_component_installs_pages_and_completions(self):
        with tempfile.TemporaryDirectory(prefix="tools-install-") as prefix:
            for program in ("memtool", "hwinfo"):
                script = os.path.join(CONFIG.build, "apps", program, "cmake_install.cmake")
                done = subprocess.run(["cmake", "-DCMAKE_INSTALL_COMPONENT=tools",
                                       f"-DCMAKE_INSTALL_PREFIX={prefix}", "-P", script],
                                      capture_output=True, text=True)
                self.assertEqual(done.returncode, 0, done.stderr)
                source = os.path.join(CONFIG.source, "apps", program)
                for installed, original in (
                        (f"share/man/man1/{program}.1", f"{program}.1"),
                        (f"share/bash-completion/completions/{program}",
                         f"{program}.bash-completion")):
                    with open(os.path.join(prefix, installed), "rb") as copy, \
                            open(os.path.join(source, original), "rb") as tree:
                        self.assertEqual(copy.read(), tree.read(), installed)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--memtool", required=True)
    parser.add_argument("--hwinfo", required=True)
    parser.add_argument("--source", required=True)
    parser.add_argument("--build", required=True)
    parser.add_argument("--emulator", default="")
    options, rest = parser.parse_known_args()
    vars(CONFIG).update(vars(options))
    unittest.main(argv=[sys.argv[0], *rest], verbosity=2)


if __name__ == "__main__":
    main()
