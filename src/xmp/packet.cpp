#include "xmp/packet.h"

#include <fmt/format.h>

#include <string_view>

#include "core/utf8.h"
#include "xml/recovery.h"
#include "xmp/failure.h"
#include "xmp/rdf.h"

namespace murmurase::xmp {
namespace {

// The packet with what its writer meant for what XML does not allow: bytes that are no UTF-8 are
// characters of ISO 8859-1, and control characters are nothing.
std::string repaired(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size() + bytes.size() / 8);
  while (!bytes.empty()) {
    const std::size_t length = utf8_character(bytes);
    const auto byte = static_cast<unsigned char>(bytes.front());
    if (length == 0) {
      text += static_cast<char>(0xC0 | byte >> 6);
      text += static_cast<char>(0x80 | (byte & 0x3F));
    } else if (byte >= 0x20 || byte == '\t' || byte == '\n' || byte == '\r') {
      text += bytes.substr(0, length);
    }
    bytes.remove_prefix(length > 0 ? length : 1);
  }
  return text;
}

// Whether the packet is in UTF-8 as far as one can see: the repair would spoil another encoding.
bool is_in_utf8(std::string_view bytes, const xmlDoc* document) {
  const bool is_wide = bytes.starts_with("\xFE\xFF") || bytes.starts_with("\xFF\xFE") ||
                       bytes.substr(0, 4).find('\0') != std::string_view::npos;
  const xmlChar* encoding = document != nullptr ? document->encoding : nullptr;
  return !is_wide && (encoding == nullptr ||
                      xmlStrcasecmp(encoding, reinterpret_cast<const xmlChar*>("UTF-8")) == 0);
}

}  // namespace

ParsedPacket parse_packet(const Packet& packet) {
  const auto read = [](std::string_view bytes) {
    using namespace xml;
    return recover(bytes, Blanks::drop, Wanted::always, Kind::packet);
  };
  xml::Recovery parsed = read(packet.bytes);
  std::string first_problem;
  if (parsed.fault) {
    first_problem = parsed.fault->reason;
    if (parsed.fault->line > 0) first_problem += fmt::format(" (line {})", parsed.fault->line);
  }
  if (!parsed.well_formed && is_in_utf8(packet.bytes, parsed.document.get())) {
    // The parser would take all that follows a wrong byte for ISO 8859-1.
    const std::string text = repaired(packet.bytes);
    if (text != packet.bytes) parsed = read(text);
  }
  const std::string file = in_quotes(packet.file.native());
  const xmlDoc* document = parsed.document.get();
  if (parsed.limit != nullptr)
    fail("cannot read the XMP packet of {}: {}; have it written again", file, parsed.limit);
  if (document != nullptr && document->intSubset != nullptr) {
    fail(
        "cannot read the XMP packet of {}: it declares a document type, which XMP has not; have it "
        "written again",
        file);
  }
  if (document == nullptr || rdf::find_rdf(document) == nullptr) {
    if (!first_problem.empty())
      fail("cannot read the XMP packet of {}: it is not well-formed XML: {}; have it written again",
           file, first_problem);
    fail("no XMP properties in the packet of {}; have it written again", file);
  }
  return {parsed.document, first_problem};
}

}  // namespace murmurase::xmp
