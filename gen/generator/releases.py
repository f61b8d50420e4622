"""Release snapshots of the model and the checks of a model against them.

A snapshot records what one shipped release's catalogue was, so that every later model can be
checked against it: settings documents and other programs of units in the field rely on it. The
snapshots of a model live in its folder `releases/`, one file `<version>.json` per release (the
version being the project's, MAJOR.MINOR.PATCH); "latest" is the highest version in version order.

Snapshot format (format 1), one JSON object:

    {"format": 1, "version": "1.0.0",
     "memories": [{"index": 0, "name": "MemPersistent", "size": 1136,
                   "variables": [VARIABLE, ...], "retired": [RETIRED, ...]}, ...],
     "enums": [{"name": "KnobColor", "entries": ["White", ...], "formerly": {"Old": "New"}}, ...],
     "structs": [{"name": "LensFile", "size": 120, "members": [MEMBER, ...]}, ...],
     "events": ["Invalid", "Subscribe", ...]}

    VARIABLE: {"name", "type", "kind", "offset", "event", "min", "max", "default", "count",
               "capacity", "formerly", "outOfRange"}
    MEMBER:   {"name", "type", "kind", "offset", "count", "capacity"}
    RETIRED:  {"name", "event", "reason"}

"type" is the model's type ("int", "float", "bool", "string", "buffer" or the enum or struct
name); "kind" is one of int, float, bool, string, buffer, enum, struct. "min" and "max" are the
range texts or null. "default" is the value the start-up writes, typed (0, 0.0, false, the first
entry or "" where the model states none); null for buffers and structs. "count" is an array's
element count, null for a single value; "capacity" the bytes of a string (its terminator
included) or buffer, else null. "formerly" lists the variable's earlier names; "outOfRange" is
"clamp", "keep-aside" or null (not declared: keep-aside). "events" is the whole event table, the
name of each id in id order.

Checks of a model against every snapshot (check_all); each problem names the snapshot file, the
memory, the variable or entry and what to declare:
  a. a persistent variable of the snapshot that is neither in the model (by its name or a
     `formerly`) nor retired; a variable that left the persistent memory counts as gone;
  b. a name reused: a retired name or a former name taken by a variable;
  c. an entry of an enum that a persistent variable uses (directly or in a struct member), gone
     from the enum and not in its `formerly`;
  d. a persistent variable whose range was narrowed without `out_of_range`;
  e. a persistent variable whose type changed, whose array got shorter, whose capacity got
     smaller or whose struct lost or changed a member;
  f. an event id that changed: a variable's in any memory, a retired variable's, or any name of
     the snapshot's event table (a renamed variable's event keeps its id under the new name).
A changed default of a persistent variable is a note (against the latest snapshot), not a
refusal: units in the field keep the value they stored.

Choices made here:
- Every refusal is reported at once (ReleaseError holds them all), not only the first.
- Beyond a lost or renamed member, a member of a struct that a setting uses whose type, array
  length or capacity changed is refused too (e); a range given to a float variable that had none
  counts as narrowed (d), as the range check then refuses values it took before.
- The note of a changed default is given for persistent variables only (the other memories are
  written afresh at every start) and against the latest snapshot, once.
"""

import json
import pathlib
import re

import values

FORMAT = 1
PERSISTENT = "MemPersistent"
VERSION = re.compile(r"^(\d+)\.(\d+)\.(\d+)$")


class ReleaseError(Exception):
    """Refusals of the model against the snapshots, one per line."""

    def __init__(self, problems):
        super().__init__("\n".join(problems))
        self.problems = problems


# ---- snapshots -------------------------------------------------------------------------------

def version_key(version):
    match = VERSION.match(version)
    if not match:
        raise ValueError(f"\"{version}\" is not a version MAJOR.MINOR.PATCH")
    return tuple(int(part) for part in match.groups())


def _zero(field, model):
    if field.kind == "enum":
        return model.enum(field.type).entries[0]
    return {"int": 0, "float": 0.0, "bool": False, "string": ""}.get(field.kind)


def default_value(variable, model):
    """The value the start-up writes, typed; None for buffers and structs."""
    if variable.kind in ("buffer", "struct"):
        return None
    if variable.default is None:
        return _zero(variable, model)
    if variable.kind == "float":
        return float(variable.default)
    return variable.default


def _capacity(field):
    return field.length if field.kind in ("string", "buffer") else None


def _variable(variable, model):
    return {"name": variable.name, "type": variable.type, "kind": variable.kind,
            "offset": variable.offset, "event": variable.event, "min": variable.min,
            "max": variable.max, "default": default_value(variable, model),
            "count": variable.count, "capacity": _capacity(variable),
            "formerly": list(variable.formerly), "outOfRange": variable.out_of_range}


