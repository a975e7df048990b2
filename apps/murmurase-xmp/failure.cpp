#include "failure.h"

#include <cstddef>
#include <iterator>

namespace {

/// The length of the character at the start of `text` (which is not empty) if it can be shown as it
/// is, else 0.
std::size_t showable_length(std::string_view text) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const unsigned lead = byte(0);
  if (lead < 0x80) return lead >= 0x20 && lead != 0x7F && lead != '\\' ? 1 : 0;
  const std::size_t length = lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
  if (lead < 0xC2 || lead > 0xF4 || text.size() < length) return 0;
  unsigned long code = lead & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if ((byte(i) & 0xC0U) != 0x80) return 0;
    code = code << 6 | (byte(i) & 0x3FU);
  }
  const bool too_long = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
  const bool surrogate = code >= 0xD800 && code <= 0xDFFF;
  const bool breaks_line = code < 0xA0 || code == 0x2028 || code == 0x2029;
  return too_long || surrogate || breaks_line || code > 0x10FFFF ? 0 : length;
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
