#include "jsonvalue.h"

#include "settings-service/catalogue.h"
#include "settings-service/introspection.h"
#include "variableinfo.h"

Ordered typedValue(uint32_t memory, uint32_t variable, const std::string& text) {
    switch (Introspection::getVarBaseType(memory, variable)) {
    case BaseInt:
        return std::stoll(text);
    case BaseFloat:
        return std::stod(text);
    case BaseBool:
        return text == "true";
    case BaseStruct:
        return Ordered::parse(text);
    default:
        return text;
    }
}

Ordered variableJson(uint32_t memory, uint32_t variable,
                     const std::function<std::string(uint32_t index)>& elementText) {
    if (!Introspection::isArray(memory, variable)) {
        return typedValue(memory, variable, elementText(0));
    }
    Ordered elements = Ordered::array();
    for (uint32_t index = 0; index < Introspection::getElementCount(memory, variable); ++index) {
        elements.push_back(typedValue(memory, variable, elementText(index)));
    }
    return elements;
}

Ordered currentJson(uint32_t memory, uint32_t variable) {
    return variableJson(memory, variable, [&](uint32_t index) {
        return Introspection::getVarValue(memory, variable, static_cast<int>(index));
    });
}

Ordered valueJson(uint32_t memory, uint32_t variable, std::optional<uint32_t> index) {
    if (!index) {
        return currentJson(memory, variable);
    }
    return typedValue(memory, variable,
                      Introspection::getVarValue(memory, variable, static_cast<int>(*index)));
}

Ordered defaultJson(uint32_t memory, uint32_t variable) {
    return variableJson(memory, variable,
                        [&](uint32_t index) { return defaultText(memory, variable, index); });
}
