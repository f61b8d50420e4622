#include "setjson.h"

#include "catalogue.h"
#include "introspection.h"
#include "serverconnection.h"
#include "valuecodec.h"

#include <cstring>

namespace {

// Walks the members of one struct element as setJson applies them: storing
// each member value (noting whether any stored byte changed), or only checking
// it by the strict rules; problems are collected either way.
class StructWalk {
public:
    explicit StructWalk(bool storing) : storing(storing) {}

    std::string errors;
    bool changed = false;

    void applyMembers(uint8_t* element, const std::vector<StructInfo>& layout,
                      const std::string& typeName, const std::vector<Json::Item>& items,
                      const std::string& prefix) {
        for (const auto& [name, value] : items) {
            const std::string path = prefix + name;
            const StructInfo* member = findMember(layout, name);
            if (member == nullptr) {
                fail(path, "not a member of " + typeName);
            } else if (member->arrayLength > 0) {
                applyArray(at(element, member->offset), *member, value, path);
            } else {
                applyValue(at(element, member->offset), *member, value, path);
            }
        }
    }

private:
    const bool storing;

    // The address of the bytes `offset` after `start`; a check has none.
    uint8_t* at(uint8_t* start, uint32_t offset) const {
        return storing ? start + offset : nullptr;
    }

    static const StructInfo* findMember(const std::vector<StructInfo>& layout,
                                        const std::string& name) {
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
            fail(path, storing
                           ? "Can't convert " + value.value + " to an array of " + member.typeName
                           : "not an array of " + member.typeName);
            return;
        }
        if (elements.items.size() > member.arrayLength) {
            fail(path, "more than " + std::to_string(member.arrayLength) + " elements");
        }
        for (uint32_t k = 0; k < elements.items.size() && k < member.arrayLength; ++k) {
            applyValue(at(first, k * member.elementSize), member, elements.items[k].second,
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
            fail(path, storing ? "Can't convert " + value.value + " to " + member.typeName
                               : "not an object of " + member.typeName);
            return;
        }
        applyMembers(address, *type->members, member.typeName, object.items, path + ".");
    }

    void applyScalar(uint8_t* address, const StructInfo& member, const std::string& text,
                     const std::string& path) {
        const std::optional<ElementType> type = ValueCodec::memberType(member);
        if (!type) {
            fail(path, "no conversion for type " + member.typeName);
            return;
        }
        if (!storing) {
            if (const std::string reason = ValueCodec::refusal(*type, text); !reason.empty()) {
                fail(path, reason);
            }
            return;
        }
        const ValueCodec::Reading reading = ValueCodec::read(*type, text);
        if (!reading.error.empty()) {
            fail(path, reading.error);
        } else if (std::memcmp(address, reading.bytes.data(), reading.bytes.size()) != 0) {
            std::memcpy(address, reading.bytes.data(), reading.bytes.size());
            changed = true;
        }
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
    StructWalk writer(true);
    writer.applyMembers(base + entry.offset + notify.index * entry.elementSize,
                        *entry.structMembers, entry.typeName, members, "");
    if (writer.changed) {
        postEvent(notify);
    }
    return writer.errors;
}

std::string checkJson(const StructTypeInfo& type, const std::vector<Json::Item>& members) {
    StructWalk check(false);
    check.applyMembers(nullptr, *type.members, type.name, members, "");
    return check.errors;
}
