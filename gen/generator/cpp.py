"""Small helpers for writing C++ text."""

HEADER_NOTE = "// Generated from gen/model by gen/generator. Do not edit."


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
