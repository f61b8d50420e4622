"""The generator's output for a small model is pinned: the test generates the files of
gen/tests/golden/model (with --no-device-facts, since the device's facts do not hold there) and
compares them, file by file, with gen/tests/golden/expected.

A change of the generator or of its templates that changes the output on purpose refreshes the
expected files with

    python3 gen/tests/test_golden.py --refresh

and commits them with the change, after reading their diff (git diff gen/tests/golden/expected).
"""

import difflib
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

GEN_ROOT = pathlib.Path(os.environ.get("GEN_ROOT", pathlib.Path(__file__).resolve().parents[1]))
GENERATOR = GEN_ROOT / "generator" / "generate.py"
GOLDEN = GEN_ROOT / "tests" / "golden"


def generate(out_dir):
    return subprocess.run([sys.executable, "-B", str(GENERATOR), "--no-device-facts",
                           str(GOLDEN / "model"), str(out_dir)], capture_output=True, text=True)


def files_in(folder):
    return sorted(str(p.relative_to(folder)) for p in folder.rglob("*") if p.is_file())


class GoldenTest(unittest.TestCase):
    def setUp(self):
        self.out = pathlib.Path(tempfile.mkdtemp())

    def tearDown(self):
        shutil.rmtree(self.out)

    def test_the_small_model_generates_the_expected_files(self):
        result = generate(self.out)
        self.assertEqual(result.returncode, 0, result.stderr)
        expected = GOLDEN / "expected"
        self.assertEqual(files_in(self.out), files_in(expected))
        for name in files_in(expected):
            want = (expected / name).read_text().splitlines(keepends=True)
            have = (self.out / name).read_text().splitlines(keepends=True)
            if have != want:
                self.fail(f"{name} differs from the expected file:\n" + "".join(
                    difflib.unified_diff(want, have, f"expected/{name}", f"generated/{name}")))

    def test_the_device_facts_refuse_the_small_model(self):
        result = subprocess.run([sys.executable, "-B", str(GENERATOR), str(GOLDEN / "model"),
                                 str(self.out)], capture_output=True, text=True)
        self.assertEqual(result.returncode, 1, result.stderr)
        self.assertIn("binding fact \"memory table\"", result.stderr)


def refresh():
    expected = GOLDEN / "expected"
    shutil.rmtree(expected, ignore_errors=True)
    result = generate(expected)
    sys.stderr.write(result.stderr)
    return result.returncode


if __name__ == "__main__":
    if sys.argv[1:] == ["--refresh"]:
        sys.exit(refresh())
    unittest.main()
