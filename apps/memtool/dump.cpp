// memtool dump: the memories as one JSON document, memory name -> variable
// name -> typed value, laid out exactly as nlohmann's dump lays out the whole
// document but written value by value as the memories are read, so that
// neither the document nor any tree of it is ever held in memory.  A value
// that cannot be written as JSON (a text that is not UTF-8, a struct text that
// does not parse) ends the output there: the command fails naming the
// variable, where a whole-document dump would have printed nothing.
#include "commands.h"
#include "device.h"
#include "jsonrelay.h"
#include "jsonvalue.h"
#include "names.h"
#include "program.h"
#include "settings-service/catalogue.h"
#include "settings-service/introspection.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

// One element as its typed JSON value would be dumped.  The JSON library's
// exceptions (a text that is not UTF-8) pass through.
Result<void> element(JsonStream& stream, RepeatingRelay& structs, uint32_t memory,
                     uint32_t variable, std::string text) {
    switch (Introspection::getVarBaseType(memory, variable)) {
    case BaseInt:
    case BaseBool:
        stream.raw(text);
        return {};
    case BaseStruct:
        return structs.write(stream, std::move(text));
    default:
        stream.raw(typedValue(memory, variable, text).dump());
        return {};
    }
}

Result<void> variableValue(JsonStream& stream, RepeatingRelay& structs, uint32_t memory,
                           uint32_t variable) {
    const auto text = [&](uint32_t index) {
        return Introspection::getVarValue(memory, variable, static_cast<int>(index));
    };
    if (!Introspection::isArray(memory, variable)) {
        return element(stream, structs, memory, variable, text(0));
    }
    stream.beginArray();
    for (uint32_t index = 0; index < Introspection::getElementCount(memory, variable); ++index) {
        TRY(element(stream, structs, memory, variable, text(index)));
    }
    stream.end();
    return {};
}

// The variable's value written to the stream, or why it cannot be written as JSON.
Result<void> writeVariable(JsonStream& stream, RepeatingRelay& structs, uint32_t memory,
                           uint32_t variable) {
    try {
        return variableValue(stream, structs, memory, variable);
    } catch (const std::exception& error) {
        return failure(errorMessage(error));
    }
}

} // namespace

Result<int> dumpMemories(Device& device, const Arguments& arguments) {
    std::vector<uint32_t> memories;
    for (const std::string& name : arguments.positional()) {
        // A memory named twice is written once, where it was first named.
        if (const uint32_t memory = TRY(findMemory(name));
            std::find(memories.begin(), memories.end(), memory) == memories.end()) {
            memories.push_back(memory);
        }
    }
    if (memories.empty()) {
        for (uint32_t memory = 0; memory < Introspection::getMemCount(); ++memory) {
            memories.push_back(memory);
        }
    }
    for (uint32_t memory : memories) {
        TRY(device.openMemory(memory));
    }
    const int indent = arguments.has("--compact") ? -1 : 2;
    JsonStream stream(stdout, indent);
    RepeatingRelay structs(indent);
    stream.beginObject();
    for (uint32_t memory : memories) {
        stream.key(Introspection::getMemName(memory));
        stream.beginObject();
        for (uint32_t variable = 0; variable < Introspection::getVarCount(memory); ++variable) {
            stream.key(Introspection::getVarName(memory, variable));
            if (const Result<void> written = writeVariable(stream, structs, memory, variable);
                !written) {
                stream.flush();
                return failure(std::string(Introspection::getMemName(memory)) + "." +
                               Introspection::getVarName(memory, variable) +
                               " cannot be written as JSON: " + written.error().text);
            }
        }
        stream.end();
    }
    stream.end();
    stream.flush();
    std::fputc('\n', stdout);
    if (std::fflush(stdout) != 0) {
        const int code = errno;
        return failure(std::string("cannot write the output: ") + std::strerror(code), code);
    }
    return ExitSuccess;
}
