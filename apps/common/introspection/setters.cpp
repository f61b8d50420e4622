#include "settings-service/setters.h"

#include "settings-service/catalogue.h"
#include "settings-service/log.h"
#include "settings-service/valuecodec.h"

#include <optional>

namespace {

// The address that the Notify selects, or null when its `indexed` is neither 0 nor 1.
template <typename T>
T* elementAddress(uint8_t* base, uint32_t memory, uint32_t variable, const Notify& notify) {
    uint8_t* value = base + Catalogue::variable(memory, variable).offset;
    if (notify.indexed == 0) {
        return reinterpret_cast<T*>(value);
    }
    if (notify.indexed == 1) {
        return reinterpret_cast<T*>(value) + notify.index;
    }
    return nullptr;
}

template <typename T> const T& element(const void* address, int index) {
    return static_cast<const T*>(address)[index];
}

// Reads the text with the codec and stores it with setVariable at the address that the Notify
// selects.
template <typename T, typename Read>
std::string setNumber(uint8_t* base, uint32_t memory, uint32_t variable, const Notify& notify,
                      const char* text, const char* type, Read read) {
    T* target = elementAddress<T>(base, memory, variable, notify);
    if (target == nullptr) {
        return "";
    }
    const std::optional<T> value = read(text);
    if (!value) {
        return ValueCodec::cannotConvert(text, type);
    }
    setVariable<T>(*target, notify, *value);
    return "";
}

} // namespace

std::string getIntIntrospection(const void* address, int index) {
    return ValueCodec::intText(element<int32_t>(address, index));
}

std::string getFloatIntrospection(const void* address, int index) {
    return ValueCodec::floatText(element<float>(address, index));
}

std::string getBoolIntrospection(const void* address, int index) {
    return ValueCodec::boolText(element<uint8_t>(address, index) != 0);
}

std::string getStringIntrospection(const void* address, int) {
    return static_cast<const char*>(address);
}

std::string getBufferText(const void* address, unsigned length) {
    return ValueCodec::bufferText(static_cast<const uint8_t*>(address), length);
}

std::string setIntIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                const char* text) {
    return setNumber<int32_t>(base, memory, variable, notify, text, "int",
                              [](const char* digits) { return ValueCodec::readInt(digits, 0); });
}

std::string setFloatIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                  const char* text) {
    return setNumber<float>(base, memory, variable, notify, text, "float",
                            [](const char* digits) { return ValueCodec::readFloat(digits); });
}

std::string setBoolIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                 const char* text) {
    uint8_t* target = elementAddress<uint8_t>(base, memory, variable, notify);
    if (target == nullptr) {
        return "";
    }
    const std::optional<bool> value = ValueCodec::readBool(text);
    if (!value) {
        return ValueCodec::NOT_A_BOOL;
    }
    if (*target != (*value ? 1 : 0)) {
        *target = *value ? 1 : 0;
        postEvent(notify);
    }
    return "";
}

std::string setStringIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                   const char* text) {
    const VariableDescriptor& entry = Catalogue::variable(memory, variable);
    const std::optional<int32_t> capacity =
        entry.arrayLength ? ValueCodec::readInt(entry.arrayLength, 10) : std::nullopt;
    if (!capacity) {
        return ValueCodec::cannotConvert(text, "string");
    }
    char* target = reinterpret_cast<char*>(base + entry.offset);
    const std::size_t length = ValueCodec::keptLength(text, static_cast<uint32_t>(*capacity));
    std::memcpy(target, text, length);
    target[length] = '\0';
    postEvent(notify);
    return "";
}

std::string setBufferText(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                          const char* text, unsigned length) {
    uint8_t* target = base + Catalogue::variable(memory, variable).offset;
    if (const std::optional<char> bad = ValueCodec::readBuffer(text, target, length)) {
        logMessage(nullptr, gen::Error, __FILE__, __LINE__, "Not a valid hex digit: %c", *bad);
        return ValueCodec::cannotConvert(text, "buffer");
    }
    postEvent(notify);
    return "";
}

std::string setReadOnlyIntrospection(uint8_t*, uint32_t memory, uint32_t variable, Notify,
                                     const char*) {
    return std::string(Catalogue::variable(memory, variable).name) + " is read-only";
}
