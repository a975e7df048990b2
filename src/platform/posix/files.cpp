#include "platform/posix/files.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <random>

#include "core/error.h"
#include "platform/posix/held_signals.h"

namespace murmurase {
namespace {

constexpr std::string_view action = "write";
constexpr std::size_t piece = std::size_t{1} << 16;  // the least that a read is given room for

// While it lives, a closed pipe and a file grown too large are errors of a write and no signals, which
// would end a host that has not chosen otherwise.
class NoWriteSignals {
 public:
  NoWriteSignals() {
    sigemptyset(&signals_);
    sigaddset(&signals_, SIGPIPE);
    sigaddset(&signals_, SIGXFSZ);
    sigpending(&pending_before_);
    pthread_sigmask(SIG_BLOCK, &signals_, &mask_before_);
  }
  NoWriteSignals(const NoWriteSignals&) = delete;
  NoWriteSignals& operator=(const NoWriteSignals&) = delete;
  ~NoWriteSignals() {
    for (const int signal : {SIGPIPE, SIGXFSZ}) {
      sigset_t pending;
      sigpending(&pending);
      if (sigismember(&pending, signal) == 0 || sigismember(&pending_before_, signal) != 0)
        continue;
      sigset_t one;
      sigemptyset(&one);
      sigaddset(&one, signal);
      int taken = 0;
      sigwait(&one, &taken);
    }
    pthread_sigmask(SIG_SETMASK, &mask_before_, nullptr);
  }

 private:
  sigset_t signals_{};
  sigset_t pending_before_{};
  sigset_t mask_before_{};
};

int write_all(int descriptor, std::string_view bytes) {
  const NoWriteSignals quiet;
  while (!bytes.empty()) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

// The number of an open descriptor that the path names, as /dev/stdout does. Writing to the
// descriptor itself goes where its own position is; opening it by its name again would start at the
// beginning.
std::optional<int> named_descriptor(std::string_view path) {
  if (path == "/dev/stdout") return STDOUT_FILENO;
  if (path == "/dev/stderr") return STDERR_FILENO;
  for (const std::string_view folder : {"/dev/fd/", "/proc/self/fd/"}) {
    if (!path.starts_with(folder)) continue;
    const std::string_view digits = path.substr(folder.size());
    int number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error == std::errc() && end == digits.data() + digits.size() && number >= 0) return number;
  }
  return std::nullopt;
}

// The path behind symbolic links, so that a link stays and what it leads to is replaced. A link may
// lead to a file that is not there yet, or to an open descriptor, where the links end.
std::string resolve_links(std::string path) {
  std::array<char, PATH_MAX> target{};
  for (int links = 0; !named_descriptor(path); ++links) {
    const ssize_t length = readlink(path.c_str(), target.data(), target.size());
    if (length < 0) break;
    if (links == 40) throw system_error(action, path, ELOOP);
    const std::string_view next(target.data(), static_cast<std::size_t>(length));
    path = next.starts_with('/') ? std::string(next)
                                 : path.substr(0, path.rfind('/') + 1).append(next);
  }
  return path;
}

void write_straight(const std::string& path, int descriptor, std::string_view bytes) {
  if (const int error = write_all(descriptor, bytes); error != 0) {
    throw system_error(action, path, error);
  }
}

// Makes a file of a name that no other has, in the target's folder and so on its file system.
FileDescriptor create_beside(const std::string& target, mode_t mode, std::string& path) {
  const std::string folder = target.substr(0, target.rfind('/') + 1);
  std::random_device random;
  while (true) {
    path = fmt::format("{}.murmurase-{:08x}.tmp", folder, random());
    FileDescriptor file(
        open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    if (file.get() >= 0 || errno != EEXIST) return file;
  }
}

// Gives 0, or errno of the first step that failed.
int fill_and_rename(FileDescriptor& file, const std::string& path, std::string_view bytes,
                    const struct stat* replaced, const std::string& target) {
  if (const int error = write_all(file.get(), bytes); error != 0) return error;
  if (replaced != nullptr && fchown(file.get(), replaced->st_uid, replaced->st_gid) != 0) {
    // Only root may give a file away; whoever else may write it makes it theirs.
  }
  if (replaced != nullptr && fchmod(file.get(), replaced->st_mode & 0777) != 0) return errno;
  if (fsync(file.get()) != 0) return errno;
  if (const int error = file.close(); error != 0) return error;
  return rename(path.c_str(), target.c_str()) == 0 ? 0 : errno;
}

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

void replace_file(const std::string& path, std::string_view bytes) {
  check_path(path);
  if (path.empty()) throw system_error(action, path, ENOENT);
  const std::string target = resolve_links(path);
  if (const std::optional<int> descriptor = named_descriptor(target)) {
    write_straight(path, *descriptor, bytes);
    return;
  }
  struct stat status {};
  const bool exists = stat(path.c_str(), &status) == 0;
  // The system may forbid to follow a link that a stranger has put into a shared folder.
  if (!exists && errno != ENOENT) throw system_error(action, path, errno);
  if (exists && S_ISDIR(status.st_mode)) throw system_error(action, path, EISDIR);
  if (exists && !S_ISREG(status.st_mode)) {
    const FileDescriptor device(open(target.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
    if (device.get() < 0) throw system_error(action, path, errno);
    write_straight(path, device.get(), bytes);
    return;
  }
  if (exists && access(target.c_str(), W_OK) != 0) throw system_error(action, path, errno);
  std::string new_path;
  const HeldSignals held;  // one that ends the process must not leave the new file behind
  // Until it has the replaced file's permissions, nobody else may read it.
  FileDescriptor file = create_beside(target, exists ? 0600 : 0666, new_path);
  if (file.get() < 0) throw system_error(exists ? "make a new file beside" : action, path, errno);
  const int error = fill_and_rename(file, new_path, bytes, exists ? &status : nullptr, target);
  if (error != 0) {
    unlink(new_path.c_str());
    throw system_error(action, path, error);
  }
}

}  // namespace murmurase
