// Checks of the kernel-log lines that the broker program writes.
#pragma once

#include "settings-service/log.h"

#include <gtest/gtest.h>
#include <string>
#include <string_view>
#include <vector>

namespace brokertest {

// `line` is a line of the message-broker program at `level` from `baseName`
// with exactly `message` (any line number).
testing::AssertionResult isBrokerLine(const std::string& line, gen::LogLevel level,
                                      std::string_view baseName, std::string_view message);

// The broker's lines among `lines` (the test program's own are left out).
std::vector<std::string> brokerLines(const std::vector<std::string>& lines);

} // namespace brokertest
