#include "xml/edit.h"

#include <fmt/format.h>
#include <libxml/xmlsave.h>

#include <new>

#include "core/error.h"
#include "core/printable.h"
#include "core/utf8.h"
#include "xml/parser.h"
#include "xml/recovery.h"
#include "xml/writer_settings.h"

namespace murmurase::xml {
namespace {

constexpr std::size_t enough = 4096;

// Hostile entities may stand for texts without measure, so it stops at enough.
void gather(const xmlNode* node, std::string& text) {
  for (; node != nullptr && text.size() < enough; node = node->next) {
    if (node->type == XML_ELEMENT_NODE) {
      gather(node->children, text);
    } else if (node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE) {
      if (node->content != nullptr) text += as_char(node->content);
    } else if (node->type == XML_ENTITY_REF_NODE) {
      const xmlEntity* entity = xmlGetDocEntity(node->doc, node->name);
      if (entity != nullptr && entity->content != nullptr) text += as_char(entity->content);
    }
  }
}

xmlNode* checked(xmlNode* node) {
  if (node == nullptr) throw std::bad_alloc();
  return node;
}

struct Output {
  std::string bytes;
  std::string problem;
  bool memory_ran_out = false;
};

int append(void* data, const char* piece, int length) noexcept {
  auto& output = *static_cast<Output*>(data);
  try {
    output.bytes.append(piece, static_cast<std::size_t>(length));
    return length;
  } catch (...) {
    output.memory_ran_out = true;
    return -1;
  }
}

void note_problem(void* data, Problem* problem) noexcept {
  auto& output = *static_cast<Output*>(data);
  output.memory_ran_out |= problem->code == XML_ERR_NO_MEMORY;
  try {
    if (output.problem.empty()) {
      output.problem =
          problem->message != nullptr ? printable(problem->message) : "the writer failed";
    }
  } catch (...) {
    output.memory_ran_out = true;
  }
}

[[noreturn]] void fail(std::string_view what, std::string_view reason) {
  throw Error(ErrorKind::xml, fmt::format("{} cannot be written as XML: {}", what, reason));
}

// In the document's own encoding when none is given.
std::string written(const XmlDocument& document, const char* encoding, std::string_view what) {
  Output output;
  const ProblemChannel channel(note_problem, &output);
  const WriterSettings settings;
  xmlSaveCtxt* save = xmlSaveToIO(append, nullptr, &output, encoding, XML_SAVE_FORMAT);
  const bool saved = save != nullptr && xmlSaveDoc(save, document.get()) >= 0;
  const bool closed = save != nullptr && xmlSaveClose(save) >= 0;
  if (output.memory_ran_out) throw std::bad_alloc();
  if (!output.problem.empty()) fail(what, output.problem);
  if (!saved || !closed) fail(what, "the writer failed");
  return std::move(output.bytes);
}

std::optional<XmlFault> fault_of(std::string_view bytes) {
  Recovery reread = recover(bytes, Blanks::keep, Wanted::never);
  if (reread.limit != nullptr) return XmlFault{0, reread.limit};
  return std::move(reread.fault);
}

}  // namespace

bool can_hold(std::string_view text) {
  while (!text.empty()) {
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x80) {
      if (first < 0x20 && first != '\t' && first != '\n' && first != '\r') return false;
      text.remove_prefix(1);
      continue;
    }
    const std::size_t length = utf8_character(text);
    const std::string_view character = text.substr(0, length);
    if (length == 0 || character == "\xEF\xBF\xBE" || character == "\xEF\xBF\xBF") return false;
    text.remove_prefix(length);
  }
  return true;
}

std::string text_start(const xmlNode* element) {
  std::string text;
  gather(element->children, text);
  return text;
}

std::string attribute_start(const xmlNode* element, const char* name) {
  std::string text;
  const xmlAttr* attribute = xmlHasNsProp(element, as_xml(name), nullptr);
  if (attribute == nullptr) return text;
  if (attribute->type == XML_ATTRIBUTE_DECL) {  // a default of the document type
    const auto* declared = reinterpret_cast<const xmlAttribute*>(attribute);
    if (declared->defaultValue != nullptr) text = as_char(declared->defaultValue);
  } else {
    gather(attribute->children, text);
  }
  return text;
}

void set_text(xmlNode* element, std::string_view text) {
  xmlNodeSetContent(element, nullptr);
  Builder(element->doc).text(element, text);
}

Builder::Builder(xmlDoc* document) : document_(document) {
  if (document->dict == nullptr) document->dict = xmlDictCreate();
  if (document->dict == nullptr) throw std::bad_alloc();
}

Builder::Shared Builder::share(const char* text) {
  Shared shared = xmlDictLookup(document_->dict, as_xml(text), -1);
  if (shared == nullptr) throw std::bad_alloc();
  return shared;
}

xmlNode* Builder::element(xmlNode* parent, Shared name) {
  xmlNode* node =
      checked(xmlNewDocNodeEatName(document_, nullptr, const_cast<xmlChar*>(name), nullptr));
  return parent == nullptr ? node : xmlAddChild(parent, node);
}

void Builder::text(xmlNode* parent, std::string_view text) {
  if (text.empty()) return;
  xmlNode* node =
      checked(xmlNewDocTextLen(document_, as_xml(text.data()), static_cast<int>(text.size())));
  xmlAddChild(parent, node);
  if (node->content == nullptr) throw std::bad_alloc();
}

void Builder::shared_text(xmlNode* parent, Shared text) {
  xmlNode* node = checked(xmlNewDocText(document_, nullptr));
  node->content = const_cast<xmlChar*>(text);
  xmlAddChild(parent, node);
}

Serialized serialize(const XmlDocument& document, std::string_view what) {
  Serialized result{written(document, nullptr, what), std::nullopt};
  constexpr int sound = XML_DOC_WELLFORMED | XML_DOC_NSVALID;
  const bool recovered = (document->properties & sound) != sound;
  const bool in_utf8 =
      document->encoding == nullptr || xmlStrcasecmp(document->encoding, as_xml("UTF-8")) == 0;
  if (!recovered && in_utf8) return result;
  result.fault = fault_of(result.bytes);
  // Some encodings, such as UTF-7, write markup in ways in which no reader finds it.
  if (result.fault && !in_utf8 && result.fault != fault_of(written(document, "UTF-8", what))) {
    fail(what, fmt::format("{}; save the clip in UTF-8, not {}", result.fault->reason,
                           printable(as_char(document->encoding))));
  }
  return result;
}

}  // namespace murmurase::xml
