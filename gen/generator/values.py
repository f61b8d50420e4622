"""The rules of the value codec that the generator applies to the model's own texts: a number as
the range check reads it, the range that a variable's bounds give, the range check of a value
text, and the text that a getter writes of a stored value.

The device applies these rules in C++ (apps/common/introspection/valuecodec.h), to any text. The
generator reads only plain decimal numbers: the bounds of the model (model.py refuses any other
form) and the texts that the getters write ("%d", "%f"). Both sides run one table of cases,
apps/common/introspection/tests/valuecodec_cases.json (the C++ unit test valuecodec_test and
gen/tests/test_values.py), so that the two implementations keep one set of rules.

The typed facts that the generator computes with them (a variable's numeric bounds, its default's
text) are emitted into the catalogue's descriptors (emit_tables.py); the C++ code reads them
instead of deriving them again.
"""

import re
from fractions import Fraction

INT_MIN, INT_MAX = -2**31, 2**31 - 1
# The smallest positive normal float and the largest float.
FLOAT_MIN = 2.0**-126
FLOAT_MAX = float((2 - Fraction(1, 2**23)) * 2**127)

_INT = re.compile(r"[+-]?[0-9]+\Z")
_FLOAT = re.compile(r"[+-]?([0-9]+\.?[0-9]*|\.[0-9]+)([eE][+-]?[0-9]+)?\Z")


class Unreadable(ValueError):
    """A text that the range check cannot read: not a number, or outside the type's values."""


def float32(value):
    """The float that the codec reads for the exact number `value` (a Fraction, int or float):
    rounded once to the nearest float, ties to even, below the smallest normal float to the
    denormals' spacing of 2**-149. Unreadable where the codec refuses the text: a number beyond
    the largest float once rounded, or one whose nearest float is denormal or zero while the
    number is not (a text a hair below the smallest normal float that rounds to it is read as
    it, on every target)."""
    exact = Fraction(value)
    if exact == 0:
        return float(value) if isinstance(value, float) else 0.0
    magnitude = abs(exact)
    exponent = magnitude.numerator.bit_length() - magnitude.denominator.bit_length()
    if Fraction(2) ** exponent > magnitude:
        exponent -= 1
    quantum = Fraction(2) ** max(exponent - 23, -149)
    rounded = round(magnitude / quantum) * quantum
    if rounded > FLOAT_MAX:
        raise Unreadable("beyond the largest float")
    if rounded < FLOAT_MIN and rounded != magnitude:
        raise Unreadable("below the smallest normal float")
    return float(rounded) if exact > 0 else -float(rounded)


def read_number(kind, text):
    """The number that the range check reads from a plain decimal text: an int as std::stoi reads
    it in base 10, a float as the codec reads it (float32). Unreadable for another form or a number
    outside the type's values."""
    if kind == "int":
        if not _INT.match(text):
            raise Unreadable(f"\"{text}\" is not a decimal integer")
        number = int(text)
        if not INT_MIN <= number <= INT_MAX:
            raise Unreadable(f"{text} is not a 32-bit integer")
        return number
    if not _FLOAT.match(text):
        raise Unreadable(f"\"{text}\" is not a decimal number")
    number = float32(Fraction(text))
    return -0.0 if number == 0 and text.startswith("-") else number


def bounds(kind, minimum, maximum):
    """The bounds that the range check applies to a variable with these bound texts, (low, high),
    or None when it states neither (every value passes unread). Where one is missing the type's
    limit stands in: an int's smallest or largest value, a float's largest value or, for the
    minimum, the smallest positive normal float, so that a float with only a maximum refuses
    zero and every negative value."""
    if minimum is None and maximum is None:
        return None
    if kind == "int":
        low, high = INT_MIN, INT_MAX
    else:
        low, high = FLOAT_MIN, FLOAT_MAX
    return (read_number(kind, minimum) if minimum is not None else low,
            read_number(kind, maximum) if maximum is not None else high)


def check_range(kind, minimum, maximum, text):
    """The range check of a plain decimal value text: "inside", "outside", or "unreadable" (a
    text or bound it cannot read). Only ints and floats have a range; other kinds pass."""
    if kind not in ("int", "float"):
        return "inside"
    try:
        limits = bounds(kind, minimum, maximum)
        if limits is None:
            return "inside"
        number = read_number(kind, text)
    except Unreadable:
        return "unreadable"
    return "inside" if limits[0] <= number <= limits[1] else "outside"


def value_text(kind, value):
    """The text that the getter writes of a stored value: an int as "%d", a float (the value
    stored as a 32-bit float) as "%f", a bool as "true" or "false"."""
    if kind == "int":
        return "%d" % value
    if kind == "float":
        return "%f" % float32(value)
    if kind == "bool":
        return "true" if value else "false"
    return str(value)
