#pragma once

#include <array>
#include <cstdint>
#include <initializer_list>
#include <optional>
#include <string_view>

#include "media/input_file.h"

namespace murmurase::media {

// A box of a QuickTime or MPEG-4 movie (ISO/IEC 14496-12, 4.2).
struct Box {
  std::array<char, 4> type_bytes{};
  Extent content;
  std::uint64_t missing = 0;  // How many bytes of it lie beyond the end of what holds it.

  std::string_view type() const { return {type_bytes.data(), type_bytes.size()}; }
};

// Walks the boxes that lie one after the other in a stretch of a file.
class Boxes {
 public:
  Boxes(InputFile& file, Extent parent) : file_(file), rest_(parent) {}

  // Nothing after the last one. A size of 0 means the rest of the stretch, as does a box that is too
  // long, which is then the last.
  std::optional<Box> next();

 private:
  InputFile& file_;
  Extent rest_;
};

// The content of the first box at the end of `path`, such as minf, stbl, stts, within `parent`.
std::optional<Extent> find_box(InputFile& file, Extent parent,
                               std::initializer_list<std::string_view> path);

// The big-endian number of 1 to 8 bytes at `offset` in a box's content; 0 if the box ends before it.
std::uint64_t number_in(InputFile& file, Extent content, std::uint64_t offset, unsigned bytes);

// What a movie's boxes hold for us.
struct MovieBoxes {
  Extent moov;
  std::optional<Extent> packet;  // In moov/udta/XMP_ or in the uuid box of XMP (ISO 16684-3).
};

// Nothing if `file` is not made of boxes, or holds a picture. If it has both packets, that of its
// format counts. Throws Failure if the movie ends before its boxes do or has no moov box.
std::optional<MovieBoxes> find_movie_boxes(InputFile& file);

}  // namespace murmurase::media
