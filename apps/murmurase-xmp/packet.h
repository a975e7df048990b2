#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "core/numbers.h"
#include "movie_clock.h"

// An XMP packet, byte for byte as it was found.
struct Packet {
  std::filesystem::path file;  // Where it was found: the movie itself, or a sidecar.
  std::string bytes;
};

// Finds the packet of `movie`: the one embedded in it, else the whole of its sidecar (`clip.xmp`
// or `clip.mov.xmp` beside `clip.mov`, the ending in small or capital letters). A `movie` that is an
// .xmp file is taken for the packet itself. Sets `clock`, unless it is null, to what the movie's file
// says of its time. Throws Failure if there is no packet, or if the movie cannot be read, is truncated,
// or is not one.
Packet find_packet(const std::filesystem::path& movie, MovieClock* clock);

// The sidecar of `movie`; nothing if there is none. Throws Failure if it cannot be read.
std::optional<Packet> find_sidecar(const std::filesystem::path& movie);

// Whether the name of `path` ends in .xmp, in whatever case.
inline bool is_xmp_file(const std::filesystem::path& path) {
  return murmurase::ascii_upper(path.extension().native()) == ".XMP";
}
