#include "module.h"

#include <libxml/parser.h>

#include <new>
#include <utility>

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

void prepare_working_folder(Process& process) {
  const std::vector<std::string> directories = process.platform.application_support_directories();
  if (directories.empty()) return;
  const std::string folder = process.platform.expand_tilde(directories.front()) + "/Fernwork";
  if (!process.platform.is_directory(folder)) process.platform.create_directory(folder);
  process.temp_xml_file = folder + "/Parlenda.xml";
}

void start_parser() {
  bool ran_out = false;
  const xml::ProblemChannel channel(
      [](void* data, xml::Problem*) { *static_cast<bool*>(data) = true; }, &ran_out);
  xmlInitParser();
  if (ran_out) throw std::bad_alloc();
}

}  // namespace

void start_up(Module& module) {
  start_parser();
  prepare_working_folder(module.process);
  OperationTable installed = module.operations;  // all of them, or none
  for (const Operation& each : operations) installed.install(each);
  module.operations = std::move(installed);
}

}  // namespace murmurase
