"""Writes catalogue.json: the whole catalogue as one JSON document for tools and tests."""

import json

import rangecheck


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
    entry["default"] = default_text(variable, model)
    entry["event"] = variable.event
    entry["eventName"] = model.event_names[variable.event]
    return entry


def default_text(variable, model):
    """The getter's text of the default of one element; null for buffers and structs."""
    if variable.kind in ("int", "float", "bool"):
        return rangecheck.value_text(variable.kind, variable.default or 0)
    if variable.kind == "string":
        return variable.default or ""
    if variable.kind == "enum":
        return variable.default or model.enum(variable.type).entries[0]
    return None


def document(model):
    catalogue = {
        "memories": [{"index": m.index, "name": m.name, "size": m.size,
                      "variables": [_variable(v, model) for v in m.variables],
                      "reserved": m.reserved}
                     for m in model.memories],
        "enums": [{"name": e.name, "entries": e.entries} for e in model.enums],
        "structs": [{"name": s.name, "size": s.size,
                     "members": [_field(f) for f in s.members]} for s in model.structs],
        "events": model.event_names,
        "subscriptions": model.subscriptions,
    }
    return json.dumps(catalogue, indent=1) + "\n"
