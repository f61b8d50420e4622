// The walk over the (member name, value) items of one struct element that
// setJson applies (setjson.h) and the value codec's strict check inspects
// (valuecodec.h): members looked up by name, arrays element by element,
// nested structs recursively, a member's value bare or as the {"value": ...}
// object that the getter prints.  What happens to each plain member value,
// and how a value that is no array or object where one belongs is reported,
// is the Action's:
//
//   uint8_t* at(uint8_t* start, uint32_t offset)    the address of a member
//   std::string notAnArray(text, typeName)          an array member's value is none
//   std::string notAnObject(text, typeName)         a struct member's value is none
//   std::string scalar(uint8_t* address, const ElementType&, text)
//                                                  stores or checks; the problem or ""
//
// Problems read "<member path>: <reason>", the path naming nested members and
// array elements as in "Outer.Inner[2].Field", joined by "; ".
#pragma once

#include "settings-service/catalogue.h"
#include "settings-service/introspection.h"
#include "settings-service/json.h"
#include "settings-service/valuecodec.h"

#include <cstdint>
#include <string>
#include <vector>

template <typename Action> class StructWalk {
public:
    explicit StructWalk(Action& action) : action(action) {}

    std::string errors;

    void applyMembers(uint8_t* element, StructMembers layout, const char* typeName,
                      const std::vector<Json::Item>& items, const std::string& prefix) {
        for (const auto& [name, value] : items) {
            const std::string path = prefix + name;
            const StructInfo* member = findMember(layout, name);
            if (member == nullptr) {
                fail(path, std::string("not a member of ") + typeName);
            } else if (member->arrayLength > 0) {
                applyArray(action.at(element, member->offset), *member, value, path);
            } else {
                applyValue(action.at(element, member->offset), *member, value, path);
            }
        }
    }

private:
    Action& action;

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
            fail(path, action.notAnArray(value.value, member.typeName));
            return;
        }
        if (elements.items.size() > member.arrayLength) {
            fail(path, "more than " + std::to_string(member.arrayLength) + " elements");
        }
        for (uint32_t k = 0; k < elements.items.size() && k < member.arrayLength; ++k) {
            applyValue(action.at(first, k * member.elementSize), member, elements.items[k].second,
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
            fail(path, action.notAnObject(value.value, member.typeName));
            return;
        }
        applyMembers(address, *type->members, member.typeName, object.items, path + ".");
    }

    void applyScalar(uint8_t* address, const StructInfo& member, const std::string& text,
                     const std::string& path) {
        const std::optional<ElementType> type = ValueCodec::memberType(member);
        if (!type) {
            fail(path, std::string("no conversion for type ") + member.typeName);
            return;
        }
        if (const std::string problem = action.scalar(address, *type, text); !problem.empty()) {
            fail(path, problem);
        }
    }
};
