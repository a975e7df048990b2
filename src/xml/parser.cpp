#include "xml/parser.h"

#include <libxml/parserInternals.h>

#include <cstring>
#include <new>

namespace murmurase::xml {
namespace {

// Gives the parser the next bytes of a view and takes them off it.
int read_piece(void* view, char* piece, int length) {
  auto& bytes = *static_cast<std::string_view*>(view);
  const std::size_t count = bytes.copy(piece, static_cast<std::size_t>(length));
  bytes.remove_prefix(count);
  return static_cast<int>(count);
}

bool says(const xmlError& problem, const char* words) {
  return problem.message != nullptr && std::strstr(problem.message, words) != nullptr;
}

bool is_too_deep(const xmlError& problem) {
  const auto* parser = static_cast<const xmlParserCtxt*>(problem.ctxt);
  return problem.code == XML_ERR_INTERNAL_ERROR && problem.domain == XML_FROM_PARSER &&
         parser != nullptr && parser->nodeNr >= static_cast<int>(xmlParserMaxDepth);
}

const char* limit_of(const xmlError& problem) {
  switch (problem.code) {
    case XML_ERR_ENTITY_LOOP:
      return "its entities expand without measure";
    case XML_ERR_NAME_TOO_LONG:
      return "a name in it is too long";
    case XML_ERR_NO_MEMORY:
      return says(problem, "huge") ? "a text in it is longer than 10 MB" : nullptr;
    case XML_ERR_INTERNAL_ERROR:
      if (is_too_deep(problem)) return "its elements are nested too deep";
      return says(problem, "Huge") ? "a piece of it is longer than 10 MB" : nullptr;
    case XML_ERR_ATTRIBUTE_NOT_FINISHED:
    case XML_ERR_CDATA_NOT_FINISHED:
    case XML_ERR_COMMENT_NOT_FINISHED:
    case XML_ERR_PI_NOT_FINISHED:
      return says(problem, "too big") || says(problem, "too long")
                 ? "a piece of it is longer than 10 MB"
                 : nullptr;
    default:
      return nullptr;
  }
}

}  // namespace

XmlDocument own(xmlDoc* document) {
  if (document == nullptr) return nullptr;
  return {document, xmlFreeDoc};
}

Context open_parser(std::string_view& bytes, int options) {
  Context context(xmlNewParserCtxt());
  if (!context) throw std::bad_alloc();
  xmlCtxtUseOptions(context.get(), options | XML_PARSE_RECOVER | XML_PARSE_NONET);
  xmlParserInputBuffer* buffer =
      xmlParserInputBufferCreateIO(read_piece, nullptr, &bytes, XML_CHAR_ENCODING_NONE);
  if (buffer == nullptr) throw std::bad_alloc();
  xmlParserInput* input = xmlNewIOInputStream(context.get(), buffer, XML_CHAR_ENCODING_NONE);
  if (input == nullptr) {
    xmlFreeParserInputBuffer(buffer);
    throw std::bad_alloc();
  }
  inputPush(context.get(), input);
  return context;
}

void Limits::note(const xmlError& problem) {
  if (passed != nullptr || memory_ran_out) return;
  passed = limit_of(problem);
  memory_ran_out = problem.code == XML_ERR_NO_MEMORY && passed == nullptr;
}

void note_limits(void* limits, Problem* problem) { static_cast<Limits*>(limits)->note(*problem); }

}  // namespace murmurase::xml
