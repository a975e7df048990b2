#include "outputs.h"

#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

#include "content.h"
#include "core/printable.h"
#include "module.h"

namespace host {
namespace {

namespace fs = std::filesystem;
using murmurase::printable;

constexpr const char* what_to_do = "write elsewhere, or move it away first";

const char* name_of(OutputKind kind) {
  switch (kind) {
    case OutputKind::transcript:
      return "a transcript";
    case OutputKind::workbook:
      return "a workbook";
    default:
      return "a clip of markers";
  }
}

bool may_replace(OutputKind kind, Content content) {
  if (content == Content::nothing) return true;
  switch (kind) {
    case OutputKind::transcript:
      return content == Content::text;
    case OutputKind::workbook:
      return content == Content::workbook;
    case OutputKind::marker_clip:
      return content == Content::marker_clip;
    default:
      return content == Content::marker_clip || content == Content::clip;
  }
}

// Whether the path, or a link of that name, names an open descriptor, as /dev/stdout does.
bool names_descriptor(fs::path path) {
  std::error_code error;
  for (int links = 0; links < 40 && !error; ++links) {
    const fs::path folder = path.parent_path();
    if (path == "/dev/stdout" || path == "/dev/stderr") return true;
    if (folder == "/dev/fd" || folder == "/proc/self/fd") return true;
    path = folder / fs::read_symlink(path, error);
  }
  return false;
}

using FileNumber = std::pair<dev_t, ino_t>;

// Why the output must not be written; empty if it may.
std::string refusal(const Output& output, const std::set<FileNumber>& inputs, bool keep) {
  struct stat status {};
  if (stat(output.path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  const std::string path = printable(output.path);
  if (inputs.contains({status.st_dev, status.st_ino})) {
    return path + " is used by this run, and would be overwritten; write elsewhere";
  }
  if (names_descriptor(output.path)) return {};
  if (keep) return fmt::format("{} is there already, and --keep is given; {}", path, what_to_do);
  const std::optional<Content> content = content_of(output.path);
  if (!content) {
    return fmt::format("cannot look into {}, which would be replaced: {}; {}", path,
                       std::strerror(errno), what_to_do);
  }
  if (may_replace(output.kind, *content)) return {};
  return fmt::format("{} is {}, which {} never replaces; {}", path, description(*content),
                     name_of(output.kind), what_to_do);
}

}  // namespace

void check_outputs(const std::vector<std::string>& inputs, const std::vector<Output>& outputs,
                   bool keep) {
  std::set<FileNumber> read;
  struct stat status {};
  for (const std::string& input : inputs) {
    if (stat(input.c_str(), &status) == 0) read.emplace(status.st_dev, status.st_ino);
  }
  std::string first;
  std::size_t refused = 0;
  for (const Output& output : outputs) {
    const std::string reason = refusal(output, read, keep);
    if (!reason.empty() && ++refused == 1) first = reason;
  }
  if (refused == 0) return;
  if (refused > 1) first += fmt::format(" ({} outputs are refused)", refused);
  throw Failure(first, true);
}

std::string program_file(const std::string& name) {
  if (name.find('/') != std::string::npos) return name;
  const char* variable = std::getenv("PATH");
  std::string_view folders = variable == nullptr ? "/usr/bin:/bin" : variable;
  while (true) {
    const std::size_t length = std::min(folders.find(':'), folders.size());
    const fs::path file = fs::path(length == 0 ? "." : folders.substr(0, length)) / name;
    std::error_code error;
    if (fs::is_regular_file(file, error) && access(file.c_str(), X_OK) == 0) return file;
    if (length == folders.size()) return {};
    folders.remove_prefix(length + 1);
  }
}

}  // namespace host
