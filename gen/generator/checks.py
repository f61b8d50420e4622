"""Checks of the model against the facts that the device's other programs rely on.

The facts are those of the device's latest release: the release snapshot of the device's model
(gen/model/releases/) that is highest in version order, as releases.py reads it. This module names
which facts bind (the memory table, the names of the settings document, the variables that other
programs name, the user-setup dialogue, the log levels of MemApp, two example structs, the enum
table, the struct types, the event numbering); their values come from the snapshot, so that a
model that changes one of them is refused until a release records the change (snapshot.py).
The service's subscriptions are no part of a snapshot; their count is kept here.

Each check is one small function that raises CheckError naming the broken fact, the file and the
release it was read from. run_all() runs them in order; the generator refuses to write anything
while one fails.
"""

import pathlib

import defaults
import releases
import values

# The device's model, whose release snapshots hold the facts.
DEVICE_MODEL = pathlib.Path(__file__).resolve().parents[1] / "model"

PERSISTENT = "MemPersistent"
# The first variables of the settings document, pinned in every column.
TELLING_ROWS = 7
# Variables that other programs name, by memory: their type, length and event.
NAMED_VARIABLES = {
    PERSISTENT: ("ProductName", "ProductVersion", "FocusTorque"),
    "MemStatic": ("ProductLastCommit", "ProductSerial", "ProductRevision"),
    "MemDeviceState": ("FileAlreadyExists", "FileNotFound"),
    "MemGuiLocal": ("FactoryReset",),
}
# The memory of the user-setup dialogue, pinned whole, and the struct of its file list.
USER_SETUPS = "MemUserSetups"
USER_SETUP_FILES = "UserSetupFiles"
# The memory of the programs' log levels, and the service's own level in it.
LOG_LEVELS = "MemApp"
SERVICE_LOG_LEVEL = "AppSettingsManagerLogLevel"
# Structs whose members other programs read.
EXAMPLE_STRUCTS = ("ScaleValues", "LensTable")
# Enums whose first entries are pinned: their name and how many.
ENUM_FIRST_ENTRIES = {"CinefadeDisplayMode": 3}
# Event ids named by other programs beyond those of no variable.
NAMED_EVENTS = (6, 7, 167, 1060)
# The service's subscriptions (subscriptions.toml): one call per entry, the duplicate kept.
SUBSCRIPTION_COUNT = 148


class CheckError(Exception):
    def __init__(self, fact, file, detail, source=None):
        where = f" (the device's facts are those of release {source.version}, {source.file})" \
            if source is not None else ""
        super().__init__(f"{file}: binding fact \"{fact}\" is broken: {detail}{where}")
        self.fact = fact


def latest(snapshots):
    """The snapshot that holds the device's facts: the highest version."""
    return max(snapshots, key=lambda snapshot: releases.version_key(snapshot.version))


def device_facts(folder=DEVICE_MODEL):
    """The latest release snapshot of the model in `folder`; CheckError when it has none."""
    snapshots = releases.load_all(folder)
    if not snapshots:
        raise CheckError("release snapshot", str(releases.folder_of(folder)),
                         "there is no release snapshot to read the device's facts from")
    return latest(snapshots)


def _expect(condition, fact, file, detail):
    if not condition:
        raise CheckError(fact, file, detail)


class _Facts:
    """The snapshot's facts with lookups, and the expectation that reports a broken one."""

    def __init__(self, snapshot):
        self.snapshot = snapshot
        self.memories = snapshot.data["memories"]
        self.events = snapshot.events

    def expect(self, condition, fact, file, detail):
        if not condition:
            raise CheckError(fact, file, detail, self.snapshot)

    def recorded(self, table, name, what):
        """The entry `name` of one of the snapshot's tables; CheckError when the release has
        none, since a binding fact names it."""
        if name not in table:
            raise CheckError("release snapshot", self.snapshot.file,
                             f"release {self.snapshot.version} has no {what} \"{name}\", which "
                             "a binding fact names")
        return table[name]

    def variables(self, memory_name):
        return self.recorded(self.snapshot.memories, memory_name, "memory")["variables"]

    def variable(self, memory_name, name):
        rows = {v["name"]: v for v in self.variables(memory_name)}
        return self.recorded(rows, name, f"variable of {memory_name}")

    def struct_members(self, name):
        return self.recorded(self.snapshot.structs, name, "struct")["members"]

    def enum_entries(self, name):
        return self.recorded(self.snapshot.enums, name, "enum")["entries"]


