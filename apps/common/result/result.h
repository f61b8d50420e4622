// The outcome of an operation of the project's own code: its value, or an
// error with a code and a text.
//
// The project's own classes and helpers return a Result instead of an empty
// string for success, a bool with an out-parameter or an optional; they log
// nothing about their own failure.  The caller that decides what a failure
// means (the dispatch of a request, main) logs or prints it.  The error keeps
// where it was found (source file and line).
//
// Interfaces whose failure form is fixed for the device's other programs keep
// theirs: the converters' error texts, checkMinMax's out-parameter,
// throwError, the hardware record's exceptions.
//
// TRY(expression) passes an error of `expression` (a Result) up to the
// caller, which must return a Result too, and otherwise gives its value:
//     const uint32_t memory = TRY(findMemory(name));
// It is a GNU statement expression (GCC and Clang accept it).
//
// Choices made here:
// - The code is the system's errno value when a system call failed,
//   Error::WrongUsage for a request that asks for something that cannot be
//   (a wrong command line, a name the catalogue does not have), otherwise 0;
//   the text is the whole message, reason included.
// - Reading the value of an error, or the error of a value, is a programming
//   error: it throws std::logic_error.
#pragma once

#include <optional>
#include <source_location>
#include <stdexcept>
#include <string>
#include <utility>
#include <variant>

struct Error {
    // A command line or request that asks for something that cannot be: the
    // tools exit with status 2 and show the command's synopsis, the inspector
    // answers 400.
    static constexpr int WrongUsage = -1;

    // errno (> 0) of a failed system call, WrongUsage, or 0 for an operation
    // that failed otherwise.
    int code = 0;
    std::string text;
    // Where the error was found (the source file and line).
    const char* file = "";
    int line = 0;
};

// An error found where this is called.
inline Error failure(std::string text, int code = 0,
                     std::source_location where = std::source_location::current()) {
    return Error{code, std::move(text), where.file_name(), static_cast<int>(where.line())};
}

template <class T> class [[nodiscard]] Result {
public:
    Result(T value) : outcome(std::in_place_index<0>, std::move(value)) {}
    Result(Error error) : outcome(std::in_place_index<1>, std::move(error)) {}

    bool ok() const { return outcome.index() == 0; }
    explicit operator bool() const { return ok(); }

    const T& value() const { return ok() ? std::get<0>(outcome) : misuse<const T&>("value"); }
    T& value() { return ok() ? std::get<0>(outcome) : misuse<T&>("value"); }
    const T& operator*() const { return value(); }
    T& operator*() { return value(); }
    const T* operator->() const { return &value(); }
    const Error& error() const {
        return ok() ? misuse<const Error&>("error") : std::get<1>(outcome);
    }

    // The value, moved out of the result (for TRY).
    T take() && { return std::move(value()); }

    // True when this holds a value equal to `other`.
    template <class U> bool operator==(const U& other) const { return ok() && value() == other; }

private:
    template <class R> [[noreturn]] static R misuse(const char* what) {
        throw std::logic_error(std::string("no ") + what + " in this result");
    }

    std::variant<T, Error> outcome;
};

template <> class [[nodiscard]] Result<void> {
public:
    Result() = default;
    Result(Error error) : failed(std::move(error)) {}

    bool ok() const { return !failed; }
    explicit operator bool() const { return ok(); }
    const Error& error() const {
        if (!failed) {
            throw std::logic_error("no error in this result");
        }
        return *failed;
    }
    // Nothing to take (for TRY).
    void take() && {}

private:
    std::optional<Error> failed;
};

// The value of a Result, or a return of its error from the calling function.
#define TRY(...)                                                                                   \
    ({                                                                                             \
        auto tried_ = (__VA_ARGS__);                                                               \
        if (!tried_.ok()) {                                                                        \
            return tried_.error();                                                                 \
        }                                                                                          \
        std::move(tried_).take();                                                                  \
    })
