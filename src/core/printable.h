#pragma once

#include <string>
#include <string_view>

namespace murmurase {

// The text on one line: control characters as backslash escapes, all else unchanged. For strangers'
// names and texts in messages and on terminals.
inline std::string printable(std::string_view text) {
  constexpr std::string_view hexadecimal = "0123456789ABCDEF";
  std::string result;
  result.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      result += "\\n";
    } else if (byte < 0x20 || byte == 0x7F) {
      result.append("\\x").append(1, hexadecimal[byte >> 4]).append(1, hexadecimal[byte & 15]);
    } else {
      result += c;
    }
  }
  return result;
}

}  // namespace murmurase
