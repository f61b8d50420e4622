// Round trips over the whole catalogue.  Every element of every variable is
// filled with a random valid value, read as text through its getter and
// written back through its setter (setJson for structs):
// - over the same value the bytes stay as they are, and only strings and
//   buffers post an event;
// - over a different value the bytes return to the read value and exactly
//   one event is posted.
// Every entry name of every enum round-trips, and every struct type's text is
// JSON whose members are the type's members in order.
#include "catalogueenvironment.h"
#include "settings-service/introspection.h"
#include "settings-service/introspection_enum.h"
#include "settings-service/memories.h"
#include "settings-service/setters.h"

#include <nlohmann/json.hpp>

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

namespace {

using namespace Introspection;
using Ordered = nlohmann::ordered_json;

const StructTypeInfo& structType(const std::string& name) {
    for (uint32_t i = 0; i < STRUCT_ARRAY_SIZE; ++i) {
        if (name == STRUCT_ARRAY[i].name) {
            return STRUCT_ARRAY[i];
        }
    }
    throw std::logic_error("no struct " + name);
}

uint32_t enumEntries(const std::string& name) {
    return IntrospectionEnum::getEnumEntryCount(IntrospectionEnum::getEnumIndex(name.c_str()));
}

bool isBuffer(const VariableDescriptor& entry) {
    return entry.getter == &getBufferIntrospection<1> ||
           entry.getter == &getBufferIntrospection<2> ||
           entry.getter == &getBufferIntrospection<4> ||
           entry.getter == &getBufferIntrospection<7> ||
           entry.getter == &getBufferIntrospection<64>;
}

// Random valid values, and a different valid value of the same shape.  Texts
// keep their length when changed (a setter writes only up to the text's
// terminator), and texts inside structs use characters that JSON and the
// settings reader carry unchanged.
class Values {
public:
    explicit Values(unsigned seed) : random(seed) {}

    void fill(uint8_t* address, uint32_t base, const std::string& type, uint32_t size,
              bool inStruct) {
        switch (base) {
        case BaseInt: {
            const uint32_t number = random();
            std::memcpy(address, &number, 4);
            break;
        }
        case BaseFloat: {
            const float number = static_cast<float>(pick(-(1 << 22), 1 << 22)) / 64.0f;
            std::memcpy(address, &number, 4);
            break;
        }
        case BaseBool:
            *address = random() & 1;
            break;
        case BaseString:
            fillText(address, size, inStruct);
            break;
        case BaseEnum: {
            const uint32_t entry = pick(0, static_cast<int>(enumEntries(type)) - 1);
            std::memcpy(address, &entry, 4);
            break;
        }
        default:
            forEachMember(address, type, [&](uint8_t* at, const StructInfo& member) {
                fill(at, member.baseType, member.typeName, member.elementSize, true);
            });
        }
    }

    void fillBuffer(uint8_t* address, uint32_t size) {
        for (uint32_t i = 0; i < size; ++i) {
            address[i] = static_cast<uint8_t>(random());
        }
    }

    static void change(uint8_t* address, uint32_t base, const std::string& type) {
        switch (base) {
        case BaseInt: {
            uint32_t number;
            std::memcpy(&number, address, 4);
            number += 1;
            std::memcpy(address, &number, 4);
            break;
        }
        case BaseFloat: {
            float number;
            std::memcpy(&number, address, 4);
            number += 1.0f;
            std::memcpy(address, &number, 4);
            break;
        }
        case BaseBool:
            *address = !*address;
            break;
        case BaseString:
            if (address[0] != '\0') {
                address[0] = address[0] == 'a' ? 'b' : 'a';
            }
            break;
        case BaseEnum: {
            uint32_t entry;
            std::memcpy(&entry, address, 4);
            entry = (entry + 1) % enumEntries(type);
            std::memcpy(address, &entry, 4);
            break;
        }
        default:
            forEachMember(address, type, [](uint8_t* at, const StructInfo& member) {
                change(at, member.baseType, member.typeName);
            });
        }
    }

private:
    std::mt19937 random;

    int pick(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random); }

    void fillText(uint8_t* address, uint32_t capacity, bool inStruct) {
        static const std::string PLAIN = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                                         "0123456789 -_./";
        static const std::string PRINTABLE = PLAIN + "!\"#$%&'()*+,:;<=>?@[\\]^`{|}~";
        const std::string& characters = inStruct ? PLAIN : PRINTABLE;
        const int length = capacity < 2 ? 0 : pick(1, static_cast<int>(capacity) - 1);
        for (int i = 0; i < length; ++i) {
            address[i] = characters[pick(0, static_cast<int>(characters.size()) - 1)];
        }
        address[length] = '\0';
        for (uint32_t i = length + 1; i < capacity; ++i) {
            address[i] = static_cast<uint8_t>(random());
        }
    }

    template <typename F>
    static void forEachMember(uint8_t* address, const std::string& type, F f) {
        for (const StructInfo& member : *structType(type).members) {
            const uint32_t count = member.arrayLength > 0 ? member.arrayLength : 1;
            for (uint32_t k = 0; k < count; ++k) {
                f(address + member.offset + k * member.elementSize, member);
            }
        }
    }
};

