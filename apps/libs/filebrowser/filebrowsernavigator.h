// Walks a folder tree below the browser's root one level at a time and lists
// the current folder.
//
// ls() delivers the sub-folders first, then the files, each group ordered by
// FileBrowserBase::InsensitiveCompare; of two names that differ only in case
// the one the directory iterator meets first is kept.  Names beginning with a
// dot are left out.  Links are followed: a link to a folder is a folder, any
// other entry (a dangling link included) is a file.  With an extension filter
// set, a file is listed only if its extension (with the dot) is exactly the
// filter, compared with regard to case.  A folder that cannot be listed, or an
// entry whose status cannot be read (a link that loops), logs "Could not ls
// directory %s: %s" and the call delivers nothing.
//
// cd(name) takes the canonical form of relativePath() / name.  While the
// navigator stands at the root the relative path is empty, so the name is
// resolved against the process's working directory, not against the root; the
// result is absolute and from then on is the current path itself.  Owners that
// want to enter a listed folder from anywhere pass the entry's full path
// (path(i)), which resolves the same whatever the working directory.
#pragma once

#include "filebrowserbase.h"

#include <filesystem>
#include <functional>
#include <string>

class FileBrowserNavigator : public FileBrowserBase {
public:
    using FileBrowserBase::FileBrowserBase;

    // The root joined with the relative path; at the root that is the root
    // with a trailing separator (joining an empty relative path adds one).
    std::filesystem::path currentPath() const override;
    std::filesystem::path relativePath() const { return relative; }
    std::string relativePath() { return relative.string(); }

    // Changes into `name`; a missing name throws the filesystem error of
    // std::filesystem::canonical and leaves the navigator where it was.
    void cd(std::string const& name);
    // Moves to the parent of the relative path; nothing at the root.
    void cdUp();
    // Returns to the root; nothing at the root.
    void cdRoot();
    // Lists the current folder; an empty callback throws std::bad_function_call
    // when the first entry is delivered.
    void ls(std::function<void(EntryInfo const&)>&& callback) const;

private:
    std::filesystem::path relative;
};
