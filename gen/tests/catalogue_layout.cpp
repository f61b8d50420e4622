// Prints the catalogue's layout as this build compiled it: every memory's
// record size, every variable's offset, element size and type, and every
// struct type's size and member offsets.  The ARM build compares its output
// with the host build's, so both targets are shown to share one layout.
#include "settings-service/catalogue.h"
#include "settings-service/memories.h"
#include "settings-service/records.h"
#include "settings-service/sharedmemory.h"

#include <cstdio>

int main() {
    for (uint32_t memory = 0; memory < MEMORY_ARRAY_SIZE; ++memory) {
        const MemoryInfo& info = MEMORY_ARRAY[memory];
        std::printf("memory %s size %u\n", info.name, gen::getSharedMemory(memory).getSize());
        for (uint32_t variable = 0; variable < info.variableCount; ++variable) {
            const VariableDescriptor& entry = info.variables[variable];
            std::printf("  %s offset %u element %u type %s base %u event %u\n", entry.name,
                        entry.offset, entry.elementSize, entry.typeName, entry.baseType,
                        static_cast<unsigned>(entry.event.id));
        }
    }
    for (uint32_t type = 0; type < STRUCT_ARRAY_SIZE; ++type) {
        const StructTypeInfo& info = STRUCT_ARRAY[type];
        std::printf("struct %s size %u\n", info.name, info.size);
        for (const StructInfo& member : *info.members) {
            std::printf("  %s offset %u element %u length %u type %s\n", member.name, member.offset,
                        member.elementSize, member.arrayLength, member.typeName);
        }
    }
    std::printf("record MemPersistent %zu MemCamera %zu MemApp %zu\n",
                sizeof(gen::MemPersistentRecord), sizeof(gen::MemCameraRecord),
                sizeof(gen::MemAppRecord));
    return 0;
}
