#include "brokerlog.h"

#include "logline.h"

namespace brokertest {

namespace {
const std::string PROGRAM = testsupport::programField("message-broker");
}

testing::AssertionResult isBrokerLine(const std::string& line, gen::LogLevel level,
                                      std::string_view baseName, std::string_view message) {
    std::string head = PROGRAM + testsupport::levelTag(level);
    if (line.compare(0, head.size(), head) != 0) {
        return testing::AssertionFailure()
               << "line \"" << line << "\" does not start with \"" << head << "\"";
    }
    return testsupport::isLocatedMessage(line.substr(head.size()), baseName, message);
}

std::vector<std::string> brokerLines(const std::vector<std::string>& lines) {
    std::vector<std::string> selected;
    for (const auto& line : lines) {
        if (line.compare(0, PROGRAM.size(), PROGRAM) == 0) {
            selected.push_back(line);
        }
    }
    return selected;
}

} // namespace brokertest
