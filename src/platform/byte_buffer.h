#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <memory>
#include <new>
#include <span>
#include <string_view>

namespace murmurase {

// The most bytes that are read of anything, a file or a program's output. Far more than any movie's
// packet, and few enough to be worked on in memory.
inline constexpr std::size_t most_bytes = std::size_t{512} << 20;

// Bytes that grow at the end by realloc, which moves the pages of a large block instead of copying
// them, and that are not cleared before they are written.
class ByteBuffer {
 public:
  // Room for at least `least` more bytes, behind those that the buffer holds.
  std::span<char> room(std::size_t least) {
    if (capacity_ - size_ < least) {
      const std::size_t wanted = std::max(capacity_ * 2, size_ + least);
      void* grown = std::realloc(bytes_.get(), wanted);
      if (grown == nullptr) throw std::bad_alloc();
      static_cast<void>(bytes_.release());
      bytes_.reset(static_cast<char*>(grown));
      capacity_ = wanted;
    }
    return {bytes_.get() + size_, capacity_ - size_};
  }

  std::size_t size() const { return size_; }

  // Counts bytes that were written into the room as held.
  void grow(std::size_t count) { size_ += count; }

  char* data() { return bytes_.get(); }
  std::string_view view() const { return {bytes_.get(), size_}; }

 private:
  struct Free {
    void operator()(char* bytes) const { std::free(bytes); }
  };
  std::unique_ptr<char, Free> bytes_;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace murmurase
