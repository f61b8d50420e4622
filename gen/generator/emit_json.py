"""Writes catalogue.json: the whole catalogue as one JSON document for tools and tests.

The keys of the model's history appear only where the model declares them: a variable's
"formerly" and "outOfRange", an enum's "formerly", a memory's "retired"."""

import json

import defaults


def _field(field):
    entry = {"name": field.name, "type": field.type_name, "kind": field.kind,
             "baseType": field.base_code, "offset": field.offset, "size": field.size,
             "elementSize": field.element_size, "arrayLength": field.array_length_text,
             "isArray": field.is_array}
    if field.count is not None:
        entry["count"] = field.count
    return entry


def _variable(variable, model):
    entry = _field(variable)
    entry["min"] = variable.min
    entry["max"] = variable.max
    entry["default"] = defaults.default_text(variable, model)
    entry["event"] = variable.event
    entry["eventName"] = model.event_names[variable.event]
    if variable.formerly:
        entry["formerly"] = variable.formerly
    if variable.out_of_range is not None:
        entry["outOfRange"] = variable.out_of_range
    return entry


def _memory(memory, model):
    entry = {"index": memory.index, "name": memory.name, "size": memory.size,
             "variables": [_variable(v, model) for v in memory.variables],
             "reserved": memory.reserved}
    if memory.retired:
        entry["retired"] = [{"name": r.name, "event": r.event, "reason": r.reason}
                            for r in memory.retired]
    return entry


def _enum(enum):
    entry = {"name": enum.name, "entries": enum.entries}
    if enum.formerly:
        entry["formerly"] = enum.formerly
    return entry


def document(model):
    catalogue = {
        "memories": [_memory(m, model) for m in model.memories],
        "enums": [_enum(e) for e in model.enums],
        "structs": [{"name": s.name, "size": s.size,
                     "members": [_field(f) for f in s.members]} for s in model.structs],
        "events": model.event_names,
        "subscriptions": model.subscriptions,
    }
    return json.dumps(catalogue, indent=1) + "\n"
