"""Checks of the model against the facts that the device's other programs rely on.

Each check is one small function that raises CheckError naming the broken fact. run_all() runs
them in order; the generator refuses to write anything while one fails.
"""

import defaults
import facts
import rangecheck


class CheckError(Exception):
    def __init__(self, fact, file, detail):
        super().__init__(f"{file}: binding fact \"{fact}\" is broken: {detail}")
        self.fact = fact


def _expect(condition, fact, file, detail):
    if not condition:
        raise CheckError(fact, file, detail)


def _variable(model, memory_name, name, fact):
    memory = model.memory(memory_name)
    variable = memory.variable(name)
    _expect(variable is not None, fact, memory.file, f"{memory_name} has no variable \"{name}\"")
    return memory, variable


def check_memory_table(model):
    fact = "memory table"
    file = model.catalogue_file
    names = [m.name for m in model.memories]
    _expect(names == [row[0] for row in facts.MEMORY_TABLE], fact, file,
            f"the memories must be {[row[0] for row in facts.MEMORY_TABLE]}, not {names}")
    for memory, (name, size, count) in zip(model.memories, facts.MEMORY_TABLE):
        _expect(memory.size == size, fact, memory.file,
                f"{name} must be {size} bytes long, not {memory.size}")
        _expect(len(memory.variables) == count, fact, memory.file,
                f"{name} must hold {count} variables, not {len(memory.variables)}")


def check_variable_total(model):
    total = sum(len(m.variables) for m in model.memories)
    _expect(total == facts.VARIABLE_TOTAL, "variable total", model.catalogue_file,
            f"{facts.VARIABLE_TOTAL} variables in all, not {total}")


def check_persistent_names(model):
    memory = model.memory("MemPersistent")
    names = [v.name for v in memory.variables]
    for position, (have, want) in enumerate(zip(names, facts.PERSISTENT_NAMES)):
        _expect(have == want, "persistent variable names", memory.file,
                f"variable {position} must be \"{want}\", not \"{have}\"")
    _expect(len(names) == len(facts.PERSISTENT_NAMES), "persistent variable names", memory.file,
            f"{len(facts.PERSISTENT_NAMES)} names, not {len(names)}")
    encoded = [n.encode() for n in names]
    _expect(encoded == sorted(encoded), "persistent variable names", memory.file,
            "the variables must be in the byte order of their names")


def check_persistent_telling_rows(model):
    fact = "telling rows of MemPersistent"
    for name, (event, offset, type_name, minimum, maximum) in facts.PERSISTENT_TELLING_ROWS.items():
        memory, variable = _variable(model, "MemPersistent", name, fact)
        _expect(variable.event == event, fact, memory.file, f"{name} must have event {event}")
        _expect(variable.offset == offset, fact, memory.file, f"{name} must lie at offset {offset}")
        _expect(variable.type == type_name, fact, memory.file, f"{name} must be of type {type_name}")
        _expect(not variable.is_array, fact, memory.file, f"{name} must not be an array")
        for bound, want in (("min", minimum), ("max", maximum)):
            have = getattr(variable, bound)
            _expect(want is facts.OPEN or have == want, fact, memory.file,
                    f"{name} must have {bound} {want!r}, not {have!r}")


def check_named_variables(model):
    fact = "variables named by other programs"
    for memory_name, rows in facts.NAMED_VARIABLES.items():
        for name, type_name, length, event in rows:
            memory, variable = _variable(model, memory_name, name, fact)
            _expect(variable.type == type_name and variable.length == length
                    and not variable.is_array, fact, memory.file,
                    f"{name} must be a {type_name}" + (f" of {length} bytes" if length else ""))
            _expect(event is None or variable.event == event, fact, memory.file,
                    f"{name} must have event {event}")


def check_user_setups(model):
    fact = "user-setup dialogue"
    memory = model.memory("MemUserSetups")
    _expect(len(memory.variables) == len(facts.USER_SETUPS), fact, memory.file,
            f"MemUserSetups must hold exactly the {len(facts.USER_SETUPS)} dialogue variables")
    for name, type_name, size, event in facts.USER_SETUPS:
        memory, variable = _variable(model, "MemUserSetups", name, fact)
        _expect(variable.type == type_name and variable.event == event, fact, memory.file,
                f"{name} must be a {type_name} with event {event}")
        if type_name == "string":
            _expect(variable.length == size, fact, memory.file, f"{name} must hold {size} bytes")
        elif size is not None:
            _expect(variable.count == size, fact, memory.file, f"{name} must have {size} entries")
    entry = model.struct("UserSetupFiles")
    _expect(len(entry.members) == 1 and entry.members[0].kind == "string"
            and entry.members[0].length == facts.USER_SETUP_FILE_LENGTH, fact, entry.file,
            f"UserSetupFiles must be one text of {facts.USER_SETUP_FILE_LENGTH} bytes")


