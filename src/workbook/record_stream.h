#pragma once

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include "platform/byte_buffer.h"
#include "workbook/biff8.h"

namespace murmurase::workbook {

// Stores a field little-endian, the byte order of BIFF8.
template <std::unsigned_integral Field>
void store(char* place, Field field) {
  for (std::size_t i = 0; i < sizeof field; ++i) place[i] = static_cast<char>(field >> (8 * i));
}
inline void store(char* place, double field) { store(place, std::bit_cast<std::uint64_t>(field)); }
inline void store(char* place, std::string_view field) {
  std::memcpy(place, field.data(), field.size());
}

template <std::unsigned_integral Field>
void append(std::string& bytes, Field field) {
  char stored[sizeof field];
  store(stored, field);
  bytes.append(stored, sizeof field);
}

// The workbook's records, appended to the bytes of a file.
class RecordStream {
 public:
  // Begins where the file now ends. The file must outlive this object.
  explicit RecordStream(ByteBuffer& file) : file_(file), start_(file.view().size()) {}

  // Writes one record: its type, its size and its fields (unsigned integers, doubles, bytes), of
  // biff8::max_record_data bytes at most.
  template <class... Fields>
  void record(biff8::Type type, Fields... fields) {
    const auto size = (std::size_t{0} + ... + field_size(fields));
    char* place = file_.room(biff8::record_header_size + size).data();
    put(place, static_cast<std::uint16_t>(type));
    put(place, static_cast<std::uint16_t>(size));
    (put(place, fields), ...);
    file_.grow(biff8::record_header_size + size);
  }

  // The stream position of the next record.
  [[nodiscard]] std::size_t position() const { return file_.view().size() - start_; }

  // Writes over bytes written earlier.
  void patch(std::size_t position, std::string_view bytes) {
    store(file_.data() + start_ + position, bytes);
  }

 private:
  static std::size_t field_size(std::string_view bytes) { return bytes.size(); }
  template <class Field>
  static std::size_t field_size(Field) {
    return sizeof(Field);
  }
  template <class Field>
  static void put(char*& place, Field field) {
    store(place, field);
    place += field_size(field);
  }

  ByteBuffer& file_;
  std::size_t start_;
};

}  // namespace murmurase::workbook
