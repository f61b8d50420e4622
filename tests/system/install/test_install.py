#!/usr/bin/python3
"""Installing a build the way a device integrator does, and the result at work.

- `cmake --install BUILD --prefix /usr` with DESTDIR into temporary roots:
  everything, and each component (runtime, tools, dev) alone.  The install runs in
  a sandbox where the whole host is read-only except the root it installs into
  (and the install manifest in the build folder, which cmake writes), so a
  file written outside DESTDIR fails the install.  The file lists are compared
  with expected/runtime.txt, expected/tools.txt and expected/dev.txt.
- The programs are built for the package's architecture; the systemd units
  name the installed programs and pass `systemd-analyze verify`; the manual
  pages pass `groff -man -ww`; the catalogue is the build's.
- `cpack -G DEB`: one package per component, for the build's architecture,
  the program packages with their dependencies on the C and C++ runtime, the
  development package with none; its contents are the component's files; the
  packages install with dpkg into an empty root whose
  only packages are stand-ins for those dependencies.
- The installed daemons and tools run from the staging root in a device root
  (through the emulator for ARM), and notify a played init system.
- Hardening: every installed program is position-independent, has full RELRO
  (a GNU_RELRO segment and BIND_NOW) and calls the stack protector's and the
  fortified C library's checks, as readelf shows them; both units score an
  exposure of at most 1.5 in `systemd-analyze security --offline=true`.
- The client library as another team uses it: examples/ builds out of tree
  against the staged dev component (the toolchain file and the staging root
  in CMAKE_FIND_ROOT_PATH when cross-compiling) and through the pkg-config
  file; the CMake package refuses a newer major version; the example reads,
  sets and follows a variable against the installed broker and service in a
  device root.
- Upgrade in place: a settings folder of the earlier release (0766, files
  0666 and 0644, group root) and its lock file, made by another user, get the
  new owner and modes from the installed sysusers.d and tmpfiles.d files, the
  old lock file is gone, and the installed daemons start on that device (the
  old lock file there again) and load its settings.
"""

import argparse
import configparser
import functools
import io
import json
import os
import re
import shlex
import shutil
import struct
import subprocess
import sys
import tarfile
import tempfile
import unittest

HERE = os.path.dirname(os.path.realpath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "readiness"))
import readinesscheck  # noqa: E402

ARGS = None
WORK = None
PREFIX = "/usr"
DAEMONS = ("message-broker", "settings-manager")
TOOLS = ("memtool", "hwinfo")
PACKAGES = {"runtime": "settings-service", "tools": "settings-service-tools",
            "dev": "settings-service-dev"}
# The packages of programs; the development package holds headers and static libraries only.
SECTIONS = {"runtime": "admin", "tools": "admin", "dev": "libdevel"}
PROGRAM_PACKAGES = ("runtime", "tools")
RUNTIME_LIBRARIES = ("libc6", "libgcc-s1", "libstdc++6")
HOST_UNITS = "/usr/lib/systemd/system"
MAX_EXPOSURE = 1.5
GROUP = "settings"
# ELF class, machine and the flags every program must have, per architecture.
EF_ARM_ABI_FLOAT_HARD = 0x400
ELF = {"amd64": (2, 62, 0), "armhf": (1, 40, EF_ARM_ABI_FLOAT_HARD)}


def expected(*components):
    paths = []
    for component in components:
        with open(os.path.join(HERE, "expected", component + ".txt"), encoding="utf-8") as lst:
            paths += [line.strip() for line in lst if line.strip() and not line.startswith("#")]
    return sorted(paths)


def files_below(root, skip=()):
    found = []
    for folder, folders, names in os.walk(root):
        folders[:] = [name for name in folders
                      if os.path.relpath(os.path.join(folder, name), root) not in skip]
        found += [os.path.relpath(os.path.join(folder, name), root) for name in names]
    return sorted(found)


