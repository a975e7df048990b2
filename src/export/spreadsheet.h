#pragma once

#include <cstdint>
#include <string>

#include "core/controller.h"

namespace murmurase {

// Groups the words (see build_words_array) and writes them to the file at `path` as an Excel 97-2003
// workbook: under a bold header, a row for each phrase with its time in and time out (see
// time_label; the time out is the end of the phrase's first word), the speaker's display name, the words and
// the movie's path, all as text. Gives nothing, which is what the workbook's close gives.
//
// Builds the workbook in memory and opens the file last: after an error a file at `path` is as it
// was. Errors: those of build_words_array and time_label; missing value for a phrase whose speaker is
// not listed, and without mov_file_path; range for what a sheet cannot hold, named by its cell: more
// than 65,535 phrases, a text of more than 32,767 UTF-16 units; system for a path that cannot be
// written.
void save_to_excel(Controller& controller, std::int64_t grouping, const std::string& path);

}  // namespace murmurase
