#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/value.h"
#include "xml/document.h"

namespace murmurase::xml {

// What a parse that passes over everything malformed gives.
struct Recovery {
  XmlDocument document;  // null when none could be built at all
  std::vector<int>
      problem_lines;  // each problem's line of the bytes, from 1, in the order reported;
                      // 0 for a problem without a place. Not one line twice in a row.
  std::optional<XmlFault> fault;  // the first problem that makes the bytes no XML with namespaces
  const char* limit = nullptr;    // the limit against hostile documents at which the document ends
  bool well_formed = false;
};

// What becomes of text nodes that hold nothing but white space between elements.
enum class Blanks { drop, keep };

// Whether the document is wanted, when problems are reported or at all. When it is not, what comes after
// the first one is searched for more, but nothing is built of it: the document then ends there.
enum class Wanted { never, only_without_problems, always };

// What is read. A clip has fewer parts than a packet, and no text, attribute or comment of more than 10 MB.
enum class Kind { clip, packet };

// Parses the bytes, in whatever encoding they declare. The document keeps its document type and the
// entities that this declares, and references to them. Error: memory.
Recovery recover(std::string_view bytes, Blanks blanks, Wanted wanted = Wanted::always,
                 Kind kind = Kind::clip);

}  // namespace murmurase::xml
