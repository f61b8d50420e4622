// The index-based operations of FileBrowserBase (see the header for how an
// index maps to an entry of the current listing).
#include "filebrowserbase.h"

#include "settings-service/log.h"

#include <algorithm>
#include <system_error>

namespace fs = std::filesystem;

std::optional<FileBrowserBase::Entry> FileBrowserBase::entry(unsigned int index) const {
    std::optional<Entry> found;
    listEntries([&found, index](EntryInfo const& info) {
        if (info.index == index) {
            found = Entry{info.name, info.type};
        }
    });
    return found;
}

fs::path FileBrowserBase::path(unsigned int index) const {
    std::optional<Entry> const listed = entry(index);
    return listed ? currentPath() / listed->name : fs::path();
}

bool FileBrowserBase::isFile(unsigned int index) const {
    std::optional<Entry> const listed = entry(index);
    return listed && listed->type != fs::file_type::directory;
}

bool FileBrowserBase::selected(unsigned int index) const {
    fs::path const listed = path(index);
    return !listed.empty() &&
           std::find(selection.begin(), selection.end(), listed) != selection.end();
}

bool FileBrowserBase::selectToggle(unsigned int index) {
    fs::path const listed = path(index);
    if (listed.empty()) {
        return false;
    }
    auto const place = std::find(selection.begin(), selection.end(), listed);
    if (place != selection.end()) {
        selection.erase(place);
        return false;
    }
    selection.push_back(listed);
    return true;
}

bool FileBrowserBase::selectAllOfRoot() {
    try {
        for (fs::directory_entry const& entry : fs::directory_iterator(root)) {
            if (std::find(selection.begin(), selection.end(), entry.path()) == selection.end()) {
                selection.push_back(entry.path());
            }
        }
        return true;
    } catch (fs::filesystem_error const& failure) {
        LOG(Warn, "Could not select all of root %s: %s", root.c_str(), failure.what());
        return false;
    }
}

bool FileBrowserBase::expand(unsigned int index) {
    std::optional<Entry> const listed = entry(index);
    if (!listed || listed->type != fs::file_type::directory) {
        return false;
    }
    expanded = true;
    return true;
}

bool FileBrowserBase::collapse(unsigned int index) {
    std::optional<Entry> const listed = entry(index);
    if (!listed || listed->type != fs::file_type::directory) {
        return false;
    }
    expanded = false;
    return true;
}

bool FileBrowserBase::expandToggle(unsigned int index) {
    return expanded ? collapse(index) : expand(index);
}

bool FileBrowserBase::directoryEmpty(unsigned int index) const {
    std::optional<Entry> const listed = entry(index);
    if (!listed || listed->type != fs::file_type::directory) {
        return false;
    }
    try {
        return fs::is_empty(currentPath() / listed->name);
    } catch (fs::filesystem_error const& failure) {
        LOG(Warn, "Couldn't determine if directory is empty: %s", failure.what());
        return false;
    }
}

bool FileBrowserBase::mkdir(unsigned int index, fs::path const& name) {
    std::optional<Entry> const listed = entry(index);
    fs::path const parent = listed && listed->type == fs::file_type::directory
                                ? currentPath() / listed->name
                                : currentPath();
    fs::path const target = parent / name;
    try {
        if (name.empty() || name.is_absolute()) {
            throw fs::filesystem_error("Not a folder name", target,
                                       std::make_error_code(std::errc::invalid_argument));
        }
        requireInsideRoot(target);
    } catch (fs::filesystem_error const& failure) {
        reportFailure(target.lexically_relative(root), failure);
        return false;
    }
    LOG(LogLight, "Creating directory %s", target.c_str());
    return createPath(target);
}

bool FileBrowserBase::rename(unsigned int index, std::string const& name) {
    fs::path const source = path(index);
    if (source.empty()) {
        return false;
    }
    fs::path const target = source.parent_path() / name;
    try {
        fs::path const newName(name);
        if (name.empty() || name == "." || name == ".." || newName != newName.filename()) {
            throw fs::filesystem_error("Not a file name", target,
                                       std::make_error_code(std::errc::invalid_argument));
        }
        requireInsideRoot(source);
        if (fs::exists(fs::symlink_status(target))) {
            throw fs::filesystem_error("Target exists", source, target,
                                       std::make_error_code(std::errc::file_exists));
        }
        LOG(LogLight, "Renaming %s to %s", source.c_str(), target.c_str());
        fs::rename(source, target);
        return true;
    } catch (fs::filesystem_error const& failure) {
        reportFailure(source.lexically_relative(root), failure);
        return false;
    }
}
