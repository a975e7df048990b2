#pragma once

#include <gsf/gsf-output.h>

#include <bit>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "platform/workbook/biff8.h"

namespace murmurase::workbook {

/// Stores a field little-endian, the byte order of BIFF8.
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

/// The workbook's records on their way into a stream of the compound file, a piece at a time.
class RecordStream {
 public:
  explicit RecordStream(GsfOutput* stream);

  /// Writes one record: its type, its size and its fields (unsigned integers, doubles, bytes), of
  /// biff8::max_record_data bytes at most.
  template <class... Fields>
  void record(biff8::Type type, Fields... fields) {
    const auto size = (std::size_t{0} + ... + field_size(fields));
    if (used_ + biff8::record_header_size + size > capacity) flush();
    put(static_cast<std::uint16_t>(type));
    put(static_cast<std::uint16_t>(size));
    (put(fields), ...);
  }

  /// The stream position of the next record.
  [[nodiscard]] std::size_t position() const { return written_ + used_; }

  /// Writes over bytes written earlier.
  void patch(std::size_t position, std::string_view bytes);

  /// Hands all records on to the compound file.
  void flush();

 private:
  static constexpr std::size_t capacity = 65536;

  static std::size_t field_size(std::string_view bytes) { return bytes.size(); }
  template <class Field>
  static std::size_t field_size(Field) {
    return sizeof(Field);
  }
  template <class Field>
  void put(Field field) {
    store(buffer_.get() + used_, field);
    used_ += field_size(field);
  }
  void write(std::string_view bytes);
  void seek(std::size_t position);

  GsfOutput* stream_;
  std::unique_ptr<char[]> buffer_ = std::make_unique<char[]>(capacity);
  std::size_t used_ = 0;
  std::size_t written_ = 0;
};

}  // namespace murmurase::workbook
