#include "xmp/rdf.h"

#include <cstring>

#include "xmp/names.h"

namespace murmurase::xmp::rdf {
namespace {

constexpr char xml_space[] = "http://www.w3.org/XML/1998/namespace";

const char* characters(const xmlChar* text) {
  return text == nullptr ? "" : reinterpret_cast<const char*>(text);
}

const char* space_of(const xmlNode* node) {
  return node->ns == nullptr ? "" : characters(node->ns->href);
}

bool is_element(const xmlNode* node) { return node->type == XML_ELEMENT_NODE; }

bool is_rdf(const xmlNode* node, const char* name) {
  return std::strcmp(characters(node->name), name) == 0 &&
         std::strcmp(space_of(node), rdf_syntax) == 0;
}

bool is_array(const xmlNode* node) {
  return is_element(node) && (is_rdf(node, "Seq") || is_rdf(node, "Bag") || is_rdf(node, "Alt"));
}

const xmlNode* first_attribute(const xmlNode* element) {
  return reinterpret_cast<const xmlNode*>(element->properties);
}

// Attributes of RDF and XML say how a value is written; those without a namespace say nothing.
bool is_property_attribute(const xmlNode* attribute) {
  const char* space = space_of(attribute);
  return *space != '\0' && std::strcmp(space, rdf_syntax) != 0 &&
         std::strcmp(space, xml_space) != 0;
}

void append_text(const xmlNode* node, std::string& text) {
  for (const xmlNode* part = node->children; part != nullptr; part = part->next)
    if (part->type == XML_TEXT_NODE || part->type == XML_CDATA_SECTION_NODE)
      text += characters(part->content);
}

bool is_default_language(const xmlNode* item) {
  for (const xmlNode* attribute = first_attribute(item); attribute != nullptr;
       attribute = attribute->next) {
    if (std::strcmp(characters(attribute->name), "lang") == 0 &&
        std::strcmp(space_of(attribute), xml_space) == 0 && attribute->children != nullptr)
      return std::strcmp(characters(attribute->children->content), "x-default") == 0;
  }
  return false;
}

const xmlNode* chosen_item(const xmlNode* array) {
  const xmlNode* chosen = nullptr;
  for (const xmlNode* item = array->children; item != nullptr; item = item->next) {
    if (!is_element(item) || !is_rdf(item, "li")) continue;
    if (is_default_language(item)) return item;
    if (chosen == nullptr) chosen = item;
  }
  return chosen;
}

// What stands for the value of `element` instead of its own text: the rdf:value of qualifiers, an
// item of an array, an rdf:resource. Null if nothing does.
const xmlNode* value_within(const xmlNode* element) {
  for (const xmlNode* attribute = first_attribute(element); attribute != nullptr;
       attribute = attribute->next)
    if (is_rdf(attribute, "value") || is_rdf(attribute, "resource")) return attribute;
  for (const xmlNode* child = element->children; child != nullptr; child = child->next) {
    if (!is_element(child)) continue;
    if (is_rdf(child, "value")) return child;
    if (is_array(child)) return chosen_item(child);
    if (is_rdf(child, "Description"))
      if (const xmlNode* value = value_within(child)) return value;
  }
  return nullptr;
}

void for_each_field_of(const xmlNode* element, const std::function<void(Property)>& each) {
  for (const xmlNode* attribute = first_attribute(element); attribute != nullptr;
       attribute = attribute->next)
    if (is_property_attribute(attribute)) each({attribute});
  for (const xmlNode* child = element->children; child != nullptr; child = child->next) {
    if (!is_element(child)) continue;
    if (is_rdf(child, "Description") || is_rdf(child, "value"))
      for_each_field_of(child, each);
    else
      each({child});
  }
}

}  // namespace

std::string_view Property::name() const { return characters(node->name); }
std::string_view Property::space() const {
  const char* space = space_of(node);
  return {space, strnlen(space, longest_space + 1)};
}

const xmlNode* find_rdf(const xmlDoc* document) {
  const xmlNode* node = xmlDocGetRootElement(document);
  while (node != nullptr && !(is_element(node) && is_rdf(node, "RDF"))) {
    if (is_element(node) && node->children != nullptr) {
      node = node->children;
      continue;
    }
    while (node != nullptr && node->next == nullptr)
      node = node->parent != nullptr && is_element(node->parent) ? node->parent : nullptr;
    if (node != nullptr) node = node->next;
  }
  return node;
}

void for_each_property(const xmlNode* rdf, const std::function<void(Property)>& each) {
  for (const xmlNode* child = rdf->children; child != nullptr; child = child->next)
    if (is_element(child)) for_each_field_of(child, each);
}

void for_each_field(Property property, const std::function<void(Property)>& each) {
  if (!property.is_attribute()) for_each_field_of(property.node, each);
}

void for_each_item(Property property, const std::function<void(Property)>& each) {
  if (property.is_attribute()) return;
  for (const xmlNode* child = property.node->children; child != nullptr; child = child->next) {
    if (is_element(child) && (is_rdf(child, "Description") || is_rdf(child, "value")))
      for_each_item({child}, each);
    if (!is_array(child)) continue;
    for (const xmlNode* item = child->children; item != nullptr; item = item->next)
      if (is_element(item) && is_rdf(item, "li")) each({item});
  }
}

bool is_simple(Property property) {
  if (property.is_attribute()) return true;
  for (const xmlNode* attribute = first_attribute(property.node); attribute != nullptr;
       attribute = attribute->next)
    if (is_property_attribute(attribute)) return false;
  for (const xmlNode* child = property.node->children; child != nullptr; child = child->next)
    if (is_element(child)) return false;
  return true;
}

std::string text(Property property) {
  const xmlNode* node = property.node;
  if (!property.is_attribute()) {
    while (const xmlNode* value = value_within(node)) {
      node = value;
      if (!is_element(node)) break;
    }
  }
  std::string text;
  append_text(node, text);
  return text;
}

}  // namespace murmurase::xmp::rdf
