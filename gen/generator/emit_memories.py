"""Writes memories.h and memories.cpp: the SharedMemory object and base pointer of every memory,
the default records, the start-up (gen::init) and the service's subscriptions."""

import defaults
import facts
from cpp import HEADER_NOTE, c_string

# Runs of non-zero bytes closer than this are written as one piece of a default record.
MERGE_GAP = 8


def header(model):
    return "\n".join([
        HEADER_NOTE,
        "// The memories of the device: their segments, default records and start-up.",
        "#pragma once", "", "#include \"records.h\"", "#include \"sharedmemory.h\"", "",
        "#include <cstdint>", "#include <vector>", "", "namespace gen {", "",
        f"constexpr uint32_t MEMORY_COUNT = {len(model.memories)};", "",
        "// The segment of memory `memory` (table order).",
        "SharedMemory& getSharedMemory(uint32_t memory);",
        "// The record that the start-up writes into memory `memory`.",
        "std::vector<uint8_t> defaultImage(uint32_t memory);", "",
        "// The owner's start-up of the memories: creates and maps every memory, stores its base",
        "// pointer and writes its start values, whether or not the memory existed before.",
        "void initMemories();",
        "// For clients of memories that the owner has set up: opens and maps memory `memory`",
        "// and stores its base pointer; writes nothing.",
        "void openMemory(uint32_t memory);",
        "// openMemory of every memory.",
        "void openMemories();",
        "// The owner's whole start-up: processPreInit, initMemories, the broker connection and its",
        "// subscriptions, the component log level (this service's entry of MemApp), processPostInit.",
        "void init();", "",
        "} // namespace gen", ""])


def _pieces(image):
    """(offset, bytes) runs that cover every non-zero byte of the image."""
    pieces = []
    position = 0
    while position < len(image):
        if image[position] == 0:
            position += 1
            continue
        start = end = position
        while end < len(image) and (image[end] != 0 or any(image[end:end + MERGE_GAP])):
            end += 1
        pieces.append((start, image[start:end]))
        position = end
    return pieces


def _bytes_literal(data):
    return "\"" + "".join(f"\\x{b:02x}" for b in data) + "\""


def source(model):
    lines = [HEADER_NOTE, "#include \"memories.h\"", "", "#include \"eventpoll.h\"",
             "#include \"log.h\"", "#include \"serverconnection.h\"", "", "#include <bit>",
             "#include <cstring>", "", "static_assert(std::endian::native == std::endian::little,",
             "              \"the default records are stored little-endian\");", ""]
    lines += [f"uint8_t* gMem{m.name[3:]} = nullptr;" for m in model.memories]
    lines += ["", "namespace {", ""]
    lines += [f"SharedMemory segment{m.name[3:]}({c_string(m.name)}, {m.size});"
              for m in model.memories]
    lines += ["", "SharedMemory* const SEGMENTS[] = {"]
    lines += [f"    &segment{m.name[3:]}," for m in model.memories]
    lines += ["};", "", "uint8_t** const BASES[] = {"]
    lines += [f"    &gMem{m.name[3:]}," for m in model.memories]
    lines += ["};", "", "// A piece of a default record: bytes to write at an offset over zero.",
              "struct DefaultPiece {", "    uint32_t offset;", "    uint32_t length;",
              "    const char* bytes;", "};", ""]
    for memory in model.memories:
        pieces = _pieces(defaults.image(memory, model))
        lines.append(f"const DefaultPiece DEFAULTS{memory.name[3:]}[] = {{")
        for offset, data in pieces:
            lines.append(f"    {{{offset}, {len(data)}, {_bytes_literal(data)}}},")
        lines.append("    {0, 0, nullptr},")
        lines.append("};")
    lines += ["", "const DefaultPiece* const DEFAULTS[] = {"]
    lines += [f"    DEFAULTS{m.name[3:]}," for m in model.memories]
    zeroed = [m.index for m in model.memories if m.name in facts.ZEROED_MEMORIES]
    log_memory = model.memory(facts.LOG_LEVEL_MEMORY)
    log_start = model.enum("LogLevel").entries.index(facts.LOG_LEVEL_START)
    service_level = next(v for v in log_memory.variables if v.name == facts.APP_SERVICE_LOG_LEVEL[0])
    lines += ["};", "",
              "bool isZeroed(uint32_t memory) {",
              "    return " + " || ".join(f"memory == {i}" for i in zeroed) + ";", "}", "",
              "// Writes the start values of one memory into its mapped data.",
              "void writeStartValues(uint32_t memory, uint8_t* data) {",
              "    const uint32_t size = SEGMENTS[memory]->getSize();",
              "    if (isZeroed(memory)) {",
              "        std::memset(data, 0, size);",
              f"    }} else if (memory == {log_memory.index}) {{",
              f"        const uint32_t level = {log_start};",
              "        for (uint32_t offset = 0; offset < size; offset += sizeof level) {",
              "            std::memcpy(data + offset, &level, sizeof level);",
              "        }",
              "    } else {",
              "        const std::vector<uint8_t> image = gen::defaultImage(memory);",
              "        std::memcpy(data, image.data(), size);",
              "    }", "}", "",
              "} // namespace", "", "namespace gen {", "",
              "SharedMemory& getSharedMemory(uint32_t memory) { return *SEGMENTS[memory]; }", "",
              "std::vector<uint8_t> defaultImage(uint32_t memory) {",
              "    std::vector<uint8_t> image(SEGMENTS[memory]->getSize(), 0);",
              "    for (const DefaultPiece* piece = DEFAULTS[memory]; piece->bytes; ++piece) {",
              "        std::memcpy(image.data() + piece->offset, piece->bytes, piece->length);",
              "    }", "    return image;", "}", "",
              "void initMemories() {",
              "    for (uint32_t memory = 0; memory < MEMORY_COUNT; ++memory) {",
              "        SEGMENTS[memory]->create();",
              "        uint8_t* data = SEGMENTS[memory]->address();",
              "        *BASES[memory] = data;",
              "        writeStartValues(memory, data);", "    }", "}", "",
              "void openMemory(uint32_t memory) {",
              "    SEGMENTS[memory]->open();",
              "    *BASES[memory] = SEGMENTS[memory]->address();", "}", "",
              "void openMemories() {",
              "    for (uint32_t memory = 0; memory < MEMORY_COUNT; ++memory) {",
              "        openMemory(memory);", "    }", "}", "",
              "void init() {", "    processPreInit();", "    initMemories();",
              "    gServerConnection = new ServerConnection(getEventPoll());",
              "    subscribeNotifications();",
              f"    gComponentLogLevel = reinterpret_cast<LogLevel*>(gMem{log_memory.name[3:]} + "
              f"{service_level.offset});",
              "    processPostInit();", "}", "",
              "// Subscribes, in this order, the change events that the service handles.",
              "void subscribeNotifications() {",
              "    static constexpr EventId EVENTS[] = {"]
    lines += [f"        {name}," for name in model.subscriptions]
    lines += ["    };",
              "    ServerConnection* connection = getServerConnection();",
              "    if (connection == nullptr) {",
              "        THROW_ERROR(\"Trying to subscribe without server connection\");", "    }",
              "    for (EventId id : EVENTS) {", "        connection->subscribe(Notify{id, 0, 0});",
              "    }", "}", "", "} // namespace gen", ""]
    return "\n".join(lines)
