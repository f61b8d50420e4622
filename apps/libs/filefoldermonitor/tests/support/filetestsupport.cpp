#include "filetestsupport.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace filetest {

namespace {
constexpr size_t PROGRAM_FIELD = 22;
constexpr size_t LEVEL_TAG = 12;

// The message of a line with the given level tag, or nothing.
std::optional<std::string_view> messageAt(std::string const& line, std::string const& level) {
    std::string tag = level;
    tag.resize(LEVEL_TAG, ' ');
    if (line.size() < PROGRAM_FIELD + LEVEL_TAG ||
        line.compare(PROGRAM_FIELD, LEVEL_TAG, tag) != 0) {
        return std::nullopt;
    }
    return std::string_view(line).substr(PROGRAM_FIELD + LEVEL_TAG);
}

// The message after the source location "<file>:<line> " of a line's text.
std::optional<std::string_view> afterLocation(std::string_view text) {
    size_t const colon = text.find(':');
    if (colon == std::string_view::npos) {
        return std::nullopt;
    }
    size_t const digits = text.find_first_not_of(' ', colon + 1);
    size_t const blank = text.find_first_not_of("0123456789", digits);
    if (digits == std::string_view::npos || blank == digits || blank == std::string_view::npos ||
        text[blank] != ' ') {
        return std::nullopt;
    }
    return text.substr(blank + 1);
}

} // namespace

ScratchFolder::ScratchFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "filetest-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        throw std::runtime_error("mkdtemp failed for " + pattern);
    }
    folder = pattern;
}

ScratchFolder::~ScratchFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(folder, ignored);
}

std::vector<std::string> KernelLogMark::lines() const {
    return capture.lines();
}

bool KernelLogMark::logged(std::string const& level, std::string const& message) const {
    for (std::string const& line : lines()) {
        std::optional<std::string_view> text = messageAt(line, level);
        if (text && afterLocation(*text) == message) {
            return true;
        }
    }
    return false;
}

bool KernelLogMark::loggedWith(std::string const& level, std::string const& fragment) const {
    for (std::string const& line : lines()) {
        std::optional<std::string_view> text = messageAt(line, level);
        if (text && text->find(fragment) != std::string_view::npos) {
            return true;
        }
    }
    return false;
}

bool KernelLogMark::mentions(std::string const& fragment) const {
    for (std::string const& line : lines()) {
        if (line.find(fragment) != std::string::npos) {
            return true;
        }
    }
    return false;
}

void writeFile(std::filesystem::path const& path, std::string const& text) {
    std::ofstream file(path, std::ios::binary);
    file << text;
    if (!file) {
        throw std::runtime_error("cannot write " + path.string());
    }
}

std::string readFile(std::filesystem::path const& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
}

} // namespace filetest
