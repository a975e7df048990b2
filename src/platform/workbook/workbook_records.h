#pragma once

#include <cstdint>
#include <span>

#include "platform/workbook/workbook.h"

namespace murmurase::workbook {

class RecordStream;

// Writes all records of a workbook.
//
// @param cells sorted by row, then column, each place once.
// @param widths of the 256 columns in 1/256 digit; 0 is the default width.
void write_records(RecordStream& out, const SharedStrings& strings, std::span<const Cell> cells,
                   std::span<const std::uint16_t> widths);

}  // namespace murmurase::workbook
