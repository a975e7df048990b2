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
  bool opened;
};

// Adds the phrases of the movie that was read to the clip, and writes it.
MarkerExport export_markers(Controller& controller, const std::string& clip);

// The line for standard error that tells what of the clip was repaired; empty for nothing.
std::string repair_line(const std::string& clip, const std::string& repaired);

Failure not_opened(const std::string& program, const std::string& file);

}  // namespace host
