"""The catalogue's range check (Introspection::checkMinMax) as the device applies it to value
texts, and the value texts that getters write for defaults.

Conversions follow std::stoi (base 10) and std::stof: leading blanks, the longest numeric prefix,
an error when there is none or when the value is out of range. Floats compare as 32-bit floats.
"""

import re
import struct

INT_MIN, INT_MAX = -2147483648, 2147483647
FLOAT_MAX = 3.4028234663852886e38
FLOAT_MIN_NORMAL = 1.1754943508222875e-38

_INT = re.compile(r"[ \t\n\v\f\r]*([+-]?\d+)")
_FLOAT = re.compile(r"[ \t\n\v\f\r]*([+-]?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?)")


class ConversionError(Exception):
    pass


def f32(value):
    return struct.unpack("<f", struct.pack("<f", value))[0]


def stoi(text):
    match = _INT.match(text)
    if not match:
        raise ConversionError(text)
    value = int(match.group(1))
    if not INT_MIN <= value <= INT_MAX:
        raise ConversionError(text)
    return value


def stof(text):
    match = _FLOAT.match(text)
    if not match:
        raise ConversionError(text)
    value = float(match.group(1))
    if abs(value) > FLOAT_MAX:
        raise ConversionError(text)
    return f32(value)


def check_min_max(kind, minimum, maximum, value):
    """True when the text value passes; False when it is out of range or does not convert."""
    if kind not in ("int", "float"):
        return True
    if minimum is None and maximum is None:
        return True
    try:
        if kind == "int":
            high = stoi(maximum) if maximum is not None else INT_MAX
            low = stoi(minimum) if minimum is not None else INT_MIN
            number = stoi(value)
        else:
            high = stof(maximum) if maximum is not None else f32(FLOAT_MAX)
            low = stof(minimum) if minimum is not None else f32(FLOAT_MIN_NORMAL)
            number = stof(value)
    except ConversionError:
        return False
    return low <= number <= high


def value_text(kind, value):
    """The getter's text of one stored value."""
    if kind == "int":
        return "%d" % value
    if kind == "float":
        return "%f" % f32(value)
    if kind == "bool":
        return "true" if value else "false"
    return str(value)
