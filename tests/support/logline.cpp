#include "logline.h"

#include <array>
#include <cctype>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <stdexcept>

namespace testsupport {

namespace {

constexpr size_t PROGRAM_NAME_WIDTH = 20;
constexpr size_t TAG_WIDTH = 12;
constexpr size_t FILE_WIDTH = 20;
constexpr size_t NUMBER_WIDTH = 4;

constexpr std::array<gen::LogLevel, 8> LEVELS = {gen::DebugAll, gen::DebugMost, gen::DebugLight,
                                                 gen::LogAll,   gen::LogMost,   gen::LogLight,
                                                 gen::Warn,     gen::Error};

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

int priority(gen::LogLevel level) {
    switch (level) {
    case gen::Error:
        return 3;
    case gen::Warn:
        return 4;
    case gen::LogLight:
    case gen::LogMost:
    case gen::LogAll:
        return 6;
    case gen::DebugLight:
    case gen::DebugMost:
    case gen::DebugAll:
        return 7;
    }
    return -1;
}

// The level whose tag a record's text carries after its program piece.
std::optional<gen::LogLevel> taggedLevel(std::string_view record) {
    std::string_view tag =
        record.substr(std::min(record.size(), PROGRAM_NAME_WIDTH + 2), TAG_WIDTH);
    for (gen::LogLevel level : LEVELS) {
        if (tag == levelTag(level)) {
            return level;
        }
    }
    return std::nullopt;
}

// The length of the priority prefix "<digits>" at the start of text, 0 if none.
size_t prefixLength(std::string_view text) {
    if (text.empty() || text[0] != '<') {
        return 0;
    }
    size_t end = 1;
    while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end]))) {
        ++end;
    }
    return end > 1 && end < text.size() && text[end] == '>' ? end + 1 : 0;
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

std::string priorityPrefix(gen::LogLevel level) {
    return "<" + std::to_string(priority(level)) + ">";
}

std::string withoutPriorities(std::string_view raw) {
    std::string text;
    bool first = true;
    while (!raw.empty()) {
        size_t end = raw.find('\n');
        end = end == std::string_view::npos ? raw.size() : end + 1;
        std::string_view line = raw.substr(0, end);
        raw.remove_prefix(end);
        size_t prefix = prefixLength(line);
        if (prefix == 0 && first) {
            throw std::runtime_error("kernel-log record without a priority prefix: \"" +
                                     std::string(line) + "\"");
        }
        first = false;
        std::string_view record = line.substr(prefix);
        std::optional<gen::LogLevel> level = prefix ? taggedLevel(record) : std::nullopt;
        if (level && line.substr(0, prefix) != priorityPrefix(*level)) {
            throw std::runtime_error("kernel-log record \"" + std::string(line) +
                                     "\" does not have the priority of its level, " +
                                     priorityPrefix(*level));
        }
        text += record;
    }
    return text;
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
