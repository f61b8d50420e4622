#include "settings-service/log.h"

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <string_view>
#include <sys/uio.h>
#include <unistd.h>

gen::LogLevel* gComponentLogLevel = nullptr;

namespace {

constexpr const char* KERNEL_LOG_DEVICE = "/dev/kmsg";
constexpr int PROGRAM_FIELD_WIDTH = 22;
constexpr int MESSAGE_BUFFER_SIZE = 512;
constexpr int COMMAND_ERROR_SIZE = 2048;
constexpr int COMMAND_MESSAGE_SIZE = 1024;

const char* const LEVEL_TAG[] = {"DebugAll    ", "DebugMost   ", "DebugLight  ", "LogAll      ",
                                 "LogMost     ", "LogLight    ", "Warn        ", "Error       "};
constexpr size_t LEVEL_TAG_LENGTH = 12;
// The kernel's priority of each level, "<N>" in front of the line: the kernel
// takes it off and keeps N as the record's level (3 err, 4 warning, 6 info,
// 7 debug), so that `dmesg --level err` shows the Error lines.
const char* const PRIORITY_PREFIX[] = {"<7>", "<7>", "<7>", "<6>", "<6>", "<6>", "<4>", "<3>"};
constexpr size_t PRIORITY_PREFIX_LENGTH = 3;

int gKernelLogFd = -1;
char gProgramField[PROGRAM_FIELD_WIDTH + 1];
char gMessage[MESSAGE_BUFFER_SIZE];
char gCommandError[COMMAND_ERROR_SIZE];

const char* baseName(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash ? slash + 1 : path;
}

bool openKernelLog() {
    if (gKernelLogFd >= 0) {
        return true;
    }
    // O_APPEND changes nothing on the device; where the log is a plain file
    // (test roots) it keeps the lines of several processes from overwriting
    // each other.
    gKernelLogFd = ::open(KERNEL_LOG_DEVICE, O_WRONLY | O_APPEND | O_CLOEXEC);
    std::snprintf(gProgramField, sizeof gProgramField, "%20.20s  ", program_invocation_short_name);
    return gKernelLogFd >= 0;
}

void formatMessage(const char* file, int line, const char* format, va_list args) {
    int prefix = std::snprintf(gMessage, sizeof gMessage, "%20s:%4i ", baseName(file), line);
    if (prefix < 0) {
        prefix = 0;
    }
    if (prefix < MESSAGE_BUFFER_SIZE) {
        std::vsnprintf(gMessage + prefix, sizeof gMessage - prefix, format, args);
    }
}

void writeLine(gen::LogLevel level) {
    if (!openKernelLog()) {
        return;
    }
    static char newline[] = "\n";
    iovec pieces[5] = {
        {const_cast<char*>(PRIORITY_PREFIX[level]), PRIORITY_PREFIX_LENGTH},
        {gProgramField, PROGRAM_FIELD_WIDTH},
        {const_cast<char*>(LEVEL_TAG[level]), LEVEL_TAG_LENGTH},
        {gMessage, std::strlen(gMessage)},
        {newline, 1},
    };
    if (::writev(gKernelLogFd, pieces, 5) < 0) {
        std::fprintf(stderr, "FATAL: Logging: Write failed: %s\n", std::strerror(errno));
    }
}

[[noreturn]] void logAndThrowErrno(gen::LogLevel level, const char* file, int line,
                                   const char* what) {
    const char* reason = std::strerror(errno);
    logMessage(nullptr, level, file, line, "%s: %s", what, reason);
    throw std::runtime_error(gMessage);
}

} // namespace

void logMessageIntern(gen::LogLevel* componentLevel, gen::LogLevel level, const char* file,
                      int line, const char* format, va_list args) {
    if (!logLevelPasses(componentLevel, level)) {
        return;
    }
    formatMessage(file, line, format, args);
    writeLine(level);
}

void logMessage(gen::LogLevel* componentLevel, gen::LogLevel level, const char* file, int line,
                const char* format, ...) {
    va_list args;
    va_start(args, format);
    logMessageIntern(componentLevel, level, file, line, format, args);
    va_end(args);
}

void throwError(const char* file, int line, const char* format, ...) {
    va_list args;
    va_start(args, format);
    logMessageIntern(nullptr, gen::Error, file, line, format, args);
    va_end(args);
    throw std::runtime_error(gMessage);
}

void throwErrorNumber(const char* file, int line, const char* what) {
    logAndThrowErrno(gen::Error, file, line, what);
}

void throwErrorNumberInfo(const char* file, int line, const char* what) {
    logAndThrowErrno(gen::LogLight, file, line, what);
}

const char* lastCommandError(gen::LogLevel* componentLevel, const char* file, int line,
                             const char* detail, const char* format, ...) {
    char message[COMMAND_MESSAGE_SIZE];
    va_list args;
    va_start(args, format);
    std::vsnprintf(message, sizeof message, format, args);
    va_end(args);
    std::snprintf(gCommandError, sizeof gCommandError, "%s:\n%s", message, detail);
    logMessage(componentLevel, gen::Warn, file, line, "%s", gCommandError);
    return gCommandError;
}

void processPreInit() {}

void processPostInit() {}

namespace {

// The length of the location field at the start of `text`, laid out as the
// logging functions write it ("%20s:%4i "); 0 when the text has none.
size_t locationLength(std::string_view text) {
    constexpr size_t FILE_WIDTH = 20;
    constexpr size_t LINE_WIDTH = 4;
    const size_t colon = text.find(':');
    if (colon == std::string_view::npos || colon < FILE_WIDTH) {
        return 0;
    }
    const size_t name = text.find_first_not_of(' ');
    if (name >= colon || (colon > FILE_WIDTH && name != 0) ||
        text.substr(name, colon - name).find(' ') != std::string_view::npos) {
        return 0;
    }
    const size_t digits = text.find_first_not_of(' ', colon + 1);
    size_t end = digits;
    while (end < text.size() && std::isdigit(static_cast<unsigned char>(text[end]))) {
        ++end;
    }
    const size_t count = end - digits;
    const size_t padding = digits - colon - 1;
    if (count == 0 || end >= text.size() || text[end] != ' ' ||
        padding != (count < LINE_WIDTH ? LINE_WIDTH - count : 0)) {
        return 0;
    }
    return end + 1;
}

} // namespace

std::string errorMessage(const std::exception& error) {
    const std::string_view text = error.what();
    return std::string(text.substr(locationLength(text)));
}