def run(argv, text=True, **options):
    return subprocess.run(argv, capture_output=True, text=text, timeout=300, **options)


def staged(component=None):
    """(root, finished install) of the build installed into a new root, once
    for each component (None: all of them)."""
    return _staged(component)


@functools.cache
def _staged(component):
    root = os.path.join(WORK, "stage-" + (component or "all"))
    os.makedirs(root)
    manifest = os.path.join(ARGS.build, f"install_manifest_{component}.txt" if component
                            else "install_manifest.txt")
    open(manifest, "a").close()
    sandbox = ["bwrap", "--ro-bind", "/", "/", "--dev", "/dev", "--proc", "/proc",
               "--bind", root, root, "--bind", manifest, manifest, "--setenv", "DESTDIR", root,
               "--"]
    argv = [ARGS.cmake, "--install", ARGS.build, "--prefix", PREFIX]
    if component:
        argv += ["--component", component]
    return root, run(sandbox + argv)


@functools.cache
def packages():
    """(folder, finished cpack) of the build's Debian packages."""
    folder = os.path.join(WORK, "packages")
    done = run([ARGS.cpack, "-G", "DEB", "--config",
                os.path.join(ARGS.build, "CPackConfig.cmake"), "-B", folder])
    return folder, done


def project_version():
    with open(os.path.join(ARGS.build, "CMakeCache.txt"), encoding="utf-8") as cache:
        for line in cache:
            if line.startswith("CMAKE_PROJECT_VERSION:"):
                return line.split("=", 1)[1].strip()
    raise AssertionError("no CMAKE_PROJECT_VERSION in the build's cache")


def package_file(component):
    return os.path.join(packages()[0],
                        f"{PACKAGES[component]}_{project_version()}_{ARGS.arch}.deb")


def version_at_least(version, minimum):
    return run(["dpkg", "--compare-versions", version, "ge", minimum]).returncode == 0


@functools.cache
def libstdcxx_versions():
    """{GLIBCXX symbol version: the libstdc++6 version that provides it}, from
    the symbols file of this Debian release's libstdc++6."""
    symbols = run(["dpkg-query", "--control-show", "libstdc++6", "symbols"]).stdout
    return dict(re.findall(r"^ (GLIBCXX_[0-9.]+)@\1 (\S+)$", symbols, re.MULTILINE))


def needed_versions(program):
    """{runtime package: the version that provides the newest symbol version
    the program needs from it}, from the program's version references."""
    listing = run(["readelf", "--version-info", "--wide", program]).stdout
    newest = {}
    for name, number in re.findall(r"Name: (GLIBC|GLIBCXX|GCC)_([0-9.]+)", listing):
        key = tuple(int(part) for part in number.split("."))
        newest[name] = max(newest.get(name, key), key)
    text = {name: ".".join(map(str, key)) for name, key in newest.items()}
    return {"libc6": text["GLIBC"], "libgcc-s1": text["GCC"],
            "libstdc++6": libstdcxx_versions()["GLIBCXX_" + text["GLIBCXX"]]}


def field(package, name):
    return run(["dpkg-deb", "--field", package, name]).stdout.strip()


def dependencies(package):
    """{name: version constraint} of the package's Depends."""
    result = {}
    for item in field(package, "Depends").split(","):
        name, _, constraint = item.strip().partition(" ")
        result[name] = constraint
    return result


