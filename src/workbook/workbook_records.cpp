#include "workbook/workbook_records.h"

#include <algorithm>
#include <string>

#include "workbook/biff8.h"
#include "workbook/record_stream.h"

// docs/workbook.md explains every record and field written here.
namespace murmurase::workbook {
namespace {

using biff8::Type;
using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;

constexpr u8 zero8 = 0;
constexpr u16 zero = 0;
constexpr u16 one = 1;

void write_bof(RecordStream& out, u16 substream) {
  out.record(Type::bof, biff8::bof_version, substream, biff8::bof_build, biff8::bof_year,
             biff8::bof_history, biff8::bof_lowest_version);
}

void write_font(RecordStream& out, u16 flags, u16 weight) {
  const std::string_view name = "Arial";
  out.record(Type::font, biff8::font_height, flags, biff8::font_color_automatic, weight, zero,
             zero8, biff8::font_family_swiss, zero8, zero8, static_cast<u8>(name.size()), zero8,
             name);
}

void write_xf(RecordStream& out, u16 font, u16 flags, u8 own_attributes) {
  out.record(Type::xf, font, zero, flags, biff8::xf_align_bottom, zero8, zero8, own_attributes,
             u32{0}, u32{0}, biff8::xf_fill_colors);
}

void write_formats(RecordStream& out) {
  for (int copy = 0; copy < 4; ++copy) write_font(out, 0, biff8::font_weight_normal);
  write_font(out, biff8::font_flag_bold, biff8::font_weight_bold);
  write_xf(out, biff8::default_font, biff8::xf_style_flags, 0);
  for (std::size_t style = 1; style < biff8::style_xf_count; ++style) {
    write_xf(out, biff8::default_font, biff8::xf_style_flags, biff8::xf_own_nothing_but_number);
  }
  write_xf(out, biff8::default_font, biff8::xf_cell_flags, 0);
  write_xf(out, biff8::bold_font, biff8::xf_cell_flags, biff8::xf_own_font);
  out.record(Type::style, biff8::style_normal, zero8, u8{0xFF});
}

// Names row 1 of the sheet "Print_Titles": it is repeated at the top of every printed page.
void write_print_titles(RecordStream& out) {
  out.record(Type::sup_book, one, biff8::sup_book_itself);
  out.record(Type::extern_sheet, one, zero, zero, zero);
  constexpr u16 formula_size = 11;
  constexpr u16 last_column = biff8::max_columns - 1;
  out.record(Type::name, biff8::name_built_in, zero8, u8{1}, formula_size, zero, one, u32{0}, zero8,
             biff8::name_print_titles, biff8::formula_area, zero, zero, zero, zero, last_column);
}

// Writes the workbook's globals; returns where the sheet's position goes.
std::size_t write_globals(RecordStream& out, const SharedStrings& strings, u32 references) {
  write_bof(out, biff8::bof_globals);
  out.record(Type::interface_hdr, biff8::code_page_utf16);
  out.record(Type::mms, zero);
  out.record(Type::interface_end);
  std::string user("\x09\0\0murmurase", 12);
  user.resize(112, ' ');
  out.record(Type::write_access, std::string_view(user));
  out.record(Type::code_page, biff8::code_page_utf16);
  out.record(Type::dsf, zero);
  out.record(Type::rr_tab_id, one);
  out.record(Type::win_protect, zero);
  out.record(Type::protect, zero);
  out.record(Type::password, zero);
  out.record(Type::prot_4_rev, zero);
  out.record(Type::prot_4_rev_pass, zero);
  out.record(Type::window1, zero, zero, u16{0x4000}, u16{0x2000}, biff8::window1_flags, zero, zero,
             one, biff8::window1_tab_ratio);
  out.record(Type::backup, zero);
  out.record(Type::hide_obj, zero);
  out.record(Type::date_1904, zero);
  out.record(Type::calc_precision, one);
  out.record(Type::refresh_all, zero);
  out.record(Type::book_bool, zero);
  write_formats(out);
  out.record(Type::uses_elfs, zero);
  const std::size_t sheet_position = out.position() + biff8::record_header_size;
  const std::string_view name = "Sheet1";
  out.record(Type::bound_sheet, u32{0}, zero, static_cast<u8>(name.size()), zero8, name);
  out.record(Type::country, one, one);
  write_print_titles(out);
  strings.write(out, references);
  out.record(Type::eof);
  return sheet_position;
}

void write_sheet_settings(RecordStream& out) {
  out.record(Type::calc_mode, one);
  out.record(Type::calc_count, u16{100});
  out.record(Type::calc_ref_mode, one);
  out.record(Type::calc_iter, zero);
  out.record(Type::calc_delta, 0.001);
  out.record(Type::calc_save_recalc, one);
  out.record(Type::print_row_col, zero);
  out.record(Type::print_grid, zero);
  out.record(Type::grid_set, one);
  out.record(Type::guts, zero, zero, zero, zero);
  out.record(Type::default_row_height, zero, biff8::default_row_height);
  out.record(Type::ws_bool, biff8::ws_bool_flags);
  out.record(Type::header);
  out.record(Type::footer);
  out.record(Type::h_center, zero);
  out.record(Type::v_center, zero);
  out.record(Type::setup, biff8::setup_default_paper, u16{100}, one, one, biff8::setup_any_height,
             biff8::setup_landscape, biff8::setup_dots_per_inch, biff8::setup_dots_per_inch, 0.5,
             0.5, one);
}

// One COLINFO for each run of columns of the same width.
void write_widths(RecordStream& out, std::span<const u16> widths) {
  for (std::size_t first = 0; first < widths.size();) {
    std::size_t end = first + 1;
    while (end < widths.size() && widths[end] == widths[first]) ++end;
    if (widths[first] != 0) {
      out.record(Type::col_info, static_cast<u16>(first), static_cast<u16>(end - 1), widths[first],
                 biff8::cell_xf, biff8::column_set_by_user, zero);
    }
    first = end;
  }
}

void write_dimensions(RecordStream& out, std::span<const Cell> cells) {
  if (cells.empty()) {
    out.record(Type::dimensions, u32{0}, u32{0}, zero, zero, zero);
    return;
  }
  const auto [left, right] = std::ranges::minmax(cells, {}, &Cell::column);
  out.record(Type::dimensions, u32{cells.front().row}, u32{cells.back().row} + 1, u16{left.column},
             static_cast<u16>(right.column + 1), zero);
}

// Takes the cells of the rows before `end` off the front.
std::span<const Cell> take_rows(std::span<const Cell>& cells, std::size_t end) {
  std::size_t count = 0;
  while (count < cells.size() && cells[count].row < end) ++count;
  const auto taken = cells.first(count);
  cells = cells.subspan(count);
  return taken;
}

void write_row(RecordStream& out, u16 row, std::size_t first_column, std::size_t end_column) {
  out.record(Type::row, row, static_cast<u16>(first_column), static_cast<u16>(end_column),
             biff8::default_row_height, zero, zero, biff8::row_flags);
}

// Writes a block of rows (ROW records, then cells, then DBCELL); returns the position of DBCELL. A
// block without cells has one empty ROW, for a block is never without.
u32 write_row_block(RecordStream& out, std::size_t first_row, std::span<const Cell> cells) {
  const std::size_t start = out.position();
  std::string row_offsets;
  std::size_t distance = 0;
  if (cells.empty()) write_row(out, static_cast<u16>(first_row), 0, 0);
  for (std::span<const Cell> rest = cells; !rest.empty();) {
    const std::span<const Cell> row = take_rows(rest, rest.front().row + std::size_t{1});
    write_row(out, row.front().row, row.front().column, row.back().column + std::size_t{1});
    append(row_offsets, static_cast<u16>(distance));
    distance = row.size() * biff8::cell_record_size;
  }
  // The first offset counts from the second ROW record.
  const std::size_t rows_end = out.position();
  if (!row_offsets.empty()) {
    store(row_offsets.data(), static_cast<u16>(rows_end - start - biff8::row_record_size));
  }
  for (const Cell& cell : cells) {
    const u16 xf = cell.format == Format::bold ? biff8::bold_xf : biff8::cell_xf;
    out.record(Type::label_sst, cell.row, u16{cell.column}, xf, cell.text);
  }
  const std::size_t position = out.position();
  out.record(Type::db_cell, static_cast<u32>(position - start), std::string_view(row_offsets));
  return static_cast<u32>(position);
}

// Selects the row's first cell.
void write_selection(RecordStream& out, u8 pane, u16 row) {
  out.record(Type::selection, pane, row, zero, zero, one, row, row, zero8, zero8);
}

void write_sheet(RecordStream& out, std::span<const Cell> cells, std::span<const u16> widths) {
  write_bof(out, biff8::bof_sheet);

  // INDEX comes first and holds the positions of what follows: they are written over these zeros.
  const std::size_t first_row = cells.empty() ? 0 : cells.front().row;
  const std::size_t end_row = cells.empty() ? 0 : cells.back().row + std::size_t{1};
  const std::size_t blocks =
      (end_row - first_row + biff8::rows_per_block - 1) / biff8::rows_per_block;
  const std::size_t index_position = out.position() + biff8::record_header_size + 3 * sizeof(u32);
  out.record(Type::index, u32{0}, static_cast<u32>(first_row), static_cast<u32>(end_row),
             std::string_view(std::string((1 + blocks) * sizeof(u32), '\0')));
  std::string index;

  write_sheet_settings(out);
  append(index, static_cast<u32>(out.position()));
  out.record(Type::def_col_width, biff8::default_width);
  write_widths(out, widths);
  write_dimensions(out, cells);
  for (std::size_t row = first_row; row < end_row; row += biff8::rows_per_block) {
    append(index, write_row_block(out, row, take_rows(cells, row + biff8::rows_per_block)));
  }
  out.record(Type::window2, biff8::window2_flags, zero, zero, biff8::grid_color_automatic, zero,
             zero, zero, u32{0});
  out.record(Type::pane, zero, one, one, zero, biff8::pane_bottom_left, zero8);
  write_selection(out, biff8::pane_top_left, 0);
  write_selection(out, biff8::pane_bottom_left, 1);
  out.record(Type::eof);
  out.patch(index_position, index);
}

}  // namespace

void write_records(RecordStream& out, const SharedStrings& strings, std::span<const Cell> cells,
                   std::span<const u16> widths) {
  const std::size_t sheet_position = write_globals(out, strings, static_cast<u32>(cells.size()));
  std::string position;
  append(position, static_cast<u32>(out.position()));
  write_sheet(out, cells, widths);
  out.patch(sheet_position, position);
}

}  // namespace murmurase::workbook
