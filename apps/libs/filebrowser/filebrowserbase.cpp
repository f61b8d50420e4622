#include "filebrowserbase.h"

#include "settings-service/log.h"

#include <system_error>

namespace fs = std::filesystem;

FileBrowserBase::FileBrowserBase(ProgressFunction&& progress, ErrorFunction&& error)
    : expanded(false), selectAll(false), progress(std::move(progress)), error(std::move(error)) {}

fs::path FileBrowserBase::currentPath() const {
    return root;
}

bool FileBrowserBase::isBusy() const {
    return false;
}

std::string FileBrowserBase::statusText() const {
    return {};
}

bool FileBrowserBase::isReadOnly() const {
    return false;
}

bool FileBrowserBase::isRemovableMedium() const {
    return false;
}

void FileBrowserBase::setRootPath(std::string const& root) {
    this->root = fs::weakly_canonical(root);
}

bool FileBrowserBase::createPath(fs::path const& path) {
    try {
        if (fs::is_directory(path)) {
            return true;
        }
        fs::create_directories(path);
        return true;
    } catch (fs::filesystem_error const& failure) {
        reportFailure(path, failure);
        return false;
    }
}

bool FileBrowserBase::forSelected(std::function<void(fs::path const&)> action) {
    if (selection.empty()) {
        return true;
    }
    size_t const total = selection.size();
    size_t done = 0;
    size_t place = 0;
    bool allDone = true;
    while (place < selection.size()) {
        fs::path const current = selection[place];
        try {
            action(current);
            selection.erase(selection.begin() + static_cast<std::ptrdiff_t>(place));
        } catch (fs::filesystem_error const& failure) {
            reportFailure(current.lexically_relative(root), failure);
            ++place;
            allDone = false;
        }
        ++done;
        if (progress) {
            progress(static_cast<float>(done * 100) / static_cast<float>(total));
        }
    }
    return allDone;
}

bool FileBrowserBase::execute(Operation operation, fs::path const& destination) {
    if (!createPath(destination)) {
        return false;
    }
    if (selectAll) {
        selectAllOfRoot();
    }
    bool const move = operation == Move;
    return forSelected([this, move, &destination](fs::path const& source) {
        fs::path const target = destination / source.filename();
        LOG(LogLight, "%s %s to %s", move ? "move" : "copy", source.c_str(), target.c_str());
        // A plain prefix test: it also refuses a folder copied onto itself and
        // a folder copied into a sibling whose name begins with its own.
        if (fs::is_directory(source) && target.string().starts_with(source.string())) {
            LOG(Warn, "Can not copy/move folder %s into itself %s", source.c_str(), target.c_str());
            throw fs::filesystem_error("Recursive copy/move", source, target,
                                       std::error_code(1, std::generic_category()));
        }
        if (move) {
            requireInsideRoot(source);
        }
        fs::copy(source, target, fs::copy_options::update_existing | fs::copy_options::recursive);
        if (move) {
            fs::remove_all(source);
        }
    });
}

bool FileBrowserBase::remove() {
    if (selectAll) {
        selectAllOfRoot();
    }
    return forSelected([this](fs::path const& selected) {
        requireInsideRoot(selected);
        LOG(LogLight, "Deleting %s", selected.c_str());
        fs::remove_all(selected);
    });
}

void FileBrowserBase::removeAll() {
    if (fs::is_empty(root)) {
        return;
    }
    LOG(LogLight, "Emptying directory %s", root.c_str());
    for (fs::directory_entry const& entry : fs::directory_iterator(root)) {
        LOG(LogLight, "Deleting %s", entry.path().c_str());
        fs::remove_all(entry.path());
    }
}

void FileBrowserBase::reportFailure(fs::path const& reported,
                                    fs::filesystem_error const& failure) const {
    LOG(Warn, "%s", failure.what());
    if (error) {
        error(reported, failure);
    }
}

void FileBrowserBase::requireInsideRoot(fs::path const& target) const {
    // The last component stays as it is: deleting or renaming a link acts on
    // the link, not on what it points to.
    fs::path const resolved = fs::weakly_canonical(target.parent_path()) / target.filename();
    fs::path const relative = resolved.lexically_normal().lexically_relative(root);
    if (relative.empty() || relative == "." || *relative.begin() == "..") {
        throw fs::filesystem_error("Outside root", target, root,
                                   std::make_error_code(std::errc::operation_not_permitted));
    }
}
