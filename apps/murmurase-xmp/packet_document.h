#pragma once

#include <string>

#include "core/value.h"
#include "packet.h"

struct ParsedPacket {
  murmurase::XmlDocument document;
  std::string problem;  // The first fault of its XML and the line of it; empty if it has none.
};

// Parses a packet as far as a lenient parser can, wrong bytes repaired. Throws Failure if there is no
// rdf:RDF in it, and for a document type, which XMP has not.
ParsedPacket parse_packet(const Packet& packet);
