// The exact bytes of a kernel-log line, built independently of the logging
// code so that tests can compare whole lines:
//   program name right-aligned in 20 and two blanks, the level name
//   left-aligned in 12, the source file's base name right-aligned in 20, ':',
//   the line number right-aligned in 4, one blank, the message.
#pragma once

#include "log.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>

namespace testsupport {

// The 22-byte program piece; the name defaults to this process's short name.
std::string programField(std::string_view name);
std::string programField();
// The 12-byte level tag.
std::string levelTag(gen::LogLevel level);
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
