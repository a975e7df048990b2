#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "module.h"

namespace host {

// Loads the module so that it writes its clip to `output`: it is started with a private folder in
// which its own file is a link to there. So two runs never meet in one file, and the clip is
// written under the same rules as every output. The folder lives as long as this object.
class ClipTarget {
 public:
  explicit ClipTarget(const std::string& output);

  // The message with the output's name where the module named its own file.
  Failure renamed(const Failure& failure) const;

 private:
  // Gone with all that is in it when this object is, or cannot be made, or a signal ends the program.
  struct PrivateFolder {
    PrivateFolder();
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;
    ~PrivateFolder();
    std::filesystem::path link() const;         // the module's own file in it
    std::vector<std::string> contents() const;  // what can be in it, then itself

    std::filesystem::path path;
  };

  PrivateFolder folder_;
  std::string output_;
};

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

// Adds the phrases of the movie that was read to the clip, and writes it. The target is the one that
// the module was loaded under, null for none. A failure of the clip itself names it.
MarkerExport export_markers(Controller& controller, const std::string& clip,
                            const ClipTarget* target);

// The line for standard error about the clip: what is wrong with the output, or else what of the clip
// was repaired; empty for nothing.
std::string clip_line(const MarkerExport& done, const std::string& clip, const std::string& output);

// Runs the program with the file as its one argument, and waits; a program that fails is a failure.
void open_file(const std::string& program, const std::string& file);

Failure not_opened(const std::string& program, const std::string& file);

}  // namespace host