class InstallTest(unittest.TestCase):
    def staged(self, component=None):
        root, done = staged(component)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return root

    def test_everything_installs_below_destdir(self):
        self.assertEqual(files_below(self.staged()), expected(*PACKAGES))

    def test_each_component_installs_alone(self):
        for component in PACKAGES:
            with self.subTest(component=component):
                self.assertEqual(files_below(self.staged(component)), expected(component))

    def test_the_programs_are_built_for_the_architecture(self):
        root = self.staged()
        elf_class, machine, flags = ELF[ARGS.arch]
        for path in [f"usr/sbin/{name}" for name in DAEMONS] + [f"usr/bin/{name}" for name in TOOLS]:
            with self.subTest(path=path):
                program = os.path.join(root, path)
                self.assertEqual(os.stat(program).st_mode & 0o777, 0o755)
                with open(program, "rb") as binary:
                    header = binary.read(64)
                self.assertEqual(header[:4], b"\x7fELF")
                self.assertEqual(header[4], elf_class)
                self.assertEqual(struct.unpack_from("<H", header, 18)[0], machine)
                found = struct.unpack_from("<I", header, 36 if elf_class == 1 else 48)[0]
                self.assertEqual(found & flags, flags)

    def unit(self, root, name):
        # strict=False: a unit names some options more than once (SystemCallFilter=,
        # DeviceAllow=), as systemd allows.
        parser = configparser.ConfigParser(interpolation=None, strict=False)
        parser.optionxform = str
        with open(os.path.join(root, "usr/lib/systemd/system", name), encoding="utf-8") as unit:
            parser.read_file(unit)
        return parser

    def test_the_units_start_the_installed_daemons_as_notify_services(self):
        root = self.staged()
        for daemon in DAEMONS:
            with self.subTest(daemon=daemon):
                unit = self.unit(root, daemon + ".service")
                self.assertEqual(unit["Service"]["Type"], "notify")
                self.assertEqual(unit["Service"]["ExecStart"], f"{PREFIX}/sbin/{daemon}")
                self.assertEqual(unit["Service"]["Restart"], "on-failure")
                self.assertGreater(int(unit["Unit"]["StartLimitBurst"]), 0)
                self.assertGreater(int(unit["Unit"]["StartLimitIntervalSec"]), 0)
                self.assertEqual(unit["Unit"]["Documentation"], f"man:{daemon}(8)")
                self.assertEqual(unit["Install"]["WantedBy"], "multi-user.target")
        service = self.unit(root, "settings-manager.service")["Unit"]
        self.assertEqual(service["Requires"], "message-broker.service")
        self.assertEqual(service["After"], "message-broker.service")

    def test_the_programs_are_hardened(self):
        root = self.staged()
        for path in [f"usr/sbin/{name}" for name in DAEMONS] + [f"usr/bin/{name}" for name in TOOLS]:
            with self.subTest(path=path):
                program = os.path.join(root, path)
                header = run(["readelf", "-hW", program]).stdout
                self.assertRegex(header, r"Type:\s+DYN", "not position-independent")
                segments = run(["readelf", "-lW", program]).stdout
                self.assertIn("GNU_RELRO", segments)
                dynamic = run(["readelf", "-dW", program]).stdout
                self.assertRegex(dynamic, r"\(BIND_NOW\)|\(FLAGS\).*BIND_NOW|\(FLAGS_1\).*NOW")
                symbols = run(["readelf", "--dyn-syms", "-W", program]).stdout
                self.assertIn("__stack_chk_fail", symbols)
                self.assertRegex(symbols, r"\b__\w+_chk\b", "no fortified call")

    def test_the_units_are_confined(self):
        root = self.staged()
        for daemon in DAEMONS:
            with self.subTest(daemon=daemon):
                unit = os.path.join(root, "usr/lib/systemd/system", daemon + ".service")
                done = run(["systemd-analyze", "security", "--offline=true", "--no-pager", unit])
                found = re.search(r"Overall exposure level for \S+: ([0-9.]+)", done.stdout)
                self.assertIsNotNone(found, done.stdout + done.stderr)
                self.assertLessEqual(float(found.group(1)), MAX_EXPOSURE, done.stdout)
                self.assertEqual(self.unit(root, daemon + ".service")["Service"]["Group"], GROUP)

    def test_an_earlier_release_upgrades_in_place(self):
        """A device root as the earlier release left it: the settings folder 0766 with
        files 0666 and 0644 of root's group, the lock file at the old path, of another
        user.  The installed sysusers.d and tmpfiles.d files give the folder and its files
        the new owner and modes; then the installed daemons start on it (the old lock
        file there again, held by nobody) and the service loads the settings."""
        root = self.staged()
        device = os.path.join(WORK, "upgrade")
        daemons = [ARGS.devroot, "run", "--bind-ro", root,
                   "--broker", os.path.join(root, "usr/sbin/message-broker"),
                   "--service", os.path.join(root, "usr/sbin/settings-manager"),
                   "--timeout", "20"]
        if ARGS.emulator:
            daemons += ["--emulator", ARGS.emulator]
        # A device root of the daemons' own; then what the earlier release left in it.
        made = run(daemons + ["--keep", device, "--stop-after", "0"])
        self.assertEqual(made.returncode, 0, made.stdout + made.stderr)
        for folder in ("var", "shm"):
            shutil.rmtree(os.path.join(device, folder))
            os.makedirs(os.path.join(device, folder, "volatile" if folder == "var" else ""))
        os.chmod(os.path.join(device, "shm"), 0o1777)
        setups = os.path.join(device, "var/SETUPS")
        os.makedirs(setups)
        os.chmod(setups, 0o766)
        seeded = '{\n"FocusTorque": 3,\n"DisplayBrightness": 4\n}'
        for name, mode in ((".current.stp", 0o666), ("mine.stp", 0o644),
                           (".current.stp.backup", 0o666)):
            with open(os.path.join(setups, name), "w", encoding="utf-8") as document:
                document.write(seeded)
            os.chmod(os.path.join(setups, name), mode)
        old_lock = os.path.join(device, "var/volatile/settings-manager.lock")
        self.leave_old_lock(old_lock)
        # The device's own user and group files, with the daemons' group the device
        # root runs its programs with.
        os.makedirs(os.path.join(device, "etc"))
        shutil.copyfile("/etc/passwd", os.path.join(device, "etc/passwd"))
        shutil.copyfile(os.path.join(device, "group"), os.path.join(device, "etc/group"))
        for tool, folder in (("systemd-sysusers", "sysusers.d"), ("systemd-tmpfiles", "tmpfiles.d")):
            conf = os.path.join(root, "usr/lib", folder, "settings-service.conf")
            argv = [tool, f"--root={device}", conf]
            if tool == "systemd-tmpfiles":
                argv[1:1] = ["--create", "--remove"]
            done = run(argv)
            self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        with open(os.path.join(device, "etc/group"), encoding="utf-8") as group:
            gid = next(int(line.split(":")[2]) for line in group if line.startswith(GROUP + ":"))
        status = os.stat(setups)
        self.assertEqual((status.st_mode & 0o7777, status.st_uid, status.st_gid), (0o770, 0, gid))
        for name in (".current.stp", "mine.stp", ".current.stp.backup"):
            status = os.stat(os.path.join(setups, name))
            self.assertEqual((status.st_mode & 0o7777, status.st_gid), (0o660, gid), name)
        self.assertFalse(os.path.exists(old_lock))
        lock_folder = os.stat(os.path.join(device, "var/volatile/settings-manager"))
        self.assertEqual(lock_folder.st_mode & 0o7777, 0o700)

        self.leave_old_lock(old_lock)
        memtool = shlex.join(shlex.split(ARGS.emulator) + [os.path.join(root, "usr/bin/memtool")])
        done = run(daemons + ["--root", device, "--", "/bin/sh", "-c",
                              f"{memtool} get MemPersistent FocusTorque DisplayBrightness"])
        self.assertEqual(done.stdout.splitlines(),
                         ["broker: socket ready", "ready", "FocusTorque=3", "DisplayBrightness=4",
                          "command: exit status 0", "service: exit status 0",
                          "broker: exit status 0"], done.stderr)
        with open(os.path.join(setups, ".current.stp"), encoding="utf-8") as current:
            self.assertIn('"FocusTorque": 3', current.read())
        status = os.stat(setups)
        self.assertEqual((status.st_mode & 0o7777, status.st_gid), (0o770, gid))

    @staticmethod
    def leave_old_lock(path):
        with open(path, "w", encoding="utf-8"):
            pass
        os.chown(path, 65534, 65534)

    def test_systemd_accepts_the_units(self):
        verify = os.path.join(WORK, "verify")
        shutil.copytree(HOST_UNITS, verify + HOST_UNITS, symlinks=True)
        shutil.copytree(self.staged(), verify, symlinks=True, dirs_exist_ok=True)
        done = run(["systemd-analyze", "verify", f"--root={verify}",
                    *[daemon + ".service" for daemon in DAEMONS]],
                   env=dict(os.environ, MANPATH=os.path.join(verify, "usr/share/man")))
        self.assertEqual((done.returncode, done.stdout + done.stderr), (0, ""))

    def test_the_manual_pages_and_completions_are_well_formed(self):
        root = self.staged()
        installed = files_below(root)
        pages = [path for path in installed if path.startswith("usr/share/man/")]
        self.assertTrue({f"usr/share/man/man8/{daemon}.8" for daemon in DAEMONS} <= set(pages))
        for page in pages:
            with self.subTest(page=page):
                done = run(["groff", "-man", "-ww", "-z", os.path.join(root, page)])
                self.assertEqual((done.returncode, done.stderr), (0, ""))
                name, section = os.path.basename(page).rsplit(".", 1)
                with open(os.path.join(root, page), encoding="utf-8") as text:
                    title = shlex.split(text.readline())
                self.assertEqual([word.lower() for word in title[:3]], [".th", name, section])
        for path in installed:
            if path.startswith("usr/share/bash-completion/completions/"):
                with self.subTest(completion=path):
                    done = run(["bash", "-n", os.path.join(root, path)])
                    self.assertEqual((done.returncode, done.stderr), (0, ""))

    def test_the_catalogue_is_the_builds(self):
        with open(os.path.join(self.staged(), "usr/share/settings-service/catalogue.json"),
                  "rb") as installed, open(ARGS.catalogue, "rb") as built:
            document = installed.read()
            self.assertEqual(document, built.read())
        self.assertEqual(len(json.loads(document)["memories"]), 20)


