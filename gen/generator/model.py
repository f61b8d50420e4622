"""Reads the record-layout model (gen/model/*.toml) into plain objects.

Loading also checks that the model is well-formed: known types, unique names, offsets that are
aligned, inside the record and do not overlap, every byte of a record accounted for, range bounds
that are plain decimal numbers the range check reads, struct members that are no buffers, event
ids in range and used once, and the policy keys (a memory's start, a variable's readonly flag, the
log table of catalogue.toml) of the right form; policy.py checks what they say. A malformed model
raises ModelError naming the file, the entry and the reason.

The keys that say how the model changed since earlier releases are read here too, in their form:
a variable's `formerly` (its earlier names) and `out_of_range` ("clamp" or "keep-aside"), an enum's
`formerly` (earlier entry names and the entries they are now) and a memory's `retired` (variables
removed on purpose, whose names and event ids stay taken). What they must say against the recorded
releases is checked by releases.py.
"""

import pathlib
import tomllib

import values

PLAIN_TYPES = ("int", "float", "bool", "string", "buffer")
# Base type codes as the catalogue stores them.
BASE_CODES = {"int": 0, "float": 1, "bool": 2, "string": 3, "buffer": 3, "enum": 5, "struct": 6}
# How the start-up writes a memory: its default record copied whole (when the memory says
# nothing), zeros in place, or one enum value in every 32-bit entry in place.
START_KINDS = ("defaults", "zeroed", "fill")
# What a loaded value outside a variable's range becomes: the nearest bound, or (the default)
# the variable keeps its value and the document's value is kept aside.
OUT_OF_RANGE = ("clamp", "keep-aside")


class ModelError(Exception):
    def __init__(self, file, entry, reason):
        super().__init__(f"{file}: {entry}: {reason}")
        self.file = file
        self.entry = entry
        self.reason = reason


class Field:
    """A variable of a memory or a member of a struct."""

    def __init__(self, raw, file, entry):
        self.file = file
        self.entry = entry
        self.name = raw.get("name")
        self.type = raw.get("type")
        self.length = raw.get("length")
        self.count = raw.get("count")
        self.offset = raw.get("offset")
        self.min = raw.get("min")
        self.max = raw.get("max")
        self.default = raw.get("default")
        self.event = raw.get("event")
        self.readonly = raw.get("readonly", False)
        self.formerly = raw.get("formerly", [])
        self.out_of_range = raw.get("out_of_range")
        self.kind = None  # int, float, bool, string, buffer, enum or struct
        self.element_size = None
        self.align = None

    def fail(self, reason):
        raise ModelError(self.file, f"{self.entry} \"{self.name}\"", reason)

    @property
    def base_code(self):
        return BASE_CODES[self.kind]

    @property
    def is_array(self):
        return self.count is not None

    @property
    def size(self):
        return self.element_size * (self.count or 1)

    @property
    def type_name(self):
        """The type name of the catalogue: a buffer is a string to its readers."""
        return "string" if self.kind == "buffer" else self.type

    @property
    def array_length_text(self):
        if self.is_array:
            return str(self.count)
        if self.kind in ("string", "buffer"):
            return str(self.length)
        return None


class Enum:
    def __init__(self, name, entries, file, entry, formerly=None):
        self.name = name
        self.entries = entries
        self.file = file
        self.entry = entry
        self.formerly = formerly or {}  # {former entry: the entry it is now}


class Struct:
    def __init__(self, name, note, members, file, entry):
        self.name = name
        self.note = note
        self.members = members
        self.file = file
        self.entry = entry
        self.size = None
        self.align = None


class Memory:
    def __init__(self, index, name, size, variables, reserved, file):
        self.index = index
        self.name = name
        self.size = size
        self.variables = variables
        self.reserved = reserved
        self.file = file
        self.start = "defaults"
        self.fill = None  # the enum entry of a "fill" start
        self.retired = []  # [Retired]

    def variable(self, name):
        return next((v for v in self.variables if v.name == name), None)


class Retired:
    """A variable removed from a memory on purpose: its name and event id stay taken."""

    def __init__(self, name, event, reason, file):
        self.name = name
        self.event = event
        self.reason = reason
        self.file = file


