#include "settings-service/setters.h"

#include "settings-service/catalogue.h"
#include "settings-service/log.h"

#include <exception>

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

std::string cannotConvert(const char* text, const char* type) {
    return std::string("Can't convert ") + text + " to " + type;
}

// Converts the text and stores it with setVariable at the address that the Notify selects.
template <typename T, typename Convert>
std::string setNumber(uint8_t* base, uint32_t memory, uint32_t variable, const Notify& notify,
                      const char* text, const char* type, Convert convert) {
    T* target = elementAddress<T>(base, memory, variable, notify);
    if (target == nullptr) {
        return "";
    }
    T value;
    try {
        value = convert(text);
    } catch (const std::exception&) {
        return cannotConvert(text, type);
    }
    setVariable<T>(*target, notify, value);
    return "";
}

unsigned hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F') {
        return c - 'A' + 10;
    }
    if (c == '\0') {
        return 0;
    }
    THROW_ERROR("Not a valid hex digit: %c", c);
}

} // namespace

std::string getIntIntrospection(const void* address, int index) {
    char text[16];
    std::snprintf(text, sizeof text, "%d", element<int32_t>(address, index));
    return text;
}

std::string getFloatIntrospection(const void* address, int index) {
    return std::to_string(element<float>(address, index));
}

std::string getBoolIntrospection(const void* address, int index) {
    return element<uint8_t>(address, index) != 0 ? "true" : "false";
}

std::string getStringIntrospection(const void* address, int) {
    return static_cast<const char*>(address);
}

std::string getBufferText(const void* address, unsigned length) {
    static const char DIGITS[] = "0123456789abcdef";
    const uint8_t* bytes = static_cast<const uint8_t*>(address);
    std::string text(2 * length, '0');
    for (unsigned i = 0; i < length; ++i) {
        text[2 * i] = DIGITS[bytes[i] >> 4];
        text[2 * i + 1] = DIGITS[bytes[i] & 0x0f];
    }
    return text;
}

std::string setIntIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                const char* text) {
    return setNumber<int32_t>(base, memory, variable, notify, text, "int",
                              [](const char* digits) { return std::stoi(digits, nullptr, 0); });
}

std::string setFloatIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                  const char* text) {
    return setNumber<float>(base, memory, variable, notify, text, "float",
                            [](const char* digits) { return std::stof(digits); });
}

std::string setBoolIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                 const char* text) {
    uint8_t* target = elementAddress<uint8_t>(base, memory, variable, notify);
    if (target == nullptr) {
        return "";
    }
    uint8_t value;
    if (std::strcmp(text, "true") == 0) {
        value = 1;
    } else if (std::strcmp(text, "false") == 0) {
        value = 0;
    } else {
        return "Value has to be 'true' or 'false'";
    }
    if (*target != value) {
        *target = value;
        postEvent(notify);
    }
    return "";
}

std::string setStringIntrospection(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                                   const char* text) {
    const VariableDescriptor& entry = Catalogue::variable(memory, variable);
    int capacity;
    try {
        capacity = std::stoi(entry.arrayLength, nullptr, 10);
    } catch (const std::exception&) {
        return cannotConvert(text, "string");
    }
    char* target = reinterpret_cast<char*>(base + entry.offset);
    target[0] = '\0';
    std::strncat(target, text, capacity - 1);
    postEvent(notify);
    return "";
}

std::string setBufferText(uint8_t* base, uint32_t memory, uint32_t variable, Notify notify,
                          const char* text, unsigned length) {
    uint8_t* target = base + Catalogue::variable(memory, variable).offset;
    bool ended = false;
    auto next = [&](unsigned position) {
        ended = ended || text[position] == '\0';
        return ended ? 0u : hexDigit(text[position]);
    };
    try {
        for (unsigned i = 0; i < length; ++i) {
            const unsigned high = next(2 * i);
            target[i] = static_cast<uint8_t>(16 * high + next(2 * i + 1));
        }
    } catch (const std::exception&) {
        return cannotConvert(text, "buffer");
    }
    postEvent(notify);
    return "";
}

std::string setReadOnlyIntrospection(uint8_t*, uint32_t memory, uint32_t variable, Notify,
                                     const char*) {
    return std::string(Catalogue::variable(memory, variable).name) + " is read-only";
}