class PackageTest(unittest.TestCase):
    def setUp(self):
        folder, done = packages()
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def test_one_package_per_component_for_the_architecture(self):
        self.assertEqual(sorted(name for name in os.listdir(packages()[0])
                                if name.endswith(".deb")),
                         sorted(os.path.basename(package_file(c)) for c in PACKAGES))
        for component, name in PACKAGES.items():
            with self.subTest(component=component):
                package = package_file(component)
                self.assertEqual(field(package, "Package"), name)
                self.assertEqual(field(package, "Version"), project_version())
                self.assertEqual(field(package, "Architecture"), ARGS.arch)
                self.assertEqual(field(package, "Section"), SECTIONS[component])
                self.assertRegex(field(package, "Maintainer"), r"^[^<>]+ <[^<>@]+@[^<>]+>$")

    def test_the_packages_depend_on_the_c_and_cpp_runtime_the_programs_need(self):
        for component in PROGRAM_PACKAGES:
            with self.subTest(component=component):
                depends = dependencies(package_file(component))
                self.assertEqual(sorted(depends), sorted(RUNTIME_LIBRARIES))
                minimum = {}
                for name, constraint in depends.items():
                    found = re.fullmatch(r"\(>= ([0-9][^)]*)\)", constraint)
                    self.assertIsNotNone(found, f"{name} {constraint}")
                    minimum[name] = found.group(1)
                for path in files_below(self.staged(component)):
                    if path.startswith(("usr/bin/", "usr/sbin/")):
                        for name, version in needed_versions(
                                os.path.join(self.staged(component), path)).items():
                            self.assertTrue(version_at_least(minimum[name], version),
                                            f"{path} needs {name} {version}, the package states "
                                            f"{depends[name]}")

    def test_the_development_package_needs_no_other_package(self):
        self.assertEqual(field(package_file("dev"), "Depends"), "")

    def staged(self, component):
        root, done = staged(component)
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return root

    def test_the_contents_are_the_components_files(self):
        for component in PACKAGES:
            with self.subTest(component=component):
                tar = run(["dpkg-deb", "--fsys-tarfile", package_file(component)], text=False)
                with tarfile.open(fileobj=io.BytesIO(tar.stdout)) as archive:
                    members = {member.name.removeprefix("./"): member
                               for member in archive.getmembers() if not member.isdir()}
                self.assertEqual(sorted(members), expected(component))
                for path, member in members.items():
                    program = path.startswith(("usr/bin/", "usr/sbin/"))
                    self.assertEqual(member.mode, 0o755 if program else 0o644, path)
                    self.assertEqual((member.uname, member.gname), ("root", "root"), path)

    def stand_in_status(self, root):
        """A dpkg database whose only packages stand in for the runtime
        libraries, at the versions of this Debian release."""
        admin = os.path.join(root, "var/lib/dpkg")
        for folder in ("info", "updates"):
            os.makedirs(os.path.join(admin, folder))
        entries = []
        for name in RUNTIME_LIBRARIES:
            version = run(["dpkg-query", "-W", "-f=${Version}", name]).stdout
            entries.append(f"Package: {name}\nStatus: install ok installed\nPriority: optional\n"
                           f"Section: libs\nMaintainer: stand-in <stand-in@example.invalid>\n"
                           f"Architecture: {ARGS.arch}\nMulti-Arch: same\nVersion: {version}\n"
                           f"Description: stand-in for the image's {name}\n")
        with open(os.path.join(admin, "status"), "w", encoding="utf-8") as status:
            status.write("\n".join(entries))

    def test_the_packages_install_with_dpkg(self):
        root = os.path.join(WORK, "dpkg-root")
        self.stand_in_status(root)
        if ARGS.arch != run(["dpkg", "--print-architecture"]).stdout.strip():
            added = run(["dpkg", f"--root={root}", "--add-architecture", ARGS.arch])
            self.assertEqual(added.returncode, 0, added.stderr)
        done = run(["dpkg", f"--root={root}", "--install", *[package_file(c) for c in PACKAGES]])
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        self.assertEqual(files_below(root, skip={"var/lib/dpkg"}), expected(*PACKAGES))
        listed = run(["dpkg-query", f"--root={root}", "-W", "-f=${Package} ${db:Status-Abbrev}\n",
                      *PACKAGES.values()])
        self.assertEqual(sorted(listed.stdout.splitlines()),
                         sorted(f"{name} ii " for name in PACKAGES.values()))


