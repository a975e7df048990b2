#include "clip.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/printable.h"
#include "interruption.h"
#include "platform/posix/held_signals.h"

extern char** environ;  // NOLINT: POSIX has no header for it

namespace host {
namespace {

namespace fs = std::filesystem;
using murmurase::printable;

// Where the module looks for Application Support in a home of its own.
#ifdef __APPLE__
constexpr const char* application_support = "Library/Application Support";
#else
constexpr const char* application_support = "";
#endif

}  // namespace

ClipTarget::PrivateFolder::PrivateFolder() {
  std::string name = temporary_folder() / "murmurase-XXXXXX";
  const murmurase::HeldSignals held;
  if (mkdtemp(name.data()) == nullptr) {
    throw Failure(
        fmt::format("cannot make the temporary folder {}: {}; set TMPDIR to a folder that "
                    "can be written",
                    printable(name), std::strerror(errno)));
  }
  path = name;
  remember_leftovers(contents());
}

// Without a descriptor, which there may be none of.
ClipTarget::PrivateFolder::~PrivateFolder() {
  const murmurase::HeldSignals held;
  for (const std::string& each : contents()) std::remove(each.c_str());
  remember_leftovers({});
}

std::vector<std::string> ClipTarget::PrivateFolder::contents() const {
  std::vector<std::string> paths;
  for (fs::path each = link(); each != path.parent_path(); each = each.parent_path()) {
    paths.push_back(each);
  }
  return paths;
}

fs::path ClipTarget::PrivateFolder::link() const {
  return path / application_support / "Fernwork" / "Parlenda.xml";
}

ClipTarget::ClipTarget(const std::string& output) : output_(output) {
  std::error_code error;
  fs::create_directories(folder_.link().parent_path(), error);
  fs::path absolute;
  if (!error) absolute = fs::absolute(output, error);
  if (!error) fs::create_symlink(absolute, folder_.link(), error);
  if (error) throw Failure(fmt::format("cannot write {}: {}", printable(output), error.message()));
  load_module(folder_.path.c_str());
}

FolderLock::FolderLock(const fs::path& folder)
    : descriptor_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  while (descriptor_ >= 0 && flock(descriptor_, LOCK_EX) != 0 && errno == EINTR) {
  }
}

FolderLock::~FolderLock() {
  if (descriptor_ >= 0) close(descriptor_);
}

Failure ClipTarget::renamed(const Failure& failure) const {
  std::string message = failure.what();
  const std::string own = printable(temp_xml_file());
  if (const std::size_t at = message.find(own); at != std::string::npos) {
    message.replace(at, own.size(), printable(output_));
  }
  return Failure(message);
}

void require_clip(const std::string& clip) {
  if (access(clip.c_str(), R_OK) == 0) return;
  throw Failure(fmt::format("cannot read the clip {}: {}; check the path", printable(clip),
                            std::strerror(errno)),
                true);
}

MarkerExport export_markers(Controller& controller, const std::string& clip,
                            const ClipTarget* target) {
  require_clip(clip);
  std::string repaired;
  try {
    repaired = controller.read_clip(clip);
  } catch (const Failure& failure) {
    throw Failure(failure.what(), true);
  }
  try {
    const Value opened = controller.call("create_clip_with_markers", {});
    return {repaired, controller.clip_fault(), to_json(opened.get()) == true};
  } catch (const Failure& failure) {
    std::string message = target != nullptr ? target->renamed(failure).what() : failure.what();
    const bool of_clip = message.starts_with(fmt::format("the clip {} ", printable(clip)));
    // What the clip seems to lack may be what the repair could not save.
    if (!repaired.empty()) {
      message += fmt::format(" (the clip was repaired in memory: {})", repaired);
    }
    throw Failure(message, of_clip);
  }
}

std::string clip_line(const MarkerExport& done, const std::string& clip,
                      const std::string& output) {
  if (!done.fault.empty()) {
    return fmt::format(
        "murmurase: {} is written, but Final Cut Pro may refuse it: {}; correct that place in {} "
        "and export again\n",
        output == "-" ? "the clip" : printable(output), done.fault, printable(clip));
  }
  if (done.repaired.empty()) return {};
  return fmt::format("murmurase: {} was repaired in memory before it was used: {}\n",
                     printable(clip), done.repaired);
}

void open_file(const std::string& program, const std::string& file) {
  // No program may take it for an option.
  std::string words[] = {program, file.starts_with('-') ? "./" + file : file};
  char* const arguments[] = {words[0].data(), words[1].data(), nullptr};
  posix_spawn_file_actions_t streams;
  posix_spawn_file_actions_init(&streams);
  posix_spawn_file_actions_addopen(&streams, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  // Nor is it to have this program's handling of a closed pipe.
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  pid_t child = 0;
  int status = 0;
  const int error =
      posix_spawnp(&child, program.c_str(), &streams, &attributes, arguments, environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&streams);
  if (error != 0 || waitpid(child, &status, 0) != child || status != 0) {
    throw not_opened(program, file);
  }
}

Failure not_opened(const std::string& program, const std::string& file) {
  return Failure(
      fmt::format("{} is written, but {} could not open it", printable(file), printable(program)),
      true);
}

}  // namespace host
