"""Writes log/settings-service/loglevel.h: gen::LogLevel, the one definition of the log levels, from the model's
log-level enum (catalogue.toml, [log] levels). The log library includes only this header."""

from cpp import render, rows


def header(model):
    enum = model.enum(model.log_levels)
    return render("loglevel.h", enum_name=enum.name,
                  enumerators=rows(f"{entry} = {value}," for value, entry in enumerate(enum.entries)))
