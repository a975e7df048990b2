#include "captured_errors.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

#include "module.h"
#include "platform/posix/held_signals.h"

namespace host {
namespace {

constexpr std::size_t most_kept = 8192;
constexpr std::size_t piece = std::size_t{1} << 16;  // no pipe holds more, unless asked to

}  // namespace

CapturedErrors::CapturedErrors() : saved_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
  std::array<int, 2> ends{};
  if (saved_ < 0 || pipe(ends.data()) != 0) {
    throw Failure(
        fmt::format("cannot make a pipe for what the XMP tool says: {}", std::strerror(errno)));
  }
  read_end_ = ends[0];
  for (const int end : ends) fcntl(end, F_SETFD, FD_CLOEXEC);
  fcntl(read_end_, F_SETFL, O_NONBLOCK);
  kept_.reserve(most_kept + piece);  // so that the thread needs no memory
  try {
    const murmurase::HeldSignals held;  // they are the main thread's
    reader_ = std::thread([this] { read_all(); });
  } catch (const std::system_error& error) {
    throw Failure(fmt::format("cannot start a thread for what the XMP tool says: {}",
                              error.code().message()));
  }
  dup2(ends[1], STDERR_FILENO);
  close(ends[1]);
}

std::string CapturedErrors::restore() {
  if (!reader_.joinable()) return {};
  // What the tool itself has started may hold the pipe for ever, so nobody waits for the pipe's end: a
  // byte wakes the reader. In a full pipe there is no room for it and no need.
  ended_ = true;
  fcntl(STDERR_FILENO, F_SETFL, O_NONBLOCK);
  while (write(STDERR_FILENO, "\n", 1) < 0 && errno == EINTR) {
  }
  dup2(saved_, STDERR_FILENO);
  close(saved_);
  reader_.join();
  close(read_end_);
  if (left_out_ > 0) {
    kept_.insert(most_kept / 2, fmt::format("\n[{} bytes left out]\n", left_out_));
  }
  kept_.erase(kept_.find_last_not_of('\n') + 1);
  return kept_;
}

void CapturedErrors::read_all() {
  std::array<char, piece> part;  // NOLINT(cppcoreguidelines-pro-type-member-init)
  while (true) {
    const bool last = ended_;
    const ssize_t count = read(read_end_, part.data(), part.size());
    if (count > 0) keep({part.data(), static_cast<std::size_t>(count)});
    if (count == 0 || last) return;
    if (count > 0 || errno == EINTR) continue;
    if (errno != EAGAIN) return;
    pollfd ready = {read_end_, POLLIN, 0};
    poll(&ready, 1, -1);
  }
}

void CapturedErrors::keep(std::string_view text) {
  kept_ += text;
  if (kept_.size() <= most_kept) return;
  const std::size_t excess = kept_.size() - most_kept;
  kept_.erase(most_kept / 2, excess);
  left_out_ += excess;
}

}  // namespace host