class Model:
    def __init__(self, memories, enums, structs, fixed_events, foreign_events):
        self.memories = memories
        self.enums = enums
        self.structs = structs
        self.fixed_events = fixed_events
        self.foreign_events = foreign_events  # {id: name}
        self.event_names = None  # list indexed by id, filled by assign_events

    def memory(self, name):
        return next((m for m in self.memories if m.name == name), None)

    def enum(self, name):
        return next((e for e in self.enums if e.name == name), None)

    def struct(self, name):
        return next((s for s in self.structs if s.name == name), None)

    def variables(self):
        for memory in self.memories:
            for variable in memory.variables:
                yield memory, variable


def _read(path):
    try:
        with open(path, "rb") as f:
            return tomllib.load(f)
    except tomllib.TOMLDecodeError as error:
        raise ModelError(str(path), "file", f"not valid TOML: {error}") from None


def is_identifier(name):
    return isinstance(name, str) and name.isidentifier() and name.isascii()


def _require_unique(items, file, what):
    seen = set()
    for item in items:
        if item.name in seen:
            raise ModelError(file, f"{what} \"{item.name}\"", "duplicate name")
        seen.add(item.name)


def _align(offset, alignment):
    return (offset + alignment - 1) // alignment * alignment


def _resolve(field, model_enums, model_structs):
    """Sets kind, element size and alignment of a field whose type is known."""
    if not is_identifier(field.name):
        field.fail("the name must be an identifier")
    if field.type in PLAIN_TYPES:
        field.kind = field.type
    elif field.type in model_enums:
        field.kind = "enum"
    elif field.type in model_structs:
        field.kind = "struct"
    else:
        field.fail(f"unknown type \"{field.type}\"")
    if field.kind in ("string", "buffer"):
        if not isinstance(field.length, int) or field.length < 1:
            field.fail("a string or buffer needs a positive length")
    elif field.length is not None:
        field.fail("only strings and buffers have a length")
    if field.count is not None and (not isinstance(field.count, int) or field.count < 1):
        field.fail("an array needs a positive count")
    if field.kind in ("int", "float", "enum"):
        field.element_size, field.align = 4, 4
    elif field.kind == "bool":
        field.element_size, field.align = 1, 1
    elif field.kind in ("string", "buffer"):
        field.element_size, field.align = field.length, 1
    else:
        struct = model_structs[field.type]
        if struct.size is None:
            field.fail(f"struct \"{field.type}\" is used before its layout is known (a cycle)")
        field.element_size, field.align = struct.size, struct.align
    if (field.min is not None or field.max is not None) and field.kind not in ("int", "float"):
        field.fail("only int and float variables have a range")
    for bound in ("min", "max"):
        value = getattr(field, bound)
        if value is not None and not isinstance(value, str):
            field.fail(f"{bound} must be written as text")
        if value is not None:
            try:
                values.read_number(field.kind, value)
            except values.Unreadable as error:
                field.fail(f"{bound} must be a plain decimal {field.kind} that the range check "
                           f"reads: {error}")
    if not isinstance(field.readonly, bool):
        field.fail("readonly must be true or false")
    if not isinstance(field.formerly, list) or not all(is_identifier(n) for n in field.formerly):
        field.fail("formerly must be a list of the identifiers the variable had as names")
    if len(set(field.formerly)) != len(field.formerly) or field.name in field.formerly:
        field.fail("formerly names each earlier name once, and not the name itself")
    if field.out_of_range is not None:
        if field.out_of_range not in OUT_OF_RANGE:
            field.fail(f"out_of_range must be one of {OUT_OF_RANGE}, not {field.out_of_range!r}")
        if field.min is None and field.max is None:
            field.fail("only a variable with a range (min or max) takes out_of_range")


