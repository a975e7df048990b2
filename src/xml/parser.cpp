#include "xml/parser.h"

#include <libxml/parserInternals.h>

#include <cstring>
#include <new>

namespace murmurase::xml {
namespace {

constexpr std::size_t longest_document_type = std::size_t{1} << 16;  // bytes
constexpr int most_names = 100'000;                                  // different ones

// Whether the start tag that is being read has more attributes than any has need for, or there are more
// namespaces than that. The parser makes room for twice as many each time. From 2.12 on it does not
// compare each with each.
bool has_too_many_names([[maybe_unused]] const xmlParserCtxt& parser) {
#if LIBXML_VERSION < 21200
  constexpr int most = 2000;
  return parser.maxatts / 5 > most || parser.nsNr / 2 > most;  // five pointers each, and two
#else
  return false;
#endif
}

// Gives the parser the next bytes of a source.
int read_piece(void* data, char* piece, int length) {
  auto& source = *static_cast<Source*>(data);
  if (source.parser->inSubset != 0) source.document_type += static_cast<std::size_t>(length);
  if (source.document_type > longest_document_type) {
    source.limit = "its document type is longer than 64 KiB";
  } else if (has_too_many_names(*source.parser)) {
    source.limit = "an element in it has more than 1,000 attributes or namespaces";
  }
  if (xmlDictSize(source.parser->dict) > most_names) {
    source.limit = "it has more than 100,000 different names";
  }
  if (source.limit != nullptr) return 0;
  const std::size_t count = source.bytes.copy(piece, static_cast<std::size_t>(length));
  source.bytes.remove_prefix(count);
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

Context open_parser(Source& source, int options) {
  Context context(xmlNewParserCtxt());
  if (!context) throw std::bad_alloc();
  xmlCtxtUseOptions(context.get(), options | XML_PARSE_RECOVER | XML_PARSE_NONET);
  if ((options & XML_PARSE_NOBLANKS) == 0) context->keepBlanks = 1;  // a host's default may be 0
  source.parser = context.get();
  xmlParserInputBuffer* buffer =
      xmlParserInputBufferCreateIO(read_piece, nullptr, &source, XML_CHAR_ENCODING_NONE);
  if (buffer == nullptr) throw std::bad_alloc();
  xmlParserInput* input = xmlNewIOInputStream(context.get(), buffer, XML_CHAR_ENCODING_NONE);
  if (input == nullptr) {
    xmlFreeParserInputBuffer(buffer);
    throw std::bad_alloc();
  }
  inputPush(context.get(), input);
  return context;
}

void build_no_more(xmlSAXHandler& builder) {
  builder.startElementNs = nullptr;
  builder.endElementNs = nullptr;
  builder.reference = nullptr;
  builder.characters = nullptr;
  builder.ignorableWhitespace = nullptr;
  builder.cdataBlock = nullptr;
  builder.comment = nullptr;
  builder.processingInstruction = nullptr;
}

void end_early(Source& source, xmlSAXHandler& builder, const char* limit) {
  if (source.limit == nullptr) source.limit = limit;
  build_no_more(builder);
}

void Limits::note(const xmlError& problem) {
  if (passed != nullptr || memory_ran_out) return;
  passed = limit_of(problem);
  memory_ran_out = problem.code == XML_ERR_NO_MEMORY && passed == nullptr;
}

void note_limits(void* limits, Problem* problem) { static_cast<Limits*>(limits)->note(*problem); }

}  // namespace murmurase::xml
