"""Writes memories.cpp: the SharedMemory object and base pointer of every memory, its default
record and how the start-up writes it, the service's subscriptions and the place of its own log
level, and the catalogue's fingerprint, as gen/code/memorydata.h declares them. The start-up
that reads them is hand-written (gen/code/startup.cpp).

The fingerprint is the first 32 hexadecimal digits of the SHA-256 of catalogue.json, which names
every memory, variable, type, offset, size, range and event: two models that differ in anything
a program of the device relies on have different fingerprints, even where every size matches."""

import hashlib

import defaults
import emit_json
from cpp import c_string, render, rows

# Runs of non-zero bytes closer than this are written as one piece of a default record.
MERGE_GAP = 8
START_NAMES = {"defaults": "MemoryStart::Defaults", "zeroed": "MemoryStart::Zeroed",
               "fill": "MemoryStart::Fill"}


def _pieces(image):
    """(offset, bytes) runs that cover every non-zero byte of the image."""
    pieces = []
    position = 0
    while position < len(image):
        if image[position] == 0:
            position += 1
            continue
        start = end = position
        while end < len(image) and (image[end] != 0 or any(image[end:end + MERGE_GAP])):
            end += 1
        pieces.append((start, image[start:end]))
        position = end
    return pieces


def _bytes_literal(data):
    return "\"" + "".join(f"\\x{b:02x}" for b in data) + "\""


def _short(memory):
    return memory.name[3:]


def _defaults(memory, model):
    items = [f"{{{offset}, {len(data)}, {_bytes_literal(data)}}},"
             for offset, data in _pieces(defaults.image(memory, model))]
    items.append("{0, 0, nullptr},")
    return f"const DefaultPiece DEFAULTS{_short(memory)}[] = {{\n{rows(items)}\n}};\n"


def _fill_value(memory, model):
    if memory.start != "fill":
        return 0
    return model.enum(memory.variables[0].type).entries.index(memory.fill)


def source(model):
    memory_name, variable_name = model.service_log_level
    service_memory = model.memory(memory_name)
    service_level = service_memory.variable(variable_name)
    return render(
        "memories.cpp",
        base_pointers="\n".join(f"uint8_t* gMem{_short(m)} = nullptr;" for m in model.memories),
        segments="\n".join(f"SharedMemory segment{_short(m)}({c_string(m.name)}, {m.size});"
                           for m in model.memories),
        default_pieces="".join(_defaults(m, model) for m in model.memories),
        memory_rows=rows(f"{{&segment{_short(m)}, &gMem{_short(m)}, DEFAULTS{_short(m)}, "
                         f"{START_NAMES[m.start]}, {_fill_value(m, model)}}},"
                         for m in model.memories),
        subscriptions=rows(f"{name}," for name in model.subscriptions),
        subscription_count=len(model.subscriptions),
        service_memory=service_memory.index,
        service_offset=service_level.offset,
        fingerprint=fingerprint(model))


def fingerprint(model):
    return hashlib.sha256(emit_json.document(model).encode()).hexdigest()[:32]