def _layout_struct(struct, enums, structs, visiting):
    if struct.size is not None:
        return
    if struct.name in visiting:
        raise ModelError(struct.file, struct.entry, "struct contains itself")
    visiting.add(struct.name)
    for member in struct.members:
        if member.type in structs:
            _layout_struct(structs[member.type], enums, structs, visiting)
    offset, alignment = 0, 1
    for member in struct.members:
        _resolve(member, enums, structs)
        if member.offset is not None:
            member.fail("struct members are laid out in order; they take no offset")
        if member.event is not None:
            member.fail("struct members have no event")
        if member.readonly:
            member.fail("struct members are written with their struct; they take no readonly")
        if member.kind == "buffer":
            member.fail("a struct member cannot be a buffer: the struct's text holds its members "
                        "as values; use a string")
        if member.formerly or member.out_of_range is not None:
            member.fail("struct members take no formerly or out_of_range: a changed member needs "
                        "a new struct")
        offset = _align(offset, member.align)
        member.offset = offset
        offset += member.size
        alignment = max(alignment, member.align)
    struct.size = _align(offset, alignment)
    struct.align = alignment
    visiting.discard(struct.name)


def _check_record(memory):
    """Every byte of the record belongs to one variable, one reserved range or alignment padding."""
    pieces = []
    for variable in memory.variables:
        if not isinstance(variable.offset, int) or variable.offset < 0:
            variable.fail("needs a non-negative offset")
        if variable.offset % variable.align:
            variable.fail(f"offset {variable.offset} is not aligned to {variable.align}")
        pieces.append((variable.offset, variable.size, f"variable \"{variable.name}\"", variable.align))
    for number, reserved in enumerate(memory.reserved):
        offset, length = reserved.get("offset"), reserved.get("length")
        if not isinstance(offset, int) or not isinstance(length, int) or length < 1 or offset < 0:
            raise ModelError(memory.file, f"reserved[{number}]", "needs an offset and a positive length")
        if not reserved.get("note"):
            raise ModelError(memory.file, f"reserved[{number}]", "needs a note that says why")
        pieces.append((offset, length, f"reserved[{number}]", 1))
    pieces.sort()
    end = 0
    for offset, length, what, alignment in pieces:
        if offset < end:
            raise ModelError(memory.file, what, f"overlaps the bytes before offset {end}")
        if offset != end and offset != _align(end, alignment):
            raise ModelError(memory.file, what,
                             f"bytes {end} to {offset - 1} belong to nothing; declare them reserved")
        end = offset + length
        if end > memory.size:
            raise ModelError(memory.file, what,
                             f"ends at {end}, past the record size {memory.size}")
    alignment = max([v.align for v in memory.variables] + [1])
    if end != memory.size and _align(end, alignment) != memory.size:
        raise ModelError(memory.file, "record",
                         f"bytes {end} to {memory.size - 1} belong to nothing; declare them reserved")


