"""Writes the catalogue's tables: enums.h (the enum name arrays), converters.h/.cpp (the
per-type getters and setters of enums and structs) and tables.cpp (struct member lists, the enum
table, the descriptor tables and the memory table)."""

from cpp import HEADER_NOTE, c_string

BASE_NAMES = {"int": "BaseInt", "float": "BaseFloat", "bool": "BaseBool", "string": "BaseString",
              "buffer": "BaseString", "enum": "BaseEnum", "struct": "BaseStruct"}
# Buffer sizes that have a writer; buffers of the other sizes are read-only.
BUFFER_WRITE_SIZES = (2, 64)


def name_array(enum):
    return f"{enum.name.upper()}_NAME_ARRAY"


def members_name(struct):
    return f"{struct.name.upper()}_MEMBERS"


def variables_name(memory):
    return f"{memory.name.upper()}_VARIABLES"


def enums_header(model):
    lines = [HEADER_NOTE, "// The entry names of every enum, in value order.", "#pragma once", "",
             "#include <cstdint>", ""]
    for enum in model.enums:
        lines.append(f"extern const char* const {name_array(enum)}[];")
        lines.append(f"constexpr uint32_t {name_array(enum)}_SIZE = {len(enum.entries)};")
    return "\n".join(lines + [""])


SETTER_ARGS = "uint8_t* base, uint32_t memory, uint32_t variable, Notify notify, const char* text"


def converters_header(model):
    lines = [HEADER_NOTE,
             "// Text getters and setters of every enum and struct type.", "#pragma once", "",
             "#include \"notify.h\"", "", "#include <cstdint>", "#include <string>", ""]
    for item in list(model.enums) + list(model.structs):
        lines.append(f"std::string get{item.name}Introspection(const void* address, int index);")
        lines.append(f"std::string set{item.name}Introspection({SETTER_ARGS});")
    return "\n".join(lines + [""])


def converters_source(model):
    lines = [HEADER_NOTE, "#include \"converters.h\"", "", "#include \"catalogue.h\"",
             "#include \"enums.h\"", "#include \"introspection_enum.h\"", ""]
    for enum in model.enums:
        array = name_array(enum)
        lines += [f"std::string get{enum.name}Introspection(const void* address, int index) {{",
                  f"    return getEnumIntrospection(address, index, {c_string(enum.name)}, {array},",
                  f"                                {array}_SIZE);", "}", "",
                  f"std::string set{enum.name}Introspection({SETTER_ARGS}) {{",
                  f"    return setEnumIntrospection(base, memory, variable, notify, text, "
                  f"{c_string(enum.name)},",
                  f"                                {array}, {array}_SIZE);", "}", ""]
    for number, struct in enumerate(model.structs):
        lines += [f"std::string get{struct.name}Introspection(const void* address, int index) {{",
                  f"    return getStructIntrospection(address, index, STRUCT_ARRAY[{number}]);",
                  "}", "",
                  f"std::string set{struct.name}Introspection({SETTER_ARGS}) {{",
                  "    return setStructIntrospection(base, memory, variable, notify, text);", "}", ""]
    return "\n".join(lines)


def _text(value):
    return "nullptr" if value is None else c_string(value)


def converter_names(field):
    kind = field.kind
    if kind in ("int", "float", "bool", "string"):
        title = kind.capitalize()
        return f"get{title}Introspection", f"set{title}Introspection"
    if kind == "buffer":
        getter = f"getBufferIntrospection<{field.length}>"
        if field.length in BUFFER_WRITE_SIZES:
            return getter, f"setBufferIntrospection<{field.length}>"
        return getter, "setReadOnlyIntrospection"
    return f"get{field.type}Introspection", f"set{field.type}Introspection"


def _descriptor(memory, variable, model):
    getter, setter = converter_names(variable)
    members = f"&{members_name(model.struct(variable.type))}" if variable.kind == "struct" else "nullptr"
    return (f"    {{{{Var{variable.name}Changed, 0, 0}}, {c_string(variable.name)}, "
            f"gMem{memory.name[3:]}, {variable.offset}, {c_string(variable.type_name)}, "
            f"{BASE_NAMES[variable.kind]}, {getter}, {setter}, {_text(variable.min)}, "
            f"{_text(variable.max)}, {_text(variable.array_length_text)}, "
            f"{1 if variable.is_array else 0}, {members}, {variable.element_size}}},")


def _member(member):
    return (f"    {{0, {c_string(member.name)}, {member.offset}, {BASE_NAMES[member.kind]}, "
            f"{c_string(member.type_name)}, {member.count or 0}, {member.element_size}}},")


def tables_source(model):
    lines = [HEADER_NOTE, "#include \"catalogue.h\"", "#include \"converters.h\"",
             "#include \"enums.h\"", "#include \"records.h\"", "#include \"setters.h\"", "",
             "namespace {", ""]
    for struct in model.structs:
        lines.append(f"const std::vector<StructInfo> {members_name(struct)} = {{")
        lines += [_member(m) for m in struct.members]
        lines += ["};", ""]
    for memory in model.memories:
        lines.append(f"VariableDescriptor {variables_name(memory)}[] = {{")
        lines += [_descriptor(memory, v, model) for v in memory.variables]
        lines += ["};", ""]
    lines += ["} // namespace", ""]
    for enum in model.enums:
        lines.append(f"const char* const {name_array(enum)}[] = {{")
        lines += [f"    {c_string(entry)}," for entry in enum.entries]
        lines += ["};"]
    lines += ["", "const EnumInfo ENUM_ARRAY[] = {"]
    lines += [f"    {{{c_string(e.name)}, {name_array(e)}, {name_array(e)}_SIZE}},"
              for e in model.enums]
    lines += ["};", f"const uint32_t ENUM_ARRAY_SIZE = {len(model.enums)};", "",
              "const StructTypeInfo STRUCT_ARRAY[] = {"]
    lines += [f"    {{{c_string(s.name)}, &{members_name(s)}, {s.size}}}," for s in model.structs]
    lines += ["};", f"const uint32_t STRUCT_ARRAY_SIZE = {len(model.structs)};", "",
              "const MemoryInfo MEMORY_ARRAY[] = {"]
    lines += [f"    {{{c_string(m.name)}, {variables_name(m)}, {len(m.variables)}}},"
              for m in model.memories]
    lines += ["};", f"const uint32_t MEMORY_ARRAY_SIZE = {len(model.memories)};", ""]
    return "\n".join(lines)
