#include "platform/posix/child.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <utility>

#include "platform/posix/held_signals.h"

extern char** environ;  // NOLINT: POSIX has no header for it

namespace murmurase {
namespace {

struct Report {
  int error;   // of the start
  int status;  // as waitpid gives it
};

// How a program is started: with which output, and not with the host's handling of a closed pipe. The
// first step that fails keeps its errno, for a program must not be started without it.
class Start {
 public:
  Start(const sigset_t& mask, int output) {
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    check(posix_spawn_file_actions_init(&streams_));
    check(posix_spawnattr_init(&attributes_));
    check(posix_spawnattr_setsigdefault(&attributes_, &defaults));
    check(posix_spawnattr_setsigmask(&attributes_, &mask));
    check(posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK));
    check(output < 0
              ? posix_spawn_file_actions_addopen(&streams_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0)
              : posix_spawn_file_actions_adddup2(&streams_, output, STDOUT_FILENO));
  }
  Start(const Start&) = delete;
  Start& operator=(const Start&) = delete;
  ~Start() {
    posix_spawnattr_destroy(&attributes_);
    posix_spawn_file_actions_destroy(&streams_);
  }

  // Gives 0, or errno.
  int run(pid_t& child, const char* program, char* const* arguments) {
    if (error_ == 0) {
      check(posix_spawnp(&child, program, &streams_, &attributes_, arguments, environ));
    }
    return error_;
  }

 private:
  void check(int error) {
    if (error_ == 0) error_ = error;
  }

  int error_ = 0;
  posix_spawn_file_actions_t streams_{};
  posix_spawnattr_t attributes_{};
};

void close_all_from(int first) {
#ifdef __linux__
  closefrom(first);
#else
  for (int each = getdtablesize() - 1; each >= first; --each) close(each);
#endif
}

// All that the watcher does. It is a copy of a host that may have threads, so it allocates nothing; every
// signal is held back in it, and it keeps none of the host's files open.
[[noreturn]] void watch(Start& start, const char* program, char* const* arguments, int socket) {
  sigset_t awaited;
  sigemptyset(&awaited);
  sigaddset(&awaited, SIGCHLD);
  sigaddset(&awaited, SIGTERM);
  std::signal(SIGCHLD, [](int) {});  // if it were ignored, no status would be kept
  Report report{};
  pid_t child = 0;
  report.error = start.run(child, program, arguments);
  std::signal(SIGTERM, SIG_DFL);  // not every system lets sigwait see a signal that is ignored
  dup2(socket, STDIN_FILENO);
  close_all_from(STDIN_FILENO + 1);
  while (report.error == 0 && waitpid(child, &report.status, WNOHANG) == 0) {
    int signal = 0;
    if (sigwait(&awaited, &signal) == 0 && signal == SIGTERM) kill(child, SIGTERM);
  }
  if (write(STDIN_FILENO, &report, sizeof report) == sizeof report) {
    while (read(STDIN_FILENO, &report, sizeof report) > 0) {  // until the host lets go
    }
  }
  _exit(0);
}

// Moves a descriptor clear of the standard streams' numbers, which a host may have closed.
FileDescriptor cleared(int descriptor) {
  const FileDescriptor low(descriptor);
  return FileDescriptor(fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

}  // namespace

Ends open_ends(int (*make)(int*)) {
  std::array<int, 2> ends{};
  if (make(ends.data()) != 0) return {FileDescriptor(-1), FileDescriptor(-1)};
  FileDescriptor first = cleared(ends[0]);
  return {std::move(first), cleared(ends[1])};
}

Child::Child(std::atomic<pid_t>& watcher, const char* program, std::vector<std::string> words,
             int output)
    : watcher_(watcher), words_(std::move(words)) {
  arguments_.reserve(words_.size() + 1);
  for (std::string& word : words_) arguments_.push_back(word.data());
  arguments_.push_back(nullptr);
  Ends sockets = open_ends([](int* ends) { return socketpair(AF_UNIX, SOCK_STREAM, 0, ends); });
  if (sockets.first.get() < 0 || sockets.second.get() < 0) {
    error_ = errno;
    return;
  }
  socket_ = std::move(sockets.first);
  const HeldSignals held;  // until whoever is to end the program knows the watcher
  Start start(held.before(), output);
  process_ = fork();
  if (process_ == 0) watch(start, program, arguments_.data(), sockets.second.get());
  if (process_ < 0) {
    error_ = errno;
  } else {
    watcher_ = process_;
  }
}

int Child::wait(int& status) {
  if (error_ != 0) return error_;
  Report report{ECHILD, 0};  // of a watcher that somebody has killed
  while (read(socket_.get(), &report, sizeof report) < 0 && errno == EINTR) {
  }
  status = report.status;
  return report.error;
}

Child::~Child() {
  watcher_ = 0;
  if (process_ < 0) return;
  shutdown(socket_.get(), SHUT_RDWR);  // closing is not enough if a thread of the host has forked
  while (waitpid(process_, nullptr, 0) < 0 && errno == EINTR) {
  }
}

}  // namespace murmurase
