#pragma once

#include "platform/byte_buffer.h"

namespace murmurase::workbook {

// Makes an empty buffer the start of a compound file ([MS-CFB]) with one stream, "Workbook", whose
// bytes are to be appended next. docs/workbook.md explains the form.
// Throws std::bad_alloc.
void begin_compound_file(ByteBuffer& file);

// Completes the file behind the stream, which must be shorter than 2 GiB.
// Throws std::bad_alloc.
void finish_compound_file(ByteBuffer& file);

}  // namespace murmurase::workbook
