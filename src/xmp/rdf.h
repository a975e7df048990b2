#pragma once

#include <libxml/tree.h>

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

// The properties of XMP in the RDF of a packet, whichever of its forms they are written in (ISO
// 16684-1, 7.4 to 7.9): as elements or attributes, structures as rdf:parseType="Resource", as an
// inner rdf:Description or as attributes alone, arrays, and values with qualifiers.
namespace murmurase::xmp::rdf {

// The longest namespace that space() gives in full, in bytes.
inline constexpr std::size_t longest_space = 1000;

// A property: the element or the attribute that holds it.
struct Property {
  const xmlNode* node = nullptr;

  explicit operator bool() const { return node != nullptr; }
  bool is_attribute() const { return node->type == XML_ATTRIBUTE_NODE; }
  std::string_view name() const;  // Its local name.
  // The namespace of its name, of which the first 1,001 bytes stand for all: it may be long, and is
  // looked at for each property in it.
  std::string_view space() const;
};

// The first rdf:RDF element of the document; null if there is none.
const xmlNode* find_rdf(const xmlDoc* document);

// Calls `each` with every property of the resources that `rdf` describes.
void for_each_property(const xmlNode* rdf, const std::function<void(Property)>& each);

// Calls `each` with every field of the structure that is the value of `property`.
void for_each_field(Property property, const std::function<void(Property)>& each);

// Calls `each` with every item of the array that is the value of `property`.
void for_each_item(Property property, const std::function<void(Property)>& each);

// Whether the value of `property` is a text, neither structure nor array.
bool is_simple(Property property);

// The text that is the value of `property`: of language alternatives the default one, of another
// array the first, of a value with qualifiers the value.
std::string text(Property property);

}  // namespace murmurase::xmp::rdf
