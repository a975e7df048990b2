#include "platform/posix/replace_file.h"

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
#include <optional>
#include <random>

#include "core/error.h"
#include "platform/posix/access_rights.h"
#include "platform/posix/files.h"
#include "platform/posix/held_signals.h"

namespace murmurase {
namespace {

constexpr std::string_view action = "write";

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

// Gives 0, or errno; EIO after a million tries in vain, for no signal may get through to end them.
int write_all(int descriptor, std::string_view bytes) {
  const NoWriteSignals quiet;
  for (int tries = 0; !bytes.empty(); ++tries) {
    const ssize_t written = write(descriptor, bytes.data(), bytes.size());
    if (written < 0 && errno != EINTR) return errno;
    if (tries == 1'000'000) return EIO;
    if (written <= 0) continue;
    bytes.remove_prefix(static_cast<std::size_t>(written));
    tries = 0;
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

// A file of a name that no other has, in the target's folder and so on its file system. It is removed
// with this object unless it has become the target.
class NewFile {
 public:
  NewFile(const std::string& target, mode_t mode) {
    const std::string folder = target.substr(0, target.rfind('/') + 1);
    std::random_device random;
    for (int names = 0; names < 100 && error_ == EEXIST; ++names) {
      path_ = fmt::format("{}.murmurase-{:08x}.tmp", folder, random());
      file_ = FileDescriptor(
          open(path_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
      error_ = file_.get() < 0 ? errno : 0;
    }
  }
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;
  ~NewFile() {
    if (error_ == 0) unlink(path_.c_str());
  }

  int get() const { return file_.get(); }
  int error() const { return error_; }  // 0, or why there is no file

  // Gives 0, or errno of the first step that failed.
  int become(const std::string& target, std::string_view bytes) {
    if (const int error = write_all(file_.get(), bytes); error != 0) return error;
    if (fsync(file_.get()) != 0) return errno;
    if (const int error = file_.close(); error != 0) return error;
    if (rename(path_.c_str(), target.c_str()) != 0) return errno;
    error_ = ENOENT;
    return 0;
  }

 private:
  std::string path_;
  FileDescriptor file_{-1};
  int error_ = EEXIST;
};

// Gives 0, or errno.
int write_at(int file, std::size_t place, std::string_view bytes) {
  if (lseek(file, static_cast<off_t>(place), SEEK_SET) < 0) return errno;
  return write_all(file, bytes);
}

// Writes in place. What the old file has no room for comes first, so that it survives a full disk.
// Gives 0, or errno.
int write_over(int file, off_t old_size, std::string_view bytes) {
  const std::size_t room = std::min(static_cast<std::size_t>(old_size), bytes.size());
  int error = write_at(file, room, bytes.substr(room));
  if (error == 0 && fsync(file) != 0) error = errno;
  if (error != 0) {
    static_cast<void>(ftruncate(file, old_size) == 0);
    return error;
  }
  error = write_at(file, 0, bytes.substr(0, room));
  if (error != 0) return error;
  return ftruncate(file, static_cast<off_t>(bytes.size())) == 0 && fsync(file) == 0 ? 0 : errno;
}

// Whether this error of a new file leaves the old one to be written in place: the folder takes no new
// file, or the old one is a mount point.
bool only_in_place(int error) {
  return error == EACCES || error == EPERM || error == EROFS || error == EBUSY;
}

// Puts a file of these bytes in the place of the old one; `old` is -1 when there is none. Gives 0, or
// errno.
int replace(const std::string& target, int old, const struct stat& status, std::string_view bytes) {
  const bool exists = old >= 0;
  const HeldSignals held;  // one that ends the process must not leave the new file behind
  int error = 0;
  {
    // Until it has the replaced file's permissions, nobody else may read it.
    NewFile file(target, exists ? 0600 : 0666);
    error = file.error();
    if (error == 0 && exists && !keep_access(old, status, file.get())) error = EPERM;  // in place
    if (error == 0) error = file.become(target, bytes);
  }
  return exists && only_in_place(error) ? write_over(old, status.st_size, bytes) : error;
}

}  // namespace

void replace_file(const std::string& path, std::string_view bytes) {
  check_path(path);
  if (path.empty()) throw system_error(action, path, ENOENT);
  const std::string target = resolve_links(path);
  int error = 0;
  if (const std::optional<int> descriptor = named_descriptor(target)) {
    error = write_all(*descriptor, bytes);
  } else {
    // Not the target: the system may forbid to follow a link that a stranger put into a shared folder.
    const FileDescriptor old(open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
    struct stat status {};
    if (old.get() < 0 ? errno != ENOENT : fstat(old.get(), &status) != 0) {
      throw system_error(action, path, errno);
    }
    error = old.get() < 0 || S_ISREG(status.st_mode) ? replace(target, old.get(), status, bytes)
                                                     : write_all(old.get(), bytes);
  }
  if (error != 0) throw system_error(action, path, error);
}

void replace_own_file(const std::string& path, std::string_view bytes) {
  check_path(path);
  const FileDescriptor old(
      open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY | O_NOFOLLOW | O_NONBLOCK));
  struct stat status {};
  // A link gives ELOOP, a pipe that nobody reads or a socket ENXIO.
  if (old.get() < 0 ? errno != ENOENT && errno != ELOOP && errno != ENXIO
                    : fstat(old.get(), &status) != 0) {
    throw system_error(action, path, errno);
  }
  const int error = replace(path, S_ISREG(status.st_mode) ? old.get() : -1, status, bytes);
  if (error != 0) throw system_error(action, path, error);
}

}  // namespace murmurase
