"""Writes history.cpp: how the catalogue changed since earlier releases, as the model declares it
(variables' former names and out_of_range = "clamp", enums' former entries, retired variables),
for the loading of settings documents of other releases. gen/code/history.h declares the tables;
like the catalogue's tables (emit_tables.py) they are constinit, complete when the program is loaded."""

from cpp import c_string, render, rows


def source(model):
    former_names, clamped, former_entries, retired = [], [], [], []
    for memory in model.memories:
        for number, variable in enumerate(memory.variables):
            former_names += [f"{{{memory.index}, {number}, {c_string(name)}}},"
                             for name in variable.formerly]
            if variable.out_of_range == "clamp":
                clamped.append(f"{{{memory.index}, {number}}},")
        retired += [f"{{{memory.index}, {c_string(r.name)}, {r.event}, {c_string(r.reason)}}},"
                    for r in memory.retired]
    for number, enum in enumerate(model.enums):
        former_entries += [f"{{{number}, {c_string(name)}, {enum.entries.index(entry)}}},"
                           for name, entry in enum.formerly.items()]
    return render("history.cpp",
                  former_names=rows(former_names + ["{0, 0, nullptr},"]),
                  former_name_count=len(former_names),
                  clamped=rows(clamped + ["{0, 0},"]),
                  clamped_count=len(clamped),
                  former_entries=rows(former_entries + ["{0, nullptr, 0},"]),
                  former_entry_count=len(former_entries),
                  retired=rows(retired + ["{0, nullptr, 0, nullptr},"]),
                  retired_count=len(retired))
