#pragma once

#include <libxml/parser.h>

#include <memory>
#include <string_view>

#include "core/value.h"
#include "xml/problem_channel.h"

// What the parsers and the writer of this folder share; nobody outside it needs it.
namespace murmurase::xml {

inline const char* as_char(const xmlChar* text) { return reinterpret_cast<const char*>(text); }
inline const xmlChar* as_xml(const char* text) { return reinterpret_cast<const xmlChar*>(text); }

// A handle that frees the document; null for null.
XmlDocument own(xmlDoc* document);

struct FreeContext {
  void operator()(xmlParserCtxt* context) const { xmlFreeParserCtxt(context); }
};
using Context = std::unique_ptr<xmlParserCtxt, FreeContext>;

// What a parser reads, in small pieces. It ends early, with `limit` set, where the parser would need
// time that grows with the square of what is there.
struct Source {
  std::string_view bytes;  // not read yet
  const xmlParserCtxt* parser = nullptr;
  std::size_t document_type = 0;  // its length in bytes, so far
  const char* limit = nullptr;
};

// The source must outlive the parser. Error: memory.
Context open_parser(Source& source, int options);

// Takes the handlers away that build a document.
void build_no_more(xmlSAXHandler& builder);

// Ends a parse at a limit, from within one of its handlers: what it has read already is gone over, but
// nothing is built of it. xmlStopParser would free bytes that the parser goes on to look at.
void end_early(Source& source, xmlSAXHandler& builder, const char* limit);

// A lenient parser passes over what is malformed. But where it gave up on one of its limits against
// hostile documents, the document would silently end there.
struct Limits {
  const char* passed = nullptr;  // the first limit passed, as a message says it
  bool memory_ran_out = false;

  // Learns from a problem. At its own limits the parser stops by itself; to stop it from here inside an
  // entity would leave those running that refer to it, again and again.
  void note(const xmlError& problem);
};

// Notes in the Limits at `limits` all that a ProblemChannel tells.
void note_limits(void* limits, Problem* problem);

}  // namespace murmurase::xml
