#include "folderpath.h"

#include <filesystem>

namespace FolderPath {

bool isPlainName(std::string_view name) {
    return !name.empty() && name.front() != '.' && name.find('/') == std::string_view::npos &&
           name.find('\0') == std::string_view::npos;
}

bool liesIn(const std::string& folder, const std::string& path) {
    std::filesystem::path base = std::filesystem::path(folder).lexically_normal();
    if (!base.has_filename()) {
        base = base.parent_path();
    }
    const std::filesystem::path normal = std::filesystem::path(path).lexically_normal();
    const std::string name = normal.filename().string();
    return normal.parent_path() == base && !name.empty() && name != "." && name != "..";
}

} // namespace FolderPath
