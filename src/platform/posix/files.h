#pragma once

#include <string>
#include <string_view>

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
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  FileDescriptor& operator=(FileDescriptor&&) = delete;
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

// As Platform::replace_file.
void replace_file(const std::string& path, std::string_view bytes);

}  // namespace murmurase
