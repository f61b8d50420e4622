// The settings folder and every path the service builds in it.
//
// All paths of the service's files go through this class: the current
// settings file with its backup and damaged copy, user setups by name, and
// entries of the user-setup list.  Each path is checked to lie directly in
// the folder (folderpath.h) before it is handed out; a name from the user
// interface must moreover be a plain name.  Paths are joined as text, folder
// followed by name, so the folder's doubled separator ("/var//SETUPS/") stays
// as it is in every path and message.
//
// Choices made here:
// - A settings file that begins with a UTF-8 byte-order mark is read without
//   it.
// - Access (ownership.h): prepare() makes the folder with mode 0770 and the
//   service's group whatever the umask.  An own folder is kept, with the
//   service's group, and it and its own files lose every right of others (an
//   earlier release made them 0766 and 0666; the package's tmpfiles.d entry
//   gives them 0770 and 0660); a link or another user's folder in its place
//   is removed with a Warn line naming its owner, and when it cannot be
//   removed the folder counts as not creatable.  Settings files are read with O_NOFOLLOW:
//   a link in the place of one is not read.
// - There is no length limit on a path: names are bounded by their variables
//   (17 characters for a setup name, 21 for a list entry), so a path never
//   reaches the 127 characters that a fixed buffer would cut.
#pragma once

#include "result.h"

#include <string>
#include <sys/stat.h>

class SettingsFolder {
public:
    // ".current.stp", the file name of the current settings.
    static std::string currentFileName();
    // ".current.stp.backup", the current settings file that the last save replaced.
    static std::string backupFileName();
    // ".current.stp.damaged", a current settings file that could not be loaded.
    static std::string damagedFileName();
    // True when nothing exists at `path` (its status type is not_found or none).
    static bool isMissing(const std::string& path);

    // The folder "/var/" + "/SETUPS/".
    SettingsFolder();

    const std::string& path() const { return folder; }
    // Makes the folder or takes an own one over (see above); the reason when
    // neither is possible.
    Result<void> prepare() const;
    // The path of `fileName` in the folder; an error when it would not lie
    // directly in the folder.
    Result<std::string> pathOf(const std::string& fileName) const;
    // The path of a file the user interface names or lists: an error unless
    // `fileName` is a plain name (not hidden, no separator) in the folder.
    Result<std::string> pathOfVisible(const std::string& fileName) const;
    // The path of the user setup `name` ("<name>.stp"), checked like a visible file.
    Result<std::string> setupPath(const std::string& name) const;
    // The path of a file of the service's own (the current settings and
    // their copies).
    std::string currentPath() const;
    std::string backupPath() const;
    std::string damagedPath() const;

    // The text of the settings file `fileName` without a leading byte-order
    // mark; an error when it is not a regular file in the folder or cannot be
    // read.
    Result<std::string> readText(const std::string& fileName) const;
    // The same with its bytes as they are.
    Result<std::string> readFile(const std::string& fileName) const;
    // Takes a leading byte-order mark off a settings file's bytes.
    static void dropByteOrderMark(std::string& content);
    // Removes the temporary files of writes that were cut off (atomicfile.h).
    void removeTemporaries() const;

private:
    void takeOver(const std::string& bare, const struct stat& status) const;

    std::string folder;
};
