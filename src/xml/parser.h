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

// A parser that takes the bytes off the view, in small pieces, as it reads them. Error: memory.
Context open_parser(std::string_view& bytes, int options);

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