def _member(member):
    return {"name": member.name, "type": member.type, "kind": member.kind,
            "offset": member.offset, "count": member.count, "capacity": _capacity(member)}


def snapshot(model, version):
    """The snapshot of `model` as release `version`."""
    version_key(version)
    return {
        "format": FORMAT,
        "version": version,
        "memories": [{"index": m.index, "name": m.name, "size": m.size,
                      "variables": [_variable(v, model) for v in m.variables],
                      "retired": [{"name": r.name, "event": r.event, "reason": r.reason}
                                  for r in m.retired]}
                     for m in model.memories],
        "enums": [{"name": e.name, "entries": e.entries, "formerly": e.formerly}
                  for e in model.enums],
        "structs": [{"name": s.name, "size": s.size, "members": [_member(f) for f in s.members]}
                    for s in model.structs],
        "events": model.event_names,
    }


def _compact(value):
    return json.dumps(value, ensure_ascii=False)


def text(data):
    """A snapshot as the file holds it: one line per variable, member, enum and event."""
    def rows(items, indent):
        pad = " " * indent
        return ",\n".join(pad + _compact(item) for item in items)

    memories = []
    for memory in data["memories"]:
        head = {key: memory[key] for key in ("index", "name", "size")}
        memories.append(
            "  " + _compact(head)[:-1] + ",\n"
            + "   \"variables\": [\n" + rows(memory["variables"], 4) + "\n   ],\n"
            + "   \"retired\": [" + ("\n" + rows(memory["retired"], 4) + "\n   " if memory["retired"]
                                     else "") + "]}")
    structs = []
    for struct in data["structs"]:
        head = {key: struct[key] for key in ("name", "size")}
        structs.append("  " + _compact(head)[:-1] + ",\n   \"members\": [\n"
                       + rows(struct["members"], 4) + "\n   ]}")
    return ("{\n"
            f" \"format\": {data['format']},\n"
            f" \"version\": {_compact(data['version'])},\n"
            " \"memories\": [\n" + ",\n".join(memories) + "\n ],\n"
            " \"enums\": [\n" + rows(data["enums"], 2) + "\n ],\n"
            " \"structs\": [\n" + ",\n".join(structs) + "\n ],\n"
            " \"events\": [\n" + rows(data["events"], 2) + "\n ]\n"
            "}\n")


class Snapshot:
    """A snapshot read back, with lookups."""

    def __init__(self, path, data):
        self.path = path
        self.data = data
        self.version = data["version"]
        self.memories = {m["name"]: m for m in data["memories"]}
        self.enums = {e["name"]: e for e in data["enums"]}
        self.structs = {s["name"]: s for s in data["structs"]}
        self.events = data["events"]

    @property
    def file(self):
        return str(self.path)


def folder_of(model_dir):
    return pathlib.Path(model_dir) / "releases"


def load_all(model_dir):
    """The snapshots of a model folder in version order; a file that is not a snapshot named
    after its version is a ReleaseError."""
    folder = folder_of(model_dir)
    found = []
    for path in sorted(folder.glob("*")) if folder.is_dir() else []:
        match = VERSION.match(path.name[:-len(".json")]) if path.name.endswith(".json") else None
        if not match:
            raise ReleaseError([f"{path}: a release snapshot is named <MAJOR.MINOR.PATCH>.json"])
        try:
            data = json.loads(path.read_text())
        except (OSError, ValueError) as error:
            raise ReleaseError([f"{path}: not a readable snapshot: {error}"]) from None
        if not isinstance(data, dict) or data.get("format") != FORMAT or \
                data.get("version") != path.name[:-len(".json")]:
            raise ReleaseError([f"{path}: not a snapshot of format {FORMAT} for version "
                                f"{path.name[:-len('.json')]}"])
        found.append(Snapshot(path, data))
    return sorted(found, key=lambda s: version_key(s.version))


# ---- checks ----------------------------------------------------------------------------------

def _narrowed(old, new):
    if new is None:
        return False
    if old is None:
        return True
    return new[0] > old[0] or new[1] < old[1]


def _range_text(bounds):
    return "no range" if bounds is None else f"{bounds[0]:g}..{bounds[1]:g}"


