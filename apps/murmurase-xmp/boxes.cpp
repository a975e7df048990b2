#include "boxes.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <string_view>
#include <utility>
#include <vector>

#include "failure.h"

namespace {

constexpr std::string_view xmp_uuid =
    "\xBE\x7A\xCF\xCB\x97\xA9\x42\xE8\x9C\x71\x99\x94\x91\xE3\xAF\xAC";

struct Box {
  std::array<char, 32> head{};  // Size, type, perhaps a long size, perhaps a UUID.
  bool long_size = false;
  Extent content;
  std::uint64_t missing = 0;  // How many bytes of it lie beyond the end of what holds it.

  std::string_view type() const { return {head.data() + 4, 4}; }
  std::string_view uuid() const { return {head.data() + (long_size ? 16 : 8), 16}; }
};

std::uint64_t big_endian(std::string_view bytes) {
  std::uint64_t value = 0;
  for (const char byte : bytes) value = value << 8 | static_cast<unsigned char>(byte);
  return value;
}

// The boxes that lie one after the other in `parent`. A size of 0 means the rest of it, as does a
// box that is too long, which is then the last.
std::vector<Box> boxes_in(std::FILE* file, Extent parent) {
  std::vector<Box> boxes;
  while (parent.length >= 8) {
    Box box;
    if (fseeko(file, static_cast<off_t>(parent.offset), SEEK_SET) != 0 ||
        std::fread(box.head.data(), 1, box.head.size(), file) < 8)
      break;
    const std::string_view head(box.head.data(), box.head.size());
    std::uint64_t length = big_endian(head.substr(0, 4));
    box.long_size = length == 1;
    const std::uint64_t header = box.long_size ? 16 : 8;
    if (box.long_size) length = big_endian(head.substr(8, 8));
    if (length == 0) length = parent.length;
    if (length < header) break;  // Padding after the last box.
    if (length > parent.length) {
      box.missing = length - parent.length;
      length = parent.length;
    }
    box.content = {parent.offset + header, length - std::min(length, header)};
    boxes.push_back(box);
    parent.offset += length;
    parent.length -= length;
  }
  return boxes;
}

// The boxes of that type which lie in any of `parents`.
std::vector<Extent> boxes_of(std::FILE* file, const std::vector<Extent>& parents,
                             std::string_view type) {
  std::vector<Extent> found;
  for (const Extent parent : parents) {
    for (const Box& box : boxes_in(file, parent)) {
      if (box.type() == type) found.push_back(box.content);
    }
  }
  return found;
}

// libexempi descends into these by recursion, as deep as they go.
void refuse_deep_boxes(const std::filesystem::path& movie, std::FILE* file, Extent moov) {
  constexpr std::array<std::string_view, 10> containers{"moov", "trak", "edts", "mdia", "minf",
                                                        "dinf", "stbl", "udta", "meta", "ilst"};
  constexpr int most_levels = 32;
  std::vector<Extent> level{moov};
  for (int depth = 0; !level.empty(); ++depth) {
    if (depth == most_levels)
      fail("cannot read {}: its boxes are nested deeper than {} levels; {}",
           in_quotes(movie.native()), most_levels, copy_again);
    std::vector<Extent> next;
    for (const Extent parent : level) {
      for (const Box& box : boxes_in(file, parent)) {
        if (std::ranges::find(containers, box.type()) != containers.end())
          next.push_back(box.content);
      }
    }
    level = std::move(next);
  }
}

}  // namespace

std::optional<Extent> find_packet_box(const std::filesystem::path& movie, std::FILE* file,
                                      std::uint64_t size) {
  std::vector<Extent> packets;
  bool has_moov = false;
  for (const Box& box : boxes_in(file, {0, size})) {
    if (box.missing > 0)
      fail("cannot read {}: it is truncated, {} bytes short within its {} box; {}",
           in_quotes(movie.native()), box.missing, in_quotes(box.type()), copy_again);
    if (box.type() == "uuid" && box.content.length > 16 && box.uuid() == xmp_uuid)
      packets.push_back({box.content.offset + 16, box.content.length - 16});
    if (box.type() != "moov") continue;
    has_moov = true;
    refuse_deep_boxes(movie, file, box.content);
    for (const Box& part : boxes_in(file, box.content)) {
      if (part.type() != "udta") continue;
      for (const Box& item : boxes_in(file, part.content))
        if (item.type() == "XMP_" && item.missing == 0 && item.content.length > 0)
          packets.push_back(item.content);
    }
  }
  if (!has_moov)
    fail("cannot read {}: it is truncated or was never finished, it has no moov box; {}",
         in_quotes(movie.native()), copy_again);
  if (packets.size() != 1) return std::nullopt;
  return packets.front();
}

bool has_timecode_track(std::FILE* file, std::uint64_t size) {
  std::vector<Extent> boxes{{0, size}};
  for (const char* const type : {"moov", "trak", "mdia", "hdlr"}) {
    boxes = boxes_of(file, boxes, type);
  }
  return std::any_of(boxes.begin(), boxes.end(), [&](Extent handler) {
    std::array<char, 12> head{};  // Version and flags, component type, component subtype.
    return fseeko(file, static_cast<off_t>(handler.offset), SEEK_SET) == 0 &&
           std::fread(head.data(), 1, head.size(), file) == head.size() &&
           std::string_view(head.data() + 8, 4) == "tmcd";
  });
}
