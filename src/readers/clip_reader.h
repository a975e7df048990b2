#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/controller.h"
#include "core/value.h"

namespace murmurase {

// For messages of a file that is not a clip, or not one that takes markers.
inline constexpr std::string_view wanted_clip =
    "give the XML that an editor exports of a clip, not of a sequence or a bin: in Final Cut "
    "Pro 7, select the clip in the Browser, then File > Export > XML";

// How far the text of a clip file was repaired before it could be parsed. A repaired text has lost
// its line feeds.
struct ClipRepair {
  enum Extent { none, lines, all };  // the public interface's numbers

  Extent extent = none;
  std::vector<std::int64_t> repaired_lines;  // from 1, ascending; only for `lines`, maybe none
};

struct ClipFile {
  XmlDocument document;
  std::string
      name;  // of the document's first top-level node: its root element, or what stands before
};

// Reads a clip file, which itself is never changed. A file in which the parser finds no problem is
// parsed as it is, without the blanks between its elements. Otherwise its text is repaired in
// memory: first the lines with problems, then, when the parser still finds one, all lines; see
// append_repaired_line(). Problems that are left then are passed over.
//
// Nothing outside the file is read: no external entities, no document type, no network.
//
// Errors: system for a file that cannot be read; xml when the parser can build no document, for one
// without any node, and for one that ends at a limit against hostile documents (nesting, exploding
// entities, giant texts); memory.
ClipFile parse_xml_file(Controller& controller, const std::string& path);

// At the dynamic border: the list of document and name.
Value to_value(ClipFile clip);

// How far the clip was repaired when it was read; `none` for documents that no clip file gave.
ClipRepair repair_of(const XmlDocument& document);

}  // namespace murmurase
