#pragma once

#include <cstddef>
#include <cstdint>

// The constants of the BIFF8 workbook file. docs/workbook.md lays the file out record by record;
// the names and values are those of [MS-XLS], section 2.4.
namespace murmurase::workbook::biff8 {

enum class Type : std::uint16_t {
  calc_count = 0x000C,
  calc_mode = 0x000D,
  calc_precision = 0x000E,
  calc_ref_mode = 0x000F,
  calc_delta = 0x0010,
  calc_iter = 0x0011,
  eof = 0x000A,
  protect = 0x0012,
  password = 0x0013,
  header = 0x0014,
  footer = 0x0015,
  extern_sheet = 0x0017,
  name = 0x0018,
  win_protect = 0x0019,
  selection = 0x001D,
  date_1904 = 0x0022,
  print_row_col = 0x002A,
  print_grid = 0x002B,
  font = 0x0031,
  continue_ = 0x003C,
  window1 = 0x003D,
  backup = 0x0040,
  pane = 0x0041,
  code_page = 0x0042,
  def_col_width = 0x0055,
  write_access = 0x005C,
  calc_save_recalc = 0x005F,
  col_info = 0x007D,
  guts = 0x0080,
  ws_bool = 0x0081,
  grid_set = 0x0082,
  h_center = 0x0083,
  v_center = 0x0084,
  bound_sheet = 0x0085,
  country = 0x008C,
  hide_obj = 0x008D,
  setup = 0x00A1,
  mms = 0x00C1,
  db_cell = 0x00D7,
  book_bool = 0x00DA,
  xf = 0x00E0,
  interface_hdr = 0x00E1,
  interface_end = 0x00E2,
  sst = 0x00FC,
  label_sst = 0x00FD,
  ext_sst = 0x00FF,
  rr_tab_id = 0x013D,
  uses_elfs = 0x0160,
  dsf = 0x0161,
  sup_book = 0x01AE,
  prot_4_rev = 0x01AF,
  refresh_all = 0x01B7,
  prot_4_rev_pass = 0x01BC,
  dimensions = 0x0200,
  row = 0x0208,
  index = 0x020B,
  default_row_height = 0x0225,
  window2 = 0x023E,
  style = 0x0293,
  bof = 0x0809,
};

// Limits of the format.
inline constexpr std::size_t max_rows = 65536;
inline constexpr std::size_t max_columns = 256;
inline constexpr std::size_t max_text_units = 32767;  // UTF-16 code units of one cell
inline constexpr std::size_t max_width = 255;         // characters of one column
inline constexpr std::size_t max_record_data = 8224;  // bytes after a record's four-byte header
inline constexpr std::size_t record_header_size = 4;

// Bytes of all distinct texts. A compound file's stream ends at 2 GiB; a sheet full of cells takes
// at most 0.74e9 bytes of it, so that texts within this bound always fit.
inline constexpr std::size_t max_shared_text_bytes = 1'300'000'000;

// Shared strings.
inline constexpr std::size_t text_header_size = 3;  // unit count (2), option byte (1)
inline constexpr char option_8_bit = 0;             // one byte a unit, high bytes left out
inline constexpr char option_16_bit = 1;            // UTF-16LE
inline constexpr std::size_t min_texts_per_bucket = 8;
inline constexpr std::size_t max_buckets = 1024;  // what one EXTSST record holds

// The cell table.
inline constexpr std::size_t rows_per_block = 32;
inline constexpr std::uint16_t row_record_size = 20;
inline constexpr std::uint16_t cell_record_size = 14;
inline constexpr std::uint32_t row_flags = 0x000F0100;  // default XF 15; bit 8 is always set

// BOF.
inline constexpr std::uint16_t bof_version = 0x0600;
inline constexpr std::uint16_t bof_globals = 0x0005;
inline constexpr std::uint16_t bof_sheet = 0x0010;
inline constexpr std::uint16_t bof_build = 0x0DBB;
inline constexpr std::uint16_t bof_year = 0x07CC;
inline constexpr std::uint32_t bof_history = 0x00000041;
inline constexpr std::uint32_t bof_lowest_version = 0x00000006;

inline constexpr std::uint16_t code_page_utf16 = 0x04B0;

// Fonts and formats. Font index 4 does not exist: the fifth FONT record has index 5.
inline constexpr std::uint16_t default_font = 0;
inline constexpr std::uint16_t bold_font = 5;
inline constexpr std::uint16_t font_height = 200;  // 10 points in twips
inline constexpr std::uint16_t font_flag_bold = 0x0001;
inline constexpr std::uint16_t font_color_automatic = 0x7FFF;
inline constexpr std::uint16_t font_weight_normal = 400;
inline constexpr std::uint16_t font_weight_bold = 700;
inline constexpr std::uint8_t font_family_swiss = 2;

inline constexpr std::size_t style_xf_count = 15;
inline constexpr std::uint16_t cell_xf = 15;
inline constexpr std::uint16_t bold_xf = 16;
inline constexpr std::uint16_t xf_style_flags = 0xFFF5;  // locked, a style, without a parent
inline constexpr std::uint16_t xf_cell_flags = 0x0001;   // locked, parent XF 0
inline constexpr std::uint8_t xf_align_bottom = 0x20;
inline constexpr std::uint8_t xf_own_font = 0x08;
inline constexpr std::uint8_t xf_own_nothing_but_number = 0xF4;  // what a built-in style leaves out
inline constexpr std::uint16_t xf_fill_colors = 0x20C0;          // automatic (64 and 65)
inline constexpr std::uint16_t style_normal = 0x8000;            // built in, XF 0

// Columns and rows. The widest digit of the default font (Arial 10 at 96 dpi) takes 7 pixels, and
// each column 5 more for the margins and the grid line.
inline constexpr double digit_pixels = 7;
inline constexpr double padding_pixels = 5;
inline constexpr double width_units = 256;
inline constexpr std::uint16_t default_width = 8;         // characters
inline constexpr std::uint16_t default_row_height = 255;  // twips
inline constexpr std::uint16_t column_set_by_user = 0x0002;

// Windows and sheet settings.
inline constexpr std::uint16_t window1_flags = 0x0038;  // both scroll bars and the tabs
inline constexpr std::uint16_t window1_tab_ratio = 600;
inline constexpr std::uint16_t window2_flags = 0x07BE;  // grid, headings, zeros; frozen, selected
inline constexpr std::uint16_t grid_color_automatic = 64;
inline constexpr std::uint16_t ws_bool_flags = 0x05C1;  // fit to pages, outline sums below, right
inline constexpr std::uint8_t pane_bottom_left = 2;
inline constexpr std::uint8_t pane_top_left = 3;

// Printing. Flags 0 of SETUP are landscape, by the fields of SETUP and not by a printer's.
inline constexpr std::uint16_t setup_default_paper = 0;
inline constexpr std::uint16_t setup_landscape = 0x0000;
inline constexpr std::uint16_t setup_dots_per_inch = 600;
inline constexpr std::uint16_t setup_any_height = 0;      // as many pages as it takes
inline constexpr std::uint16_t sup_book_itself = 0x0401;  // references are to this workbook
inline constexpr std::uint16_t name_built_in = 0x0020;
inline constexpr std::uint8_t name_print_titles = 0x07;
inline constexpr std::uint8_t formula_area = 0x3B;  // PtgArea3d, by reference

}  // namespace murmurase::workbook::biff8
