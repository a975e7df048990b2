#include "workbook/cell_text.h"

#include <algorithm>
#include <cstdint>

#include "core/error.h"
#include "workbook/biff8.h"
#include "workbook/record_stream.h"

namespace murmurase::workbook {
namespace {

// Column letters as spreadsheet programs count them: A to Z, AA, AB...
std::string column_name(std::size_t column) {
  std::string name;
  for (std::size_t rest = column + 1; rest > 0; rest = (rest - 1) / 26) {
    name.insert(name.begin(), static_cast<char>('A' + (rest - 1) % 26));
  }
  return name;
}

struct Decoded {
  char32_t character;
  std::size_t length;  // bytes read; 0 if they are no character
};

// Decodes the character at the start of `text`, which is not empty. Refuses what Unicode (table
// 3-7) does: overlong forms, surrogates, values past U+10FFFF, broken sequences.
Decoded decode(std::string_view text) {
  const auto byte = [&](std::size_t i) -> std::uint32_t {
    return i < text.size() ? static_cast<unsigned char>(text[i]) : 0U;
  };
  const auto trails = [&](std::size_t i) { return (byte(i) & 0xC0) == 0x80; };
  const std::uint32_t lead = byte(0);
  if (lead < 0x80) return {lead, 1};
  if (lead >= 0xC2 && lead < 0xE0 && trails(1)) {
    return {(lead & 0x1F) << 6 | (byte(1) & 0x3F), 2};
  }
  if (lead >= 0xE0 && lead < 0xF0 && trails(1) && trails(2)) {
    const char32_t c = (lead & 0x0F) << 12 | (byte(1) & 0x3F) << 6 | (byte(2) & 0x3F);
    if (c >= 0x800 && (c < 0xD800 || c > 0xDFFF)) return {c, 3};
  }
  if (lead >= 0xF0 && lead < 0xF5 && trails(1) && trails(2) && trails(3)) {
    const char32_t c =
        (lead & 0x07) << 18 | (byte(1) & 0x3F) << 12 | (byte(2) & 0x3F) << 6 | (byte(3) & 0x3F);
    if (c >= 0x10000 && c <= 0x10FFFF) return {c, 4};
  }
  return {0, 0};
}

bool is_plain(std::string_view text) {
  return std::ranges::none_of(text, [](char c) { return static_cast<signed char>(c) <= 0; });
}

}  // namespace

void throw_cell_error(std::size_t row, std::size_t column, const std::string& what) {
  throw Error(ErrorKind::range,
              "cell " + column_name(column) + std::to_string(row + 1) + ": " + what);
}

void encode_text(std::string_view utf8, std::string& encoded, std::size_t row, std::size_t column) {
  std::size_t units = utf8.size();
  char option = biff8::option_8_bit;
  encoded.assign(biff8::text_header_size, '\0');
  if (is_plain(utf8)) {
    encoded.append(utf8);
  } else {
    std::uint32_t all = 0;
    for (std::size_t at = 0; at < utf8.size();) {
      const auto [character, length] = decode(utf8.substr(at));
      if (length == 0) {
        throw_cell_error(row, column,
                         "the text is not UTF-8 from byte " + std::to_string(at + 1) +
                             " on; correct its encoding");
      }
      if (character == 0) {
        throw_cell_error(
            row, column,
            "the text holds a NUL character at byte " + std::to_string(at + 1) + "; remove it");
      }
      at += length;
      all |= character;
      if (character < 0x10000) {
        append(encoded, static_cast<std::uint16_t>(character));
      } else {
        append(encoded, static_cast<std::uint16_t>(0xD7C0 + (character >> 10)));
        append(encoded, static_cast<std::uint16_t>(0xDC00 + (character & 0x3FF)));
      }
    }
    units = (encoded.size() - biff8::text_header_size) / 2;
    option = biff8::option_16_bit;
    if (all <= 0xFF) {
      option = biff8::option_8_bit;
      for (std::size_t i = 0; i < units; ++i) {
        encoded[biff8::text_header_size + i] = encoded[biff8::text_header_size + 2 * i];
      }
      encoded.resize(biff8::text_header_size + units);
    }
  }
  if (units > biff8::max_text_units) {
    throw_cell_error(row, column,
                     "the text has " + std::to_string(units) + " UTF-16 units and a cell holds " +
                         std::to_string(biff8::max_text_units) + "; shorten or divide the text");
  }
  store(encoded.data(), static_cast<std::uint16_t>(units));
  encoded[2] = option;
}

}  // namespace murmurase::workbook
