// Logging and error reporting.
//
// Every component logs through logMessage: one fixed-layout line per call,
// written to the kernel log device with a single gathering write, filtered
// against the component's level (a variable in shared memory that other
// processes may change at run time).  Infrastructure failures are reported
// with throwError/throwErrorNumber, which log at Error and throw a
// std::runtime_error whose text is the location-prefixed message.
//
// Line layout: the kernel priority prefix "<N>", program name right-aligned
// in 20 and two blanks (22 bytes), the 12-character level tag, the base name
// of the source file right-aligned in 20, ':', the line right-aligned in 4,
// one blank, the message (the last three pieces cut together at 511
// characters), and a line feed.
//
// The prefix is the level's syslog priority: Error 3 (err), Warn 4 (warning),
// LogLight, LogMost and LogAll 6 (info), DebugLight, DebugMost and DebugAll 7
// (debug).  The kernel takes it off and keeps it as the record's level, so
// the text it stores starts with the program name; where /dev/kmsg is a plain
// file (test roots) the prefix stays in the file.
//
// Where the kernel log device cannot be opened the line is lost and the next
// line tries the open again.  A program name longer than 20 characters is cut
// to its first 20 so that the program field always stays 22 bytes.
//
// gen::LogLevel comes from the catalogue's model (its log-level enum), generated into a header
// of its own: the levels are defined once, and this library sees nothing else of the catalogue.
#pragma once

#include "settings-service/loglevel.h"

#include <cstdarg>
#include <exception>
#include <string>

// The calling component's level; null (every line passes) until the memories
// are open, then the component's log-level variable in MemApp.
extern gen::LogLevel* gComponentLogLevel;

// True when a line of `level` passes the component's filter: the level is not
// below the one `componentLevel` points at, or the pointer is null.  Callers
// whose message is costly to build ask first (LOG_WANTED).
inline bool logLevelPasses(const gen::LogLevel* componentLevel, gen::LogLevel level) {
    return componentLevel == nullptr || level >= *componentLevel;
}

void logMessage(gen::LogLevel* componentLevel, gen::LogLevel level, const char* file, int line,
                const char* format, ...) __attribute__((format(printf, 5, 6)));

void logMessageIntern(gen::LogLevel* componentLevel, gen::LogLevel level, const char* file,
                      int line, const char* format, va_list args)
    __attribute__((format(printf, 5, 0)));

[[noreturn]] void throwError(const char* file, int line, const char* format, ...)
    __attribute__((format(printf, 3, 4)));

[[noreturn]] void throwErrorNumber(const char* file, int line, const char* what);

[[noreturn]] void throwErrorNumberInfo(const char* file, int line, const char* what);

// Formats a failed command's message, appends ":\n" and detail, logs the
// result at Warn and returns it (valid until the next call).
const char* lastCommandError(gen::LogLevel* componentLevel, const char* file, int line,
                             const char* detail, const char* format, ...)
    __attribute__((format(printf, 5, 6)));

// The text of an error for the person at the terminal.  Errors raised through
// the logging functions carry the source location of their log line (the
// file's base name right-aligned in 20 characters, ':', the line number in 4,
// a blank); the location stays in the kernel log and is dropped here.
std::string errorMessage(const std::exception& error);

// Hooks around the catalogue's memory initialisation; empty in this service.
void processPreInit();
void processPostInit();

#define LOG(level, ...) logMessage(gComponentLogLevel, gen::level, __FILE__, __LINE__, __VA_ARGS__)
#define LOG_WANTED(level) logLevelPasses(gComponentLogLevel, gen::level)
#define THROW_ERROR(...) throwError(__FILE__, __LINE__, __VA_ARGS__)
#define THROW_ERROR_NUMBER(what) throwErrorNumber(__FILE__, __LINE__, what)
#define THROW_ERROR_NUMBER_INFO(what) throwErrorNumberInfo(__FILE__, __LINE__, what)
