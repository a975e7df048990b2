#include "strict_workbook.h"

#include <array>
#include <cstdint>
#include <vector>

#include "check.h"
#include "core/utf8.h"

namespace murmurase::fuzz {
namespace {

constexpr std::size_t sector = 512;

// Numbers off a view's front, little-endian, each of which must be there.
struct Bytes {
  std::string_view rest;

  std::string_view take(std::size_t count) {
    check(rest.size() >= count, "the bytes announced are there");
    const std::string_view taken = rest.substr(0, count);
    rest.remove_prefix(count);
    return taken;
  }
  std::uint32_t number(std::size_t size) {
    std::uint32_t value = 0;
    const std::string_view bytes = take(size);
    for (std::size_t i = 0; i < size; ++i) {
      value |= std::uint32_t{static_cast<unsigned char>(bytes[i])} << (8 * i);
    }
    return value;
  }
  std::uint32_t u8() { return number(1); }
  std::uint32_t u16() { return number(2); }
  std::uint32_t u32() { return number(4); }
  void zeros(std::size_t count) {
    for (const char c : take(count)) check(c == '\0', "what is unused is 0");
  }
};

std::uint32_t u32_at(std::string_view bytes, std::size_t place) {
  check(place <= bytes.size(), "a position is inside");
  return Bytes{bytes.substr(place)}.u32();
}

// The compound file's only stream. Every sector has one owner.
std::string stream_of(std::string_view file) {
  check(file.size() % sector == 0 && file.size() >= 4 * sector, "the file is whole sectors");
  Bytes header{file.substr(0, sector)};
  check(header.take(8) == "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1", "the signature");
  header.zeros(16);
  check(header.take(10) == std::string_view("\x3E\0\x03\0\xFE\xFF\x09\0\x06\0", 10), "the version");
  header.zeros(10);
  const std::uint32_t fat_sectors = header.u32();
  const std::uint32_t directory = header.u32();
  header.zeros(4);
  check(header.u32() == 4096, "where small streams end");
  check(header.u32() == 0xFFFFFFFE && header.u32() == 0, "no mini stream");
  check(header.u32() == 0xFFFFFFFE && header.u32() == 0, "a small file: no list of FAT sectors");
  check(fat_sectors > 0 && fat_sectors <= 109, "the header lists the FAT");

  const std::string_view body = file.substr(sector);
  const std::size_t sectors = body.size() / sector;
  std::string fat;
  std::vector<int> owners(sectors);
  for (std::uint32_t i = 0; i < 109; ++i) {
    const std::uint32_t place = header.u32();
    if (i >= fat_sectors) {
      check(place == 0xFFFFFFFF, "no more FAT sectors");
      continue;
    }
    check(place < sectors, "a FAT sector is inside");
    fat += body.substr(place * sector, sector);
    ++owners[place];
  }
  const auto chain = [&](std::uint32_t at) {
    std::string bytes;
    for (; at != 0xFFFFFFFE; at = u32_at(fat, std::size_t{4} * at)) {
      check(at < sectors && ++owners[at] == 1, "a sector belongs to one chain");
      bytes += body.substr(at * sector, sector);
    }
    return bytes;
  };
  const std::string entries = chain(directory);
  check(entries.size() == sector, "a directory of four entries");
  const auto entry_name = [&](std::size_t i) {
    std::string name;
    for (std::size_t at = 128 * i; entries[at] != '\0'; at += 2) name += entries[at];
    return name;
  };
  check(entry_name(0) == "Root Entry" && entry_name(1) == "Workbook", "the directory's names");
  check(entries[66] == 5 && entries[128 + 66] == 2, "a root and a stream");
  check(u32_at(entries, 76) == 1, "the stream is the root's");
  std::string stream = chain(u32_at(entries, 128 + 116));
  const std::uint32_t size = u32_at(entries, 128 + 120);
  check(size >= 4096 && size <= stream.size() && stream.size() - size < sector,
        "the stream's size");
  for (std::size_t i = 0; i < sectors; ++i) {
    check(owners[i] == 1, "every sector has an owner");
    const bool is_fat = u32_at(fat, 4 * i) == 0xFFFFFFFD;
    check(u32_at(fat, 4 * i) != 0xFFFFFFFF && (!is_fat || u32_at(fat, 4 * i) == 0xFFFFFFFD),
          "in use");
  }
  for (std::size_t i = sectors; i < fat.size() / 4; ++i) {
    check(u32_at(fat, 4 * i) == 0xFFFFFFFF, "nothing behind the end");
  }
  stream.resize(size);
  return stream;
}

struct RecordAt {
  std::uint32_t type;
  std::uint32_t position;
  std::string_view data;
};

// The length of each kind's data; kinds that are not here have lengths of their own.
std::size_t length_of(std::uint32_t type) {
  constexpr std::array<std::array<std::uint16_t, 2>, 45> lengths = {
      {{0x809, 16}, {0xE1, 2},  {0xC1, 2},  {0xE2, 0},  {0x5C, 112}, {0x42, 2},  {0x161, 2},
       {0x13D, 2},  {0x19, 2},  {0x12, 2},  {0x13, 2},  {0x1AF, 2},  {0x1BC, 2}, {0x3D, 18},
       {0x40, 2},   {0x8D, 2},  {0x22, 2},  {0x0E, 2},  {0x1B7, 2},  {0xDA, 2},  {0x31, 21},
       {0xE0, 20},  {0x293, 4}, {0x160, 2}, {0x85, 14}, {0x8C, 4},   {0x0A, 0},  {0x0D, 2},
       {0x0C, 2},   {0x0F, 2},  {0x11, 2},  {0x10, 8},  {0x5F, 2},   {0x2A, 2},  {0x2B, 2},
       {0x82, 2},   {0x80, 8},  {0x225, 4}, {0x81, 2},  {0x14, 0},   {0x15, 0},  {0x83, 2},
       {0x84, 2},   {0xA1, 34}, {0x55, 2}}};
  constexpr std::array<std::array<std::uint16_t, 2>, 10> further_lengths = {{{0x7D, 12},
                                                                             {0x200, 14},
                                                                             {0x208, 16},
                                                                             {0xFD, 10},
                                                                             {0x23E, 18},
                                                                             {0x1D, 15},
                                                                             {0x41, 10},
                                                                             {0x1AE, 4},
                                                                             {0x17, 8},
                                                                             {0x18, 27}}};
  for (const auto& [kind, length] : lengths) {
    if (kind == type) return length;
  }
  for (const auto& [kind, length] : further_lengths) {
    if (kind == type) return length;
  }
  const bool own_length =
      type == 0xFC || type == 0x3C || type == 0xFF || type == 0x20B || type == 0xD7;
  check(own_length, "a record's kind is known");
  return SIZE_MAX;
}

// All records; behind the last one there are zeros.
std::vector<RecordAt> records_of(std::string_view stream) {
  std::vector<RecordAt> records;
  Bytes bytes{stream};
  for (int ends = 0; ends < 2;) {
    const auto position = static_cast<std::uint32_t>(stream.size() - bytes.rest.size());
    const std::uint32_t type = bytes.u16();
    const std::uint32_t length = bytes.u16();
    check(length <= 8224, "a record's greatest length");
    check(length_of(type) == SIZE_MAX || length_of(type) == length, "a record's length");
    records.push_back({type, position, bytes.take(length)});
    if (type == 0x0A) ++ends;
  }
  bytes.zeros(bytes.rest.size());
  return records;
}

void append_utf8(std::string& text, std::uint32_t character) {
  const auto put = [&](std::uint32_t byte) { text += static_cast<char>(byte); };
  if (character < 0x80) return put(character);
  if (character < 0x800) {
    put(0xC0 | character >> 6);
  } else if (character < 0x10000) {
    put(0xE0 | character >> 12);
    put(0x80 | (character >> 6 & 0x3F));
  } else {
    put(0xF0 | character >> 18);
    put(0x80 | (character >> 12 & 0x3F));
    put(0x80 | (character >> 6 & 0x3F));
  }
  put(0x80 | (character & 0x3F));
}

// The shared texts, over SST and the CONTINUE records behind it, and where each begins.
struct Texts {
  std::vector<std::string> texts;
  std::vector<std::array<std::uint32_t, 2>> places;  // in the stream, and in the record
  std::uint32_t references = 0;
};

Texts texts_of(const std::vector<RecordAt>& records, std::size_t at) {
  Texts found;
  Bytes bytes{records[at].data};
  found.references = bytes.u32();
  const std::uint32_t count = bytes.u32();
  for (std::uint32_t i = 0; i < count; ++i) {
    if (bytes.rest.empty()) {
      check(records[++at].type == 0x3C, "the texts go on");
      bytes.rest = records[at].data;
    }
    const auto offset = static_cast<std::uint32_t>(4 + records[at].data.size() - bytes.rest.size());
    found.places.push_back({records[at].position + offset, offset});
    const std::uint32_t units = bytes.u16();
    std::uint32_t wide = bytes.u8();
    check(units <= 32767 && wide <= 1, "a text's header");
    std::string text;
    std::uint32_t high = 0;
    bool needs_wide = false;
    for (std::uint32_t unit = 0; unit < units; ++unit) {
      if (bytes.rest.empty()) {
        check(unit > 0 && high == 0, "a text is cut between characters, behind its first");
        check(records[++at].type == 0x3C, "a text goes on");
        bytes.rest = records[at].data;
        check(bytes.u8() == wide, "a cut text stays as wide");
      }
      const std::uint32_t value = bytes.number(1 + wide);
      needs_wide |= value > 0xFF;
      check((value >> 10 == 0x37) == (high != 0), "surrogates are pairs");
      if (value >> 10 == 0x36) {
        high = value;
        continue;
      }
      append_utf8(text, high != 0 ? 0x10000 + ((high & 0x3FF) << 10) + (value & 0x3FF) : value);
      high = 0;
    }
    check(high == 0, "no half character at the end");
    check(needs_wide == (wide == 1), "no text is wider than it needs");
    found.texts.push_back(text);
  }
  check(bytes.rest.empty(), "nothing behind the texts");
  check(records[at + 1].type == 0xFF, "the index of the texts is next");
  Bytes index{records[at + 1].data};
  const std::uint32_t step = index.u16();
  for (std::uint32_t i = 0; i < count; i += step) {
    check(step >= 8, "texts in a bucket");
    check(index.u32() == found.places[i][0] && index.u16() == found.places[i][1],
          "a bucket's place");
    index.zeros(2);
  }
  check(index.rest.empty(), "nothing behind the buckets");
  return found;
}

}  // namespace

bool fits_a_cell(std::string_view text) {
  std::size_t units = 0;
  for (std::size_t length = 0; !text.empty(); text.remove_prefix(length)) {
    length = text.front() == '\0' ? 0 : utf8_character(text);
    if (length == 0) return false;
    units += length == 4 ? 2 : 1;
  }
  return units <= 32767;
}

std::map<CellPlace, StrictCell> read_strictly(std::string_view file) {
  const std::string stream = stream_of(file);
  const std::vector<RecordAt> records = records_of(stream);
  const auto at_position = [&](std::uint32_t position, std::uint32_t type) {
    for (const RecordAt& record : records) {
      if (record.position == position) return record.type == type;
    }
    return false;
  };
  std::map<CellPlace, StrictCell> cells;
  Texts texts;
  std::vector<std::uint32_t> blocks;
  std::vector<std::uint32_t> promised_blocks;
  std::uint32_t references = 0;
  for (std::size_t i = 0; i < records.size(); ++i) {
    const auto& [type, position, data] = records[i];
    Bytes bytes{data};
    if (type == 0x85)
      check(bytes.u32() > 0 && at_position(u32_at(data, 0), 0x809), "the sheet's place");
    if (type == 0xFC) texts = texts_of(records, i);
    if (type == 0xD7) blocks.push_back(position);
    if (type == 0x20B) {
      bytes.take(12);
      check(at_position(bytes.u32(), 0x55), "the place of the widths");
      while (!bytes.rest.empty()) promised_blocks.push_back(bytes.u32());
    }
    if (type != 0xFD) continue;
    const CellPlace place{bytes.u16(), bytes.u16()};
    const std::uint32_t format = bytes.u16();
    const std::uint32_t text = bytes.u32();
    check(place.column < 256 && (format == 15 || format == 16) && text < texts.texts.size(),
          "a cell");
    check(cells.empty() || cells.rbegin()->first < place,
          "cells from left to right, top to bottom");
    cells[place] = {texts.texts[text], format == 16};
    ++references;
  }
  check(texts.references == references, "as many cells as announced");
  check(blocks == promised_blocks, "the places of the blocks");
  return cells;
}

}  // namespace murmurase::fuzz
