#pragma once

#include <string>
#include <string_view>

#include "core/utf8.h"

namespace murmurase {

// The text on one line of UTF-8: control characters, line separators and bytes that are no UTF-8 as
// backslash escapes, byte by byte, all else unchanged. For strangers' names and texts in messages and on
// terminals.
inline std::string printable(std::string_view text) {
  constexpr std::string_view hexadecimal = "0123456789ABCDEF";
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const auto byte = static_cast<unsigned char>(text.front());
    const std::size_t length = utf8_character(text);
    const bool control = length == 2 && byte == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0;
    const bool separator = text.starts_with("\xE2\x80\xA8") || text.starts_with("\xE2\x80\xA9");
    if (byte == '\n') {
      result += "\\n";
    } else if (length == 0 || byte < 0x20 || byte == 0x7F || control || separator) {
      result.append("\\x").append(1, hexadecimal[byte >> 4]).append(1, hexadecimal[byte & 15]);
    } else {
      result += text.substr(0, length);
    }
    text.remove_prefix(length == 0 || control || separator ? 1 : length);
  }
  return result;
}

}  // namespace murmurase
