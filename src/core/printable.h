#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "core/utf8.h"

namespace murmurase {

// The length in bytes of the character that the text starts with if any terminal shows it as a sign in
// its place. 0 for control characters, line separators, controls of the writing direction, and bytes that
// are no UTF-8.
constexpr std::size_t showable_character(std::string_view text) {
  const std::size_t length = utf8_character(text);
  if (length == 0 || length == 4) return length;
  const auto bits = [&](std::size_t i, unsigned mask) {
    return static_cast<unsigned char>(text[i]) & mask;
  };
  unsigned point = bits(0, 0xFF);
  if (length == 2) point = bits(0, 0x1F) << 6 | bits(1, 0x3F);
  if (length == 3) point = bits(0, 0x0F) << 12 | bits(1, 0x3F) << 6 | bits(2, 0x3F);
  const auto within = [&](unsigned first, unsigned last) {
    return point >= first && point <= last;
  };
  const bool control = point < 0x20 || within(0x7F, 0x9F);
  const bool direction = point == 0x61C || within(0x200E, 0x200F) || within(0x2066, 0x2069);
  return control || direction || within(0x2028, 0x202E) ? 0 : length;
}

// The text on one line of UTF-8: bytes of what is not showable as backslash escapes, all else unchanged.
// For strangers' names and texts in messages and on terminals.
inline std::string printable(std::string_view text) {
  constexpr std::string_view hexadecimal = "0123456789ABCDEF";
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const std::size_t length = showable_character(text);
    const auto byte = static_cast<unsigned char>(text.front());
    if (length > 0) {
      result += text.substr(0, length);
    } else if (byte == '\n') {
      result += "\\n";
    } else {
      result.append("\\x").append(1, hexadecimal[byte >> 4]).append(1, hexadecimal[byte & 15]);
    }
    text.remove_prefix(length > 0 ? length : 1);
  }
  return result;
}

}  // namespace murmurase
