#include "workbook/shared_strings.h"

#include <algorithm>
#include <functional>

#include "workbook/biff8.h"
#include "workbook/record_stream.h"

namespace murmurase::workbook {
namespace {

// Whether the last of these UTF-16LE units is the first half of a surrogate pair.
bool ends_in_high_surrogate(std::string_view units) {
  return (static_cast<unsigned char>(units.back()) & 0xFC) == 0xD8;
}

// How many bytes of `units` go into `room` bytes without cutting a character in two.
std::size_t fitting(std::string_view units, std::size_t room, bool wide) {
  if (units.size() <= room) return units.size();
  if (!wide) return room;
  room -= room % 2;
  if (room > 0 && ends_in_high_surrogate(units.substr(0, room))) room -= 2;
  return room;
}

}  // namespace

bool SharedStrings::equal(std::uint32_t index, std::string_view encoded) const {
  return texts_.compare(offsets_[index], encoded.size(), encoded) == 0;
}

void SharedStrings::grow() {
  std::vector<Slot> old(std::max<std::size_t>(1024, 2 * slots_.size()));
  old.swap(slots_);
  const std::size_t mask = slots_.size() - 1;
  for (const Slot slot : old) {
    if (slot.number == 0) continue;
    std::size_t place = slot.hash & mask;
    while (slots_[place].number != 0) place = (place + 1) & mask;
    slots_[place] = slot;
  }
}

std::uint32_t SharedStrings::add(std::string_view encoded) {
  if (2 * (offsets_.size() + 1) > slots_.size()) grow();
  const std::size_t mask = slots_.size() - 1;
  const auto hash = static_cast<std::uint32_t>(std::hash<std::string_view>{}(encoded));
  std::size_t place = hash & mask;
  for (; slots_[place].number != 0; place = (place + 1) & mask) {
    const Slot slot = slots_[place];
    if (slot.hash == hash && equal(slot.number - 1, encoded)) return slot.number - 1;
  }
  const auto index = static_cast<std::uint32_t>(offsets_.size());
  offsets_.push_back(static_cast<std::uint32_t>(texts_.size()));
  texts_.append(encoded);
  slots_[place] = {hash, index + 1};
  return index;
}

void SharedStrings::finish() { std::vector<Slot>().swap(slots_); }

void SharedStrings::write(RecordStream& out, std::uint32_t references) const {
  const std::size_t count = offsets_.size();
  const std::size_t per_bucket =
      std::max(biff8::min_texts_per_bucket, (count + biff8::max_buckets - 1) / biff8::max_buckets);
  std::string buckets;
  append(buckets, static_cast<std::uint16_t>(per_bucket));

  std::string record;
  biff8::Type type = biff8::Type::sst;
  append(record, references);
  append(record, static_cast<std::uint32_t>(count));
  const auto next_record = [&] {
    out.record(type, std::string_view(record));
    type = biff8::Type::continue_;
    record.clear();
  };

  for (std::size_t index = 0; index < count; ++index) {
    const std::size_t end = index + 1 < count ? offsets_[index + 1] : texts_.size();
    const auto text = std::string_view(texts_).substr(offsets_[index], end - offsets_[index]);
    const char option = text[2];
    const bool wide = option == biff8::option_16_bit;
    std::string_view units = text.substr(biff8::text_header_size);

    // A text's header stays whole, and in one record with its first character.
    const std::size_t room = biff8::max_record_data - record.size();
    if (room < biff8::text_header_size ||
        (!units.empty() && fitting(units, room - biff8::text_header_size, wide) == 0)) {
      next_record();
    }
    if (index % per_bucket == 0) {
      const std::size_t offset = biff8::record_header_size + record.size();
      append(buckets, static_cast<std::uint32_t>(out.position() + offset));
      append(buckets, static_cast<std::uint16_t>(offset));
      append(buckets, std::uint16_t{0});
    }
    record.append(text.substr(0, biff8::text_header_size));
    for (;;) {
      const std::size_t part = fitting(units, biff8::max_record_data - record.size(), wide);
      record.append(units.substr(0, part));
      units.remove_prefix(part);
      if (units.empty()) break;
      next_record();
      record.push_back(option);
    }
  }
  next_record();
  out.record(biff8::Type::ext_sst, std::string_view(buckets));
}

}  // namespace murmurase::workbook
