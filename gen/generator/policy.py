"""Checks of the policy that the model states for the generated code: how the start-up writes each
memory, which enum is the log library's LogLevel and which variable holds the service's own level.

Each check is one small function named after what it checks; it raises PolicyError naming the
check, the file, the entry and the reason. run_all() runs them in order; the generator refuses to
write anything while one fails.
"""

import model as model_module


class PolicyError(Exception):
    def __init__(self, check, file, entry, reason):
        super().__init__(f"{file}: {entry}: {reason} (check \"{check}\")")
        self.check = check


def _expect(condition, check, file, entry, reason):
    if not condition:
        raise PolicyError(check, file, entry, reason)


def check_log_levels(model):
    """The log-level enum exists and its entries can be C++ enumerators."""
    check = "log-level enum"
    enum = model.enum(model.log_levels)
    _expect(enum is not None, check, model.catalogue_file, "log.levels",
            f"there is no enum \"{model.log_levels}\"")
    for entry in enum.entries:
        _expect(model_module.is_identifier(entry), check, enum.file, enum.entry,
                f"entry \"{entry}\" must be an identifier: it becomes an enumerator of gen::LogLevel")


def check_service_log_level(model):
    """The service's level is a single value of the log-level enum in a memory of the model."""
    check = "service log level"
    file, entry = model.catalogue_file, "log.service"
    memory_name, variable_name = model.service_log_level
    memory = model.memory(memory_name)
    _expect(memory is not None, check, file, entry, f"there is no memory \"{memory_name}\"")
    variable = memory.variable(variable_name)
    _expect(variable is not None, check, file, entry,
            f"{memory_name} has no variable \"{variable_name}\"")
    _expect(variable.type == model.log_levels and not variable.is_array, check, file, entry,
            f"{variable_name} must be a single {model.log_levels}, not a {variable.type}"
            + (" array" if variable.is_array else ""))


def check_zeroed_starts(model):
    """A memory that starts zeroed states no default that the start-up would not write."""
    check = "zeroed start"
    for memory in model.memories:
        if memory.start != "zeroed":
            continue
        for variable in memory.variables:
            _expect(variable.default is None, check, memory.file, f"variable \"{variable.name}\"",
                    f"{memory.name} starts zeroed; its variables take no default")


def check_filled_starts(model):
    """A memory that starts filled is a row of single 32-bit values of one enum, from offset 0 to
    its end, and every default is the fill value, so that the catalogue's defaults say what the
    start-up writes."""
    check = "filled start"
    for memory in model.memories:
        if memory.start != "fill":
            continue
        enum_names = {v.type for v in memory.variables}
        _expect(len(enum_names) == 1 and all(v.kind == "enum" and not v.is_array
                                             for v in memory.variables),
                check, memory.file, "variables",
                f"{memory.name} starts filled; its variables must be single values of one enum")
        enum = model.enum(enum_names.pop())
        _expect(memory.fill in enum.entries, check, memory.file, "fill",
                f"\"{memory.fill}\" is not an entry of {enum.name}")
        offsets = sorted(v.offset for v in memory.variables)
        _expect(offsets == list(range(0, memory.size, 4)), check, memory.file, "variables",
                f"{memory.name} starts filled; its variables must cover the record as consecutive "
                "32-bit entries from offset 0")
        for variable in memory.variables:
            _expect(variable.default == memory.fill, check, memory.file,
                    f"variable \"{variable.name}\"",
                    f"{memory.name} starts with every entry at {memory.fill}; the default must "
                    "say the same")


ALL_CHECKS = [check_log_levels, check_service_log_level, check_zeroed_starts, check_filled_starts]


def run_all(model):
    for check in ALL_CHECKS:
        check(model)
