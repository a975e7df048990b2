#pragma once

#include <filesystem>
#include <optional>

#include "core/numbers.h"
#include "xmp/movie.h"
#include "xmp/packet.h"

namespace murmurase::tool {

// Finds the packet of `movie`: the one embedded in it, else the whole of its sidecar (`clip.xmp`
// or `clip.mov.xmp` beside `clip.mov`, the ending in small or capital letters). A `movie` that is an
// .xmp file is taken for the packet itself. Sets `clock`, unless it is null, to what the movie's file
// says of its time. Throws Failure if there is no packet, or if the movie cannot be read, is truncated,
// or is not one.
xmp::Packet find_packet(const std::filesystem::path& movie, xmp::MovieClock* clock);

// The sidecar of `movie`; nothing if there is none. Throws Failure if it cannot be read.
std::optional<xmp::Packet> find_sidecar(const std::filesystem::path& movie);

// Whether the name of `path` ends in .xmp, in whatever case.
inline bool is_xmp_file(const std::filesystem::path& path) {
  return ascii_upper(path.extension().native()) == ".XMP";
}

}  // namespace murmurase::tool
