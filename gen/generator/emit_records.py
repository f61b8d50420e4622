"""Writes records.h: the C++ layout of every struct type and memory record, with static_asserts
of every offset and size, the gMem<Name> base pointers and a typed accessor per memory."""

from cpp import render

SCALAR_TYPES = {"int": "int32_t", "float": "float", "bool": "bool", "enum": "uint32_t"}


def cpp_type(field):
    if field.kind in SCALAR_TYPES:
        element = SCALAR_TYPES[field.kind]
    elif field.kind == "string":
        element = f"std::array<char, {field.length}>"
    elif field.kind == "buffer":
        element = f"std::array<uint8_t, {field.length}>"
    else:
        element = field.type
    if field.is_array:
        return f"std::array<{element}, {field.count}>"
    return element


def record_name(memory):
    return f"{memory.name}Record"


def accessor_name(memory):
    return memory.name[0].lower() + memory.name[1:]


def struct_order(model):
    """Struct types with every struct before the structs that contain it."""
    done, order = set(), []

    def visit(struct):
        if struct.name in done:
            return
        for member in struct.members:
            if member.kind == "struct":
                visit(model.struct(member.type))
        done.add(struct.name)
        order.append(struct)

    for struct in model.structs:
        visit(struct)
    return order


def _asserts(type_name, fields, size):
    lines = [f"static_assert(sizeof({type_name}) == {size});"]
    for name, offset in fields:
        lines.append(f"static_assert(offsetof({type_name}, {name}) == {offset});")
    return lines


def _block(lines):
    """A block of declarations followed by one blank line."""
    return "\n".join(lines) + "\n\n"


def _struct(struct):
    lines = [f"// {struct.note}", f"struct {struct.name} {{"]
    lines += [f"    {cpp_type(m)} {m.name};" for m in struct.members]
    lines += ["};"]
    lines += _asserts(struct.name, [(m.name, m.offset) for m in struct.members], struct.size)
    return _block(lines)


def _record(memory):
    pieces = [(v.offset, cpp_type(v), v.name) for v in memory.variables]
    pieces += [(r["offset"], f"std::array<uint8_t, {r['length']}>", f"reserved{r['offset']}")
               for r in memory.reserved]
    pieces.sort()
    name = record_name(memory)
    lines = [f"struct {name} {{"]
    lines += [f"    {type_name} {member};" for _, type_name, member in pieces]
    lines += ["};"]
    lines += _asserts(name, [(member, offset) for offset, _, member in pieces], memory.size)
    lines += [f"inline {name}& {accessor_name(memory)}() {{",
              f"    return *reinterpret_cast<{name}*>(gMem{memory.name[3:]});", "}"]
    return _block(lines)


def header(model):
    return render("records.h",
                  base_pointers="\n".join(f"extern uint8_t* gMem{m.name[3:]};" for m in model.memories),
                  structs="".join(_struct(s) for s in struct_order(model)),
                  records="".join(_record(m) for m in model.memories))
