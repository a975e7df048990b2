#pragma once

#include <cstdint>
#include <span>

#include "workbook/workbook.h"

namespace murmurase::workbook {

class RecordStream;

// Writes all records of a workbook. The cells are sorted by row, then column, and each place comes once.
// `widths` holds those of the 256 columns in 1/256 digit; 0 is the default width.
void write_records(RecordStream& out, const SharedStrings& strings, std::span<const Cell> cells,
                   std::span<const std::uint16_t> widths);

}  // namespace murmurase::workbook
