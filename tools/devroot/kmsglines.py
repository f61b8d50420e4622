"""Kernel-log text as the kernel keeps it, from a device root's log file.

The programs write every line to /dev/kmsg with the priority prefix "<N>" of
its level in front (Error 3, Warn 4, LogLight, LogMost and LogAll 6, the Debug
levels 7); the kernel takes the prefix off and keeps N as the record's level.
In a device root /dev/kmsg is a plain file (or a FIFO drained into kmsg.log),
where the prefix stays.  These helpers take it off and check it: a record
whose level tag (after the 22-byte program piece) names a level of another
priority is refused.

A record starts at the beginning of the text and after every line feed
followed by a prefix; a line without one continues the record before it (a
message that holds a line feed).  Text that does not start with a prefix is
refused.
"""

import re

PROGRAM_FIELD = 22
TAG_WIDTH = 12
PRIORITY = {"DebugAll": 7, "DebugMost": 7, "DebugLight": 7, "LogAll": 6, "LogMost": 6,
            "LogLight": 6, "Warn": 4, "Error": 3}
PREFIX = re.compile(r"<(\d+)>")
LINE = re.compile(r"[^\n]*\n|[^\n]+\Z")


class PriorityError(ValueError):
    """A record without a priority prefix, or with one that is not its level's."""


def _level(record):
    tag = record[PROGRAM_FIELD:PROGRAM_FIELD + TAG_WIDTH]
    name = tag.rstrip(" ")
    if name in PRIORITY and tag == f"{name:<{TAG_WIDTH}}":
        return name
    return None


def strip(text):
    """text with each record's priority prefix taken off and checked."""
    kept = []
    for number, line in enumerate(LINE.findall(text)):
        prefix = PREFIX.match(line)
        if prefix is None:
            if number == 0:
                raise PriorityError(f"kernel-log record without a priority prefix: {line!r}")
            kept.append(line)
            continue
        record = line[prefix.end():]
        level = _level(record)
        if level is not None and int(prefix.group(1)) != PRIORITY[level]:
            raise PriorityError(f"kernel-log record {line!r} does not have the priority of "
                                f"{level}, <{PRIORITY[level]}>")
        kept.append(record)
    return "".join(kept)


def lines(text):
    """The lines of strip(text), without their line feeds."""
    return [line.removesuffix("\n") for line in LINE.findall(strip(text))]


def read_lines(path):
    """The lines of a device root's log file, as the kernel keeps them."""
    with open(path, encoding="utf-8", errors="replace") as log:
        return lines(log.read())