def load(model_dir):
    model_dir = pathlib.Path(model_dir)

    def read(relative):
        path = model_dir / relative
        return _read(path), str(path)

    enums_doc, enums_file = read("enums.toml")
    enums = []
    for number, raw in enumerate(enums_doc.get("enum", [])):
        entry = f"enum[{number}]"
        name, entries = raw.get("name"), raw.get("entries")
        if not is_identifier(name):
            raise ModelError(enums_file, entry, "needs an identifier as name")
        if not entries or not all(isinstance(e, str) and e for e in entries):
            raise ModelError(enums_file, f"enum \"{name}\"", "needs a list of non-empty entry names")
        if len(set(entries)) != len(entries):
            raise ModelError(enums_file, f"enum \"{name}\"", "has a duplicate entry")
        for text in entries:
            if not text.isprintable() or not text.isascii() or '"' in text or "\\" in text:
                raise ModelError(enums_file, f"enum \"{name}\"",
                                 f"entry \"{text}\" must be printable ASCII without quotes or backslashes")
        enums.append(Enum(name, entries, enums_file, f"enum \"{name}\"",
                          _read_former_entries(raw, entries, enums_file, name)))
    _require_unique(enums, enums_file, "enum")

    structs_doc, structs_file = read("structs.toml")
    structs = []
    for number, raw in enumerate(structs_doc.get("struct", [])):
        name = raw.get("name")
        if not is_identifier(name):
            raise ModelError(structs_file, f"struct[{number}]", "needs an identifier as name")
        entry = f"struct \"{name}\""
        members = [Field(m, structs_file, f"{entry} member") for m in raw.get("members", [])]
        if not members:
            raise ModelError(structs_file, entry, "has no members")
        _require_unique(members, structs_file, f"{entry} member")
        structs.append(Struct(name, raw.get("note", ""), members, structs_file, entry))
    _require_unique(structs, structs_file, "struct")
    enum_map = {e.name: e for e in enums}
    struct_map = {s.name: s for s in structs}
    clash = set(enum_map) & set(struct_map)
    if clash:
        raise ModelError(structs_file, f"struct \"{sorted(clash)[0]}\"", "an enum has the same name")
    for struct in structs:
        _layout_struct(struct, enum_map, struct_map, set())

    catalogue, catalogue_file = read("catalogue.toml")
    memories = []
    for index, name in enumerate(catalogue.get("memories", [])):
        if not is_identifier(name) or not name.startswith("Mem") or name == "Mem":
            raise ModelError(catalogue_file, f"memories[{index}]",
                             "a memory's name is an identifier \"Mem<Name>\" (its base pointer is gMem<Name>)")
        doc, file = read(f"memories/{index:02d}-{name}.toml")
        if doc.get("name") != name:
            raise ModelError(file, "name", f"must be \"{name}\", the name in catalogue.toml")
        size = doc.get("size")
        if not isinstance(size, int) or size < 1:
            raise ModelError(file, "size", "needs a positive record size")
        variables = [Field(v, file, "variable") for v in doc.get("variables", [])]
        _require_unique(variables, file, "variable")
        for variable in variables:
            _resolve(variable, enum_map, struct_map)
        memory = Memory(index, name, size, variables, doc.get("reserved", []), file)
        _check_record(memory)
        _read_start(memory, doc)
        memory.retired = _read_retired(doc, file)
        memories.append(memory)
    _require_unique(memories, catalogue_file, "memory")

    events_doc, events_file = read("events.toml")
    foreign = {}
    for number, raw in enumerate(events_doc.get("foreign", [])):
        foreign_id, foreign_name = raw.get("id"), raw.get("name")
        if not isinstance(foreign_id, int) or not is_identifier(foreign_name):
            raise ModelError(events_file, f"foreign[{number}]", "needs an id and an identifier as name")
        if foreign_id in foreign:
            raise ModelError(events_file, f"foreign event \"{foreign_name}\"",
                             f"id {foreign_id} is used twice")
        foreign[foreign_id] = foreign_name
    model = Model(memories, enums, structs, events_doc.get("fixed", []), foreign)
    model.log_levels, model.service_log_level = _read_log(catalogue, catalogue_file)
    model.events_file = events_file
    model.enums_file, model.structs_file, model.catalogue_file = enums_file, structs_file, catalogue_file
    subscriptions_doc, model.subscriptions_file = read("subscriptions.toml")
    model.subscriptions = subscriptions_doc.get("events", [])
    assign_events(model)
    return model


def _read_former_entries(raw, entries, file, name):
    """An enum's `formerly`: {former entry: the entry it is now}."""
    formerly = raw.get("formerly", {})
    entry = f"enum \"{name}\""
    if not isinstance(formerly, dict):
        raise ModelError(file, entry, "formerly must be a table { OldEntry = \"NewEntry\", ... }")
    for former, current in formerly.items():
        if not former.isprintable() or not former.isascii() or '"' in former or "\\" in former:
            raise ModelError(file, entry, f"formerly: \"{former}\" must be printable ASCII without "
                             "quotes or backslashes")
        if former in entries:
            raise ModelError(file, entry, f"formerly: \"{former}\" is an entry now")
        if current not in entries:
            raise ModelError(file, entry, f"formerly: \"{former}\" must name an entry it is now, "
                             f"not {current!r}")
    return dict(formerly)


def _read_retired(doc, file):
    retired = []
    for number, raw in enumerate(doc.get("retired", [])):
        name, event, reason = raw.get("name"), raw.get("event"), raw.get("reason")
        if not is_identifier(name) or not isinstance(event, int) or not isinstance(reason, str) \
                or not reason:
            raise ModelError(file, f"retired[{number}]",
                             "needs { name = \"<identifier>\", event = <id>, reason = \"...\" }")
        retired.append(Retired(name, event, reason, file))
    _require_unique(retired, file, "retired variable")
    return retired