uint8_t* elementAddress(uint32_t memory, uint32_t variable, uint32_t k) {
    const VariableDescriptor& entry = MEMORY_ARRAY[memory].variables[variable];
    return entry.memoryBase + entry.offset + k * entry.elementSize;
}

// Writes `text` into element k the way a settings load or memtool does.
std::string setElement(uint32_t memory, uint32_t variable, uint32_t k, const std::string& text) {
    const VariableDescriptor& entry = MEMORY_ARRAY[memory].variables[variable];
    if (entry.baseType == BaseStruct) {
        Json members;
        if (!members.parse(text)) {
            return "the getter's text does not parse: " + text;
        }
        return setVarValueJson(memory, variable, members.items, static_cast<int>(k));
    }
    if (isArray(memory, variable)) {
        return entry.setter(entry.memoryBase, memory, variable, {entry.event.id, 1, k},
                            text.c_str());
    }
    return setVarValue(memory, variable, text.c_str());
}

std::string describe(const std::vector<Notify>& records) {
    std::string text;
    for (const Notify& record : records) {
        text += " {" + std::to_string(record.id) + "," + std::to_string(record.indexed) + "," +
                std::to_string(record.index) + "}";
    }
    return text;
}

class RoundTrip : public testing::TestWithParam<uint32_t> {};

TEST_P(RoundTrip, EveryVariableOfTheMemory) {
    const uint32_t memory = GetParam();
    Values values(1000 + memory);
    uint8_t* const base = MEMORY_ARRAY[memory].variables[0].memoryBase;
    const size_t size = gen::getSharedMemory(memory).getSize();
    for (uint32_t variable = 0; variable < getVarCount(memory); ++variable) {
        const VariableDescriptor& entry = MEMORY_ARRAY[memory].variables[variable];
        SCOPED_TRACE(std::string(getMemName(memory)) + "." + entry.name);
        const bool buffer = isBuffer(entry);
        const bool readOnly = entry.setter == &setReadOnlyIntrospection;
        const bool text = entry.baseType == BaseString;
        const uint32_t count = getElementCount(memory, variable);
        const uint32_t width = entry.elementSize;
        for (uint32_t k = 0; k < count; ++k) {
            if (buffer) {
                values.fillBuffer(elementAddress(memory, variable, k), width);
            } else {
                values.fill(elementAddress(memory, variable, k), entry.baseType, entry.typeName,
                            width, false);
            }
        }
        const std::vector<uint8_t> filled(base, base + size);
        for (uint32_t k = 0; k < count; ++k) {
            SCOPED_TRACE("element " + std::to_string(k));
            uint8_t* element = elementAddress(memory, variable, k);
            const std::vector<uint8_t> expected(element, element + width);
            const std::string value = getVarValue(memory, variable, k);
            const Notify posted = entry.baseType == BaseStruct ? Notify{entry.event.id, 0, k}
                                  : isArray(memory, variable)  ? Notify{entry.event.id, 1, k}
                                                               : entry.event;

            const std::string sameError = setElement(memory, variable, k, value);
            EXPECT_EQ(sameError, readOnly ? std::string(entry.name) + " is read-only" : "");
            ASSERT_EQ(std::memcmp(element, expected.data(), width), 0) << value;
            std::vector<Notify> records = brokerPeer().received();
            ASSERT_EQ(records.size(), (text && !readOnly) ? 1u : 0u) << describe(records);
            if (!records.empty()) {
                EXPECT_EQ(std::memcmp(&records[0], &posted, sizeof posted), 0) << describe(records);
            }
            if (readOnly) {
                continue;
            }

            if (buffer) {
                element[0] ^= 0xFF;
            } else {
                Values::change(element, entry.baseType, entry.typeName);
            }
            if (std::memcmp(element, expected.data(), width) == 0) {
                continue; // a single-entry enum has no other value
            }
            EXPECT_EQ(setElement(memory, variable, k, value), "");
            ASSERT_EQ(std::memcmp(element, expected.data(), width), 0) << value;
            records = brokerPeer().received();
            ASSERT_EQ(records.size(), 1u) << describe(records);
            EXPECT_EQ(std::memcmp(&records[0], &posted, sizeof posted), 0) << describe(records);
        }
        ASSERT_EQ(std::memcmp(base, filled.data(), size), 0) << "a write strayed outside";
    }
}

INSTANTIATE_TEST_SUITE_P(Catalogue, RoundTrip, testing::Range(0u, 20u),
                         [](const testing::TestParamInfo<uint32_t>& info) {
                             return std::string(getMemName(info.param));
                         });

// A variable or struct member holding an enum, for writing its entries.
struct EnumHolder {
    uint32_t memory = 0;
    uint32_t variable = 0;
    const char* member = nullptr; // null: the variable itself
    bool found = false;
};

