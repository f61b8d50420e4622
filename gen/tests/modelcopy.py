"""A test case on a copy of a model folder: edits of its files, the generator run on it and its
refusals read."""

import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import unittest

GEN_ROOT = pathlib.Path(os.environ.get("GEN_ROOT", pathlib.Path(__file__).resolve().parents[1]))
GENERATOR = GEN_ROOT / "generator" / "generate.py"


class ModelCopy(unittest.TestCase):
    # The model folder to copy, and the generator's options of assert_refused.
    source = None
    refuse_options = ()

    def setUp(self):
        self.work = pathlib.Path(tempfile.mkdtemp())
        self.model = self.work / "model"
        shutil.copytree(self.source, self.model)
        self.out = self.work / "out"

    def tearDown(self):
        shutil.rmtree(self.work)

    def edit(self, relative, old, new, count=1):
        path = self.model / relative
        text = path.read_text()
        self.assertIn(old, text, f"{old!r} not in {relative}")
        path.write_text(text.replace(old, new, count))

    def run_generator(self, *options):
        return subprocess.run([sys.executable, "-B", str(GENERATOR), *options, str(self.model),
                               str(self.out)], capture_output=True, text=True)

    def assert_refused(self, *fragments, options=None):
        """The generator refuses the model with every fragment in its message and writes
        nothing; its message."""
        result = self.run_generator(*(self.refuse_options if options is None else options))
        self.assertEqual(result.returncode, 1, result.stderr)
        for fragment in fragments:
            self.assertIn(fragment, result.stderr)
        self.assertFalse(self.out.exists() and any(self.out.iterdir()), "nothing is written")
        return result.stderr
