#pragma once

#include <compare>
#include <map>
#include <string>
#include <string_view>

namespace murmurase::fuzz {

struct CellPlace {
  std::size_t row;
  std::size_t column;

  auto operator<=>(const CellPlace&) const = default;
};

struct StrictCell {
  std::string text;  // UTF-8
  bool bold;

  bool operator==(const StrictCell&) const = default;
};

// Whether a cell may hold the text: UTF-8 without U+0000, at most 32,767 UTF-16 units.
bool fits_a_cell(std::string_view text);

// Reads a workbook that our writer made, as docs/workbook.md lays it out, and aborts with a message at
// the first thing that is otherwise: a sector that nobody owns, a record of another length than its
// kind has, a position that leads elsewhere, a text that is cut inside a character.
std::map<CellPlace, StrictCell> read_strictly(std::string_view file);

}  // namespace murmurase::fuzz
