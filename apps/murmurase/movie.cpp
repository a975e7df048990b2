#include "movie.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string_view>
#include <system_error>
#include <unordered_map>
#include <utility>

#include "core/printable.h"
#include "platform/posix/held_signals.h"

namespace host {
namespace {

using murmurase::printable;

// An open file that goes when it is closed; null for none.
std::FILE* nameless_file() {
  const murmurase::HeldSignals held;  // one that ends the process must not leave the name behind
  std::string name = temporary_folder() / "murmurase-XXXXXX";
  const int file = mkostemp(name.data(), O_CLOEXEC);
  if (file < 0) return nullptr;
  unlink(name.c_str());
  return fdopen(file, "w+");
}

// Keeps what the XMP tool says on standard error, so that a failure stays one line.
class CapturedErrors {
 public:
  CapturedErrors() : file_(nameless_file()), saved_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
    if (file_ != nullptr && saved_ >= 0) dup2(fileno(file_), STDERR_FILENO);
  }
  CapturedErrors(const CapturedErrors&) = delete;
  CapturedErrors& operator=(const CapturedErrors&) = delete;
  ~CapturedErrors() {
    restore();
    if (file_ != nullptr) std::fclose(file_);
  }

  // Gives standard error back, and what was written to it meanwhile.
  std::string restore() {
    if (saved_ < 0) return {};
    dup2(saved_, STDERR_FILENO);
    close(saved_);
    saved_ = -1;
    std::string text;
    if (file_ == nullptr) return text;
    std::rewind(file_);
    std::array<char, 4096> part{};
    while (const std::size_t count = std::fread(part.data(), 1, part.size(), file_)) {
      text.append(part.data(), count);
    }
    return text;
  }

 private:
  std::FILE* file_;
  int saved_;
};

// Why the tool failed, of what it said: the last line is the one that tells. Our own tool's lines
// stand for themselves. A tool that was killed had no chance to say so.
Failure tool_failure(std::string said, const std::string& movie) {
  while (!said.empty() && (said.back() == '\n' || said.back() == ' ')) said.pop_back();
  if (const std::size_t last = said.rfind('\n'); last != std::string::npos) said.erase(0, last + 1);
  constexpr std::string_view own_tool = "murmurase-xmp: ";
  if (const int status = tool_status(); WIFSIGNALED(status)) {
    said = fmt::format("the XMP tool was killed: {}", strsignal(WTERMSIG(status)));
  } else if (said.starts_with(own_tool)) {
    said = printable(said.substr(own_tool.size()));
    const bool names_it = said.find(printable(std::filesystem::path(movie).stem().native())) !=
                          std::string::npos;  // or a sidecar of its name
    return Failure(said, names_it);
  } else if (said.empty()) {
    said =
        fmt::format("the XMP tool failed with status {} without saying why", WEXITSTATUS(status));
  }
  return Failure("cannot read its XMP: " + printable(said));
}

// Lines fit for a terminal: a tool may quote what strangers wrote.
std::string printable_lines(std::string_view text) {
  std::string lines;
  while (!text.empty()) {
    const std::size_t length = std::min(text.find('\n'), text.size());
    lines += printable(text.substr(0, length)) + '\n';
    text.remove_prefix(std::min(length + 1, text.size()));
  }
  return lines;
}

std::string parse_movie(Controller& controller, const MovieOptions& options) {
  CapturedErrors errors;
  // No tool may take it for an option.
  const std::string path = options.movie.starts_with('-') ? "./" + options.movie : options.movie;
  const Value track_types = controller.call("parse_xmp_from_mov", {path});
  const std::string said = errors.restore();
  if (track_types == nullptr) throw tool_failure(said, options.movie);
  if (!controller.holds("transcription_xml")) {
    throw Failure("it has no speech transcription (no track of type \"Speech\" in its XMP)");
  }
  return printable_lines(said);
}

std::string known_speakers(const json& speakers) {
  constexpr std::size_t most_shown = 20;
  std::string text;
  for (std::size_t i = 0; i < std::min(speakers.size(), most_shown); ++i) {
    const auto& speaker = speakers[i]["Speaker"].get_ref<const std::string&>();
    text += fmt::format("{}\"{}\"", i == 0 ? "" : ", ", printable(speaker));
  }
  if (speakers.size() > most_shown)
    text += fmt::format(" and {} more", speakers.size() - most_shown);
  return text.empty() ? "none" : text;
}

// The names of a file: what 'speakers --json' prints, "Name"s filled in.
json names_of_file(const std::string& path) {
  std::error_code error;
  std::ifstream file(path);
  if (!file || std::filesystem::is_directory(path, error)) {
    throw Failure(fmt::format("cannot read the names file {}: {}", printable(path),
                              std::strerror(file ? EISDIR : errno)));
  }
  json names;
  std::string where;
  try {
    names = json::parse(file);
  } catch (const json::exception& problem) {
    // "[json.exception.parse_error.101] parse error at line 3, column 5: ..."
    const std::string_view words = problem.what();
    where = fmt::format(" ({})", printable(words.substr(words.find(']') + 2)));
  }
  const auto usable = [](const json& entry) {
    return entry.is_object() && entry.contains("Speaker") && entry["Speaker"].is_string() &&
           entry.contains("Name") && (entry["Name"].is_string() || entry["Name"].is_null());
  };
  if (!names.is_array() || !std::ranges::all_of(names, usable)) {
    throw Failure(
        fmt::format("the names file {} cannot be used{}; it must be what 'murmurase speakers "
                    "--json' prints, with \"Name\"s filled in",
                    printable(path), where));
  }
  return names;
}

void name_speakers(Controller& controller, const MovieOptions& options) {
  if (options.names.empty() && options.names_file.empty()) return;
  json speakers = controller.get("speakers_array");
  std::unordered_map<std::string, std::size_t> positions;
  for (std::size_t i = 0; i < speakers.size(); ++i) {
    positions.emplace(speakers[i]["Speaker"].get<std::string>(), i);
  }
  const auto set_name = [&](const std::string& speaker, const std::string& name) {
    const auto position = positions.find(speaker);
    if (position == positions.end()) {
      throw Failure(fmt::format("it has no speaker \"{}\" to name; its speakers are {}",
                                printable(speaker), known_speakers(speakers)));
    }
    speakers[position->second]["Name"] = name;
  };
  if (!options.names_file.empty()) {
    for (const json& entry : names_of_file(options.names_file)) {
      if (entry["Name"].is_string()) set_name(entry["Speaker"], entry["Name"]);
    }
  }
  for (const std::string& name : options.names) {
    const std::size_t equals = name.find('=');
    set_name(name.substr(0, equals), name.substr(equals + 1));
  }
  controller.set("speakers_array", speakers);
}

}  // namespace

