"""Writes eventid.h and eventid.cpp: the EventId enumeration and the EVENT_NAME table."""

from cpp import c_string, render, rows


def header(model):
    return render("eventid.h",
                  enumerators=rows(f"{name} = {number}," for number, name in enumerate(model.event_names)),
                  event_count=len(model.event_names))


def source(model):
    return render("eventid.cpp", names=rows(f"{c_string(name)}," for name in model.event_names))
