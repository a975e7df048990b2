#include "workbook/compound_file.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "workbook/record_stream.h"

namespace murmurase::workbook {
namespace {

using u8 = std::uint8_t;
using u16 = std::uint16_t;
using u32 = std::uint32_t;

constexpr std::size_t sector = 512;
constexpr std::size_t mini_stream_cutoff =
    4096;                                      // a stream from this size on has sectors of its own
constexpr u32 entries = sector / sizeof(u32);  // of a sector full of sector numbers
constexpr u32 header_fat_sectors = 109;        // those that the header lists itself

// What stands for the number of a sector.
constexpr u32 no_sector = 0xFFFFFFFF;
constexpr u32 end_of_chain = 0xFFFFFFFE;
constexpr u32 fat_sector = 0xFFFFFFFD;
constexpr u32 difat_sector = 0xFFFFFFFC;

constexpr std::string_view signature = "\xD0\xCF\x11\xE0\xA1\xB1\x1A\xE1";
constexpr std::string_view workbook_class("\x20\x08\x02\0\0\0\0\0\xC0\0\0\0\0\0\0\x46", 16);
constexpr u8 stream_entry = 2;
constexpr u8 root_entry = 5;

// Puts fields at the end of a file.
class Writer {
 public:
  explicit Writer(ByteBuffer& file) : file_(file) {}

  template <class... Fields>
  void put(Fields... fields) {
    (put_one(fields), ...);
  }
  void repeat(u32 number, std::size_t times) {
    for (; times > 0; --times) put(number);
  }
  void zeros(std::size_t count) {
    if (count == 0) return;
    std::memset(file_.room(count).data(), 0, count);
    file_.grow(count);
  }

 private:
  void put_one(std::string_view bytes) {
    store(file_.room(bytes.size()).data(), bytes);
    file_.grow(bytes.size());
  }
  template <class Field>
  void put_one(Field field) {
    store(file_.room(sizeof field).data(), field);
    file_.grow(sizeof field);
  }

  ByteBuffer& file_;
};

// Where everything lies, in sectors counted from behind the header: the stream, the directory, the FAT
// that chains the sectors, and the DIFAT that lists the sectors of the FAT which the header does not.
struct Layout {
  u32 directory;
  u32 fat_sectors = 0;
  u32 difat_sectors = 0;

  explicit Layout(std::size_t stream_size) : directory(static_cast<u32>(stream_size / sector)) {
    while (fat_sectors * entries < end()) {
      ++fat_sectors;
      if (fat_sectors > header_fat_sectors) {
        difat_sectors = (fat_sectors - header_fat_sectors + entries - 2) / (entries - 1);
      }
    }
  }
  u32 fat() const { return directory + 1; }
  u32 difat() const { return fat() + fat_sectors; }
  u32 end() const { return difat() + difat_sectors; }
};

void put_entry(Writer& out, std::string_view name, u8 type, u32 child, std::string_view class_id,
               u32 first_sector, u32 size) {
  for (const char c : name) out.put(static_cast<u16>(c));
  out.zeros(64 - 2 * name.size());
  const auto name_size = static_cast<u16>(name.empty() ? 0 : 2 * (name.size() + 1));
  out.put(name_size, type, static_cast<u8>(type == 0 ? 0 : 1), no_sector, no_sector, child,
          class_id);
  out.zeros(20);  // state, creation and modification time
  out.put(first_sector, size, u32{0});
}

void put_directory(Writer& out, u32 stream_size) {
  constexpr static char zeros[16] = {};
  constexpr std::string_view no_class(zeros, sizeof zeros);
  put_entry(out, "Root Entry", root_entry, 1, workbook_class, end_of_chain, 0);
  put_entry(out, "Workbook", stream_entry, no_sector, no_class, 0, stream_size);
  for (int unused = 0; unused < 2; ++unused) put_entry(out, "", 0, no_sector, no_class, 0, 0);
}

void put_fat(Writer& out, const Layout& layout) {
  for (u32 next = 1; next < layout.directory; ++next) out.put(next);
  out.put(end_of_chain, end_of_chain);  // of the stream and of the directory
  out.repeat(fat_sector, layout.fat_sectors);
  out.repeat(difat_sector, layout.difat_sectors);
  out.repeat(no_sector, layout.fat_sectors * entries - layout.end());
}

void put_difat(Writer& out, const Layout& layout) {
  u32 next_fat = layout.fat() + header_fat_sectors;
  for (u32 each = 1; each <= layout.difat_sectors; ++each) {
    for (u32 entry = 1; entry < entries; ++entry) {
      out.put(next_fat < layout.difat() ? next_fat++ : no_sector);
    }
    out.put(each < layout.difat_sectors ? layout.difat() + each : end_of_chain);
  }
}

void put_header(Writer& out, const Layout& layout) {
  out.put(signature);
  out.zeros(16);
  out.put(u16{0x003E}, u16{3}, u16{0xFFFE}, u16{9},
          u16{6});  // version 3; sectors of 2^9, 2^6 bytes
  out.zeros(10);
  out.put(layout.fat_sectors, layout.directory, u32{0}, u32{mini_stream_cutoff}, end_of_chain,
          u32{0}, layout.difat_sectors > 0 ? layout.difat() : end_of_chain, layout.difat_sectors);
  const u32 listed = std::min(layout.fat_sectors, header_fat_sectors);
  for (u32 each = 0; each < listed; ++each) out.put(layout.fat() + each);
  out.repeat(no_sector, header_fat_sectors - listed);
}

}  // namespace

void begin_compound_file(ByteBuffer& file) { Writer(file).zeros(sector); }

void finish_compound_file(ByteBuffer& file) {
  Writer out(file);
  std::size_t size = file.view().size() - sector;
  if (size < mini_stream_cutoff) {
    out.zeros(mini_stream_cutoff - size);
    size = mini_stream_cutoff;
  }
  out.zeros((sector - size % sector) % sector);
  const Layout layout(file.view().size() - sector);
  put_directory(out, static_cast<u32>(size));
  put_fat(out, layout);
  put_difat(out, layout);
  ByteBuffer header;
  Writer begin(header);
  put_header(begin, layout);
  store(file.data(), header.view());
}

}  // namespace murmurase::workbook
