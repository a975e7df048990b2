#pragma once

#include <string>

#include "find_packet.h"
#include "xmp/movie.h"

namespace murmurase::tool {

// What was found in `packet`, which `movie` was read from, and what `get` makes of it: as JSON, or
// as lines to be read. `path` names what was asked for. Throws Failure where `get` would.
std::string inspect(const std::string& path, const xmp::Packet& packet, xmp::Movie& movie,
                    bool as_json);

}  // namespace murmurase::tool
