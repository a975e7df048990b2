#pragma once

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <optional>

// A stretch of a file, in bytes.
struct Extent {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
};

// Walks the boxes of a QuickTime or MPEG-4 movie of `size` bytes (ISO/IEC 14496-12, 4.2) and
// returns where its XMP packet lies: in moov/udta/XMP_ or in the uuid box of XMP (ISO 16684-3).
// Nothing if it has none there, or more than one. Throws Failure if the movie ends before its
// boxes do, has no moov box, or has boxes nested without measure.
std::optional<Extent> find_packet_box(const std::filesystem::path& movie, std::FILE* file,
                                      std::uint64_t size);

// Whether the movie has a track of timecode (a moov/trak/mdia/hdlr of the type tmcd).
bool has_timecode_track(std::FILE* file, std::uint64_t size);
