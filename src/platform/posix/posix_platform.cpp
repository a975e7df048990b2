#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "core/error.h"
#include "platform/platform.h"
#include "platform/posix/files.h"
#include "platform/posix/finder_info.h"
#include "platform/posix/held_signals.h"

extern char** environ;  // NOLINT: POSIX has no header for it

namespace murmurase {
namespace {

// A pipe whose ends stay clear of the standard streams' numbers, which a host may have closed.
std::pair<FileDescriptor, FileDescriptor> make_pipe() {
  std::array<int, 2> ends{};
  if (pipe(ends.data()) != 0) throw system_error("make a pipe for", "the XMP tool", errno);
  const auto clear = [](int end) {
    const FileDescriptor low(end);
    FileDescriptor high(fcntl(end, F_DUPFD_CLOEXEC, 3));
    if (high.get() < 0) throw system_error("make a pipe for", "the XMP tool", errno);
    return high;
  };
  FileDescriptor read_end = clear(ends[0]);
  return {std::move(read_end), clear(ends[1])};
}

// How a program is started: with which streams, and not with the host's handling of a closed pipe. The
// first step that fails keeps its errno, for a program must not be started without it.
class Start {
 public:
  Start() {
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    check(posix_spawn_file_actions_init(&streams_));
    check(posix_spawnattr_init(&attributes_));
    check(posix_spawnattr_setsigdefault(&attributes_, &defaults));
    check(posix_spawnattr_setsigmask(&attributes_, &held_.before()));
    check(posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK));
  }
  Start(const Start&) = delete;
  Start& operator=(const Start&) = delete;
  ~Start() {
    posix_spawnattr_destroy(&attributes_);
    posix_spawn_file_actions_destroy(&streams_);
  }

  void output_to(int descriptor) {
    check(posix_spawn_file_actions_adddup2(&streams_, descriptor, STDOUT_FILENO));
  }
  void output_to_nothing() {
    check(posix_spawn_file_actions_addopen(&streams_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0));
  }

  // The program is found in $PATH when its name has no slash. Gives 0, or errno.
  int run(pid_t& child, const char* program, std::vector<std::string> words) {
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    if (error_ == 0) {
      check(posix_spawnp(&child, program, &streams_, &attributes_, arguments.data(), environ));
    }
    return error_;
  }

 private:
  void check(int error) {
    if (error_ == 0) error_ = error;
  }

  HeldSignals held_;  // until whoever is to end the child knows it
  int error_ = 0;
  posix_spawn_file_actions_t streams_{};
  posix_spawnattr_t attributes_{};
};

std::atomic<pid_t> running_tool = 0;

// Has /bin/sh run the tool, its standard output going to `output`. The shell gets the paths beside its
// command text, so that it looks into neither, and gives way to the tool.
pid_t start_tool(const std::string& command, const std::string& movie_path, int output) {
  Start shell;
  shell.output_to(output);
  pid_t child = 0;
  if (const int error = shell.run(child, "/bin/sh",
                                  {"sh", "-c", R"(exec "$1" get "$2")", "sh", command, movie_path});
      error != 0) {
    throw system_error("start", "/bin/sh for the XMP tool", error);
  }
  running_tool = child;
  return child;
}

// Gives 0, or errno.
int start_program(pid_t& child, const std::string& command, const std::string& path) {
  Start program;
  program.output_to_nothing();
  return program.run(child, command.c_str(), {command, path});
}

// Waits for the child's end. Gives 0, or errno.
int wait_for(pid_t child, int& status) {
  while (waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return errno;
  }
  return 0;
}

// The same for the tool, which nobody may end any more once its number can be another process's.
int wait_for_tool(pid_t child, int& status) {
  siginfo_t info;
  while (waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT) < 0 && errno == EINTR) {
  }
  running_tool = 0;
  return wait_for(child, status);
}

class PosixPlatform : public Platform {
 public:
  // ~/.local/share, or what $XDG_DATA_HOME names in its place, may not be there yet; their standard says
  // that whoever writes into it first makes it. Where it cannot be made nothing can be kept.
  std::vector<std::string> application_support_directories() override {
#ifdef __APPLE__
    const std::string directory = "~/Library/Application Support";
#else
    const char* data_home = std::getenv("XDG_DATA_HOME");
    const bool named = data_home != nullptr && *data_home == '/';
    const std::string directory = named ? data_home : "~/.local/share";
#endif
    const std::string expanded = expand_tilde(directory);
    if (!expanded.starts_with('/')) return {};
    std::error_code error;
    std::filesystem::create_directories(expanded, error);
    if (!is_directory(expanded)) return {};
    return {directory};
  }

  std::string expand_tilde(const std::string& path) override {
    const char* home = std::getenv("HOME");
    const bool leading = path == "~" || path.starts_with("~/");
    if (!leading || home == nullptr || *home != '/') return path;
    return home + path.substr(1);
  }

  bool is_directory(const std::string& path) override {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  }

  void create_directory(const std::string& path) override {
    if (mkdir(path.c_str(), 0777) == 0) return;
    const int error = errno;
    if (error == EEXIST && is_directory(path)) return;  // another process was faster
    throw system_error("make the folder", path, error);
  }

  ToolRun run_xmp_tool(const std::string& command, const std::string& movie_path) override {
    check_path(command);
    check_path(movie_path);
    auto [read_end, write_end] = make_pipe();
#ifdef F_SETPIPE_SZ
    fcntl(read_end.get(), F_SETPIPE_SZ, 1 << 20);  // fewer turns; a refusal costs nothing else
#endif
    const pid_t child = start_tool(command, movie_path, write_end.get());
    write_end.close();
    ToolRun run;
    try {
      const int error = read_all(read_end.get(), run.output);
      if (error != 0) throw read_error("the output of " + command, error);
    } catch (...) {
      run.failure = std::current_exception();
      end_xmp_tool();
    }
    read_end.close();
    const int unknown = wait_for_tool(child, run.wait_status);
    if (unknown != 0 && !run.failure) {
      run.failure =
          std::make_exception_ptr(system_error("learn the end of", "the XMP tool", unknown));
    }
    return run;
  }

  void end_xmp_tool() noexcept override {
    if (const pid_t tool = running_tool; tool != 0) kill(tool, SIGTERM);
  }

  ByteBuffer read_file(const std::string& path) override { return murmurase::read_file(path); }

  void replace_file(const std::string& path, std::string_view bytes) override {
    murmurase::replace_file(path, bytes);
  }

  void set_finder_info(const std::string& path, std::string_view creator) override {
    murmurase::set_finder_info(path, creator);
  }

  // What the program prints is not the host's output.
  bool open_with(const std::string& command, const std::string& path) override {
    pid_t child = 0;
    int status = 0;
    return start_program(child, command, path) == 0 && wait_for(child, status) == 0 && status == 0;
  }
};

// There before anything runs and never destroyed: a host's signal handler may end the tool at any time.
union Forever {  // NOLINT(cppcoreguidelines-special-member-functions): nobody copies it
  constexpr Forever() : platform() {}
  ~Forever() {}  // NOLINT(modernize-use-equals-default): a default would be deleted
  PosixPlatform platform;
};
constinit Forever forever;

}  // namespace

Platform& system_platform() { return forever.platform; }

}  // namespace murmurase
