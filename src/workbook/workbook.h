#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "workbook/shared_strings.h"

namespace murmurase {
class Platform;
}

namespace murmurase::workbook {

struct FormatProperties {
  bool bold = false;
};

// A cell format of the workbook.
enum class Format : std::uint8_t { normal, bold };

// A text cell: its place, its format and the index of its text among the shared strings.
struct Cell {
  std::uint32_t text;
  std::uint16_t row;
  std::uint8_t column;
  Format format;
};

// A writer of Excel 97-2003 workbooks (BIFF8 = [MS-XLS], in a compound file = [MS-CFB]) with one
// sheet of text cells. The same calls give the same bytes: no clock, no identifier. The sheet's first
// row stays in view and is printed at the top of each page; pages are landscape, and as wide as the sheet.
//
// Rows and columns count from 0. A call that throws an Error changes nothing; its
// message names the cell and what to do. Calls out of order (a write before add_worksheet or after
// close) throw std::logic_error.
class Workbook {
 public:
  // A workbook that close() writes to the file at `path`.
  Workbook(Platform& platform, std::string path) : platform_(platform), path_(std::move(path)) {}

  // Adds the workbook's only sheet, "Sheet1".
  void add_worksheet();

  [[nodiscard]] Format add_format(FormatProperties properties);

  // Writes a text cell, whatever the text looks like; a second write to a cell replaces the first.
  // Cells may come in any order; rows from top to bottom are fastest. The text is UTF-8, at most 32,767
  // UTF-16 units. Every character stays, line feeds and blanks at the ends too. Range error if the row
  // is beyond 65,535 or the column beyond 255, or if the text is too long, is not valid UTF-8 or holds
  // U+0000, which spreadsheet programs take as its end.
  void write(std::size_t row, std::size_t column, std::string_view text,
             Format format = Format::normal);

  // Sets the width of the columns first to last (inclusive) as spreadsheet programs show it: in
  // digits of the default font, more than 0 and at most 255. Other columns keep the default.
  // Range error for columns beyond 255 or reversed, and widths out of range.
  void set_column(std::size_t first, std::size_t last, double width);

  // Finishes the workbook and writes its file, which replaces one of that name. Without close() there
  // is no file. System error if the file cannot be written; std::bad_alloc if there is no memory for it.
  void close();

 private:
  enum class State { empty, open, closed };

  void require_open(const char* operation) const;

  Platform& platform_;
  std::string path_;
  State state_ = State::empty;
  SharedStrings strings_;
  std::vector<Cell> cells_;
  std::array<std::uint16_t, 256> widths_{};  // in 1/256 digit; 0 is the default width
  std::string encoded_;                      // the current text, kept for its memory
};

}  // namespace murmurase::workbook
