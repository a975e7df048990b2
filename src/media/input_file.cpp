#include "media/input_file.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "xmp/failure.h"

namespace murmurase::media {
namespace {

constexpr std::size_t small_piece = 4096;
constexpr std::size_t large_piece = std::size_t{256} << 10;

[[noreturn]] void fail_to_read(const std::filesystem::path& path, int number) {
  const bool denied = number == EACCES || number == EPERM;
  xmp::fail("cannot read {}: {}; {}", xmp::in_quotes(path.native()),
            std::generic_category().message(number),
            denied ? "ask for permission to read it" : "check the path");
}

// Reads as many of `length` bytes as the file has at `offset`.
std::size_t read_at(int descriptor, const std::filesystem::path& path, std::uint64_t offset,
                    char* bytes, std::size_t length) {
  std::size_t done = 0;
  while (done < length) {
    const ssize_t count =
        pread(descriptor, bytes + done, length - done, static_cast<off_t>(offset + done));
    if (count == 0) break;
    if (count > 0) {
      done += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      fail_to_read(path, errno);
    }
  }
  return done;
}

}  // namespace

InputFile::InputFile(const std::filesystem::path& path)
    : path_(path), descriptor_(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK)) {
  const std::string name = xmp::in_quotes(path.native());
  struct stat status {};
  if (descriptor_.get() < 0 || fstat(descriptor_.get(), &status) != 0) fail_to_read(path, errno);
  if (S_ISDIR(status.st_mode))
    xmp::fail("cannot read {}: it is a folder; name a movie in it", name);
  if (!S_ISREG(status.st_mode))
    xmp::fail("cannot read {}: it is not a regular file; name a movie", name);
  if (status.st_size == 0) xmp::fail("cannot read {}: it is empty; {}", name, xmp::copy_again);
  size_ = static_cast<std::uint64_t>(status.st_size);
}

void InputFile::fill(std::uint64_t offset, std::size_t length) {
  // What is read bit after bit is fetched in large pieces; a jump, such as over a movie's frames,
  // fetches a small one.
  const bool goes_on = offset >= start_ && offset <= start_ + buffer_.size();
  start_ = offset;
  buffer_.resize(std::max(length, goes_on ? large_piece : small_piece));
  buffer_.resize(read_at(descriptor_.get(), path_, offset, buffer_.data(), buffer_.size()));
}

std::string InputFile::read_whole(Extent extent) const {
  std::string bytes(extent.length, '\0');
  if (read_at(descriptor_.get(), path_, extent.offset, bytes.data(), bytes.size()) < bytes.size())
    fail_to_read(path_, EIO);
  return bytes;
}

std::string InputFile::descriptor_path() const {
  return fmt::format("/dev/fd/{}", descriptor_.get());
}

}  // namespace murmurase::media
