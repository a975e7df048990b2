#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "platform/posix/files.h"

namespace murmurase::media {

// A stretch of a file, in bytes.
struct Extent {
  std::uint64_t offset = 0;
  std::uint64_t length = 0;
};

// A regular file that is opened once, and is the same whatever becomes of its name.
class InputFile {
 public:
  // Throws Failure unless `path` is a regular file with something in it. Never waits for a fifo.
  explicit InputFile(const std::filesystem::path& path);

  const std::filesystem::path& path() const { return path_; }
  std::uint64_t size() const { return size_; }

  // The bytes at `offset`, fewer than `length` at the end of the file. Valid until the next call.
  std::string_view read(std::uint64_t offset, std::size_t length) {
    if (offset < start_ || offset + length > start_ + buffer_.size()) fill(offset, length);
    return std::string_view(buffer_).substr(static_cast<std::size_t>(offset - start_), length);
  }

  // All bytes of a stretch. Throws Failure if the file has become shorter.
  std::string read_whole(Extent extent) const;

  // A path by which a library can open this very file.
  std::string descriptor_path() const;

 private:
  void fill(std::uint64_t offset, std::size_t length);

  std::filesystem::path path_;
  FileDescriptor descriptor_;
  std::uint64_t size_ = 0;
  std::string buffer_;
  std::uint64_t start_ = 0;  // The offset of what the buffer holds.
};

}  // namespace murmurase::media
