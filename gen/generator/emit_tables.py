"""Writes the catalogue's tables: enums.h (the enum name arrays), converters.h/.cpp (the
per-type getters and setters of enums and structs) and tables.cpp (struct member lists, the typed
facts of the variables, the enum table, the descriptor tables and the memory table). Every table
is a constant initialiser: the program gets them complete when it is loaded, without code run at
start (constexpr and constinit make the compiler refuse any table that would need such code)."""

import defaults
import values
from cpp import c_string, render, rows

BASE_NAMES = {"int": "BaseInt", "float": "BaseFloat", "bool": "BaseBool", "string": "BaseString",
              "buffer": "BaseString", "enum": "BaseEnum", "struct": "BaseStruct"}
KINDS = {"int": "ValueKind::Int", "float": "ValueKind::Float", "bool": "ValueKind::Bool",
         "string": "ValueKind::String", "buffer": "ValueKind::Buffer", "enum": "ValueKind::Enum",
         "struct": "ValueKind::Struct"}
SETTER_ARGS = "uint8_t* base, uint32_t memory, uint32_t variable, Notify notify, const char* text"


def name_array(enum):
    return f"{enum.name.upper()}_NAME_ARRAY"


def members_name(struct):
    return f"{struct.name.upper()}_MEMBERS"


def member_array_name(struct):
    return f"{struct.name.upper()}_MEMBER_ARRAY"


def variables_name(memory):
    return f"{memory.name.upper()}_VARIABLES"


def name_order_name(memory):
    return f"{memory.name.upper()}_NAME_ORDER" if memory.variables else "nullptr"


def _name_order(memory):
    """The variable indexes of a memory sorted by name in byte order, the lower index first
    among equal names (Introspection::findVarIndex searches it)."""
    if not memory.variables:
        return ""
    order = sorted(range(len(memory.variables)), key=lambda i: memory.variables[i].name.encode())
    return _table(f"constexpr uint32_t {name_order_name(memory)}[]", [f"{i}," for i in order])


def enums_header(model):
    lines = []
    for enum in model.enums:
        lines.append(f"extern const char* const {name_array(enum)}[];")
        lines.append(f"constexpr uint32_t {name_array(enum)}_SIZE = {len(enum.entries)};")
    return render("enums.h", name_arrays="\n".join(lines))


def converters_header(model):
    lines = []
    for item in list(model.enums) + list(model.structs):
        lines.append(f"std::string get{item.name}Introspection(const void* address, int index);")
        lines.append(f"std::string set{item.name}Introspection({SETTER_ARGS});")
    return render("converters.h", declarations="\n".join(lines))


def converters_source(model):
    return render(
        "converters.cpp",
        enum_converters="\n".join(f"ENUM_CONVERTERS({e.name}, {name_array(e)})" for e in model.enums),
        struct_converters="\n".join(f"STRUCT_CONVERTERS({s.name}, {number})"
                                    for number, s in enumerate(model.structs)))


def _text(value):
    return "nullptr" if value is None else c_string(value)


def converter_names(field):
    """The getter and setter of a variable; a read-only variable's setter changes nothing."""
    kind = field.kind
    if kind in ("int", "float", "bool", "string"):
        title = kind.capitalize()
        getter, writer = f"get{title}Introspection", f"set{title}Introspection"
    elif kind == "buffer":
        getter, writer = (f"getBufferIntrospection<{field.length}>",
                          f"setBufferIntrospection<{field.length}>")
    else:
        getter, writer = f"get{field.type}Introspection", f"set{field.type}Introspection"
    return getter, "setReadOnlyIntrospection" if field.readonly else writer


def _number(kind, text):
    """A bound as a C++ double literal: an int in decimal, a float in hexadecimal (exact)."""
    if text is None:
        return "0"
    number = values.read_number(kind, text)
    if kind == "int":
        return str(number)
    mantissa, exponent = number.hex().split("p")
    return mantissa.rstrip("0").rstrip(".") + "p" + exponent