void read_movie(Controller& controller, const MovieOptions& options, std::string& said) {
  const std::string tool =
      options.xmp_tool.empty() ? (program_folder() / "murmurase-xmp").string() : options.xmp_tool;
  controller.set("xmpcommand", tool);
  controller.set("mov_file_path", options.movie);
  said = parse_movie(controller, options);
  controller.call("build_speakers_array", {});
  name_speakers(controller, options);
}

Failure movie_failure(const std::string& movie, const Failure& failure, std::string said) {
  std::string message = failure.what();
  if (!failure.names_file) message = fmt::format("{}: {}", printable(movie), message);
  said.erase(std::min(said.find('\n'), said.size()));
  return Failure(said.empty() ? message : fmt::format("{} ({})", message, said), true);
}

std::vector<std::string> inputs_of(const MovieOptions& options) {
  std::vector<std::string> inputs{options.movie, options.names_file, options.xmp_tool};
  for (const char* const ending : {".xmp", ".XMP"}) {
    inputs.push_back(std::filesystem::path(options.movie).replace_extension(ending));
    inputs.push_back(options.movie + ending);
  }
  return inputs;
}

void refuse_to_overwrite(const std::vector<std::string>& inputs,
                         const std::vector<std::string>& outputs) {
  std::set<std::pair<dev_t, ino_t>> read;
  struct stat status {};
  for (const std::string& input : inputs) {
    if (stat(input.c_str(), &status) == 0) read.emplace(status.st_dev, status.st_ino);
  }
  for (const std::string& output : outputs) {
    if (stat(output.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) continue;
    if (!read.contains({status.st_dev, status.st_ino})) continue;
    throw Failure(fmt::format("{} is read, and would be overwritten; choose another output",
                              printable(output)),
                  true);
  }
}

}  // namespace host
