#include "documentformat.h"

#include "documenttext.h"
#include "printers.h"
#include "settings-service/introspection.h"

namespace {

// An array of a type other than string and buffer is written element by element.
bool inArrayForm(uint32_t memory, uint32_t variable) {
    const ValueKind kind = Introspection::typeOf(memory, variable).element.kind;
    return Introspection::isArray(memory, variable) && kind != ValueKind::String &&
           kind != ValueKind::Buffer;
}

// Element `element`'s text, from `record` when there is one.
std::string valueOf(uint32_t memory, uint32_t variable, int element, const uint8_t* record) {
    return record != nullptr ? Introspection::getVarValueIn(record, memory, variable, element)
                             : Introspection::getVarValue(memory, variable, element);
}

} // namespace

std::string documentValueText(uint32_t memory, uint32_t variable, const uint8_t* record) {
    const Introspection::DocumentEscape escapeStructTexts;
    const uint32_t baseType = Introspection::getVarBaseType(memory, variable);
    if (inArrayForm(memory, variable)) {
        const int length = std::stoi(Introspection::getVarArrayLen(memory, variable));
        std::string text = "[";
        for (int element = 0; element < length; ++element) {
            if (element > 0) {
                text += ",";
            }
            text += valueOf(memory, variable, element, record);
        }
        return text + "]";
    }
    const std::string value = valueOf(memory, variable, 0, record);
    return isQuotedInDocument(baseType) ? DocumentText::escape(value) : value;
}

std::string documentValue(uint32_t memory, uint32_t variable, const uint8_t* record) {
    const uint32_t baseType = Introspection::getVarBaseType(memory, variable);
    std::string text = documentValueText(memory, variable, record);
    if (isQuotedInDocument(baseType) && !inArrayForm(memory, variable)) {
        return "\"" + text + "\"";
    }
    return text;
}