def _read_start(memory, doc):
    start = doc.get("start", "defaults")
    if start not in START_KINDS:
        raise ModelError(memory.file, "start", f"must be one of {START_KINDS}, not {start!r}")
    fill = doc.get("fill")
    if start == "fill" and not isinstance(fill, str):
        raise ModelError(memory.file, "fill", "a \"fill\" start needs the enum entry to fill with")
    if start != "fill" and fill is not None:
        raise ModelError(memory.file, "fill", "only a \"fill\" start takes a fill value")
    memory.start, memory.fill = start, fill


def _read_log(catalogue, file):
    """(the log-level enum's name, (memory, variable) of the service's own level)."""
    log = catalogue.get("log")
    if not isinstance(log, dict):
        raise ModelError(file, "log", "needs the table [log] with levels and service")
    levels, service = log.get("levels"), log.get("service")
    if not is_identifier(levels):
        raise ModelError(file, "log.levels", "needs the name of the log-level enum")
    if not isinstance(service, dict) or not all(is_identifier(service.get(k)) for k in ("memory", "variable")):
        raise ModelError(file, "log.service", "needs { memory = ..., variable = ... }")
    return levels, (service["memory"], service["variable"])


def assign_events(model):
    """Builds the event name table: fixed commands, variables' change events, foreign events."""
    names = {}
    owners = {}
    for number, name in enumerate(model.fixed_events):
        names[number] = name
        owners[number] = (model.events_file, f"fixed event \"{name}\"")
    all_names = {}
    for memory, variable in model.variables():
        if variable.name in all_names:
            variable.fail(f"the name is also used in {all_names[variable.name]}; change events "
                          "must be unique")
        all_names[variable.name] = memory.name
        if not isinstance(variable.event, int):
            variable.fail("needs an event id")
        owner = (variable.file, f"variable \"{variable.name}\"")
        _claim(names, owners, variable.event, f"Var{variable.name}Changed", owner, len(model.fixed_events))
    retired_in = {}
    for memory in model.memories:
        for retired in memory.retired:
            entry = f"retired variable \"{retired.name}\""
            if retired.name in all_names:
                raise ModelError(memory.file, entry,
                                 f"the name is used by a variable of {all_names[retired.name]}; a "
                                 "retired name can never be used again")
            if retired.name in retired_in:
                raise ModelError(memory.file, entry, f"is retired in {retired_in[retired.name]} too")
            retired_in[retired.name] = memory.name
            _claim(names, owners, retired.event, f"Var{retired.name}Changed",
                   (memory.file, entry), len(model.fixed_events))
    _check_former_names(model, all_names, retired_in)
    for event_id, name in sorted(model.foreign_events.items()):
        owner = (model.events_file, f"foreign event \"{name}\"")
        _claim(names, owners, event_id, name, owner, len(model.fixed_events))
    count = max(names) + 1 if names else 0
    missing = [i for i in range(count) if i not in names]
    if missing:
        raise ModelError(model.events_file, "events", f"id {missing[0]} has no event")
    seen = {}
    for event_id in range(count):
        if names[event_id] in seen:
            file, entry = owners[event_id]
            raise ModelError(file, entry, f"event name \"{names[event_id]}\" is also id {seen[names[event_id]]}")
        seen[names[event_id]] = event_id
    model.event_names = [names[i] for i in range(count)]


def _check_former_names(model, variables, retired):
    """A former name belongs to one variable and is no name in use: not a variable's (`variables`:
    name -> memory), not a retired one's (`retired`: name -> memory)."""
    former_of = {}
    for _, variable in model.variables():
        for former in variable.formerly:
            if former in variables:
                variable.fail(f"former name \"{former}\" is the name of a variable of "
                              f"{variables[former]}: a name stays with what it named")
            if former in retired:
                variable.fail(f"former name \"{former}\" is retired in {retired[former]}: a "
                              "retired name can never be used again")
            if former in former_of:
                variable.fail(f"former name \"{former}\" is also a former name of "
                              f"\"{former_of[former]}\"")
            former_of[former] = variable.name


def _claim(names, owners, event_id, name, owner, first_free):
    file, entry = owner
    if event_id < first_free:
        raise ModelError(file, entry, f"event {event_id} is out of range (ids below {first_free} are fixed)")
    if event_id in names:
        raise ModelError(file, entry, f"event {event_id} is already taken by {owners[event_id][1]}")
    names[event_id] = name
    owners[event_id] = owner
