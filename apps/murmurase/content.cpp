#include "content.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdint>
#include <string_view>

#include "input_file.h"

namespace host {
namespace {

constexpr std::size_t head_size = std::size_t{1} << 16;
constexpr std::string_view blanks = " \t\r\n";

bool contains(std::string_view text, std::string_view part) {
  return text.find(part) != std::string_view::npos;
}

// The type of a QuickTime movie's first box.
bool is_movie(std::string_view head) {
  constexpr std::array<std::string_view, 7> types = {"ftyp", "moov", "mdat", "free",
                                                     "skip", "wide", "pnot"};
  return head.size() >= 8 && std::ranges::find(types, head.substr(4, 4)) != types.end();
}

// Compound files are of many programs. The workbook's is one whose directory has a stream of that name.
bool is_workbook(std::string_view head, const InputFile& file) {
  constexpr std::string_view magic = "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1";
  constexpr std::string_view stream("W\0o\0r\0k\0b\0o\0o\0k\0", 16);
  constexpr std::size_t header_size = 512;
  if (!head.starts_with(magic) || head.size() < header_size) return false;
  const auto byte = [&](std::size_t at) {
    return static_cast<std::uint64_t>(static_cast<unsigned char>(head[at]));
  };
  const std::uint64_t sector_shift = byte(30);
  const std::uint64_t directory = byte(48) | byte(49) << 8 | byte(50) << 16 | byte(51) << 24;
  return sector_shift < 16 &&
         contains(file.read_at((directory + 1) << sector_shift, head_size), stream);
}

constexpr std::string_view little_endian_mark = "\xFF\xFE";
constexpr std::string_view big_endian_mark = "\xFE\xFF";

// Where the low byte of each UTF-16 character is; none for text of single bytes. Without a mark the first
// character decides, which is ASCII in what this program writes.
std::optional<std::size_t> utf16_low_byte(std::string_view head) {
  if (head.starts_with(little_endian_mark)) return 0;
  if (head.starts_with(big_endian_mark)) return 1;
  if (head.size() < 2 || (head[0] == '\0') == (head[1] == '\0')) return std::nullopt;
  return head[0] == '\0' ? 1 : 0;
}

// UTF-16 as one byte a character: what is not ASCII becomes a question mark.
std::string narrowed(std::string_view bytes, std::optional<std::size_t> low_byte) {
  if (!low_byte) return std::string(bytes);
  std::string text;
  text.reserve(bytes.size() / 2);
  for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
    text += bytes[i + 1 - *low_byte] == '\0' ? bytes[i + *low_byte] : '?';
  }
  return text;
}

bool is_text(std::string_view text) {
  return std::ranges::all_of(
      text, [](unsigned char c) { return c >= 0x20 || (c >= '\a' && c <= '\r') || c == '\x1B'; });
}

// As the transcripts are written, whatever the first speaker is called.
bool is_transcript(std::string_view text) {
  const std::string_view label = text.substr(std::min(text.find('\n'), text.size()));
  return text.starts_with("  ") && label.starts_with("\n[") && label.size() > 2 &&
         std::isdigit(static_cast<unsigned char>(label[2])) != 0;
}

// No other program leaves just this blank.
bool has_own_marker(const InputFile& file, std::optional<std::size_t> low_byte) {
  constexpr std::string_view marker = "<marker> <name";
  constexpr std::size_t piece = std::size_t{1} << 20;
  std::string text;
  for (std::uint64_t at = 0;; at += piece) {
    const std::string bytes = file.read_at(at, piece);
    text += narrowed(bytes, low_byte);
    if (contains(text, marker)) return true;
    if (bytes.size() < piece) return false;
    text.erase(0, text.size() - marker.size());
  }
}

Content content_of_text(std::string_view text) {
  if (is_transcript(text)) return Content::text;
  if (text.starts_with("#!")) return Content::script;
  if (text.starts_with("\xEF\xBB\xBF")) text.remove_prefix(3);
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  if (text.starts_with('<')) {
    if (contains(text, "<xmeml")) return Content::clip;
    return contains(text, "xmpmeta") || contains(text, "<rdf:RDF") ? Content::packet : Content::xml;
  }
  if (text.starts_with("{\\rtf")) return Content::other;
  const std::size_t second = text.find_first_not_of(blanks, 1);
  const bool list = text.starts_with('[') && second != std::string_view::npos &&
                    (text[second] == '{' || text[second] == ']');
  return list || text.starts_with('{') ? Content::json : Content::text;
}

}  // namespace

const char* description(Content content) {
  switch (content) {
    case Content::nothing:
      return "empty";
    case Content::text:
      return "a text";
    case Content::workbook:
      return "a workbook";
    case Content::marker_clip:
      return "a clip of markers";
    case Content::clip:
      return "a clip without markers of murmurase";
    case Content::packet:
      return "an XMP packet";
    case Content::xml:
      return "an XML document";
    case Content::json:
      return "a JSON file";
    case Content::script:
      return "a script";
    case Content::movie:
      return "a movie";
    case Content::other:
      break;
  }
  return "a file of another kind";
}

std::optional<Content> content_of(const std::string& path) {
  const InputFile file(path);
  if (!file.is_open()) return std::nullopt;
  const std::string head = file.read_at(0, head_size);
  if (head.empty()) return Content::nothing;
  if (is_movie(head)) return Content::movie;
  if (is_workbook(head, file)) return Content::workbook;
  const std::optional<std::size_t> low_byte = utf16_low_byte(head);
  std::string text = narrowed(head, low_byte);
  if (head.starts_with(little_endian_mark) || head.starts_with(big_endian_mark)) text.erase(0, 1);
  if (!is_text(text)) return Content::other;
  const Content content = content_of_text(text);
  const bool marked = content == Content::clip && has_own_marker(file, low_byte);
  return marked ? Content::marker_clip : content;
}

}  // namespace host
