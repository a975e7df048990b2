#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace host {

// A file that is opened once and then looked at, so that nothing can take its place in between. A pipe
// that nobody writes to is empty, and nothing waits for a writer.
class InputFile {
 public:
  explicit InputFile(const std::string& path);  // is_open() says whether it could be; else errno
  InputFile(const InputFile&) = delete;
  InputFile& operator=(const InputFile&) = delete;
  ~InputFile();

  bool is_open() const { return descriptor_ >= 0; }

  // At most `size` bytes from there on; fewer at the end of the file, and on an error, which errno keeps.
  std::string read_at(std::uint64_t offset, std::size_t size) const;

  // Appends all the bytes that are still to be read. Gives 0, or errno: EFBIG for more than `most`.
  [[nodiscard]] int read_all(std::string& bytes, std::size_t most) const;

 private:
  int descriptor_;
};

}  // namespace host
