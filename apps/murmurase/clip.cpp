#include "clip.h"

#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/printable.h"

extern char** environ;  // NOLINT: POSIX has no header for it

namespace host {
namespace {

namespace fs = std::filesystem;
using murmurase::printable;

// Where the module looks for Application Support, as it starts.
#ifdef __APPLE__
constexpr const char* variable = "HOME";
constexpr const char* application_support = "Library/Application Support";
#else
constexpr const char* variable = "XDG_DATA_HOME";
constexpr const char* application_support = "";
#endif

fs::path make_private_folder() {
  std::string path = fs::temp_directory_path() / "murmurase-XXXXXX";
  if (mkdtemp(path.data()) == nullptr) {
    throw Failure(fmt::format("cannot make a folder in {}: {}", fs::temp_directory_path().string(),
                              std::strerror(errno)));
  }
  return path;
}

}  // namespace

ClipTarget::ClipTarget(const std::string& output)
    : folder_(make_private_folder()), output_(output) {
  const fs::path working_folder = folder_ / application_support / "Fernwork";
  fs::create_directories(working_folder);
  fs::create_symlink(fs::absolute(output), working_folder / "Parlenda.xml");
  // The module asks while it starts; what the programs that it runs are told is put back.
  const char* before = std::getenv(variable);
  const std::string saved = before == nullptr ? "" : before;
  setenv(variable, folder_.c_str(), 1);
  try {
    load_module();
  } catch (...) {
    fs::remove_all(folder_);
    throw;
  }
  if (before == nullptr) {
    unsetenv(variable);
  } else {
    setenv(variable, saved.c_str(), 1);
  }
}

ClipTarget::~ClipTarget() {
  std::error_code ignored;
  fs::remove_all(folder_, ignored);
}

Failure ClipTarget::renamed(const Failure& failure) const {
  std::string message = failure.what();
  const std::string own = printable(temp_xml_file());
  if (const std::size_t at = message.find(own); at != std::string::npos) {
    message.replace(at, own.size(), printable(output_));
  }
  return Failure(message);
}

MarkerExport export_markers(Controller& controller, const std::string& clip,
                            const ClipTarget* target) {
  const std::string repaired = controller.read_clip(clip);
  try {
    const Value opened = controller.call("create_clip_with_markers", {});
    return {repaired, to_json(opened.get()) == true};
  } catch (const Failure& failure) {
    if (target != nullptr) throw target->renamed(failure);
    throw;
  }
}

void tell_repair(const std::string& clip, const MarkerExport& done) {
  if (done.repaired.empty()) return;
  fmt::print(stderr, "murmurase: {} was repaired in memory before it was used: {}\n",
             printable(clip), done.repaired);
}

void open_file(const std::string& program, const std::string& file) {
  std::string words[] = {program, file};
  char* const arguments[] = {words[0].data(), words[1].data(), nullptr};
  pid_t child = 0;
  int status = 0;
  if (posix_spawnp(&child, program.c_str(), nullptr, nullptr, arguments, environ) != 0 ||
      waitpid(child, &status, 0) != child || status != 0) {
    throw not_opened(program, file);
  }
}

Failure not_opened(const std::string& program, const std::string& file) {
  return Failure(
      fmt::format("{} is written, but {} could not open it", printable(file), printable(program)));
}

}  // namespace host
