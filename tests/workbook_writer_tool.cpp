// Writes the workbook that standard input describes, for the tests that read it back:
//   workbook_writer_tool FILE
// One call a line: "write ROW COLUMN BOLD x<text in hexadecimal>" or "set_column FIRST LAST WIDTH".
#include <exception>
#include <iostream>
#include <string>

#include "platform/platform.h"
#include "workbook/workbook.h"

static std::string from_hexadecimal(const std::string& digits) {
  std::string bytes;
  for (std::size_t i = 1; i + 1 < digits.size(); i += 2) {
    bytes.push_back(static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

int main(int, char** argv) try {
  std::ios::sync_with_stdio(false);
  murmurase::workbook::Workbook book(murmurase::system_platform(), argv[1]);
  book.add_worksheet();
  const auto bold = book.add_format({.bold = 1});
  std::size_t first = 0;
  std::size_t second = 0;
  for (std::string call; std::cin >> call >> first >> second;) {
    if (call == "set_column") {
      double width = 0;
      std::cin >> width;
      book.set_column(first, second, width);
    } else {
      bool is_bold = false;
      std::string text;
      std::cin >> is_bold >> text;
      book.write(first, second, from_hexadecimal(text),
                 is_bold ? bold : murmurase::workbook::Format::normal);
    }
  }
  book.close();
} catch (const std::exception& error) {
  std::cerr << error.what() << '\n';
  return 1;
}
