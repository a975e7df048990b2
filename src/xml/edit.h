#pragma once

#include <libxml/tree.h>

#include <optional>
#include <string>
#include <string_view>

#include "core/value.h"

// Reading what stands in a clip, changing it and writing it out.
namespace murmurase::xml {

// Whether an XML 1.0 document can hold the text: UTF-8 of the characters that its production Char
// allows, which excludes control characters but tab, line feed and carriage return, and U+FFFE and
// U+FFFF.
bool can_hold(std::string_view text);

// The start of an element's text content, or of an attribute's value: whole when that has at most
// 4096 bytes, and else as much or more. References to entities that the document declares are
// replaced, once, by what was declared.
std::string text_start(const xmlNode* element);
std::string attribute_start(const xmlNode* element,
                            const char* name);  // empty without the attribute

// Replaces all that is in the element by the text, which is escaped when it is written out. The
// document must be able to hold the text. Error: memory.
void set_text(xmlNode* element, std::string_view text);

// Makes elements and texts in a document. Names, and texts that recur, are kept once for all the
// nodes that bear them: a Shared text belongs to the document.
class Builder {
 public:
  using Shared = const xmlChar*;

  explicit Builder(xmlDoc* document);

  Shared share(const char* text);
  // Append to the parent; an empty text makes no node. Errors: memory.
  xmlNode* element(xmlNode* parent, Shared name);
  void text(xmlNode* parent, std::string_view text);
  void shared_text(xmlNode* parent, Shared text);

 private:
  xmlDoc* document_;
};

struct Serialized {
  std::string bytes;
  std::optional<XmlFault> fault;  // absent when the bytes are well-formed XML with namespaces
};

// The document as a file's bytes, ending in a line feed: in the encoding that it was read in, with
// a character reference for each character which that lacks, and indented by two spaces a level but
// where an element holds text. A document that recovery left may have no well-formed form, such as
// one with two hyphens in a comment: the bytes then hold what it holds, and `fault` says why they are
// no XML. `what` names the document in errors. Errors: xml for an encoding in which no reader finds
// the markup, such as UTF-7; memory.
Serialized serialize(const XmlDocument& document, std::string_view what);

}  // namespace murmurase::xml
