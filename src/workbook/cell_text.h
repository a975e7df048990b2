#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace murmurase::workbook {

// Throws a range error with a message that begins with the cell's name, as in "cell C7: ...".
[[noreturn]] void throw_cell_error(std::size_t row, std::size_t column, const std::string& what);

// Sets `encoded` to the text as BIFF8 holds it ([MS-XLS] 2.5.293 without formatting runs): the count of
// UTF-16 units, an option byte, then one byte a unit if all characters are up to U+00FF, else UTF-16LE.
// `row` and `column` name the cell in errors. Range error for more than 32,767 units, invalid UTF-8, or
// U+0000.
void encode_text(std::string_view utf8, std::string& encoded, std::size_t row, std::size_t column);

}  // namespace murmurase::workbook
