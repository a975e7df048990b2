#include "movie.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <fstream>

#include "core/printable.h"

namespace host {
namespace {

using murmurase::printable;

// Keeps what the XMP tool says on standard error, so that a failure stays one line.
class CapturedErrors {
 public:
  CapturedErrors() : file_(std::tmpfile()), saved_(fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3)) {
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
// stand for themselves.
std::string tool_failure(std::string said) {
  while (!said.empty() && (said.back() == '\n' || said.back() == ' ')) said.pop_back();
  if (const std::size_t last = said.rfind('\n'); last != std::string::npos) said.erase(0, last + 1);
  constexpr std::string_view own_tool = "murmurase-xmp: ";
  if (said.starts_with(own_tool)) return printable(said.substr(own_tool.size()));
  return "cannot read its XMP: " +
         (said.empty() ? "the XMP tool failed without saying why" : printable(said));
}

void parse_movie(Controller& controller, const MovieOptions& options) {
  CapturedErrors errors;
  const Value track_types = controller.call("parse_xmp_from_mov", {options.movie});
  const std::string said = errors.restore();
  if (track_types == nullptr) {
    throw Failure(tool_failure(said));
  }
  std::fputs(said.c_str(), stderr);
  if (!controller.holds("transcription_xml")) {
    throw Failure("it has no speech transcription (no track of type \"Speech\" in its XMP)");
  }
}

std::string known_speakers(const json& speakers) {
  std::string text;
  for (const json& entry : speakers) {
    if (!text.empty()) text += ", ";
    text += '"' + printable(entry["Speaker"].get_ref<const std::string&>()) + '"';
  }
  return text.empty() ? "none" : text;
}

void set_name(json& speakers, const std::string& speaker, const std::string& name) {
  const auto entry =
      std::ranges::find_if(speakers, [&](const json& each) { return each["Speaker"] == speaker; });
  if (entry == speakers.end()) {
    throw Failure(fmt::format("it has no speaker \"{}\" to name; its speakers are {}",
                              printable(speaker), known_speakers(speakers)));
  }
  (*entry)["Name"] = name;
}

void set_names_of_file(json& speakers, const std::string& path) {
  std::ifstream file(path);
  const json names = json::parse(file, nullptr, /*allow_exceptions=*/false);
  const auto usable = [](const json& entry) {
    return entry.is_object() && entry.contains("Speaker") && entry["Speaker"].is_string() &&
           entry.contains("Name") && (entry["Name"].is_string() || entry["Name"].is_null());
  };
  if (!names.is_array() || !std::ranges::all_of(names, usable)) {
    throw Failure(fmt::format("the names file {} cannot be {}", printable(path),
                              file.is_open() ? "used; it must be what 'murmurase speakers --json' "
                                               "prints, with \"Name\"s filled in"
                                             : "opened"));
  }
  for (const json& entry : names) {
    if (entry["Name"].is_string()) set_name(speakers, entry["Speaker"], entry["Name"]);
  }
}

void name_speakers(Controller& controller, const MovieOptions& options) {
  if (options.names.empty() && options.names_file.empty()) return;
  json speakers = controller.get("speakers_array");
  if (!options.names_file.empty()) set_names_of_file(speakers, options.names_file);
  for (const std::string& name : options.names) {
    const std::size_t equals = name.find('=');
    set_name(speakers, name.substr(0, equals), name.substr(equals + 1));
  }
  controller.set("speakers_array", speakers);
}

}  // namespace

void read_movie(Controller& controller, const MovieOptions& options) {
  const std::string tool =
      options.xmp_tool.empty() ? (program_folder() / "murmurase-xmp").string() : options.xmp_tool;
  controller.set("xmpcommand", tool);
  controller.set("mov_file_path", options.movie);
  parse_movie(controller, options);
  controller.call("build_speakers_array", {});
  name_speakers(controller, options);
}

Failure movie_failure(const std::string& movie, const std::string& reason) {
  const std::string name = printable(movie);
  if (reason.find(name) != std::string::npos) return Failure(reason);
  return Failure(fmt::format("{}: {}", name, reason));
}

}  // namespace host
