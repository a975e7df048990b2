#include "failure.h"

#include <cstddef>
#include <iterator>

#include "core/utf8.h"

namespace {

// The length of the character at the start of `text` (which is not empty) if it can be shown as it
// is, else 0.
std::size_t showable_length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const std::size_t length = murmurase::utf8_character(text);
  if (length == 1) return byte(0) >= 0x20 && byte(0) != 0x7F && text[0] != '\\' ? 1 : 0;
  const bool control = length == 2 && byte(0) == 0xC2 && byte(1) < 0xA0;  // U+0080 to U+009F
  const bool separator = text.starts_with("\xE2\x80\xA8") || text.starts_with("\xE2\x80\xA9");
  return control || separator ? 0 : length;
}

}  // namespace

std::string escaped(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const std::size_t length = showable_length(text);
    if (length > 0) {
      shown.append(text.substr(0, length));
    } else {
      switch (text.front()) {
        case '\n':
          shown += "\\n";
          break;
        case '\t':
          shown += "\\t";
          break;
        case '\r':
          shown += "\\r";
          break;
        case '\\':
          shown += "\\\\";
          break;
        default:
          fmt::format_to(std::back_inserter(shown), "\\x{:02x}",
                         static_cast<unsigned char>(text.front()));
      }
    }
    text.remove_prefix(length > 0 ? length : 1);
  }
  return shown;
}

std::string in_quotes(std::string_view text) { return '"' + escaped(text) + '"'; }
