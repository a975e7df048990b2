#pragma once

#include <string>

#include "core/value.h"
#include "packet.h"

struct ParsedPacket {
  murmurase::XmlDocument document;
  std::string problem;  // The first fault of its XML and the line of it; empty if it has none.
};

// Parses a packet as far as a lenient parser can, and repairs wrong bytes. Throws Failure if it holds no
// rdf:RDF, or declares a document type, which XMP does not allow.
ParsedPacket parse_packet(const Packet& packet);
