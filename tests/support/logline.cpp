#include "logline.h"

#include <cctype>
#include <cerrno>
#include <cstdio>

namespace testsupport {

namespace {

constexpr size_t PROGRAM_NAME_WIDTH = 20;
constexpr size_t TAG_WIDTH = 12;
constexpr size_t FILE_WIDTH = 20;
constexpr size_t NUMBER_WIDTH = 4;

std::string rightAligned(std::string_view text, size_t width) {
    return std::string(text.size() < width ? width - text.size() : 0, ' ') + std::string(text);
}

const char* levelName(gen::LogLevel level) {
    switch (level) {
    case gen::DebugAll:
        return "DebugAll";
    case gen::DebugMost:
        return "DebugMost";
    case gen::DebugLight:
        return "DebugLight";
    case gen::LogAll:
        return "LogAll";
    case gen::LogMost:
        return "LogMost";
    case gen::LogLight:
        return "LogLight";
    case gen::Warn:
        return "Warn";
    case gen::Error:
        return "Error";
    }
    return "?";
}

// Checks "<file right-aligned in 20>:<number right-aligned, at least 4 wide> <message>".
testing::AssertionResult checkLocation(std::string_view text, std::string_view baseName,
                                       std::string_view message) {
    std::string file = rightAligned(baseName, FILE_WIDTH) + ":";
    if (text.substr(0, file.size()) != file) {
        return testing::AssertionFailure()
               << "location \"" << text << "\" does not start with \"" << file << "\"";
    }
    text.remove_prefix(file.size());
    size_t start = text.find_first_not_of(' ');
    size_t end = start;
    while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end]))) {
        ++end;
    }
    bool number = start != std::string_view::npos && end > start && end < text.size() &&
                  text[end] == ' ' && (end == NUMBER_WIDTH || (start == 0 && end > NUMBER_WIDTH));
    if (!number) {
        return testing::AssertionFailure()
               << "no line number right-aligned in " << NUMBER_WIDTH << " in \"" << text << "\"";
    }
    text.remove_prefix(end + 1);
    if (text != message) {
        return testing::AssertionFailure()
               << "message \"" << text << "\" is not \"" << message << "\"";
    }
    return testing::AssertionSuccess();
}

} // namespace

std::string programField(std::string_view name) {
    return rightAligned(name.substr(0, PROGRAM_NAME_WIDTH), PROGRAM_NAME_WIDTH) + "  ";
}

std::string programField() {
    return programField(program_invocation_short_name);
}

std::string levelTag(gen::LogLevel level) {
    std::string tag = levelName(level);
    return tag + std::string(TAG_WIDTH - tag.size(), ' ');
}

std::string locationField(std::string_view baseName, int line) {
    return rightAligned(baseName, FILE_WIDTH) + ":" +
           rightAligned(std::to_string(line), NUMBER_WIDTH) + " ";
}

std::string logLine(gen::LogLevel level, std::string_view baseName, int line,
                    std::string_view message) {
    return programField() + levelTag(level) + locationField(baseName, line) + std::string(message);
}

testing::AssertionResult isLogLine(const std::string& line, gen::LogLevel level,
                                   std::string_view baseName, std::string_view message) {
    std::string head = programField() + levelTag(level);
    if (line.compare(0, head.size(), head) != 0) {
        return testing::AssertionFailure()
               << "line \"" << line << "\" does not start with \"" << head << "\"";
    }
    return checkLocation(std::string_view(line).substr(head.size()), baseName, message);
}

testing::AssertionResult isLocatedMessage(const std::string& text, std::string_view baseName,
                                          std::string_view message) {
    return checkLocation(text, baseName, message);
}

} // namespace testsupport
