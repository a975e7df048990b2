#include "workbook/workbook.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "core/error.h"
#include "platform/platform.h"
#include "workbook/biff8.h"
#include "workbook/cell_text.h"
#include "workbook/compound_file.h"
#include "workbook/record_stream.h"
#include "workbook/workbook_records.h"

namespace murmurase::workbook {
namespace {

// Sorts the cells by place; of several writes to a cell the last one stays.
void put_in_order(std::vector<Cell>& cells) {
  const auto place = [](const Cell& cell) { return cell.row << 8 | cell.column; };
  std::ranges::stable_sort(cells, {}, place);
  const auto last_of_equals =
      std::unique(cells.rbegin(), cells.rend(),
                  [&](const Cell& a, const Cell& b) { return place(a) == place(b); });
  cells.erase(cells.begin(), last_of_equals.base());
}

}  // namespace

void Workbook::require_open(const char* operation) const {
  if (state_ == State::open) return;
  throw std::logic_error(std::string("workbook: ") + operation +
                         (state_ == State::empty ? " before add_worksheet" : " after close"));
}

void Workbook::add_worksheet() {
  if (state_ != State::empty) throw std::logic_error("workbook: a second worksheet");
  state_ = State::open;
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): like the other operations
Format Workbook::add_format(FormatProperties properties) {
  return properties.bold ? Format::bold : Format::normal;
}

void Workbook::write(std::size_t row, std::size_t column, std::string_view text, Format format) {
  require_open("write");
  if (row >= biff8::max_rows) {
    throw_cell_error(row, column, "a sheet holds 65,536 rows");
  }
  if (column >= biff8::max_columns) {
    throw_cell_error(row, column, "a sheet holds 256 columns, A to IV; leave out columns");
  }
  encode_text(text, encoded_, row, column);
  if (strings_.size_bytes() + encoded_.size() > biff8::max_shared_text_bytes) {
    throw_cell_error(row, column,
                     "a workbook holds 1,300,000,000 bytes of distinct texts; divide the rows "
                     "between workbooks");
  }
  cells_.push_back({strings_.add(encoded_), static_cast<std::uint16_t>(row),
                    static_cast<std::uint8_t>(column), format});
}

void Workbook::set_column(std::size_t first, std::size_t last, double width) {
  require_open("set_column");
  if (first > last || last >= widths_.size()) {
    throw Error(ErrorKind::range, "columns " + std::to_string(first) + " to " +
                                      std::to_string(last) +
                                      ": a sheet holds the columns 0 to 255, first before last");
  }
  if (!(width > 0 && width <= biff8::max_width)) {
    throw Error(ErrorKind::range, "columns " + std::to_string(first) + " to " +
                                      std::to_string(last) +
                                      ": a width is more than 0 and at most 255 characters");
  }
  // Columns are whole pixels wide; below one character the padding shrinks along.
  const double pixels = width < 1
                            ? std::round(width * (biff8::digit_pixels + biff8::padding_pixels))
                            : std::round(width * biff8::digit_pixels) + biff8::padding_pixels;
  const auto units =
      static_cast<std::uint16_t>(std::max(pixels, 1.0) * biff8::width_units / biff8::digit_pixels);
  std::fill(widths_.begin() + static_cast<std::ptrdiff_t>(first),
            widths_.begin() + static_cast<std::ptrdiff_t>(last) + 1, units);
}

void Workbook::close() {
  require_open("close");
  put_in_order(cells_);
  strings_.finish();

  ByteBuffer file;
  begin_compound_file(file);
  RecordStream records(file);
  write_records(records, strings_, cells_, widths_);
  finish_compound_file(file);
  strings_ = {};
  std::vector<Cell>().swap(cells_);
  state_ = State::closed;
  platform_.replace_file(path_, file.view());
}

}  // namespace murmurase::workbook
