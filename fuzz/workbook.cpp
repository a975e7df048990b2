// Cells to a workbook, read back by a strict reader.
#include "workbook/workbook.h"

#include <map>

#include "check.h"
#include "strict_workbook.h"
#include "support.h"

using namespace murmurase;
using namespace murmurase::fuzz;

// Characters of one to four bytes; bytes alone are seldom UTF-8.
static std::string letters(std::string_view bytes) {
  constexpr std::string_view alphabet[] = {"a", "é", "Ж", "漢", "😀"};
  std::string text;
  for (const char byte : bytes) text += alphabet[static_cast<unsigned char>(byte) % 5];
  return text;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input{text_of(data, size)};
  test::FakePlatform platform;
  workbook::Workbook book(platform, "book.xls");
  book.add_worksheet();
  const workbook::Format bold = book.add_format({.bold = true});
  std::map<CellPlace, StrictCell> expected;
  while (!input.rest.empty()) {
    const auto choice = input.take<std::uint8_t>();
    const std::size_t row =
        choice & 1 ? input.take<std::uint8_t>() : input.take<std::uint32_t>() & 0x1FFFF;
    const std::size_t column = choice & 2 ? choice >> 5 : input.take<std::uint16_t>() & 0x1FF;
    if ((choice & 12) == 12) {
      accepted(
          [&] { book.set_column(column, column + choice % 3, input.take<std::int16_t>() / 64.0); });
      continue;
    }
    const std::string_view bytes = input.take_text(input.take<std::uint8_t>());
    const std::string piece = choice & 16 ? letters(bytes) : std::string(bytes);
    std::string text(piece);
    // Long texts go over the ends of records.
    for (int times = choice & 8 ? input.take<std::uint8_t>() : 1; times > 1; --times) text += piece;
    const bool taken = accepted(
        [&] { book.write(row, column, text, choice & 4 ? bold : workbook::Format::normal); });
    check(taken == (row < 65536 && column < 256 && fits_a_cell(text)),
          "a cell is taken if it fits");
    if (taken) expected[{row, column}] = {text, (choice & 4) != 0};
  }
  book.close();
  check(read_strictly(platform.files["book.xls"]) == expected, "every text is read back");
  return 0;
}