def _variable(model, facts, memory_name, name, fact):
    memory = model.memory(memory_name)
    variable = memory.variable(name) if memory is not None else None
    facts.expect(variable is not None, fact, memory.file if memory else model.catalogue_file,
                 f"{memory_name} has no variable \"{name}\"")
    return memory, variable


def check_memory_table(model, facts):
    fact = "memory table"
    names = [m.name for m in model.memories]
    want = [m["name"] for m in facts.memories]
    facts.expect(names == want, fact, model.catalogue_file,
                 f"the memories must be {want}, not {names}")
    for memory, recorded in zip(model.memories, facts.memories):
        name, size, count = recorded["name"], recorded["size"], len(recorded["variables"])
        facts.expect(memory.size == size, fact, memory.file,
                     f"{name} must be {size} bytes long, not {memory.size}")
        facts.expect(len(memory.variables) == count, fact, memory.file,
                     f"{name} must hold {count} variables, not {len(memory.variables)}")


def check_variable_total(model, facts):
    total = sum(len(m.variables) for m in model.memories)
    want = sum(len(m["variables"]) for m in facts.memories)
    facts.expect(total == want, "variable total", model.catalogue_file,
                 f"{want} variables in all, not {total}")


def check_persistent_names(model, facts):
    fact = "persistent variable names"
    memory = model.memory(PERSISTENT)
    names = [v.name for v in memory.variables]
    want = [v["name"] for v in facts.variables(PERSISTENT)]
    for position, (have, name) in enumerate(zip(names, want)):
        facts.expect(have == name, fact, memory.file,
                     f"variable {position} must be \"{name}\", not \"{have}\"")
    facts.expect(len(names) == len(want), fact, memory.file, f"{len(want)} names, not {len(names)}")
    encoded = [n.encode() for n in names]
    facts.expect(encoded == sorted(encoded), fact, memory.file,
                 "the variables must be in the byte order of their names")


def check_persistent_telling_rows(model, facts):
    fact = "telling rows of MemPersistent"
    for row in facts.variables(PERSISTENT)[:TELLING_ROWS]:
        name = row["name"]
        memory, variable = _variable(model, facts, PERSISTENT, name, fact)
        facts.expect(variable.event == row["event"], fact, memory.file,
                     f"{name} must have event {row['event']}")
        facts.expect(variable.offset == row["offset"], fact, memory.file,
                     f"{name} must lie at offset {row['offset']}")
        facts.expect(variable.type == row["type"], fact, memory.file,
                     f"{name} must be of type {row['type']}")
        facts.expect(variable.count == row["count"], fact, memory.file,
                     f"{name} must not be an array" if row["count"] is None
                     else f"{name} must be an array of {row['count']}")
        for bound in ("min", "max"):
            have = getattr(variable, bound)
            facts.expect(have == row[bound], fact, memory.file,
                         f"{name} must have {bound} {row[bound]!r}, not {have!r}")


def check_named_variables(model, facts):
    fact = "variables named by other programs"
    for memory_name, names in NAMED_VARIABLES.items():
        for name in names:
            row = facts.variable(memory_name, name)
            type_name, length = row["type"], row["capacity"]
            memory, variable = _variable(model, facts, memory_name, name, fact)
            facts.expect(variable.type == type_name and variable.length == length
                         and not variable.is_array, fact, memory.file,
                         f"{name} must be a {type_name}" + (f" of {length} bytes" if length else ""))
            facts.expect(variable.event == row["event"], fact, memory.file,
                         f"{name} must have event {row['event']}")


