#include "readers/line_repair.h"

#include <algorithm>

#include "core/utf8.h"

namespace murmurase {
namespace {

std::string escape_ampersands(std::string_view line) {
  constexpr std::string_view escape = "&amp;";
  std::string escaped;
  escaped.reserve(line.size() + 4 * escape.size());
  for (std::size_t at = line.find('&'); at != std::string_view::npos; at = line.find('&')) {
    escaped.append(line.substr(0, at)).append(escape);
    line.remove_prefix(at + (line.substr(at).starts_with(escape) ? escape.size() : 1));
  }
  return escaped.append(line);
}

bool is_plain(char c) { return (c >= 0x20 && c < 0x7F) || c == '\t' || c == '\n' || c == '\r'; }

std::size_t announced_length(unsigned char first) {
  if (first < 0xC0 || first >= 0xFE) return 1;
  if (first < 0xE0) return 2;
  if (first < 0xF0) return 3;
  if (first < 0xF8) return 4;
  return first < 0xFC ? 5 : 6;
}

void append_accepted(std::string& text, std::string_view line) {
  while (true) {
    const auto* const plain = std::ranges::find_if_not(line, is_plain);
    const auto plain_length = static_cast<std::size_t>(plain - line.begin());
    text.append(line.substr(0, plain_length));
    line.remove_prefix(plain_length);
    if (line.empty()) return;
    const std::size_t length = announced_length(static_cast<unsigned char>(line.front()));
    if (length > 1 && utf8_character(line) == length) text.append(line.substr(0, length));
    line.remove_prefix(std::min(length, line.size()));
  }
}

}  // namespace

void append_repaired_line(std::string& text, std::string_view line) {
  if (line.find('&') == std::string_view::npos) {
    append_accepted(text, line);
  } else {
    append_accepted(text, escape_ampersands(line));
  }
}

}  // namespace murmurase
