"""Writes eventid.h and eventid.cpp: the EventId enumeration and the EVENT_NAME table."""

from cpp import HEADER_NOTE, c_string


def header(model):
    lines = [HEADER_NOTE, "#pragma once", "", "#include <cstdint>", "",
             "enum EventId : uint32_t {"]
    lines += [f"    {name} = {number}," for number, name in enumerate(model.event_names)]
    lines += ["};", "",
              f"constexpr uint32_t EVENT_ID_COUNT = {len(model.event_names)};", "",
              "// The name of every event, indexed by EventId.",
              "extern const char* const EVENT_NAME[];", ""]
    return "\n".join(lines)


def source(model):
    lines = [HEADER_NOTE, "#include \"eventid.h\"", "",
             "const char* const EVENT_NAME[EVENT_ID_COUNT] = {"]
    lines += [f"    {c_string(name)}," for name in model.event_names]
    lines += ["};", ""]
    return "\n".join(lines)
