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

MarkerExport export_markers(Controller& controller, const std::string& clip) {
  const std::string repaired = controller.read_clip(clip);
  try {
    const Value opened = controller.call("create_clip_with_markers", {});
    return {repaired, to_json(opened.get()) == true};
  } catch (const Failure& failure) {
    if (repaired.empty()) throw;
    // What the clip seems to lack may be what the repair could not save.
    throw Failure(
        fmt::format("{} (the clip was repaired in memory: {})", failure.what(), repaired));
  }
}

std::string repair_line(const std::string& clip, const std::string& repaired) {
  if (repaired.empty()) return {};
  return fmt::format("murmurase: {} was repaired in memory before it was used: {}\n",
                     printable(clip), repaired);
}

Failure not_opened(const std::string& program, const std::string& file) {
  return Failure(
      fmt::format("{} is written, but {} could not open it", printable(file), printable(program)),
      true);
}

}  // namespace host