def check_user_setups(model, facts):
    fact = "user-setup dialogue"
    memory = model.memory(USER_SETUPS)
    rows = facts.variables(USER_SETUPS)
    facts.expect(len(memory.variables) == len(rows), fact, memory.file,
                 f"{USER_SETUPS} must hold exactly the {len(rows)} dialogue variables")
    for row in rows:
        name, type_name, event = row["name"], row["type"], row["event"]
        memory, variable = _variable(model, facts, USER_SETUPS, name, fact)
        facts.expect(variable.type == type_name and variable.event == event, fact, memory.file,
                     f"{name} must be a {type_name} with event {event}")
        if row["capacity"] is not None:
            facts.expect(variable.length == row["capacity"], fact, memory.file,
                         f"{name} must hold {row['capacity']} bytes")
        facts.expect(variable.count == row["count"], fact, memory.file,
                     f"{name} must have {row['count']} entries" if row["count"] is not None
                     else f"{name} must not be an array")
    members = facts.struct_members(USER_SETUP_FILES)
    entry = model.struct(USER_SETUP_FILES)
    length = members[0]["capacity"]
    facts.expect(entry is not None and len(entry.members) == len(members) == 1
                 and entry.members[0].kind == members[0]["kind"]
                 and entry.members[0].length == length, fact,
                 entry.file if entry else model.structs_file,
                 f"{USER_SETUP_FILES} must be one text of {length} bytes")


def check_app_log_levels(model, facts):
    fact = "log levels of MemApp"
    memory = model.memory(LOG_LEVELS)
    rows = facts.variables(LOG_LEVELS)
    facts.expect(len(memory.variables) == len(rows), fact, memory.file,
                 f"{LOG_LEVELS} must hold {len(rows)} log levels")
    offsets = sorted(v.offset for v in memory.variables)
    facts.expect(offsets == [4 * i for i in range(len(rows))], fact, memory.file,
                 "the log levels must be consecutive 32-bit entries from offset 0")
    level_type = rows[0]["type"]
    for variable in memory.variables:
        facts.expect(variable.type == level_type and not variable.is_array, fact, memory.file,
                     f"{variable.name} must be a {level_type}")
    memory_name, name = model.service_log_level
    facts.expect(memory_name == LOG_LEVELS, fact, model.catalogue_file,
                 f"the service's log level must be a variable of {LOG_LEVELS}, not of "
                 f"{memory_name}")
    memory, variable = _variable(model, facts, LOG_LEVELS, name, fact)
    offset = facts.variable(LOG_LEVELS, SERVICE_LOG_LEVEL)["offset"]
    facts.expect(variable.offset == offset, fact, memory.file, f"{name} must lie at offset {offset}")


def check_struct_examples(model, facts):
    fact = "example struct members"
    for struct_name in EXAMPLE_STRUCTS:
        rows = facts.struct_members(struct_name)
        struct = model.struct(struct_name)
        facts.expect(struct is not None, fact, model.structs_file, f"there is no struct {struct_name}")
        names = [m.name for m in struct.members]
        want = [row["name"] for row in rows]
        facts.expect(names == want, fact, struct.file, f"{struct_name} must have the members {want}")
        for member, row in zip(struct.members, rows):
            facts.expect(member.offset == row["offset"], fact, struct.file,
                         f"{struct_name}.{row['name']} must lie at offset {row['offset']}, not "
                         f"{member.offset}")
            facts.expect(member.type == row["type"], fact, struct.file,
                         f"{struct_name}.{row['name']} must be of type {row['type']}")


def check_enum_table(model, facts):
    fact = "enum table"
    have = [(e.name, len(e.entries)) for e in model.enums]
    recorded = facts.snapshot.data["enums"]
    for position, enum in enumerate(recorded):
        want = (enum["name"], len(enum["entries"]))
        facts.expect(position < len(have) and have[position] == want, fact, model.enums_file,
                     f"enum {position} must be {want[0]} with {want[1]} entries")
    facts.expect(len(have) == len(recorded), fact, model.enums_file,
                 f"{len(recorded)} enums, not {len(have)}")
    for name, count in ENUM_FIRST_ENTRIES.items():
        first = facts.enum_entries(name)[:count]
        enum = model.enum(name)
        facts.expect(enum.entries[:count] == first, fact, enum.file,
                     f"{name} must start with {first}")


