#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <filesystem>

#include "core/error.h"
#include "platform/platform.h"
#include "platform/posix/child.h"
#include "platform/posix/files.h"
#include "platform/posix/finder_info.h"
#include "platform/posix/replace_file.h"

namespace murmurase {
namespace {

std::atomic<pid_t> running_tool = 0;  // its watcher

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
    auto [read_end, write_end] = open_ends(pipe);
    if (read_end.get() < 0 || write_end.get() < 0) {
      throw system_error("make a pipe for", "the XMP tool", errno);
    }
#ifdef F_SETPIPE_SZ
    fcntl(read_end.get(), F_SETPIPE_SZ, 1 << 20);  // fewer turns; a refusal costs nothing else
#endif
    // The shell gets the paths beside its command text, so that it looks into neither, and gives way to
    // the tool. Some shells would take a dash for an option of exec.
    const std::string tool = command.starts_with('-') ? "./" + command : command;
    Child shell(running_tool, "/bin/sh",
                {"sh", "-c", R"(exec "$1" get "$2")", "sh", tool, movie_path}, write_end.get());
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
    const int unknown = shell.wait(run.wait_status);
    if (unknown != 0 && unknown != ECHILD) {
      throw system_error("run", "/bin/sh for the XMP tool", unknown);
    }
    if (unknown == ECHILD && !run.failure) {  // somebody killed the watcher
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

  void replace_own_file(const std::string& path, std::string_view bytes) override {
    murmurase::replace_own_file(path, bytes);
  }

  void set_finder_info(const std::string& path, std::string_view creator) override {
    murmurase::set_finder_info(path, creator);
  }

  // What the program prints is not the host's output.
  bool open_with(const std::string& command, const std::string& path) override {
    const std::string file =
        path.starts_with('-') ? "./" + path : path;  // no option of the program
    std::atomic<pid_t> watcher = 0;
    int status = 0;
    Child opener(watcher, command.c_str(), {command, file}, -1);
    return opener.wait(status) == 0 && status == 0;
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
