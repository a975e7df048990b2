#pragma once

#include <filesystem>
#include <string>

#include "core/value.h"

namespace murmurase::xmp {

// An XMP packet, byte for byte as it was found.
struct Packet {
  std::filesystem::path file;  // Where it was found: the movie itself, or a sidecar.
  std::string bytes;
};

struct ParsedPacket {
  XmlDocument document;
  std::string problem;  // The first fault of its XML and the line of it; empty if it has none.
};

// Parses a packet as far as a lenient parser can, and repairs wrong bytes. Throws Failure if it holds no
// rdf:RDF, or declares a document type, which XMP does not allow.
ParsedPacket parse_packet(const Packet& packet);

}  // namespace murmurase::xmp
