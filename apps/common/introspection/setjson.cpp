#include "setjson.h"

#include "settings-service/catalogue.h"
#include "settings-service/introspection.h"
#include "settings-service/serverconnection.h"

#include <algorithm>
#include <cstring>
#include <exception>

namespace {

// Applies members to one struct element, collecting problems and noting
// whether any stored byte changed.
class StructWriter {
public:
    std::string errors;
    bool changed = false;

    void applyMembers(uint8_t* element, StructMembers layout, const char* typeName,
                      const std::vector<Json::Item>& items, const std::string& prefix) {
        for (const auto& [name, value] : items) {
            const std::string path = prefix + name;
            const StructInfo* member = findMember(layout, name);
            if (member == nullptr) {
                fail(path, std::string("not a member of ") + typeName);
            } else if (member->arrayLength > 0) {
                applyArray(element + member->offset, *member, value, path);
            } else {
                applyValue(element + member->offset, *member, value, path);
            }
        }
    }

private:
    static const StructInfo* findMember(StructMembers layout, const std::string& name) {
        for (const StructInfo& member : layout) {
            if (name == member.name) {
                return &member;
            }
        }
        return nullptr;
    }

    void fail(const std::string& path, const std::string& reason) {
        if (!errors.empty()) {
            errors += "; ";
        }
        errors += path + ": " + reason;
    }

    void applyArray(uint8_t* first, const StructInfo& member, const Json::ObjectValue& value,
                    const std::string& path) {
        Json elements;
        if (!value.isObject || value.value.front() != '[' || !elements.parse(value.value)) {
            fail(path, "Can't convert " + value.value + " to an array of " + member.typeName);
            return;
        }
        if (elements.items.size() > member.arrayLength) {
            fail(path, "more than " + std::to_string(member.arrayLength) + " elements");
        }
        for (uint32_t k = 0; k < elements.items.size() && k < member.arrayLength; ++k) {
            applyValue(first + k * member.elementSize, member, elements.items[k].second,
                       path + "[" + std::to_string(k) + "]");
        }
    }

    void applyValue(uint8_t* address, const StructInfo& member, const Json::ObjectValue& value,
                    const std::string& path) {
        if (member.baseType == BaseStruct) {
            applyStruct(address, member, value, path);
            return;
        }
        if (!value.isObject) {
            applyScalar(address, member, value.value, path);
            return;
        }
        Json object;
        const Json::ObjectValue* inner = nullptr;
        if (value.value.front() == '{' && object.parse(value.value)) {
            inner = object.find("value");
        }
        if (inner == nullptr || inner->isObject) {
            fail(path, "no \"value\" in " + value.value);
            return;
        }
        applyScalar(address, member, inner->value, path);
    }

    void applyStruct(uint8_t* address, const StructInfo& member, const Json::ObjectValue& value,
                     const std::string& path) {
        const StructTypeInfo* type = Introspection::findStructType(member.typeName);
        Json object;
        if (type == nullptr || !value.isObject || value.value.front() != '{' ||
            !object.parse(value.value)) {
            fail(path, "Can't convert " + value.value + " to " + member.typeName);
            return;
        }
        applyMembers(address, *type->members, member.typeName, object.items, path + ".");
    }

    void store(uint8_t* address, const void* bytes, size_t size) {
        if (std::memcmp(address, bytes, size) != 0) {
            std::memcpy(address, bytes, size);
            changed = true;
        }
    }

    void applyScalar(uint8_t* address, const StructInfo& member, const std::string& text,
                     const std::string& path) {
        switch (member.baseType) {
        case BaseInt:
            try {
                const int32_t number = std::stoi(text, nullptr, 0);
                store(address, &number, sizeof number);
            } catch (const std::exception&) {
                fail(path, "Can't convert " + text + " to int");
            }
            return;
        case BaseFloat:
            try {
                const float number = std::stof(text);
                store(address, &number, sizeof number);
            } catch (const std::exception&) {
                fail(path, "Can't convert " + text + " to float");
            }
            return;
        case BaseBool:
            if (text != "true" && text != "false") {
                fail(path, "Value has to be 'true' or 'false'");
                return;
            }
            store(address, text == "true" ? "\1" : "\0", 1);
            return;
        case BaseString:
            storeString(address, member.elementSize, text);
            return;
        case BaseEnum:
            storeEnum(address, member.typeName, text, path);
            return;
        default:
            fail(path, std::string("no conversion for type ") + member.typeName);
        }
    }

    void storeString(uint8_t* address, uint32_t capacity, const std::string& text) {
        if (capacity == 0) {
            return;
        }
        const size_t length = std::min<size_t>(std::strlen(text.c_str()), capacity - 1);
        if (std::strncmp(reinterpret_cast<const char*>(address), text.c_str(), length) != 0 ||
            address[length] != '\0') {
            std::memcpy(address, text.data(), length);
            address[length] = '\0';
            changed = true;
        }
    }

    void storeEnum(uint8_t* address, const char* enumName, const std::string& text,
                   const std::string& path) {
        const EnumInfo& info = Catalogue::enumNamed(enumName);
        for (uint32_t entry = 0; entry < info.entryCount; ++entry) {
            if (text == info.entries[entry]) {
                store(address, &entry, sizeof entry);
                return;
            }
        }
        fail(path, text + " is not part of enum " + enumName);
    }
};

} // namespace

std::string setJson(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                    const std::vector<Json::Item>& members) {
    const uint32_t length = Introspection::getElementCount(memory, variable);
    const VariableDescriptor& entry = Catalogue::variable(memory, variable);
    if (entry.structMembers == nullptr) {
        return std::string(entry.name) + " is not a struct";
    }
    if (notify.index >= length) {
        return "Element " + std::to_string(notify.index) + " exceeds the array length " +
               std::to_string(length);
    }
    StructWriter writer;
    writer.applyMembers(base + entry.offset + notify.index * entry.elementSize,
                        *entry.structMembers, entry.typeName, members, "");
    if (writer.changed) {
        postEvent(notify);
    }
    return writer.errors;
}
