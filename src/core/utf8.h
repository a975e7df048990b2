#pragma once

#include <cstddef>
#include <string_view>

namespace murmurase {

// The length in bytes, 1 to 4, of the character of well-formed UTF-8 (RFC 3629) that the text
// starts with; 0 when it starts with none.
constexpr std::size_t utf8_character(std::string_view text) {
  const auto byte = [&](std::size_t i) {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
  };
  const auto continues = [&](std::size_t from, std::size_t to) {
    for (std::size_t i = from; i <= to; ++i) {
      if ((byte(i) & 0xC0U) != 0x80U) return false;
    }
    return true;
  };
  const unsigned first = byte(0);
  if (text.empty()) return 0;
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first <= 0xDF) return continues(1, 1) ? 2 : 0;
  // Neither overlong forms nor surrogates nor anything above U+10FFFF: they show in the second
  // byte.
  const unsigned least = first == 0xE0 ? 0xA0U : first == 0xF0 ? 0x90U : 0x80U;
  const unsigned most = first == 0xED ? 0x9FU : first == 0xF4 ? 0x8FU : 0xBFU;
  if (byte(1) < least || byte(1) > most) return 0;
  if (first >= 0xE0 && first <= 0xEF) return continues(2, 2) ? 3 : 0;
  if (first >= 0xF0 && first <= 0xF4) return continues(2, 3) ? 4 : 0;
  return 0;
}

}  // namespace murmurase
