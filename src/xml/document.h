#pragma once

#include <libxml/tree.h>

#include <cstddef>
#include <span>
#include <string>
#include <string_view>

#include "core/value.h"

// A thin layer over libxml2. Nothing here reads from the network or loads an external entity or
// DTD.
namespace murmurase::xml {

// An element's name: namespace, null for none, and local name, zero-terminated.
struct Name {
  const char* space;
  const char* local;
};

// The most that a document may be made of: elements, attributes, namespace declarations, comments,
// instructions, CDATA sections, references, and faults. Each takes memory of its own, however short it
// is written, and texts cannot outnumber them. An hour of speech is about 100,000.
inline constexpr std::size_t most_packet_parts = 10'000'000;
inline constexpr std::size_t most_clip_parts = 6'000'000;  // which an export copies and writes

// Parses a packet leniently: what is malformed is passed over. Character data is kept only inside
// elements of the names in `values` (which share one namespace), and attributes nowhere: what no
// look-up can see is not built, which spares two fifths of a transcription's nodes. Internal entities
// are replaced by their content. `what` names the packet in errors. Errors: xml when there is no root
// element, or when a limit that guards against hostile documents (nesting, exploding entities, too many
// names, texts of 10 MB, most_packet_parts) is passed; memory.
XmlDocument parse_values(std::string_view bytes, std::span<const char* const> values,
                         const char* space, std::string_view what);

// A deep copy, the document type and its entities included. Error: memory.
XmlDocument copy(const XmlDocument& document);

bool is_named(const xmlNode* node, const Name& name);

// The document's root element; null when it has none.
xmlNode* first_element(const XmlDocument& document);

// The element after `node` in document order, whatever its depth; null after the last.
xmlNode* next_element(const xmlNode* node);

// The first child element of that name, or null.
xmlNode* child(const xmlNode* parent, const Name& name);

// All character data inside the element, its descendants' included, in document order, untrimmed.
// The view lasts until `scratch` changes or the document dies.
std::string_view text_content(const xmlNode* element, std::string& scratch);

}  // namespace murmurase::xml
