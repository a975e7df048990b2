#pragma once

#include <string>
#include <string_view>

namespace murmurase {

// Appends one line of a clip file, without its line feed, so repaired that an XML parser has no
// quarrel with its ampersands and bytes:
//
// Ampersands: "&" becomes "&amp;", but a "&amp;" that is there stays what it is. Every other escape
// becomes literal text: "&lt;" is then "&amp;lt;".
//
// Bytes, of the line that this gives: it is cut into characters, each as long as its first byte
// announces (C0-DF 2 bytes, E0-EF 3, F0-F7 4, F8-FB 5, FC-FD 6, all others 1) whatever the bytes
// after it are, and only tabs, line feeds, carriage returns, printable ASCII and well-formed UTF-8
// from U+0080 on are kept. What a character announces beyond the end of the line is not there: it is
// dropped with what is.
//
// Repairing a repaired line changes nothing.
void append_repaired_line(std::string& text, std::string_view line);

}  // namespace murmurase
