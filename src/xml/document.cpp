#include "xml/document.h"

#include <fmt/format.h>
#include <libxml/SAX2.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <unordered_map>

#include "core/error.h"
#include "xml/parser.h"

namespace murmurase::xml {
namespace {

// What one parse keeps beside its source.
struct ValueParse : Source {
  const void* main_context = nullptr;    // an entity's content is parsed in a context of its own
  const xmlChar* space = nullptr;        // interned: names compare by address
  std::vector<const xmlChar*> values{};  // interned
  std::size_t value_bytes = 0;           // of the outermost value element's text
  std::size_t depth_in_value = 0;        // elements open from the outermost value element on
  std::unordered_map<const xmlEntity*, std::string> entities{};  // what they stand for
  std::size_t entity_text_so_far = 0;                            // bytes
  bool memory_ran_out = false;
  bool malformed = false;
};

// Bytes that all references to entities together may stand for; metadata has no use for any.
constexpr std::size_t most_entity_text = std::size_t{1} << 20;

constexpr std::size_t longest_value = 10'000'000;

const std::string& entity_text(ValueParse& state, const xmlEntity* entity);

ValueParse& state_of(void* context) { return static_cast<ValueParse&>(source_of(context)); }

bool is_text(const xmlNode* node) {
  return node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE;
}

void start_element(void* context, const xmlChar* local, const xmlChar* prefix, const xmlChar* uri,
                   int namespace_count, const xmlChar** namespaces, int attribute_count,
                   int /*defaulted_count*/, const xmlChar** /*attributes*/) {
  ValueParse& state = state_of(context);
  count_parts(context, 1 + namespace_count + attribute_count);
  count_element(context, namespace_count, attribute_count);
  if (state.depth_in_value > 0 ||
      (uri == state.space && std::ranges::find(state.values, local) != state.values.end())) {
    if (++state.depth_in_value == 1) state.value_bytes = 0;
  }
  xmlSAX2StartElementNs(context, local, prefix, uri, namespace_count, namespaces, 0, 0, nullptr);
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
  if (!counts(context)) return;
  ValueParse& state = state_of(context);
  state.value_bytes += static_cast<std::size_t>(length);
  if (state.value_bytes > longest_value) {
    end_early(state, "a text in it is longer than 10 MB");
  } else {
    xmlSAX2Characters(context, text, length);
  }
}

// Appends what an entity stands for, each entity within it being worked out once. The parser has
// refused entities that refer to themselves, and deep chains of them.
void append_content(ValueParse& state, const xmlNode* node, std::string& text) {
  for (; node != nullptr && text.size() <= most_entity_text; node = node->next) {
    if (node->type == XML_ENTITY_REF_NODE) {
      text += entity_text(state, reinterpret_cast<const xmlEntity*>(node->children));
    } else if (node->type == XML_ELEMENT_NODE) {
      append_content(state, node->children, text);
    } else if (is_text(node)) {
      text += as_char(node->content);
    }
  }
}

const std::string& entity_text(ValueParse& state, const xmlEntity* entity) {
  const auto [known, added] = state.entities.try_emplace(entity);
  std::string& text = known->second;  // stays where it is while the map grows
  if (added && entity != nullptr) append_content(state, entity->children, text);
  return text;
}

// A reference in a value counts with its content; external entities have none, for they are not
// loaded. In an entity's own content it stays a reference until the entity is referred to.
void reference(void* context, const xmlChar* name) {
  ValueParse& state = state_of(context);
  if (context != state.main_context) {
    xmlSAX2Reference(context, name);
  } else if (state.depth_in_value > 0) {
    const std::string& text = entity_text(state, xmlSAX2GetEntity(context, name));
    state.entity_text_so_far += text.size();
    if (state.entity_text_so_far > most_entity_text) {
      end_early(state, "its entities expand without measure");
    } else {
      xmlSAX2Characters(context, as_xml(text.c_str()), static_cast<int>(text.size()));
    }
  }
}

void note_problem(void* context, Problem* problem) {
  ValueParse& state = state_of(context);
  if (state.limit != nullptr) return;  // what follows from the limit
  Limits limits;
  limits.note(*problem);
  state.malformed = true;
  if (problem->code == XML_ERR_UNSUPPORTED_ENCODING) limits.passed = "its encoding is unknown";
  count_parts(context, 1);
  if (limits.memory_ran_out) state.memory_ran_out = true;
  if (limits.memory_ran_out || limits.passed != nullptr) {
    end_early(state, limits.memory_ran_out ? "memory has run out" : limits.passed);
  }
}

void copy_attributes(const xmlNode& element, xmlNode& clone) {
  xmlAttr* last = nullptr;
  for (xmlAttr* each = element.properties; each != nullptr; each = each->next) {
    xmlAttr* attribute = xmlCopyProp(&clone, each);
    if (attribute == nullptr) return;
    attribute->prev = last;
    (last == nullptr ? clone.properties : last->next) = attribute;
    last = attribute;
  }
}

// Links the clone of a node as the last child. Null, or a clone with less in it, when memory runs out.
xmlNode* copy_node(xmlNode* node, xmlNode* parent) {
  xmlNode* clone = nullptr;
  if (node->type == XML_ELEMENT_NODE) {
    clone = xmlNewDocNode(parent->doc, nullptr, node->name, nullptr);
  } else if (node->type == XML_DTD_NODE) {
    parent->doc->intSubset = xmlCopyDtd(reinterpret_cast<xmlDtd*>(node));
    clone = reinterpret_cast<xmlNode*>(parent->doc->intSubset);
    if (clone != nullptr) xmlSetTreeDoc(clone, parent->doc);
  } else {
    clone = xmlDocCopyNode(node, parent->doc, 0);
  }
  if (clone == nullptr) return nullptr;
  clone->parent = parent;
  clone->prev = parent->last;
  (parent->last == nullptr ? parent->children : parent->last->next) = clone;
  parent->last = clone;
  if (node->type == XML_ELEMENT_NODE) {
    if (node->nsDef != nullptr) clone->nsDef = xmlCopyNamespaceList(node->nsDef);
    if (node->ns != nullptr) clone->ns = xmlSearchNs(clone->doc, clone, node->ns->prefix);
    copy_attributes(*node, *clone);
  }
  return clone;
}

// Not by xmlCopyDoc, which in libxml2 2.9 leaks what it has copied when memory runs out.
void copy_content(const xmlDoc& document, xmlDoc& duplicate) {
  if (document.dict != nullptr) duplicate.dict = xmlDictCreateSub(document.dict);  // or null
  duplicate.standalone = document.standalone;
  duplicate.properties = document.properties;
  duplicate.charset = document.charset;
  if (document.encoding != nullptr) duplicate.encoding = xmlStrdup(document.encoding);
  if (document.URL != nullptr) duplicate.URL = xmlStrdup(document.URL);
  auto* parent = reinterpret_cast<xmlNode*>(&duplicate);
  for (xmlNode* node = document.children; node != nullptr;) {
    xmlNode* clone = copy_node(node, parent);
    if (clone == nullptr) return;
    if (node->type == XML_ELEMENT_NODE && node->children != nullptr) {
      node = node->children;
      parent = clone;
      continue;
    }
    while (node != nullptr && node->next == nullptr) {
      node = node->parent;
      parent = parent->parent;
      if (node->type != XML_ELEMENT_NODE) return;
    }
    node = node->next;
  }
}

XmlDocument parse_once(std::string_view bytes, std::span<const char* const> values,
                       const char* space, std::string_view what, bool& malformed) {
  const auto fail = [&](std::string_view reason) {
    throw Error(ErrorKind::xml, fmt::format("{} cannot be read as XML: {}", what, reason));
  };
  if (bytes.empty()) fail("it is empty");
  Limits beside;  // what libxml2 reports though its parser does not
  const ProblemChannel channel(note_limits, &beside);
  ValueParse state{{bytes}};
  const Context context = open_parser(state, XML_PARSE_COMPACT | XML_PARSE_HUGE);
  state.main_context = context.get();
  const auto interned = [&](const char* name) {
    const xmlChar* known = xmlDictLookup(context->dict, as_xml(name), -1);
    if (known == nullptr) throw std::bad_alloc();
    return known;
  };
  state.space = interned(space);
  for (const char* value : values) state.values.push_back(interned(value));
  xmlSAXHandler& sax = *context->sax;
  sax.startElementNs = start_element;
  sax.endElementNs = end_element;
  sax.characters = characters;
  sax.ignorableWhitespace = characters;
  sax.cdataBlock = characters;  // a text like any other, and joined with its neighbours
  sax.comment = nullptr;
  sax.processingInstruction = count_instruction;
  sax.reference = reference;
  sax.serror = note_problem;
  xmlParseDocument(context.get());

  XmlDocument document = own(context->myDoc);
  context->myDoc = nullptr;
  if (state.memory_ran_out || beside.memory_ran_out) throw std::bad_alloc();
  if (state.limit != nullptr) fail(state.limit);
  if (!document || xmlDocGetRootElement(document.get()) == nullptr) fail("it holds no element");
  malformed = state.malformed;
  return document;
}

}  // namespace

XmlDocument parse_values(std::string_view bytes, std::span<const char* const> values,
                         const char* space, std::string_view what) {
  bool malformed = false;
  XmlDocument document = parse_once(bytes, values, space, what, malformed);
  // Where memory for a name runs out, libxml2 2.9 says that the name is malformed, and no more. Whether it
  // is shows a second time, which then succeeds, or runs out of memory in a way that can be told.
  if (malformed) {
    document.reset();
    document = parse_once(bytes, values, space, what, malformed);
  }
  return document;
}

XmlDocument copy(const XmlDocument& document) {
  Limits limits;
  const ProblemChannel channel(note_limits, &limits);
  XmlDocument duplicate = own(xmlNewDoc(document->version));
  if (duplicate) copy_content(*document, *duplicate);
  if (!duplicate || limits.memory_ran_out) throw std::bad_alloc();
  return duplicate;
}

bool is_named(const xmlNode* node, const Name& name) {
  if (node->type != XML_ELEMENT_NODE || std::strcmp(as_char(node->name), name.local) != 0) {
    return false;
  }
  if (name.space == nullptr || node->ns == nullptr) {
    return name.space == nullptr && node->ns == nullptr;
  }
  return std::strcmp(as_char(node->ns->href), name.space) == 0;
}

xmlNode* first_element(const XmlDocument& document) { return xmlDocGetRootElement(document.get()); }

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
