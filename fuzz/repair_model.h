#pragma once

#include <string>

// The rules of a line's repair, slow and simple.
namespace murmurase::fuzz {

inline std::string escaped(const std::string& line) {
  std::string result;
  for (std::size_t i = 0; i < line.size(); ++i) {
    result += line[i];
    if (line[i] == '&' && line.compare(i, 5, "&amp;") != 0) result += "amp;";
  }
  return result;
}

// One whole character of UTF-8 from U+0080 on, by its number: not overlong, no surrogate.
inline bool is_wide_character(const std::string& bytes) {
  if (bytes.size() < 2 || bytes.size() > 4) return false;
  unsigned number = static_cast<unsigned char>(bytes[0]) & (0x7F >> bytes.size());
  for (std::size_t i = 1; i < bytes.size(); ++i) {
    if ((static_cast<unsigned char>(bytes[i]) & 0xC0) != 0x80) return false;
    number = number * 64 + (static_cast<unsigned char>(bytes[i]) & 0x3F);
  }
  constexpr unsigned least[] = {0, 0, 0x80, 0x800, 0x10000};
  return number >= least[bytes.size()] && number <= 0x10FFFF && number / 0x800 != 0x1B;
}

inline std::string repaired(const std::string& line) {
  std::string result;
  for (std::size_t at = 0, length = 0; at < line.size(); at += length) {
    const auto first = static_cast<unsigned char>(line[at]);
    constexpr unsigned char starts[] = {0xC0, 0xE0, 0xF0, 0xF8, 0xFC};  // of 2, 3, 4, 5, 6 bytes
    length = 1;
    for (const unsigned char start : starts) length += first >= start && first < 0xFE ? 1 : 0;
    const std::string character = line.substr(at, length);
    const bool plain = (first >= ' ' && first <= '~') ||
                       (first != 0 && std::string("\t\n\r").find(line[at]) != std::string::npos);
    if (plain || (character.size() == length && is_wide_character(character))) result += character;
  }
  return result;
}

}  // namespace murmurase::fuzz