class _Checker:
    def __init__(self, model):
        self.model = model
        self.problems = []
        self.notes = []
        self.variables = {}  # memory name -> {name: variable}, current names and former names
        for memory in model.memories:
            names = {}
            for variable in memory.variables:
                names[variable.name] = variable
                for former in variable.formerly:
                    names.setdefault(former, variable)
            self.variables[memory.name] = names
        self.retired = {m.name: {r.name: r for r in m.retired} for m in model.memories}
        self.all_names = {v.name: memory.name for memory, v in model.variables()}

    def refuse(self, snapshot, memory, what, text):
        self.problems.append(f"{snapshot.file}: {memory}: {what}: {text}")

    def file_of(self, memory_name):
        memory = self.model.memory(memory_name)
        return pathlib.Path(memory.file).name if memory else f"the file of {memory_name}"

    def run(self, snapshot):
        persistent = snapshot.memories.get(PERSISTENT)
        if persistent is not None:
            for old in persistent["variables"]:
                self.persistent_variable(snapshot, old)
        for memory in snapshot.data["memories"]:
            for old in memory["variables"]:
                self.event_of_variable(snapshot, memory["name"], old)
            for old in memory["retired"]:
                self.retired_variable(snapshot, memory["name"], old)
        self.event_table(snapshot)

    # a, c, d, e
    def persistent_variable(self, snapshot, old):
        name = old["name"]
        what = f"variable \"{name}\""
        new = self.variables.get(PERSISTENT, {}).get(name)
        if new is None:
            if name in self.retired.get(PERSISTENT, {}):
                return
            elsewhere = self.all_names.get(name)
            moved = f" (it is in {elsewhere} now, which keeps no settings)" if elsewhere else ""
            self.refuse(snapshot, PERSISTENT, what,
                        f"release {snapshot.version} stored it and it is gone{moved}; declare "
                        f"formerly = [\"{name}\"] on the variable that took its place, or retire "
                        f"it: retired = [{{ name = \"{name}\", event = {old['event']}, "
                        f"reason = \"...\" }}] in {self.file_of(PERSISTENT)}")
            return
        if name != new.name:
            what = f"variable \"{name}\" (now \"{new.name}\")"
        if not self.same_type(snapshot, what, old, new):
            return
        self.enum_entries(snapshot, what, old, new)
        self.range(snapshot, what, old, new)

    def retire_hint(self, old):
        return (f"give the variable a new name and event and retire the old one: retired = "
                f"[{{ name = \"{old['name']}\", event = {old['event']}, reason = \"...\" }}]")

    def same_type(self, snapshot, what, old, new):
        change = None
        if old["type"] != new.type:
            change = f"its type {old['type']} became {new.type}"
        elif (old["count"] is None) != (new.count is None):
            change = ("it was an array of " + str(old["count"]) if old["count"] is not None
                      else "it was a single value") + (" and is a single value now"
                                                       if new.count is None
                                                       else f" and is an array of {new.count} now")
        elif old["count"] is not None and new.count < old["count"]:
            change = f"its array of {old['count']} became {new.count}"
        elif old["capacity"] is not None and (new.length or 0) < old["capacity"]:
            change = f"its capacity of {old['capacity']} bytes became {new.length}"
        elif old["kind"] == "struct":
            change = self.struct_change(snapshot, old["type"])
        if change is None:
            return True
        self.refuse(snapshot, PERSISTENT, what, f"{change} since release {snapshot.version}; "
                    + self.retire_hint(old))
        return False

    def struct_change(self, snapshot, type_name):
        old_struct = snapshot.structs.get(type_name)
        new_struct = self.model.struct(type_name)
        if old_struct is None or new_struct is None:
            return None
        members = {m.name: m for m in new_struct.members}
        for old in old_struct["members"]:
            new = members.get(old["name"])
            if new is None:
                return f"its struct {type_name} lost the member \"{old['name']}\""
            if old["type"] != new.type or old["count"] != new.count or \
                    (old["capacity"] or 0) > (new.length or 0):
                return f"the member \"{old['name']}\" of its struct {type_name} changed"
        return None

    def enums_used(self, snapshot, old):
        """The enums whose entries a persistent variable's value holds: its own type, or those of
        its struct's members."""
        if old["kind"] == "enum":
            return [old["type"]]
        if old["kind"] == "struct" and old["type"] in snapshot.structs:
            return [m["type"] for m in snapshot.structs[old["type"]]["members"]
                    if m["kind"] == "enum"]
        return []

    def enum_entries(self, snapshot, what, old, new):
        for enum_name in dict.fromkeys(self.enums_used(snapshot, old)):
            before = snapshot.enums.get(enum_name)
            now = self.model.enum(enum_name)
            if before is None or now is None:
                continue
            for entry in before["entries"]:
                if entry not in now.entries and entry not in now.formerly:
                    self.refuse(snapshot, PERSISTENT, what,
                                f"entry \"{entry}\" of enum {enum_name} (release "
                                f"{snapshot.version}) is gone; declare formerly = {{ {entry} = "
                                f"\"<the entry it is now>\" }} on enum {enum_name} in "
                                f"{pathlib.Path(now.file).name}")

    def range(self, snapshot, what, old, new):
        if old["kind"] not in ("int", "float") or new.out_of_range is not None:
            return
        before = values.bounds(old["kind"], old["min"], old["max"])
        now = values.bounds(new.kind, new.min, new.max)
        if _narrowed(before, now):
            self.refuse(snapshot, PERSISTENT, what,
                        f"its range {_range_text(before)} of release {snapshot.version} narrowed "
                        f"to {_range_text(now)}; declare out_of_range = \"clamp\" (a stored value "
                        f"outside becomes the nearest bound) or out_of_range = \"keep-aside\" (it "
                        f"is kept aside) on the variable in {self.file_of(PERSISTENT)}")

    # f
    def event_of_variable(self, snapshot, memory, old):
        new = self.variables.get(memory, {}).get(old["name"])
        if new is not None and new.event != old["event"]:
            self.refuse(snapshot, memory, f"variable \"{new.name}\"",
                        f"its event id was {old['event']} in release {snapshot.version} and is "
                        f"{new.event} now; other programs of the device rely on the numbering: "
                        f"keep event = {old['event']}")
        retired = self.retired.get(memory, {}).get(old["name"])
        if new is None and retired is not None and retired.event != old["event"]:
            self.refuse(snapshot, memory, f"retired variable \"{old['name']}\"",
                        f"its event id was {old['event']} in release {snapshot.version}; declare "
                        f"event = {old['event']}")

    def retired_variable(self, snapshot, memory, old):
        retired = self.retired.get(memory, {}).get(old["name"])
        what = f"retired variable \"{old['name']}\""
        if retired is None:
            user = self.all_names.get(old["name"])
            if user is not None:
                self.refuse(snapshot, memory, what,
                            f"the name was retired in release {snapshot.version} and can never be "
                            f"used again; the variable \"{old['name']}\" of {user} needs another "
                            "name")
            else:
                self.refuse(snapshot, memory, what,
                            f"retired in release {snapshot.version}; keep retired = [{{ name = "
                            f"\"{old['name']}\", event = {old['event']}, reason = "
                            f"{_compact(old['reason'])} }}] in {self.file_of(memory)}")
        elif retired.event != old["event"]:
            self.refuse(snapshot, memory, what,
                        f"its event id was {old['event']} in release {snapshot.version}; "
                        f"declare event = {old['event']}")

    def event_table(self, snapshot):
        names = self.model.event_names
        owners = {v.event: v for _, v in self.model.variables()}
        for event_id, old in enumerate(snapshot.events):
            new = names[event_id] if event_id < len(names) else None
            if new == old:
                continue
            owner = owners.get(event_id)
            if owner is not None and any(old == f"Var{f}Changed" for f in owner.formerly):
                continue
            now = f"\"{new}\"" if new is not None else "missing"
            self.refuse(snapshot, "events", f"event {event_id}",
                        f"was \"{old}\" in release {snapshot.version} and is {now} now; other "
                        "programs of the device rely on the numbering: keep the id, retire a "
                        "removed variable with its event, and give a renamed one formerly")

    # notes
    def defaults(self, snapshot):
        persistent = snapshot.memories.get(PERSISTENT)
        for old in persistent["variables"] if persistent else []:
            new = self.variables.get(PERSISTENT, {}).get(old["name"])
            if new is None or old["type"] != new.type or old["default"] is None:
                continue
            before, now = _compact(old["default"]), _compact(default_value(new, self.model))
            if new.kind in ("int", "float", "bool"):
                before = values.value_text(new.kind, old["default"])
                now = values.value_text(new.kind, default_value(new, self.model))
            if before != now:
                self.notes.append(
                    f"{snapshot.file}: {PERSISTENT}: variable \"{new.name}\": the default changed "
                    f"from {before} to {now} since release {snapshot.version}; "
                    "units in the field keep the value they stored")


def check_all(model, snapshots):
    """Refuses (ReleaseError) when the model breaks a snapshot; the notes otherwise."""
    checker = _Checker(model)
    for snap in snapshots:
        checker.run(snap)
    if checker.problems:
        raise ReleaseError(checker.problems)
    if snapshots:
        checker.defaults(snapshots[-1])
    return checker.notes