def variable_type(variable, model):
    """The initialiser of the variable's VariableType (catalogue.h)."""
    kind = variable.kind
    enum = f"&ENUM_ARRAY[{model.enums.index(model.enum(variable.type))}]" if kind == "enum" \
        else "nullptr"
    struct = f"&STRUCT_ARRAY[{model.structs.index(model.struct(variable.type))}]" \
        if kind == "struct" else "nullptr"
    capacity = variable.length if kind in ("string", "buffer") else 0
    default = defaults.default_text(variable, model)
    return (f"{{{{{KINDS[kind]}, {capacity}, {enum}, {struct}}}, {variable.count or 1}, "
            f"{'true' if variable.readonly else 'false'}, "
            f"{{{'true' if variable.min is not None else 'false'}, "
            f"{'true' if variable.max is not None else 'false'}, {_number(kind, variable.min)}, "
            f"{_number(kind, variable.max)}}}, {_text(default)}}},")


def _variable_types(model):
    """Every distinct VariableType of the model, in the order of first use."""
    return list(dict.fromkeys(variable_type(v, model) for _, v in model.variables()))


def _descriptor(memory, variable, model, types):
    getter, setter = converter_names(variable)
    members = f"&{members_name(model.struct(variable.type))}" if variable.kind == "struct" else "nullptr"
    return (f"{{{{Var{variable.name}Changed, 0, 0}}, {c_string(variable.name)}, "
            f"gMem{memory.name[3:]}, {variable.offset}, {c_string(variable.type_name)}, "
            f"{BASE_NAMES[variable.kind]}, {getter}, {setter}, {_text(variable.min)}, "
            f"{_text(variable.max)}, {_text(variable.array_length_text)}, "
            f"{1 if variable.is_array else 0}, {members}, {variable.element_size}, "
            f"&VARIABLE_TYPES[{types[variable_type(variable, model)]}]}},")


def _member(member):
    return (f"{{0, {c_string(member.name)}, {member.offset}, {BASE_NAMES[member.kind]}, "
            f"{c_string(member.type_name)}, {member.count or 0}, {member.element_size}}},")


def _table(declaration, items):
    """An array definition followed by one blank line."""
    return f"{declaration} = {{\n{rows(items)}\n}};\n\n"


def _bounded_tables(model):
    """The enum and struct tables declared again with their sizes, ahead of the typed facts that
    point into them: a constant initialiser may index only an array of known bound."""
    lines = [f"extern const {kind} {name}[{count}];\n"
             for kind, name, count in (("EnumInfo", "ENUM_ARRAY", len(model.enums)),
                                       ("StructTypeInfo", "STRUCT_ARRAY", len(model.structs)))
             if count > 0]
    return "".join(lines) + "\n" if lines else ""


def _member_list(struct):
    """The constant member array of a struct type and its StructMembers view."""
    return (_table(f"constexpr StructInfo {member_array_name(struct)}[]",
                   [_member(m) for m in struct.members])
            + f"constexpr StructMembers {members_name(struct)}({member_array_name(struct)});\n\n")


def tables_source(model):
    name_arrays = [f"constinit const char* const {name_array(e)}[] = {{\n{rows(c_string(x) + ',' for x in e.entries)}\n}};"
                   for e in model.enums]
    types = {text: number for number, text in enumerate(_variable_types(model))}
    return render(
        "tables.cpp",
        member_lists="".join(_member_list(s) for s in model.structs),
        bounded_tables=_bounded_tables(model),
        variable_types=_table("constinit const VariableType VARIABLE_TYPES[]", list(types)),
        descriptor_tables="".join(_table(f"constinit VariableDescriptor {variables_name(m)}[]",
                                         [_descriptor(m, v, model, types) for v in m.variables])
                                  + _name_order(m)
                                  for m in model.memories),
        name_arrays="\n".join(name_arrays),
        enum_rows=rows(f"{{{c_string(e.name)}, {name_array(e)}, {name_array(e)}_SIZE}},"
                       for e in model.enums),
        enum_count=len(model.enums),
        struct_rows=rows(f"{{{c_string(s.name)}, &{members_name(s)}, {s.size}}},"
                         for s in model.structs),
        struct_count=len(model.structs),
        memory_rows=rows(f"{{{c_string(m.name)}, {variables_name(m)}, {len(m.variables)}, "
                         f"{name_order_name(m)}}},"
                         for m in model.memories),
        memory_count=len(model.memories))
