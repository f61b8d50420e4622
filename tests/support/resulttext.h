// The error's text of a Result, for assertions on a failure's message.
#pragma once

#include "result.h"

#include <string>

namespace testsupport {

// The error's text, empty when `result` holds no error.
template <class T> std::string errorText(const Result<T>& result) {
    return result.ok() ? std::string() : result.error().text;
}

} // namespace testsupport
