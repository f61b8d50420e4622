// Names and paths that must stay inside the settings folder.
//
// Every path the service builds from a name of the user interface (a user
// setup's name) or from an entry of the user-setup list is checked with these
// before anything is read, written, renamed or removed.
//
// Choices made here:
// - A plain name is not empty, holds no "/" and no NUL, and does not begin
//   with ".": so "." and "..", every path and every hidden name (which the list
//   would not show, and which could name the service's own files such as
//   ".current.stp" or its backup) are refused.
// - A path lies in the folder when, compared lexically (".", ".." and doubled
//   separators resolved, links not followed), it names an entry directly inside
//   the folder.
#pragma once

#include <string>
#include <string_view>

namespace FolderPath {

bool isPlainName(std::string_view name);
bool liesIn(const std::string& folder, const std::string& path);

} // namespace FolderPath
