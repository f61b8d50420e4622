"""Helpers for writing the generated files: the whole-file templates of templates/ and C++ text
literals.

A template is the complete text of one generated file with string.Template placeholders
(${name}); the emit_* modules compute the values, which are data rows and declarations only.
"""

import pathlib
import string

TEMPLATES = pathlib.Path(__file__).resolve().parent / "templates"


def render(template_name, **values):
    """The text of templates/<template_name>.in with every placeholder filled; a placeholder
    without a value is an error."""
    text = (TEMPLATES / f"{template_name}.in").read_text()
    return string.Template(text).substitute(values)


def rows(items):
    """One row per line, each indented by four blanks."""
    return "\n".join(f"    {item}" for item in items)


def c_string(text):
    out = []
    for ch in text:
        if ch in "\\\"":
            out.append("\\" + ch)
        elif 32 <= ord(ch) < 127:
            out.append(ch)
        else:
            out.append(f"\\x{ord(ch):02x}\"\"")
    return "\"" + "".join(out) + "\""
