// Durable, all-or-nothing replacement of a file.
//
// write() puts the content into a temporary file with a hidden name in the
// target's folder, flushes it to the device (fsync), renames it over the
// target and flushes the folder, so that the rename itself survives a power
// cut.  At every moment the target is either the old file or the new one,
// whole; a failure leaves the old one as it was and removes the temporary
// file.  linkOver() replaces a file with a hard link to another in the same
// all-or-nothing way.
//
// Choices made here:
// - The temporary file of "<folder>/<name>" is "<folder>/.<name>.tmp": hidden,
//   so folder listings never show it, and one per target, so a write that was
//   cut off is overwritten by the next write of the same target.
// - Access (ownership.h): the temporary file is created with O_EXCL and
//   O_NOFOLLOW and given exactly mode 0660 and the service's group, whatever
//   the umask.  An own leftover temporary is removed first; a link or another
//   user's file in its place is removed with a Warn line naming its owner (an
//   own folder there stays, and the write fails on it).  A link or another
//   user's file in the place of the target is replaced by the rename (never
//   written through), with a Warn line "Replacing link|file <path>, which
//   belonged to <owner>".
// - A folder whose file system cannot flush folders (fsync answers EINVAL)
//   counts as flushed; any other failure of that flush fails the write.
#pragma once

#include "result.h"

#include <source_location>
#include <string>
#include <string_view>

namespace AtomicFile {

// The temporary file used for `target`.
std::string temporaryPath(const std::string& target);
// True when `name` (a file name without folder) is the name of a temporary file.
bool isTemporaryName(std::string_view name);
// Replaces `target` with `content`.  The error's text is the failed step, its
// path and the system's reason; its code is the system's errno.
Result<void> write(const std::string& target, const std::string& content);
// Replaces `link` with a hard link to `existing`; errors as for write().
Result<void> linkOver(const std::string& existing, const std::string& link);
// The error of a settings file that could not be saved, found where this is
// called: "Could not save <fileName>: <reason's text>", the reason's code.
inline Error saveFailure(const std::string& fileName, const Error& reason,
                         std::source_location where = std::source_location::current()) {
    return failure("Could not save " + fileName + ": " + reason.text, reason.code, where);
}

} // namespace AtomicFile
