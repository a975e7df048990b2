#include "clip.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

#include "core/printable.h"

namespace host {

using murmurase::printable;

FolderLock::FolderLock(const std::filesystem::path& folder)
    : descriptor_(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  while (descriptor_ >= 0 && flock(descriptor_, LOCK_EX) != 0 && errno == EINTR) {
  }
}

FolderLock::~FolderLock() {
  if (descriptor_ >= 0) close(descriptor_);
}

void require_clip(const std::string& clip) {
  if (access(clip.c_str(), R_OK) == 0) return;
  throw Failure(fmt::format("cannot read the clip {}: {}; check the path", printable(clip),
                            std::strerror(errno)),
                true);
}

MarkerExport export_markers(Controller& controller, const std::string& clip) {
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
    std::string message = failure.what();
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

Failure not_opened(const std::string& program, const std::string& file) {
  return Failure(
      fmt::format("{} is written, but {} could not open it", printable(file), printable(program)),
      true);
}

}  // namespace host