def check_app_log_levels(model):
    fact = "log levels of MemApp"
    memory = model.memory("MemApp")
    _expect(len(memory.variables) == facts.APP_LOG_LEVELS, fact, memory.file,
            f"MemApp must hold {facts.APP_LOG_LEVELS} log levels")
    offsets = sorted(v.offset for v in memory.variables)
    _expect(offsets == [4 * i for i in range(facts.APP_LOG_LEVELS)], fact, memory.file,
            "the log levels must be consecutive 32-bit entries from offset 0")
    for variable in memory.variables:
        _expect(variable.type == "LogLevel" and not variable.is_array, fact, memory.file,
                f"{variable.name} must be a LogLevel")
    memory_name, name = model.service_log_level
    _expect(memory_name == "MemApp", fact, model.catalogue_file,
            f"the service's log level must be a variable of MemApp, not of {memory_name}")
    memory, variable = _variable(model, "MemApp", name, fact)
    offset = facts.SERVICE_LOG_LEVEL_OFFSET
    _expect(variable.offset == offset, fact, memory.file, f"{name} must lie at offset {offset}")


def check_struct_examples(model):
    fact = "example struct members"
    for struct_name, rows in facts.STRUCT_EXAMPLES.items():
        struct = model.struct(struct_name)
        _expect(struct is not None, fact, model.structs_file, f"there is no struct {struct_name}")
        names = [m.name for m in struct.members]
        _expect(names == [row[0] for row in rows], fact, struct.file,
                f"{struct_name} must have the members {[row[0] for row in rows]}")
        for member, (name, offset, type_name) in zip(struct.members, rows):
            _expect(offset is None or member.offset == offset, fact, struct.file,
                    f"{struct_name}.{name} must lie at offset {offset}, not {member.offset}")
            _expect(type_name is None or member.type == type_name, fact, struct.file,
                    f"{struct_name}.{name} must be of type {type_name}")


def check_enum_table(model):
    fact = "enum table"
    have = [(e.name, len(e.entries)) for e in model.enums]
    for position, want in enumerate(facts.ENUM_TABLE):
        _expect(position < len(have) and have[position] == want, fact, model.enums_file,
                f"enum {position} must be {want[0]} with {want[1]} entries")
    _expect(len(have) == len(facts.ENUM_TABLE), fact, model.enums_file,
            f"{len(facts.ENUM_TABLE)} enums, not {len(have)}")
    for name, first in facts.ENUM_FIRST_ENTRIES.items():
        enum = model.enum(name)
        _expect(enum.entries[:len(first)] == first, fact, enum.file,
                f"{name} must start with {first}")


def check_struct_list(model):
    names = [s.name for s in model.structs]
    _expect(names == facts.STRUCT_NAMES, "struct types", model.structs_file,
            f"the struct types must be {facts.STRUCT_NAMES}")


def check_events(model):
    fact = "event numbering"
    file = model.events_file
    names = model.event_names
    _expect(names[:len(facts.FIXED_EVENTS)] == facts.FIXED_EVENTS, fact, file,
            f"ids 0 to {len(facts.FIXED_EVENTS) - 1} must be {facts.FIXED_EVENTS}")
    _expect(len(names) == facts.EVENT_COUNT, fact, file,
            f"{facts.EVENT_COUNT} ids in all, not {len(names)}")
    for event_id, name in facts.NAMED_EVENTS.items():
        _expect(names[event_id] == name, fact, file, f"id {event_id} must be \"{name}\"")
    for _, variable in model.variables():
        _expect(names[variable.event] == f"Var{variable.name}Changed", fact, variable.file,
                f"the event of {variable.name} must be named \"Var{variable.name}Changed\"")


def check_subscriptions(model):
    fact = "subscription list"
    file = model.subscriptions_file
    _expect(len(model.subscriptions) == facts.SUBSCRIPTION_COUNT, fact, file,
            f"{facts.SUBSCRIPTION_COUNT} subscriptions, not {len(model.subscriptions)}")
    known = set(model.event_names)
    for name in model.subscriptions:
        _expect(name in known, fact, file, f"there is no event \"{name}\"")


def check_defaults_in_range(model):
    """Every default passes the range check that a factory reset applies when it replays the
    defaults document: arrays of MemPersistent are checked in their document form."""
    fact = "defaults within range"
    for memory, variable in model.variables():
        if variable.kind not in ("int", "float"):
            continue
        value = variable.default if variable.default is not None else 0
        element = rangecheck.value_text(variable.kind, value)
        if variable.is_array and memory.name == "MemPersistent":
            text = "[" + ",".join([element] * variable.count) + "]"
        else:
            text = element
        _expect(rangecheck.check_min_max(variable.kind, variable.min, variable.max, text), fact,
                variable.file, f"{variable.name}: the default text \"{text}\" fails the range "
                f"check (min {variable.min}, max {variable.max})")


def check_defaults_valid(model):
    fact = "defaults of the right type"
    for _, variable in model.variables():
        problem = defaults.problem(variable, model)
        _expect(problem is None, fact, variable.file, f"{variable.name}: {problem}")


def check_persistent_structs_flat(model):
    """The settings loader reads every member of a struct element of MemPersistent from its
    "value" member: a struct there may hold only plain, non-array members."""
    fact = "persistent structs readable by the settings loader"
    for variable in model.memory("MemPersistent").variables:
        if variable.kind != "struct":
            continue
        for member in model.struct(variable.type).members:
            _expect(member.kind != "struct" and not member.is_array, fact, variable.file,
                    f"{variable.name}: member {member.name} of {variable.type} must be a plain value")


def check_struct_text_is_json(model):
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


def run_all(model):
    for check in ALL_CHECKS:
        check(model)