EnumHolder holderOf(const std::string& enumName) {
    EnumHolder structHolder;
    for (uint32_t memory = 0; memory < getMemCount(); ++memory) {
        for (uint32_t variable = 0; variable < getVarCount(memory); ++variable) {
            const VariableDescriptor& entry = MEMORY_ARRAY[memory].variables[variable];
            if (enumName == entry.typeName) {
                return {memory, variable, nullptr, true};
            }
            if (entry.structMembers == nullptr || structHolder.found) {
                continue;
            }
            for (const StructInfo& member : *entry.structMembers) {
                if (member.typeName == enumName && member.arrayLength == 0) {
                    structHolder = {memory, variable, member.name, true};
                }
            }
        }
    }
    return structHolder;
}

TEST(Enums, EveryEntryNameRoundTrips) {
    ASSERT_EQ(IntrospectionEnum::getEnumCount(), ENUM_ARRAY_SIZE);
    for (uint32_t e = 0; e < ENUM_ARRAY_SIZE; ++e) {
        const std::string name = IntrospectionEnum::getEnumName(e);
        SCOPED_TRACE(name);
        const EnumHolder holder = holderOf(name);
        ASSERT_TRUE(holder.found) << "no variable or struct member holds it";
        for (uint32_t entry = 0; entry < IntrospectionEnum::getEnumEntryCount(e); ++entry) {
            const std::string entryName = IntrospectionEnum::getEnumEntryName(e, entry);
            if (holder.member == nullptr) {
                ASSERT_EQ(setVarValue(holder.memory, holder.variable, entryName.c_str()), "");
                ASSERT_EQ(getVarValue(holder.memory, holder.variable, 0), entryName);
                uint32_t stored;
                std::memcpy(&stored, elementAddress(holder.memory, holder.variable, 0), 4);
                ASSERT_EQ(stored, entry);
            } else {
                ASSERT_EQ(setVarValueJson(holder.memory, holder.variable,
                                          {{holder.member, {entryName, false}}}, 0),
                          "");
                const Ordered text = Ordered::parse(getVarValue(holder.memory, holder.variable, 0));
                ASSERT_EQ(text[holder.member]["value"], entryName);
                ASSERT_EQ(text[holder.member]["type"], name);
            }
            // Each write changes the value unless the entry was already stored.
            ASSERT_LE(brokerPeer().received().size(), 1u);
        }
    }
}

// The member names of a struct type's text, checked recursively; `seen`
// marks the types met.
void expectMembers(const Ordered& text, const StructTypeInfo& type, std::vector<bool>& seen) {
    seen[&type - STRUCT_ARRAY] = true;
    ASSERT_TRUE(text.is_object());
    ASSERT_EQ(text.size(), type.members->size());
    size_t i = 0;
    for (const auto& [key, value] : text.items()) {
        const StructInfo& member = (*type.members)[i++];
        ASSERT_EQ(key, member.name);
        const auto expectValue = [&](const Ordered& one) {
            if (member.baseType == BaseStruct) {
                expectMembers(one, structType(member.typeName), seen);
            } else {
                ASSERT_TRUE(one.contains("value")) << one.dump();
                ASSERT_TRUE(one["value"].is_string());
                ASSERT_EQ(one["type"], member.baseType == BaseEnum ? member.typeName
                                       : member.baseType == BaseString
                                           ? "string"
                                           : BASE_TYPE_NAME_ARRAY[member.baseType]);
            }
        };
        if (member.arrayLength > 0) {
            ASSERT_TRUE(value.is_array());
            ASSERT_EQ(value.size(), member.arrayLength);
            for (const Ordered& one : value) {
                expectValue(one);
            }
        } else {
            expectValue(value);
        }
    }
}

TEST(Structs, EveryTypesTextIsJsonOfItsMembers) {
    std::vector<bool> seen(STRUCT_ARRAY_SIZE, false);
    Values values(77);
    for (uint32_t memory = 0; memory < getMemCount(); ++memory) {
        for (uint32_t variable = 0; variable < getVarCount(memory); ++variable) {
            const VariableDescriptor& entry = MEMORY_ARRAY[memory].variables[variable];
            if (entry.baseType != BaseStruct) {
                continue;
            }
            SCOPED_TRACE(entry.name);
            uint8_t* element = elementAddress(memory, variable, 0);
            values.fill(element, BaseStruct, entry.typeName, entry.elementSize, false);
            const std::vector<uint8_t> expected(element, element + entry.elementSize);
            const std::string text = getVarValue(memory, variable, 0);
            Ordered parsed;
            ASSERT_NO_THROW(parsed = Ordered::parse(text)) << text;
            expectMembers(parsed, structType(entry.typeName), seen);
            Json members;
            ASSERT_TRUE(members.parse(text));
            ASSERT_EQ(setVarValueJson(memory, variable, members.items, 0), "");
            ASSERT_EQ(std::memcmp(element, expected.data(), entry.elementSize), 0);
        }
    }
    for (uint32_t i = 0; i < STRUCT_ARRAY_SIZE; ++i) {
        EXPECT_TRUE(seen[i]) << STRUCT_ARRAY[i].name << " was never printed";
    }
    EXPECT_TRUE(brokerPeer().received().empty()) << "unchanged structs post nothing";
}

} // namespace
