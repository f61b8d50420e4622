"""A build regenerates the catalogue when anything it is made from changes, and the generated code
exists only in the build tree, so it is never edited by hand.

Usage: regeneration_check.py NINJA BUILD_DIR SOURCE_DIR GENERATED_DIR

Asks Ninja for the inputs of the generated files: every model file, every release snapshot, every
generator module and every template must be one of them. Then looks through the source tree (build trees left out): no
file there carries the generated files' first line, except the templates and the golden test's
expected files.
"""

import os
import pathlib
import subprocess
import sys

NOTE = "// Generated from gen/model by gen/generator. Do not edit."
OUTPUTS = ("log/settings-service/loglevel.h", "event/settings-service/eventid.h", "eventid.cpp",
           "catalogue/settings-service/records.h", "catalogue/settings-service/enums.h",
           "catalogue/settings-service/converters.h", "converters.cpp", "tables.cpp", "memories.cpp",
           "catalogue.json", "history.cpp")


def inputs_of(ninja, build_dir, output):
    result = subprocess.run([ninja, "-C", str(build_dir), "-t", "query", str(output)],
                            capture_output=True, text=True, check=True)
    lines = result.stdout.splitlines()
    start = lines.index("  input: CUSTOM_COMMAND") + 1
    inputs = set()
    for line in lines[start:]:
        if not line.startswith("    "):
            break
        inputs.add(pathlib.Path(line.strip()).resolve())
    return inputs


def source_files(source_dir):
    """The files of the source tree, without build trees (folders holding a CMakeCache.txt), git's
    folder, the templates and the golden test's expected files."""
    skipped = {source_dir / "gen" / "generator" / "templates",
               source_dir / "gen" / "tests" / "golden" / "expected"}
    for folder, subfolders, files in os.walk(source_dir):
        folder = pathlib.Path(folder)
        subfolders[:] = [s for s in subfolders if s != ".git" and folder / s not in skipped
                         and not (folder / s / "CMakeCache.txt").exists()]
        yield from (folder / name for name in files)


def main(ninja, build_dir, source_dir, generated_dir):
    build_dir, source_dir = pathlib.Path(build_dir).resolve(), pathlib.Path(source_dir).resolve()
    gen = source_dir / "gen"
    sources = (set(gen.glob("model/**/*.toml")) | set(gen.glob("model/releases/*.json"))
               | set(gen.glob("generator/*.py")) | set(gen.glob("generator/templates/*.in")))
    problems = []
    for output in OUTPUTS:
        path = pathlib.Path(generated_dir).resolve() / output
        missing = sources - inputs_of(ninja, build_dir, path.relative_to(build_dir))
        problems += [f"{output} is not rebuilt when {m.relative_to(source_dir)} changes"
                     for m in sorted(missing)]
    for path in source_files(source_dir):
        with open(path, "rb") as f:
            if f.read(len(NOTE)) == NOTE.encode():
                problems.append(f"{path.relative_to(source_dir)} is a generated file in the source tree")
    for problem in problems:
        print(problem)
    print(f"{len(sources)} model, snapshot, generator and template files checked: "
          f"{'ok' if not problems else f'{len(problems)} problems'}")
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main(*sys.argv[1:]))
