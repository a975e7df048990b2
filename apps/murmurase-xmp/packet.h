#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "core/numbers.h"

// An XMP packet, byte for byte as it was found.
struct Packet {
  std::filesystem::path file;  // Where it was found: the movie itself, or a sidecar.
  std::string bytes;
};

// Finds the packet of `movie`: the one embedded in it, else the whole of its sidecar (`clip.xmp`
// or `clip.mov.xmp` beside `clip.mov`). A `movie` that is an .xmp file is taken for the packet
// itself. xmp_init() must have been called. Throws Failure if there is no packet, or if the movie
// cannot be read, is truncated, or is not one.
Packet find_packet(const std::filesystem::path& movie);

// Whether the name of `path` ends in .xmp, in whatever case.
inline bool is_xmp_file(const std::filesystem::path& path) {
  return murmurase::ascii_upper(path.extension().native()) == ".XMP";
}

// The timecode and its format that libexempi makes out of the timecode track of `movie`; nothing if
// there is none.
struct TrackTimecode {
  std::string format;
  std::string value;
};
std::optional<TrackTimecode> read_timecode_track(const std::filesystem::path& movie);
