// Escaping of texts inside settings documents.
//
// The settings reader has no escape sequences: the first quote equal to the
// opening one ends a string, and inside a nested value only brackets of the
// opening kind are counted, quotes not at all.  So a value text that holds a
// double quote, or a text inside a nested value that holds a bracket, would
// end its value early when read back.  The writer of settings documents
// therefore writes such characters as \u00XX (the byte in two lower-case
// hexadecimal digits), and the loader turns every \u00XX back into its byte.
// The reader itself stays as it is: the escapes are plain characters to it.
//
// Escaped always: the backslash (so that a text holding "\u0041" reads back
// as itself), the double quote, and the control characters (bytes below 0x20
// and 0x7f).  With `brackets`, also '[', ']', '{' and '}' (for texts that
// stand inside a nested value).  Every other byte, UTF-8 included, is written
// as it is, so a text without such characters is written unchanged.
//
// A complete document is one that the reader accepts whole: it parses, its
// top level is an object, and the object's closing brace was read.  The
// reader accepts a document cut short (see json.h); this check tells such a
// document from a whole one.
//
// A document that is not complete can still be read line by line, since the
// writer puts one member on each line: a line is read when it ends with a
// line break and holds exactly one member ("<name>": <value>, the comma after
// it or not).  The lines "{" and "}" and blank lines are the document's frame.
// Every other line, a cut last line among them, cannot be read.
#pragma once

#include "settings-service/json.h"

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace DocumentText {

std::string escape(std::string_view text, bool brackets = false);
// Every \u00XX (X a hexadecimal digit of either case) becomes the byte 0xXX;
// everything else, other backslashes included, is kept.
std::string unescape(std::string_view text);
// True when `text` is a complete settings document (see above).
bool isCompleteDocument(const std::string& text);
// The same for a reader whose parse of `text` succeeded, so that a document
// that is also applied is read once.
bool isCompleteDocument(const Json& parsed, const std::string& text);

// What reading a document line by line gives.
struct Lines {
    // The members of the lines that could be read, in document order.
    std::vector<Json::Item> items;
    // The lines that could not be read: their numbers (from 1) and texts.
    std::vector<std::pair<int, std::string>> unreadable;
};
Lines readLines(const std::string& text);

} // namespace DocumentText
