#pragma once

#include <libxml/parser.h>

#include <memory>
#include <string_view>

#include "core/value.h"
#include "xml/document.h"
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

// What a parser reads, in small pieces, and what it has come upon so far. The parse ends early, with
// `limit` set, at the first limit passed. These guard the memory, and against time that grows with the
// square of what is read; and, with XML_PARSE_HUGE, in place of libxml2's own, which refuse long texts too.
struct Source {
  std::string_view bytes;  // not read yet
  xmlParserCtxt* parser = nullptr;
  const char* limit = nullptr;  // as a message says it
  std::size_t parts = 0;
  std::size_t most_parts = most_packet_parts;
  const char* too_many_parts = "it has more than 10 million elements, other parts or faults";
  std::size_t document_type = 0;  // bytes
  std::size_t attribute_declarations = 0;
  std::size_t attribute_defaults = 0;
  std::size_t entity_bytes = 0;  // that references stand for
  std::size_t comparisons = 0;   // of names with one another, by address
  std::size_t lookups = 0;       // of names, in steps through the dictionary
};

// The source must outlive the parser, whose _private points to it; so does that of the parsers that
// read the content of entities. Error: memory.
Context open_parser(Source& source, int options);

// For the handlers, which libxml2 gives the parser that calls.
Source& source_of(void* parser);
void count_parts(void* parser, int parts);
void count_element(void* parser, int namespaces, int attributes);
void count_instruction(void* parser, const xmlChar* target, const xmlChar* text);

// Takes the handlers away that build a document. Elements are still counted.
void build_no_more(xmlSAXHandler& builder);

// Ends a parse at a limit, from within one of its handlers: what it has read already is gone over, but
// nothing is built of it. xmlStopParser would free bytes that the parser goes on to look at.
void end_early(Source& source, const char* limit);

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