class InstalledProgramsTest(unittest.TestCase):
    def setUp(self):
        self.root, done = staged()
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)

    def installed(self, path):
        return os.path.join(self.root, path)

    def test_the_installed_programs_run_in_a_device_root(self):
        emulator = shlex.split(ARGS.emulator)
        memtool = shlex.join(emulator + [self.installed("usr/bin/memtool")])
        hwinfo = shlex.join(emulator + [self.installed("usr/bin/hwinfo")])
        script = (f"{memtool} get MemPersistent ProductVersion && "
                  f"{hwinfo} set serial=RC4-000123 && {hwinfo} get serial")
        argv = [ARGS.devroot, "run", "--bind-ro", self.root,
                "--broker", self.installed("usr/sbin/message-broker"),
                "--service", self.installed("usr/sbin/settings-manager"), "--timeout", "20"]
        if ARGS.emulator:
            argv += ["--emulator", ARGS.emulator]
        done = run(argv + ["--", "/bin/sh", "-c", script])
        self.assertEqual(done.stdout.splitlines(),
                         ["broker: socket ready", "ready", "0.0.0-dev", "RC4-000123",
                          "command: exit status 0", "service: exit status 0",
                          "broker: exit status 0"], done.stderr)
        self.assertEqual(done.returncode, 0)

    def test_the_installed_daemons_notify_a_played_init_system(self):
        done = readinesscheck.play_init_system(
            ARGS.devroot, self.installed("usr/sbin/message-broker"),
            self.installed("usr/sbin/settings-manager"),
            self.installed("usr/share/settings-service/catalogue.json"), [self.root],
            ARGS.emulator)
        self.assertEqual(done.stdout.splitlines(), readinesscheck.EXPECTED_REPORT,
                         done.stdout + done.stderr)
        self.assertEqual(done.returncode, 0)


