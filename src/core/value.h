#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <variant>
#include <vector>

struct _xmlDoc;
struct _xmlNode;

namespace murmurase {

// A parsed document, alive as long as a handle refers to it.
using XmlDocument = std::shared_ptr<_xmlDoc>;

// Why a text is not well-formed XML with namespaces: the first of its faults.
struct XmlFault {
  int line = 0;  // from 1; 0 when no single line is at fault
  std::string reason;

  bool operator==(const XmlFault&) const = default;
};

// One node of a document, which it keeps alive.
struct XmlElement {
  XmlDocument document;
  _xmlNode* node = nullptr;
};

struct HostObject {
  void* pointer = nullptr;
};

struct Entry;
struct Value;
using List = std::vector<Value>;
using Record = std::vector<Entry>;

// A dynamic value: what crosses the border between the host and the typed operations. The
// alternatives stand in the order of the public kinds.
struct Value {
  std::variant<std::monostate, bool, std::int64_t, double, std::string, List, Record, XmlDocument,
               XmlElement, HostObject>
      data;
};

struct Entry {
  std::string key;
  Value value;
};

}  // namespace murmurase
