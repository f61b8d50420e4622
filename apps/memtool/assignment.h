// One value to store: a variable, the element of an array, and the text.
// Commands first check every assignment they were given and store only when
// all of them can be stored as written.
#pragma once

#include "names.h"
#include "result.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

struct Assignment {
    uint32_t memory;
    uint32_t variable;
    std::optional<uint32_t> index; // the element of an array variable
    std::string text;

    // "NAME" or "NAME[INDEX]".
    std::string target() const;
};

// The assignment of `text` to the variable or element `ref`; a usage error
// for a whole array (`indexHint` says how to name an element) and for an
// element of an array whose setter writes only whole arrays.
Result<Assignment> assignmentFor(uint32_t memory, const VariableRef& ref, const std::string& text,
                                 const char* indexHint);
// Why the text cannot be stored as written (the value codec's strict check,
// valuecodec.h), or "".
std::string refusal(const Assignment& assignment);
// An error unless `problems` is empty: with one value in all the problem
// alone, else one line per problem and "nothing stored: N of M values
// refused".
Result<void> failOnProblems(const std::vector<std::string>& problems, size_t total);
// An error unless every assignment can be stored: with one assignment its
// reason, with several a line "TARGET: reason" for each refused one and
// "nothing stored: N of M values refused".
Result<void> checkAssignments(const std::vector<Assignment>& list);
// Stores through the variable's setter, which posts the change event; an
// error with the setter's message.  The memory must be open and, for the
// event, the broker connected.
Result<void> store(const Assignment& assignment);
// Stores each assignment, stopping at the first error.
Result<void> storeAll(const std::vector<Assignment>& list);
