#!/usr/bin/python3
"""Generates the catalogue's C++ sources from the record-layout model.

Usage: generate.py [--no-device-facts] MODEL_DIR OUTPUT_DIR

Loads and checks the model: its form (model.py), its policy (policy.py), unless --no-device-facts
is given (for models other than the device's, such as the small model of the golden test) the
facts of the device that other programs rely on, as the device's latest release snapshot records
them (checks.py), and the model against every release snapshot in MODEL_DIR/releases
(releases.py). On a broken model, a refusal against a release or
a broken fact it prints the file, the entry and the reason (every refusal against the releases,
one per line) and exits with status 1 without writing anything. Notes (a persistent variable's
default that changed since the latest release) are printed and generation goes on. Each output is written from its template in templates/; a file whose text is
unchanged is left as it is, so that the build recompiles only what depends on a changed file.
"""

import pathlib
import sys

import checks
import emit_events
import emit_history
import emit_json
import emit_loglevel
import emit_memories
import emit_records
import emit_tables
import model as model_module
import policy
import releases


def outputs(model):
    return {
        "log/settings-service/loglevel.h": emit_loglevel.header(model),
        "event/settings-service/eventid.h": emit_events.header(model),
        "eventid.cpp": emit_events.source(model),
        "catalogue/settings-service/records.h": emit_records.header(model),
        "catalogue/settings-service/enums.h": emit_tables.enums_header(model),
        "catalogue/settings-service/converters.h": emit_tables.converters_header(model),
        "converters.cpp": emit_tables.converters_source(model),
        "tables.cpp": emit_tables.tables_source(model),
        "memories.cpp": emit_memories.source(model),
        "catalogue.json": emit_json.document(model),
        "history.cpp": emit_history.source(model),
    }


def write_if_changed(path, text):
    if path.exists() and path.read_text() == text:
        return
    path.parent.mkdir(parents=True, exist_ok=True)
    path.write_text(text)


def main(argv):
    arguments = argv[1:]
    device_facts = "--no-device-facts" not in arguments
    arguments = [a for a in arguments if a != "--no-device-facts"]
    if len(arguments) != 2:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        model = model_module.load(arguments[0])
        policy.run_all(model)
        if device_facts:
            checks.run_all(model, checks.device_facts())
        notes = releases.check_all(model, releases.load_all(arguments[0]))
    except releases.ReleaseError as error:
        for problem in error.problems:
            print(f"error: {problem}", file=sys.stderr)
        return 1
    except (model_module.ModelError, policy.PolicyError, checks.CheckError) as error:
        print(f"error: {error}", file=sys.stderr)
        return 1
    for note in notes:
        print(f"note: {note}", file=sys.stderr)
    out_dir = pathlib.Path(arguments[1])
    for name, text in outputs(model).items():
        write_if_changed(out_dir / name, text)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
