#pragma once

#include <string>
#include <string_view>
#include <utility>

#include "core/error.h"
#include "platform/byte_buffer.h"

namespace murmurase {

// Owns an open file descriptor.
class FileDescriptor {
 public:
  explicit FileDescriptor(int descriptor) : descriptor_(descriptor) {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor_(other.descriptor_) {
    other.descriptor_ = -1;
  }
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  ~FileDescriptor() { close(); }

  int get() const { return descriptor_; }
  int close();  // 0, or errno

 private:
  int descriptor_;
};

// Appends all there is to read. Gives 0, or errno: EFBIG beyond most_bytes.
[[nodiscard]] int read_all(int descriptor, ByteBuffer& buffer);

// Argument error for a zero byte in the path.
void check_path(const std::string& path);

// The error of a read that gave this number.
Error read_error(std::string_view what, int number);

// As Platform::read_file.
ByteBuffer read_file(const std::string& path);

}  // namespace murmurase
