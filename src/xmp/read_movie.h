#pragma once

#include "xmp/movie.h"
#include "xmp/packet.h"

namespace murmurase::xmp {

// Reads `packet`, and then what it lacks from `sidecar`, if there is one; what the packet says of time
// comes before `clock`. Throws Failure, saying what and where, if either cannot be understood.
Movie read_movie(const Packet& packet, const MovieClock& clock, const Packet* sidecar = nullptr);

}  // namespace murmurase::xmp
