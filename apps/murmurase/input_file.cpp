#include "input_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace host {

InputFile::InputFile(const std::string& path)
    : descriptor_(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY)) {
  const int flags = descriptor_ < 0 ? -1 : fcntl(descriptor_, F_GETFL);
  // A read does wait for whoever writes a pipe.
  if (flags >= 0) fcntl(descriptor_, F_SETFL, flags & ~O_NONBLOCK);
}

InputFile::~InputFile() {
  if (descriptor_ >= 0) close(descriptor_);
}

std::string InputFile::read_at(std::uint64_t offset, std::size_t size) const {
  std::string bytes(size, '\0');
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count =
        pread(descriptor_, &bytes[done], size - done, static_cast<off_t>(offset + done));
    if (count == 0 || (count < 0 && errno != EINTR)) break;
    if (count > 0) done += static_cast<std::size_t>(count);
  }
  bytes.resize(done);
  return bytes;
}

int InputFile::read_all(std::string& bytes, std::size_t most) const {
  std::array<char, 1 << 16> part{};
  while (bytes.size() <= most) {
    const ssize_t count = read(descriptor_, part.data(), part.size());
    if (count == 0) return 0;
    if (count < 0 && errno != EINTR) return errno;
    if (count > 0) bytes.append(part.data(), static_cast<std::size_t>(count));
  }
  return EFBIG;
}

}  // namespace host
