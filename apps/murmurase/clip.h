#pragma once

#include <filesystem>
#include <string>

#include "module.h"

namespace host {

// Holds the working folder until the clip in it is written and opened, so that no other run puts its
// own in between. Runs wait for each other.
class FolderLock {
 public:
  explicit FolderLock(const std::filesystem::path& folder);
  FolderLock(const FolderLock&) = delete;
  FolderLock& operator=(const FolderLock&) = delete;
  ~FolderLock();

 private:
  int descriptor_;
};

struct MarkerExport {
  std::string repaired;  // what of the clip file was repaired; empty for nothing
  std::string fault;     // what is wrong with the written clip; empty for nothing
  bool opened;
};

// A failure when the clip cannot be read.
void require_clip(const std::string& clip);

// Adds the phrases of the movie that was read to the clip, and writes it. A failure of the clip itself
// names it.
MarkerExport export_markers(Controller& controller, const std::string& clip);

// The line for standard error about the clip: what is wrong with the output, or else what of the clip
// was repaired; empty for nothing.
std::string clip_line(const MarkerExport& done, const std::string& clip, const std::string& output);

Failure not_opened(const std::string& program, const std::string& file);

}  // namespace host
