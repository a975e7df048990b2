#include "core/error.h"

#include <fmt/format.h>

#include <system_error>

namespace murmurase {

std::string printable(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '\n') {
      result += "\\n";
    } else if (byte < 0x20 || byte == 0x7F) {
      result += fmt::format("\\x{:02X}", byte);
    } else {
      result += c;
    }
  }
  return result;
}

Error system_error(std::string_view action, std::string_view path, int number) {
  return {ErrorKind::system,
          fmt::format("cannot {} {}: {}", action, printable(path),
                      std::generic_category().message(number)),
          number};
}

}  // namespace murmurase
