// The exact bytes of a kernel-log line, built independently of the logging
// code so that tests can compare whole lines:
//   program name right-aligned in 20 and two blanks, the level name
//   left-aligned in 12, the source file's base name right-aligned in 20, ':',
//   the line number right-aligned in 4, one blank, the message.
// The writer puts the level's kernel priority "<N>" in front (Error 3, Warn 4,
// LogLight, LogMost, LogAll 6, the Debug levels 7); the kernel takes it off,
// so the lines built here are the text after it.
#pragma once

#include "settings-service/log.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>

namespace testsupport {

// The 22-byte program piece; the name defaults to this process's short name.
std::string programField(std::string_view name);
std::string programField();
// The 12-byte level tag.
std::string levelTag(gen::LogLevel level);
// The kernel priority prefix "<N>" that the writer puts in front of a line.
std::string priorityPrefix(gen::LogLevel level);
// Kernel-log bytes as the kernel keeps them: each record's priority prefix
// taken off.  A record starts at the beginning of `raw` and after every line
// feed followed by a prefix; a line without one continues the record before it
// (a message that holds a line feed).  Throws std::runtime_error when `raw`
// does not start with a prefix, or when a record's level tag (after the
// program piece) names a level whose priority is not the prefix's.
std::string withoutPriorities(std::string_view raw);
// The location piece "%20s:%4i " for a file's base name and a line.
std::string locationField(std::string_view baseName, int line);
// A whole line of this process, without the line feed.
std::string logLine(gen::LogLevel level, std::string_view baseName, int line,
                    std::string_view message);

// For lines whose source line number is not known to the test (they come from
// the library's own files): checks every other piece exactly and that the
// number field holds a right-aligned positive number.
testing::AssertionResult isLogLine(const std::string& line, gen::LogLevel level,
                                   std::string_view baseName, std::string_view message);
// The same check for an exception text: location piece and message.
testing::AssertionResult isLocatedMessage(const std::string& text, std::string_view baseName,
                                          std::string_view message);

} // namespace testsupport
