#!/usr/bin/python3
"""Generates the catalogue's C++ sources from the record-layout model.

Usage: generate.py MODEL_DIR OUTPUT_DIR

Loads and checks the model; on a broken model or a broken binding fact it prints the file, the
entry and the reason and exits with status 1 without writing anything.
"""

import pathlib
import sys

import checks
import emit_events
import emit_json
import emit_memories
import emit_records
import emit_tables
import model as model_module


def outputs(model):
    return {
        "eventid.h": emit_events.header(model),
        "eventid.cpp": emit_events.source(model),
        "records.h": emit_records.header(model),
        "enums.h": emit_tables.enums_header(model),
        "converters.h": emit_tables.converters_header(model),
        "converters.cpp": emit_tables.converters_source(model),
        "tables.cpp": emit_tables.tables_source(model),
        "memories.h": emit_memories.header(model),
        "memories.cpp": emit_memories.source(model),
        "catalogue.json": emit_json.document(model),
    }


def main(argv):
    if len(argv) != 3:
        print(__doc__, file=sys.stderr)
        return 2
    try:
        model = model_module.load(argv[1])
        checks.run_all(model)
    except (model_module.ModelError, checks.CheckError) as error:
        print(f"error: {error}", file=sys.stderr)
        return 1
    out_dir = pathlib.Path(argv[2])
    out_dir.mkdir(parents=True, exist_ok=True)
    for name, text in outputs(model).items():
        (out_dir / name).write_text(text)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
