#include "media/boxes.h"

#include <algorithm>

#include "xmp/failure.h"

namespace murmurase::media {
namespace {

constexpr std::string_view xmp_uuid =
    "\xBE\x7A\xCF\xCB\x97\xA9\x42\xE8\x9C\x71\x99\x94\x91\xE3\xAF\xAC";

std::uint64_t big_endian(std::string_view bytes) {
  std::uint64_t value = 0;
  for (const char byte : bytes) value = value << 8 | static_cast<unsigned char>(byte);
  return value;
}

// The first packet in the user data of `moov`.
std::optional<Extent> find_user_packet(InputFile& file, Extent moov) {
  Boxes parts(file, moov);
  while (const auto part = parts.next()) {
    if (part->type() != "udta") continue;
    Boxes items(file, part->content);
    while (const auto item = items.next())
      if (item->type() == "XMP_" && item->missing == 0 && item->content.length > 0)
        return item->content;
  }
  return std::nullopt;
}

bool is_packet(InputFile& file, const Box& box) {
  return box.type() == "uuid" && box.content.length > xmp_uuid.size() &&
         file.read(box.content.offset, xmp_uuid.size()) == xmp_uuid;
}

}  // namespace

std::optional<Box> Boxes::next() {
  const std::string_view head = file_.read(rest_.offset, 16);
  if (rest_.length < 8 || head.size() < 8) return std::nullopt;
  Box box;
  std::uint64_t length = big_endian(head.substr(0, 4));
  head.copy(box.type_bytes.data(), 4, 4);
  const std::uint64_t header = length == 1 ? 16 : 8;
  if (length == 1) length = big_endian(head.substr(8));
  if (length == 0) length = rest_.length;
  if (length < header) return std::nullopt;  // Padding after the last box.
  box.missing = length - std::min(length, rest_.length);
  length -= box.missing;
  box.content = {rest_.offset + header, length - std::min(length, header)};
  rest_ = {rest_.offset + length, rest_.length - length};
  return box;
}

std::optional<Extent> find_box(InputFile& file, Extent parent,
                               std::initializer_list<std::string_view> path) {
  for (const std::string_view type : path) {
    Boxes boxes(file, parent);
    std::optional<Box> box = boxes.next();
    while (box && box->type() != type) box = boxes.next();
    if (!box) return std::nullopt;
    parent = box->content;
  }
  return parent;
}

std::uint64_t number_in(InputFile& file, Extent content, std::uint64_t offset, unsigned bytes) {
  if (content.length < bytes || offset > content.length - bytes) return 0;
  return big_endian(file.read(content.offset + offset, bytes));
}

std::optional<MovieBoxes> find_movie_boxes(InputFile& file) {
  constexpr std::array<std::string_view, 8> first_boxes{"ftyp", "moov", "mdat", "wide",
                                                        "free", "skip", "pnot", "uuid"};
  MovieBoxes found;
  bool has_moov = false;
  bool is_picture = false;
  bool is_quicktime = true;
  bool at_start = true;
  std::optional<Extent> uuid_packet;
  Boxes boxes(file, {0, file.size()});
  while (const auto box = boxes.next()) {
    if (at_start && std::ranges::find(first_boxes, box->type()) == first_boxes.end())
      return std::nullopt;
    at_start = false;
    if (box->missing > 0) {
      xmp::fail("cannot read {}: it is truncated, {} bytes short within its {} box; {}",
                xmp::in_quotes(file.path().native()), box->missing, xmp::in_quotes(box->type()),
                xmp::copy_again);
    }
    if (box->type() == "ftyp") is_quicktime = file.read(box->content.offset, 4) == "qt  ";
    if (box->type() == "meta") is_picture = true;
    if (box->type() == "moov" && !has_moov) {
      has_moov = true;
      found.moov = box->content;
    }
    if (!uuid_packet && is_packet(file, *box))
      uuid_packet = {box->content.offset + xmp_uuid.size(), box->content.length - xmp_uuid.size()};
  }
  if (at_start || (is_picture && !has_moov)) return std::nullopt;
  if (!has_moov)
    xmp::fail("cannot read {}: it is truncated or was never finished, it has no moov box; {}",
              xmp::in_quotes(file.path().native()), xmp::copy_again);
  const std::optional<Extent> user_packet = find_user_packet(file, found.moov);
  found.packet = user_packet && (is_quicktime || !uuid_packet) ? user_packet : uuid_packet;
  return found;
}

}  // namespace murmurase::media
