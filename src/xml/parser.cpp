#include "xml/parser.h"

#include <libxml/SAX2.h>
#include <libxml/parserInternals.h>

#include <cstring>
#include <new>

namespace murmurase::xml {
namespace {

constexpr std::size_t longest_document_type = std::size_t{1} << 20;  // bytes
constexpr std::size_t most_attribute_declarations = 10'000;
constexpr std::size_t most_attribute_defaults = 1'000;
constexpr std::size_t most_entity_bytes = std::size_t{512} << 20;  // as many as a file has
constexpr int deepest_entity = 40;
constexpr int deepest_element = 256;
constexpr int most_names = 500'000;  // different ones
// Both are a few seconds' work. The names of a file that has most_names, each once, come to 27
// million steps.
constexpr std::size_t most_comparisons = 1'000'000'000;
constexpr std::size_t most_lookups = 30'000'000;
constexpr std::size_t dictionary_rows = 4608;  // libxml2 2.9 makes no more of them
constexpr const char* too_many_attributes = "its elements have too many attributes or namespaces";
constexpr const char* too_many_names = "it has too many different names";

// Whether the start tag that is being read has more attributes or namespaces than can be compared each
// with each. The parser makes room for twice as many attributes each time. From 2.12 on it does not
// compare them so.
bool has_too_many_attributes([[maybe_unused]] const xmlParserCtxt& parser) {
#if LIBXML_VERSION < 21200
  constexpr int most = 30'000;                                 // room for 26,000
  return parser.maxatts / 5 > most || parser.nsNr / 2 > most;  // five pointers each, and two
#else
  return false;
#endif
}

// Gives the parser the next bytes of a source.
int read_piece(void* data, char* piece, int length) {
  auto& source = *static_cast<Source*>(data);
  if (source.parser->inSubset != 0) source.document_type += static_cast<std::size_t>(length);
  if (source.limit != nullptr) return 0;
  if (source.document_type > longest_document_type) {
    source.limit = "its document type is longer than 1 MiB";
  } else if (has_too_many_attributes(*source.parser)) {
    source.limit = too_many_attributes;
  } else if (xmlDictSize(source.parser->dict) > most_names) {
    source.limit = too_many_names;
  }
  if (source.limit != nullptr) return 0;
  const std::size_t count = source.bytes.copy(piece, static_cast<std::size_t>(length));
  source.bytes.remove_prefix(count);
  return static_cast<int>(count);
}

// An entity's content that came to a limit leaves its outer contents running, to refer to it again and
// again; they find nothing any more.
xmlEntity* count_entity(void* parser, xmlEntity* entity) {
  Source& source = source_of(parser);
  if (entity == nullptr || source.limit != nullptr) return nullptr;
  const auto& context = *static_cast<xmlParserCtxt*>(parser);
  source.entity_bytes += static_cast<std::size_t>(entity->length) + 1;
  if (source.entity_bytes <= most_entity_bytes && context.depth <= deepest_entity &&
      context.inputNr <= deepest_entity) {
    return entity;
  }
  end_early(source, "its entities expand without measure");
  return nullptr;
}

xmlEntity* get_entity(void* parser, const xmlChar* name) {
  return count_entity(parser, xmlSAX2GetEntity(parser, name));
}

xmlEntity* get_parameter_entity(void* parser, const xmlChar* name) {
  return count_entity(parser, xmlSAX2GetParameterEntity(parser, name));
}

void declare_attribute(void* parser, const xmlChar* element, const xmlChar* name, int type,
                       int default_kind, const xmlChar* value, xmlEnumeration* values) {
  Source& source = source_of(parser);
  ++source.attribute_declarations;
  if (value != nullptr) ++source.attribute_defaults;
  if (source.attribute_declarations > most_attribute_declarations ||
      source.attribute_defaults > most_attribute_defaults) {
    end_early(source, "its document type declares too many attributes");
  }
  xmlSAX2AttributeDecl(parser, element, name, type, default_kind, value, values);
}

void count_names(void* parser, std::size_t names) {
  Source& source = source_of(parser);
  const auto known =
      static_cast<std::size_t>(xmlDictSize(static_cast<xmlParserCtxt*>(parser)->dict));
  source.lookups += names * known / dictionary_rows;
  if (source.lookups > most_lookups) end_early(source, too_many_names);
}

void only_count(void* parser, const xmlChar* /*local*/, const xmlChar* /*prefix*/,
                const xmlChar* /*uri*/, int namespaces, const xmlChar** /*declared*/,
                int attributes, int /*defaulted*/, const xmlChar** /*values*/) {
  count_element(parser, namespaces, attributes);
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
  if ((options & XML_PARSE_NOBLANKS) == 0) {  // a host's default may be to drop them
    context->keepBlanks = 1;
    context->sax->ignorableWhitespace = xmlSAX2Characters;
  }
  source.parser = context.get();
  context->_private = &source;
  context->sax->getEntity = get_entity;
  context->sax->getParameterEntity = get_parameter_entity;
  context->sax->attributeDecl = declare_attribute;
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

Source& source_of(void* parser) {
  return *static_cast<Source*>(static_cast<xmlParserCtxt*>(parser)->_private);
}

void count_parts(void* parser, int parts) {
  Source& source = source_of(parser);
  source.parts += static_cast<std::size_t>(parts);
  if (source.parts > source.most_parts) end_early(source, source.too_many_parts);
}

// Each attribute's name is compared with the others', and each prefix with the namespaces in scope.
void count_element(void* parser, int namespaces, int attributes) {
  Source& source = source_of(parser);
  const auto& context = *static_cast<xmlParserCtxt*>(parser);
  const auto own = static_cast<std::size_t>(attributes);
  const auto names = own + static_cast<std::size_t>(namespaces) + 1;
  source.comparisons += own * own / 2 + names * static_cast<std::size_t>(context.nsNr / 2);
  if (source.comparisons > most_comparisons) end_early(source, too_many_attributes);
  count_names(parser, names);
  if (context.nameNr > deepest_element) end_early(source, "its elements are nested too deep");
}

void count_instruction(void* parser, const xmlChar* /*target*/, const xmlChar* /*text*/) {
  count_names(parser, 1);
}

void build_no_more(xmlSAXHandler& builder) {
  builder.startElementNs = only_count;
  builder.endElementNs = nullptr;
  builder.reference = nullptr;
  builder.characters = nullptr;
  builder.ignorableWhitespace = nullptr;
  builder.cdataBlock = nullptr;
  builder.comment = nullptr;
  builder.processingInstruction = count_instruction;
}

void end_early(Source& source, const char* limit) {
  if (source.limit == nullptr) source.limit = limit;
  build_no_more(*source.parser->sax);
}

void Limits::note(const xmlError& problem) {
  if (passed != nullptr || memory_ran_out) return;
  passed = limit_of(problem);
  memory_ran_out = problem.code == XML_ERR_NO_MEMORY && passed == nullptr;
}

void note_limits(void* limits, Problem* problem) { static_cast<Limits*>(limits)->note(*problem); }

}  // namespace murmurase::xml
