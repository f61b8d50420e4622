#include "settings-service/catalogue.h"

#include "settings-service/log.h"

namespace {
constexpr CatalogueTables EMPTY_CATALOGUE{nullptr, 0, nullptr, 0, nullptr, 0};
} // namespace

// The generated tables define it too, and that definition wins.
__attribute__((weak)) const CatalogueTables* gCatalogueTables = &EMPTY_CATALOGUE;

namespace Catalogue {

std::optional<uint32_t> findEnum(std::string_view name) {
    for (uint32_t enumIndex = 0; enumIndex < tables().enumCount; ++enumIndex) {
        if (name == tables().enums[enumIndex].name) {
            return enumIndex;
        }
    }
    return std::nullopt;
}

const EnumInfo& enumNamed(const char* name) {
    const std::optional<uint32_t> found = findEnum(name);
    if (!found) {
        THROW_ERROR("Unknown enum \"%s\"", name);
    }
    return tables().enums[*found];
}

} // namespace Catalogue
