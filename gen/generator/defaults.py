"""Default values: their validation, their text as a getter writes it and their bytes in a memory's
default record.

A default applies to the variable, or to every element of an array variable. Variables without a
default, buffers and structs stay zero (an enum's zero is its first entry).
"""

import struct

import values


def problem(variable, model):
    """Why the variable's default cannot be stored, or None."""
    value = variable.default
    if value is None:
        return None
    kind = variable.kind
    if kind == "int":
        if type(value) is not int or not values.INT_MIN <= value <= values.INT_MAX:
            return f"the default {value!r} is not a 32-bit integer"
    elif kind == "float":
        if type(value) not in (int, float) or abs(value) > values.FLOAT_MAX:
            return f"the default {value!r} is not a 32-bit float"
    elif kind == "bool":
        if type(value) is not bool:
            return f"the default {value!r} is not true or false"
    elif kind == "enum":
        if value not in model.enum(variable.type).entries:
            return f"the default {value!r} is not an entry of {variable.type}"
    elif kind == "string":
        if not isinstance(value, str) or not value.isascii() or len(value) >= variable.length:
            return f"the default {value!r} must be ASCII text of at most {variable.length - 1} characters"
    else:
        return f"a {kind} takes no default"
    return None


def default_text(variable, model):
    """The getter's text of one element holding the default; None for buffers and structs."""
    if variable.kind in ("int", "float", "bool"):
        return values.value_text(variable.kind, variable.default or 0)
    if variable.kind == "string":
        return variable.default or ""
    if variable.kind == "enum":
        return variable.default or model.enum(variable.type).entries[0]
    return None


def element_bytes(variable, model):
    """The bytes of one element holding the default, or None when it is all zero."""
    value = variable.default
    if value is None:
        return None
    kind = variable.kind
    if kind == "int":
        data = struct.pack("<i", value)
    elif kind == "float":
        data = struct.pack("<f", value)
    elif kind == "bool":
        data = bytes([1 if value else 0])
    elif kind == "enum":
        data = struct.pack("<I", model.enum(variable.type).entries.index(value))
    else:
        data = value.encode().ljust(variable.length, b"\0")
    return data if any(data) else None


def image(memory, model):
    """The memory's default record: zero, then every default."""
    data = bytearray(memory.size)
    for variable in memory.variables:
        element = element_bytes(variable, model)
        if element is None:
            continue
        for number in range(variable.count or 1):
            start = variable.offset + number * variable.element_size
            data[start:start + len(element)] = element
    return bytes(data)
