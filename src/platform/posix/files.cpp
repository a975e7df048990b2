#include "platform/posix/files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

namespace murmurase {
namespace {

constexpr std::size_t piece = std::size_t{1} << 16;  // the least that a read is given room for

}  // namespace

void check_path(const std::string& path) {
  if (path.find('\0') != std::string::npos) {
    throw Error(ErrorKind::argument, fmt::format("the path {} holds a zero byte", printable(path)));
  }
}

int FileDescriptor::close() {
  if (descriptor_ < 0) return 0;
  const int result = ::close(descriptor_);
  descriptor_ = -1;
  return result == 0 ? 0 : errno;
}

int read_all(int descriptor, ByteBuffer& buffer) {
  while (buffer.size() <= most_bytes) {
    const std::span<char> room = buffer.room(piece);
    const ssize_t count = read(descriptor, room.data(), room.size());
    if (count == 0) return 0;
    if (count > 0) {
      buffer.grow(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return EFBIG;
}

Error read_error(std::string_view what, int number) {
  if (number != EFBIG) return system_error("read", what, number);
  return {ErrorKind::system,
          fmt::format("cannot read {}: it is larger than 512 MiB", printable(what)), number};
}

ByteBuffer read_file(const std::string& path) {
  check_path(path);
  // A pipe that nobody writes to is empty, and nothing waits for a writer.
  const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (file.get() < 0) throw system_error("read", path, errno);
  const int flags = fcntl(file.get(), F_GETFL);
  if (flags >= 0) fcntl(file.get(), F_SETFL, flags & ~O_NONBLOCK);
  struct stat status {};
  ByteBuffer bytes;
  if (fstat(file.get(), &status) == 0 && status.st_size > 0) {
    const auto size = static_cast<std::size_t>(status.st_size);
    bytes.room(std::min(size, most_bytes) + piece);  // the last one finds the end
  }
  if (const int error = read_all(file.get(), bytes); error != 0) throw read_error(path, error);
  return bytes;
}

}  // namespace murmurase
