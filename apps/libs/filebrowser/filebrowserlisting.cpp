// The listing of the current folder, shared by FileBrowserNavigator::ls and
// the index-based operations of FileBrowserBase.
#include "filebrowserbase.h"

#include "settings-service/log.h"

#include <set>
#include <strings.h>

namespace fs = std::filesystem;

bool FileBrowserBase::InsensitiveCompare::operator()(std::string const& a,
                                                     std::string const& b) const {
    return strcasecmp(a.c_str(), b.c_str()) < 0;
}

namespace {

// Uses the type the iterator has cached; for a link, or a type the iterator
// did not learn, asks for the status of the path, which follows links.  A
// dangling link has the status "not found", so it is not a folder and is
// listed among the files; a status that cannot be read (a link that loops)
// throws the filesystem error that ends the listing.
bool isFolder(fs::directory_entry const& entry) {
    return entry.is_directory();
}

} // namespace

void FileBrowserBase::listEntries(std::function<void(EntryInfo const&)> const& callback) const {
    fs::path const folder = currentPath();
    fs::path const filter(extensionFilter);
    // Of two names that differ only in case, the one met first is kept.
    std::set<std::string, InsensitiveCompare> folders;
    std::set<std::string, InsensitiveCompare> files;
    try {
        for (fs::directory_entry const& entry : fs::directory_iterator(folder)) {
            std::string name = entry.path().filename().string();
            if (name.front() == '.') {
                continue;
            }
            if (isFolder(entry)) {
                folders.insert(std::move(name));
            } else if (extensionFilter.empty() || entry.path().extension() == filter) {
                files.insert(std::move(name));
            }
        }
    } catch (fs::filesystem_error const& failure) {
        LOG(LogLight, "Could not ls directory %s: %s", folder.c_str(), failure.what());
        return;
    }

    size_t const total = folders.size() + files.size();
    uint32_t index = 0;
    auto deliver = [&callback, &index, total](std::string const& name, fs::file_type type) {
        EntryInfo const info{name.c_str(), index, type, index + 1u == total};
        ++index;
        callback(info);
    };
    for (std::string const& name : folders) {
        deliver(name, fs::file_type::directory);
    }
    for (std::string const& name : files) {
        deliver(name, fs::file_type::regular);
    }
}
