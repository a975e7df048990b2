#pragma once

#include <cstdint>
#include <string>

#include "module.h"

namespace host {

// Writes the workbook of the movie that was read. If a phrase is too long for a cell, the failure says how
// many words a phrase may have.
void write_workbook(Controller& controller, std::int64_t words, const std::string& path);

}  // namespace host
