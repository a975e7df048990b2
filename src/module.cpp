#include "module.h"

#include <fmt/format.h>
#include <libxml/parser.h>

#include <new>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/error.h"
#include "export/marker_clip.h"
#include "export/spreadsheet.h"
#include "export/text_transcript.h"
#include "model/speaker_list.h"
#include "model/word_grouping.h"
#include "platform/platform.h"
#include "readers/clip_reader.h"
#include "readers/movie_reader.h"
#include "timecode/timecode.h"
#include "xml/problem_channel.h"

namespace murmurase {
namespace {

// In the order of installation. The timecode operations may be installed again.
constexpr Operation operations[] = {
    operation<to_timecode>("to_timecode", true),
    operation<to_timestamp>("to_timestamp", true),
    operation<to_frames>("to_frames", true),
    operation<parse_xml_file>("parse_xml_file"),
    operation<parse_xmp_from_mov>("parse_xmp_from_mov"),
    operation<build_speakers_array>("build_speakers_array"),
    operation<build_words_array>("build_words_array"),
    operation<save_to_text>("save_to_text"),
    operation<save_to_excel>("save_to_excel"),
    operation<create_clip_with_markers>("create_clip_with_markers"),
};

// Makes the working folder if it is not there. Gives the path of the clip file in it.
std::optional<std::string> prepare_working_folder(Platform& platform) {
  const std::vector<std::string> directories = platform.application_support_directories();
  if (directories.empty()) return std::nullopt;
  const std::string folder = platform.expand_tilde(directories.front()) + "/Fernwork";
  if (!platform.is_directory(folder)) platform.create_directory(folder);
  return folder + "/Parlenda.xml";
}

void start_parser() {
  bool ran_out = false;
  const xml::ProblemChannel channel(
      [](void* data, xml::Problem*) { *static_cast<bool*>(data) = true; }, &ran_out);
  xmlInitParser();
  if (ran_out) throw std::bad_alloc();
}

void start_first(Module& module) {
  start_parser();
  std::optional<std::string> file = prepare_working_folder(module.process.platform);
  OperationTable installed;
  for (const Operation& each : operations) installed.install(each);
  module.operations = std::move(installed);
  module.process.temp_xml_file = std::move(file);
}

// Ends in the error for the first operation that cannot be installed twice.
void start_again(Module& module) {
  start_parser();
  static_cast<void>(prepare_working_folder(module.process.platform));
  for (const Operation& each : operations) module.operations.install(each);
}

[[noreturn]] void refuse_after(const std::exception_ptr& failure) {
  try {
    std::rethrow_exception(failure);
  } catch (const Error& error) {
    throw Error(error.kind(),
                fmt::format("start-up failed earlier, and only a new process can try again: {}",
                            error.what()),
                error.number());
  }
}

}  // namespace

void start_up(Module& module) {
  if (module.failure) refuse_after(module.failure);
  if (!module.operations.empty()) {
    start_again(module);
    return;
  }
  try {
    start_first(module);
  } catch (...) {
    module.failure = std::current_exception();
    throw;
  }
}

}  // namespace murmurase
