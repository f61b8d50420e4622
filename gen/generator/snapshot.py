#!/usr/bin/python3
"""Records the model as a release: writes MODEL_DIR/releases/<version>.json.

Usage: snapshot.py [--model MODEL_DIR] [--version VERSION] [--replace]

MODEL_DIR is gen/model unless given; VERSION is the project's version (project(... VERSION ...)
of the top CMakeLists.txt) unless given. The model must pass every check of the generator against
the snapshots already recorded (the device's facts aside). A snapshot is history: an existing one
with other content is refused unless --replace is given (for a release that has not shipped), and
a version below the latest recorded one is refused. The format is described in releases.py.
"""

import argparse
import pathlib
import re
import sys

import model as model_module
import policy
import releases

ROOT = pathlib.Path(__file__).resolve().parents[2]
PROJECT_VERSION = re.compile(r"project\(\s*[\w-]+\s+VERSION\s+(\d+\.\d+\.\d+)")


def project_version():
    match = PROJECT_VERSION.search((ROOT / "CMakeLists.txt").read_text())
    if not match:
        raise SystemExit("error: no project(... VERSION ...) in the top CMakeLists.txt")
    return match.group(1)


def record(model_dir, version, replace):
    """The message to print; raises SystemExit with the reason on a refusal."""
    releases.version_key(version)
    model = model_module.load(model_dir)
    policy.run_all(model)
    recorded = [s for s in releases.load_all(model_dir) if s.version != version]
    releases.check_all(model, recorded)
    if recorded and releases.version_key(version) < releases.version_key(recorded[-1].version):
        raise SystemExit(f"error: {version} is older than the latest snapshot, "
                         f"{recorded[-1].version}")
    path = releases.folder_of(model_dir) / f"{version}.json"
    text = releases.text(releases.snapshot(model, version))
    if path.exists():
        if path.read_text() == text:
            return f"{path}: unchanged"
        if not replace:
            raise SystemExit(f"error: {path} exists with other content; a shipped release's "
                             "snapshot is history (--replace rewrites it, for a release that has "
                             "not shipped)")
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)
    return f"{path}: recorded release {version}"


def main(argv):
    parser = argparse.ArgumentParser(description="Records the model as a release snapshot.")
    parser.add_argument("--model", default=str(ROOT / "gen" / "model"), help="the model folder")
    parser.add_argument("--version", help="the release's version (default: the project's)")
    parser.add_argument("--replace", action="store_true",
                        help="rewrite an existing snapshot of that version")
    options = parser.parse_args(argv[1:])
    try:
        print(record(options.model, options.version or project_version(), options.replace))
    except releases.ReleaseError as error:
        for problem in error.problems:
            print(f"error: {problem}", file=sys.stderr)
        return 1
    except (model_module.ModelError, policy.PolicyError, ValueError) as error:
        print(f"error: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
