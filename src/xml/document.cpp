#include "xml/document.h"

#include <fmt/format.h>
#include <libxml/SAX2.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "core/error.h"
#include "xml/parser.h"

namespace murmurase::xml {
namespace {

// What one parse keeps beside libxml2's own context, which points here with _private.
struct ValueParse {
  const void* main_context = nullptr;  // an entity's content is parsed in a context of its own
  const xmlChar* space = nullptr;      // interned: names compare by address
  std::vector<const xmlChar*> values;  // interned
  std::size_t depth_in_value = 0;      // elements open from the outermost value element on
  Limits limits;
};

ValueParse& state_of(void* context) {
  return *static_cast<ValueParse*>(static_cast<xmlParserCtxt*>(context)->_private);
}

void start_element(void* context, const xmlChar* local, const xmlChar* prefix, const xmlChar* uri,
                   int namespace_count, const xmlChar** namespaces, int attribute_count,
                   int defaulted_count, const xmlChar** attributes) {
  ValueParse& state = state_of(context);
  if (state.depth_in_value > 0 ||
      (uri == state.space && std::ranges::find(state.values, local) != state.values.end())) {
    ++state.depth_in_value;
  }
  xmlSAX2StartElementNs(context, local, prefix, uri, namespace_count, namespaces, attribute_count,
                        defaulted_count, attributes);
}

void end_element(void* context, const xmlChar* local, const xmlChar* prefix, const xmlChar* uri) {
  ValueParse& state = state_of(context);
  if (state.depth_in_value > 0) --state.depth_in_value;
  xmlSAX2EndElementNs(context, local, prefix, uri);
}

// An entity's content is built once, where it is first referred to, and must serve every reference.
bool counts(void* context) {
  const ValueParse& state = state_of(context);
  return state.depth_in_value > 0 || context != state.main_context;
}

void characters(void* context, const xmlChar* text, int length) {
  if (counts(context)) xmlSAX2Characters(context, text, length);
}

void cdata(void* context, const xmlChar* text, int length) {
  if (counts(context)) xmlSAX2CDataBlock(context, text, length);
}

// An external entity that was never declared cannot be loaded.
void entity_declaration(void* context, const xmlChar* name, int type, const xmlChar* public_id,
                        const xmlChar* system_id, xmlChar* content) {
  if (type == XML_INTERNAL_GENERAL_ENTITY || type == XML_INTERNAL_PARAMETER_ENTITY) {
    xmlSAX2EntityDecl(context, name, type, public_id, system_id, content);
  }
}

}  // namespace

XmlDocument parse_values(std::string_view bytes, std::span<const char* const> values,
                         const char* space, std::string_view what) {
  const auto fail = [&](std::string_view reason) {
    throw Error(ErrorKind::xml, fmt::format("{} cannot be read as XML: {}", what, reason));
  };
  if (bytes.empty()) fail("it is empty");
  const Context context = open_parser(bytes, XML_PARSE_NOENT | XML_PARSE_COMPACT);
  ValueParse state;
  state.main_context = context.get();
  state.space = xmlDictLookup(context->dict, as_xml(space), -1);
  for (const char* value : values) {
    state.values.push_back(xmlDictLookup(context->dict, as_xml(value), -1));
  }
  context->_private = &state;
  xmlSAXHandler& sax = *context->sax;
  sax.startElementNs = start_element;
  sax.endElementNs = end_element;
  sax.characters = characters;
  sax.ignorableWhitespace = characters;
  sax.cdataBlock = cdata;
  sax.entityDecl = entity_declaration;
  const ProblemChannel channel(note_limits, &state.limits);
  xmlParseDocument(context.get());

  const XmlDocument document = own(context->myDoc);
  context->myDoc = nullptr;
  if (state.limits.memory_ran_out) throw std::bad_alloc();
  if (state.limits.passed != nullptr) fail(state.limits.passed);
  if (!document || xmlDocGetRootElement(document.get()) == nullptr) fail("it holds no element");
  return document;
}

XmlDocument copy(const XmlDocument& document) {
  Limits limits;
  const ProblemChannel channel(note_limits, &limits);
  XmlDocument duplicate = own(xmlCopyDoc(document.get(), 1));
  if (!duplicate || limits.memory_ran_out) throw std::bad_alloc();
  duplicate->properties = document->properties;
  return duplicate;
}

bool is_named(const xmlNode* node, const Name& name) {
  if (node->type != XML_ELEMENT_NODE || std::strcmp(as_char(node->name), name.local) != 0) {
    return false;
  }
  if (name.space == nullptr || node->ns == nullptr)
    return name.space == nullptr && node->ns == nullptr;
  return std::strcmp(as_char(node->ns->href), name.space) == 0;
}

xmlNode* first_element(const XmlDocument& document) {
  return xmlDocGetRootElement(document.get());
}

xmlNode* next_element(const xmlNode* node) {
  xmlNode* next = nullptr;
  do {
    if (node->type == XML_ELEMENT_NODE && node->children != nullptr) {
      next = node->children;
    } else {
      while (node->next == nullptr) {
        node = node->parent;
        if (node == nullptr || node->type != XML_ELEMENT_NODE) return nullptr;
      }
      next = node->next;
    }
    node = next;
  } while (next->type != XML_ELEMENT_NODE);
  return next;
}

xmlNode* child(const xmlNode* parent, const Name& name) {
  for (xmlNode* node = parent->children; node != nullptr; node = node->next) {
    if (is_named(node, name)) return node;
  }
  return nullptr;
}

std::string_view text_content(const xmlNode* element, std::string& scratch) {
  const auto is_text = [](const xmlNode* node) {
    return node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE;
  };
  const auto view = [](const xmlNode* node) {
    return node->content != nullptr ? std::string_view(as_char(node->content)) : std::string_view();
  };
  const xmlNode* node = element->children;
  if (node == nullptr) return {};
  if (node->next == nullptr && is_text(node)) return view(node);
  scratch.clear();
  while (node != nullptr) {
    if (is_text(node)) scratch += view(node);
    if (node->type == XML_ELEMENT_NODE && node->children != nullptr) {
      node = node->children;
      continue;
    }
    while (node->next == nullptr && node->parent != element) node = node->parent;
    node = node->next;
  }
  return scratch;
}

}  // namespace murmurase::xml
