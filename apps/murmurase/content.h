#pragma once

#include <optional>
#include <string>

namespace host {

// What the bytes of a file say it is.
enum class Content {
  nothing,  // an empty file
  text,
  workbook,     // of Excel 97-2003
  marker_clip,  // a Final Cut Pro XML clip with markers as this program writes them
  clip,         // one without
  packet,       // XMP
  xml,
  json,
  script,
  movie,
  other
};

// For a message, such as "a movie".
const char* description(Content content);

// Looks into a regular file. None, and errno, when it cannot be read. Text is what has no control
// characters but white space, backspace, bell and escape, in UTF-8, UTF-16 or any encoding that
// begins with ASCII, and is neither a script, XML nor JSON.
std::optional<Content> content_of(const std::string& path);

}  // namespace host