def check_struct_list(model, facts):
    names = [s.name for s in model.structs]
    want = [s["name"] for s in facts.snapshot.data["structs"]]
    facts.expect(names == want, "struct types", model.structs_file,
                 f"the struct types must be {want}")


def check_events(model, facts):
    """The number of ids, the names of the ids that no variable of the release owns (the commands
    and the events of other programs) and of the named ones, and every variable's event name."""
    fact = "event numbering"
    file = model.events_file
    names = model.event_names
    facts.expect(len(names) == len(facts.events), fact, file,
                 f"{len(facts.events)} ids in all, not {len(names)}")
    owned = {v["event"] for m in facts.memories for v in m["variables"] + m["retired"]}
    for event_id, name in enumerate(facts.events):
        if event_id not in owned or event_id in NAMED_EVENTS:
            facts.expect(event_id < len(names) and names[event_id] == name, fact, file,
                         f"id {event_id} must be \"{name}\"")
    for _, variable in model.variables():
        facts.expect(names[variable.event] == f"Var{variable.name}Changed", fact, variable.file,
                     f"the event of {variable.name} must be named \"Var{variable.name}Changed\"")


def check_subscriptions(model, facts):
    fact = "subscription list"
    file = model.subscriptions_file
    _expect(len(model.subscriptions) == SUBSCRIPTION_COUNT, fact, file,
            f"{SUBSCRIPTION_COUNT} subscriptions, not {len(model.subscriptions)}")
    known = set(model.event_names)
    for name in model.subscriptions:
        _expect(name in known, fact, file, f"there is no event \"{name}\"")


def check_defaults_in_range(model, facts):
    """Every default passes the range check that a factory reset applies when it replays the
    defaults document: arrays of MemPersistent are checked in their document form ("[" ... "]",
    which the range check of a variable with a range cannot read)."""
    fact = "defaults within range"
    for memory, variable in model.variables():
        if variable.kind not in ("int", "float"):
            continue
        text = defaults.default_text(variable, model)
        if variable.is_array and memory.name == PERSISTENT:
            text = "[" + ",".join([text] * variable.count) + "]"
        _expect(values.check_range(variable.kind, variable.min, variable.max, text) == "inside",
                fact, variable.file,
                f"{variable.name}: the default text \"{text}\" fails the range check (min "
                f"{variable.min}, max {variable.max})")


def check_defaults_valid(model, facts):
    fact = "defaults of the right type"
    for _, variable in model.variables():
        problem = defaults.problem(variable, model)
        _expect(problem is None, fact, variable.file, f"{variable.name}: {problem}")


def check_persistent_structs_flat(model, facts):
    """The settings loader reads every member of a struct element of MemPersistent from its
    "value" member: a struct there may hold only plain, non-array members."""
    fact = "persistent structs readable by the settings loader"
    for variable in model.memory(PERSISTENT).variables:
        if variable.kind != "struct":
            continue
        for member in model.struct(variable.type).members:
            _expect(member.kind != "struct" and not member.is_array, fact, variable.file,
                    f"{variable.name}: member {member.name} of {variable.type} must be a "
                    "plain value")


def check_struct_text_is_json(model, facts):
    """The struct getter closes an array member with "]," and so relies on a member after it."""
    fact = "struct text readable as JSON"
    for struct in model.structs:
        _expect(not struct.members[-1].is_array, fact, struct.file,
                f"{struct.name}: the last member must not be an array")


ALL_CHECKS = [
    check_memory_table, check_variable_total, check_persistent_names,
    check_persistent_telling_rows, check_named_variables, check_user_setups,
    check_app_log_levels, check_struct_examples, check_enum_table, check_struct_list,
    check_events, check_subscriptions, check_defaults_valid, check_defaults_in_range,
    check_persistent_structs_flat, check_struct_text_is_json,
]


def run_all(model, snapshot):
    """Every check of the model against the device's facts of `snapshot` (device_facts())."""
    facts = _Facts(snapshot)
    for check in ALL_CHECKS:
        check(model, facts)
