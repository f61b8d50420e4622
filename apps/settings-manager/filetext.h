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

// The bytes of a regular file, never read through a link (O_NOFOLLOW) and
// not waited on when something else, a FIFO say, is in its place; nullopt
// when it is not a regular file or cannot be opened or read to its end.
std::optional<std::string> readRegular(const std::string& path);

} // namespace FileText
