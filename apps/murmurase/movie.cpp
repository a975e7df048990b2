#include "movie.h"

#include <fmt/format.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>

#include "captured_errors.h"
#include "core/printable.h"
#include "outputs.h"

namespace host {
namespace {

using murmurase::printable;

// Why the tool failed, of what it said: the last line is the one that tells. Our own tool's lines
// stand for themselves. A tool that was killed had no chance to say so.
Failure tool_failure(std::string said, int status, const std::string& movie) {
  while (!said.empty() && (said.back() == '\n' || said.back() == ' ')) said.pop_back();
  if (const std::size_t last = said.rfind('\n'); last != std::string::npos) said.erase(0, last + 1);
  constexpr std::size_t most_shown = 1000;
  if (said.size() > most_shown) said.replace(0, said.size() - most_shown, "...");
  constexpr std::string_view own_tool = "murmurase-xmp: ";
  if (WIFSIGNALED(status)) {
    said = fmt::format("the XMP tool was killed: {}", strsignal(WTERMSIG(status)));
  } else if (said.starts_with(own_tool)) {
    said = printable(said.substr(own_tool.size()));
    if (said.starts_with("no XMP packet"))
      return Failure("it has no speech transcription; " + said);
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

// `said` becomes what the tool said on standard error.
void parse_movie(Controller& controller, const MovieOptions& options, std::string& said) {
  CapturedErrors errors;
  // No tool may take it for an option.
  const std::string path = options.movie.starts_with('-') ? "./" + options.movie : options.movie;
  const Value track_types = controller.call("parse_xmp_from_mov", {path});
  const std::string raw = errors.restore();
  if (track_types == nullptr) throw tool_failure(raw, controller.tool_status(), options.movie);
  said = printable_lines(raw);
  if (!controller.holds("transcription_xml")) {
    throw Failure(
        "it has no speech transcription; no track in its XMP is of type \"Speech\": transcribe the "
        "movie, or name an .xmp file that holds its transcription");
  }
}

std::string tool_of(const MovieOptions& options) {
  return options.xmp_tool.empty() ? (program_folder() / "murmurase-xmp").string()
                                  : options.xmp_tool;
}

}  // namespace

void read_movie(Controller& controller, const MovieOptions& options, std::string& said) {
  controller.set("xmpcommand", tool_of(options));
  controller.set("mov_file_path", options.movie);
  parse_movie(controller, options, said);
  controller.call("build_speakers_array", {});
  Names known = options.names_of_file;
  if (!options.own_names_file.empty()) {
    std::ranges::move(read_names(options.own_names_file), std::back_inserter(known));
  }
  name_speakers(controller, known, options.names);
}

Failure movie_failure(const std::string& movie, const Failure& failure, std::string said) {
  std::string message = failure.what();
  if (!failure.names_file) message = fmt::format("{}: {}", printable(movie), message);
  said.erase(std::min(said.find('\n'), said.size()));
  return Failure(said.empty() ? message : fmt::format("{} ({})", message, said), true);
}

std::vector<std::string> inputs_of(const MovieOptions& options) {
  std::vector<std::string> inputs{options.movie, options.names_file, options.own_names_file,
                                  program_file(tool_of(options))};
  for (const char* const ending : {".xmp", ".XMP"}) {
    inputs.push_back(std::filesystem::path(options.movie).replace_extension(ending));
    inputs.push_back(options.movie + ending);
  }
  return inputs;
}

}  // namespace host
