#include "xmp/failure.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

#include "core/printable.h"

namespace murmurase::xmp {

std::string escaped(std::string_view text) {
  std::string shown;
  while (!text.empty()) {
    const std::size_t length = showable_character(text);
    if (length > 0 && text.front() != '\\') {
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
    text.remove_prefix(std::max<std::size_t>(length, 1));
  }
  return shown;
}

std::string in_quotes(std::string_view text) { return '"' + escaped(text) + '"'; }

}  // namespace murmurase::xmp
