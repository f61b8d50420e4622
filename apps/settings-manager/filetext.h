// Reading a whole file into a string with plain system calls (open, read,
// close): no stream, locale or buffer set-up, for the few small files that the
// service reads at start and at each save.
#pragma once

#include <optional>
#include <string>

namespace FileText {

// The file's bytes; nullopt when it cannot be opened.  A read error ends the
// text where it happened (as a stream's reading would).
std::optional<std::string> read(const std::string& path);

} // namespace FileText
