#include "filebrowsernavigator.h"

#include "settings-service/log.h"

namespace fs = std::filesystem;

fs::path FileBrowserNavigator::currentPath() const {
    return getRootPath() / relative;
}

void FileBrowserNavigator::cd(std::string const& name) {
    relative = fs::canonical(relative / name);
    LOG(LogLight, "Changing to directory %s", currentPath().c_str());
}

void FileBrowserNavigator::cdUp() {
    if (relative.empty()) {
        return;
    }
    relative = relative.parent_path();
    LOG(LogLight, "Changing to parent directory %s", currentPath().c_str());
}

void FileBrowserNavigator::cdRoot() {
    if (relative.empty()) {
        return;
    }
    relative.clear();
    LOG(LogLight, "Changing to root directory %s", getRootPath().c_str());
}

void FileBrowserNavigator::ls(std::function<void(EntryInfo const&)>&& callback) const {
    listEntries(callback);
}