@functools.cache
def example_build():
    """(folder, finished configure and build) of examples/ built out of tree against the dev
    component in a staging root, for the build's architecture: with the project's toolchain file
    and the staging root in CMAKE_FIND_ROOT_PATH when cross-compiling."""
    root, done = staged("dev")
    if done.returncode != 0:
        return None, done
    folder = os.path.join(WORK, "example")
    configure = [ARGS.cmake, "-S", os.path.join(ARGS.source, "examples"), "-B", folder,
                 "-G", "Ninja", "-DCMAKE_BUILD_TYPE=RelWithDebInfo"]
    if ARGS.toolchain:
        configure += [f"-DCMAKE_TOOLCHAIN_FILE={ARGS.toolchain}",
                      f"-DCMAKE_FIND_ROOT_PATH={root}"]
    else:
        configure += [f"-DCMAKE_PREFIX_PATH={root}/usr"]
    done = run(configure)
    if done.returncode == 0:
        done = run([ARGS.cmake, "--build", folder])
    return folder, done


class ExampleTest(unittest.TestCase):
    """The client library as another team uses it: examples/ built out of tree against the
    installed development files, run against the installed broker and service."""

    def project(self, text):
        folder = tempfile.mkdtemp(dir=WORK)
        with open(os.path.join(folder, "CMakeLists.txt"), "w", encoding="utf-8") as lists:
            lists.write("cmake_minimum_required(VERSION 3.25)\nproject(probe LANGUAGES CXX)\n"
                        + text)
        root, done = staged("dev")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        return run([ARGS.cmake, "-S", folder, "-B", os.path.join(folder, "build"),
                    f"-DCMAKE_PREFIX_PATH={root}/usr"])

    def test_the_example_builds_out_of_tree_for_the_architecture(self):
        folder, done = example_build()
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        with open(os.path.join(folder, "settings-example"), "rb") as program:
            header = program.read(20)
        elf_class, machine = header[4], struct.unpack_from("<H", header, 18)[0]
        self.assertEqual((elf_class, machine), ELF[ARGS.arch][:2])

    def test_the_package_checks_its_version(self):
        version = project_version()
        major = int(version.split(".")[0])
        found = self.project(f"find_package(SettingsService {major}.0 CONFIG REQUIRED)\n"
                             "message(STATUS \"found ${SettingsService_VERSION}\")\n")
        self.assertEqual(found.returncode, 0, found.stdout + found.stderr)
        self.assertIn(f"found {version}", found.stdout)
        newer = self.project(f"find_package(SettingsService {major + 1}.0 CONFIG REQUIRED)\n")
        self.assertNotEqual(newer.returncode, 0)
        self.assertIn(f"version: {version}", newer.stderr)

    def test_the_pkg_config_file_builds_the_example(self):
        root, done = staged("dev")
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        environment = dict(os.environ, PKG_CONFIG_LIBDIR=os.path.join(root, "usr/lib/pkgconfig"))
        flags = run(["pkg-config", "--cflags", "--libs", "settings-service-client"],
                    env=environment)
        self.assertEqual(flags.returncode, 0, flags.stderr)
        self.assertEqual(run(["pkg-config", "--modversion", "settings-service-client"],
                             env=environment).stdout.strip(), project_version())
        compiler = "arm-linux-gnueabihf-g++" if ARGS.toolchain else "g++"
        output = os.path.join(WORK, "pkg-config-example")
        built = run([compiler, "-std=c++20", os.path.join(ARGS.source, "examples",
                                                          "settings-example.cpp"),
                     "-o", output, *shlex.split(flags.stdout)])
        self.assertEqual(built.returncode, 0, built.stderr)

    def test_the_example_follows_a_variable_in_a_device_root(self):
        folder, done = example_build()
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        root, done = staged()
        self.assertEqual(done.returncode, 0, done.stdout + done.stderr)
        emulator = shlex.split(ARGS.emulator)
        example = shlex.join(emulator + [os.path.join(folder, "settings-example")])
        memtool = shlex.join(emulator + [os.path.join(root, "usr/bin/memtool")])
        out = "/var/volatile/example.out"
        # The first run prints the value and waits for one change, which memtool makes; the
        # second sets the value itself and ends at once (--changes 0); the third gives a text
        # that the value codec refuses (an int read only in part) and changes nothing.
        script = (f"{example} MemPersistent AUXTorque --changes 1 > {out} & "
                  f"until grep -q = {out}; do sleep 0.1; done; "
                  f"{memtool} set MemPersistent AUXTorque 3 && wait $! && cat {out} && "
                  f"{example} MemPersistent AUXTorque 4 --changes 0 && "
                  f"{memtool} get MemPersistent AUXTorque && "
                  f"{{ {example} MemPersistent AUXTorque 3x --changes 0; echo \"refused: $?\"; }} && "
                  f"{memtool} get MemPersistent AUXTorque")
        argv = [ARGS.devroot, "run", "--bind-ro", root, "--bind-ro", folder,
                "--broker", os.path.join(root, "usr/sbin/message-broker"),
                "--service", os.path.join(root, "usr/sbin/settings-manager"), "--timeout", "30"]
        if ARGS.emulator:
            argv += ["--emulator", ARGS.emulator]
        done = run(argv + ["--", "/bin/sh", "-c", script])
        self.assertEqual(done.stdout.splitlines(),
                         ["broker: socket ready", "ready", "AUXTorque = 2",
                          "AUXTorque changed: 3", "AUXTorque = 3", "4",
                          "AUXTorque = 4", "refused: 1", "4",
                          "command: exit status 0", "service: exit status 0",
                          "broker: exit status 0"], done.stderr)
        self.assertEqual(done.returncode, 0)


def main():
    global ARGS, WORK
    parser = argparse.ArgumentParser()
    parser.add_argument("--build", required=True)
    parser.add_argument("--cmake", required=True)
    parser.add_argument("--cpack", required=True)
    parser.add_argument("--arch", required=True,
                        help="the packages' Debian architecture; 'host' for this machine's")
    parser.add_argument("--catalogue", required=True, help="the build's catalogue JSON")
    parser.add_argument("--devroot", required=True)
    parser.add_argument("--emulator", default="")
    parser.add_argument("--source", required=True, help="the project's source folder")
    parser.add_argument("--toolchain", default="",
                        help="the build's toolchain file, when it cross-compiles")
    ARGS, rest = parser.parse_known_args()
    if ARGS.arch == "host":
        ARGS.arch = run(["dpkg", "--print-architecture"]).stdout.strip()
    with tempfile.TemporaryDirectory(prefix="install-test-") as work:
        WORK = work
        program = unittest.main(argv=[sys.argv[0]] + rest, exit=False, verbosity=2)
    return 0 if program.result.wasSuccessful() else 1


if __name__ == "__main__":
    sys.exit(main())
