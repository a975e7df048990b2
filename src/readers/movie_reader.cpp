#include "readers/movie_reader.h"

#include <fmt/format.h>

#include "core/duration_scale.h"
#include "core/error.h"
#include "core/numbers.h"
#include "platform/platform.h"
#include "timecode/timecode.h"
#include "xmp/names.h"

namespace murmurase {
namespace {

// What one walk over the packet finds.
struct MovieProperties {
  std::optional<std::string> scale;
  std::optional<std::string> start_timecode;
  std::vector<XmlElement> track_types;
};

MovieProperties find_properties(const XmlDocument& document) {
  MovieProperties found;
  std::string scratch;
  for (xmlNode* node = xml::first_element(document); node != nullptr;
       node = xml::next_element(node)) {
    if (xml::is_named(node, xmp::names::track_type)) {
      found.track_types.push_back({document, node});
    } else if (!found.start_timecode && xml::is_named(node, xmp::names::time_value)) {
      found.start_timecode = xml::text_content(node, scratch);
    } else if (!found.scale && xml::is_named(node, xmp::names::scale) &&
               xml::is_named(node->parent, xmp::names::duration)) {
      found.scale = xml::text_content(node, scratch);
    }
  }
  return found;
}

// Nothing when the tool failed.
std::optional<MovieProperties> properties_of(const ToolRun& run, const std::string& movie_path) {
  if (run.failure) std::rethrow_exception(run.failure);
  if (run.wait_status != 0) return std::nullopt;
  return find_properties(
      xml::parse_values(run.output.view(), xmp::names::values, xmp::dynamic_media,
                        fmt::format("the XMP packet of {}", printable(movie_path))));
}

}  // namespace

std::optional<std::vector<XmlElement>> parse_xmp_from_mov(Controller& controller,
                                                          const std::string& movie_path) {
  std::optional<MovieProperties> movie;
  {
    const ToolRun run =
        controller.process.platform.run_xmp_tool(controller.xmpcommand.value_or(""), movie_path);
    controller.tool_status = run.wait_status;
    try {
      movie = properties_of(run, movie_path);
    } catch (...) {
      controller.transcription_xml.reset();
      throw;
    }
  }
  if (!movie) {
    controller.transcription_xml.reset();
    return std::nullopt;
  }

  if (movie->scale) controller.frame_rate = rate_of_scale(*movie->scale);
  const std::optional<std::string>& start = movie->start_timecode;
  controller.displayformat = start && start->find(';') != std::string::npos ? "DF" : "NDF";
  const double rate = start ? required(controller.frame_rate, "frame_rate") : 0.0;
  controller.transcription_xml.reset();
  controller.first_frame =
      start ? static_cast<double>(to_frames(*start, round_half_away(rate, "the frame rate"),
                                            *controller.displayformat))
            : 0.0;
  std::string scratch;
  for (const XmlElement& track_type : movie->track_types) {
    if (xml::text_content(track_type.node, scratch) == "Speech") {
      controller.transcription_xml = XmlElement{track_type.document, track_type.node->parent};
    }
  }
  return std::move(movie->track_types);
}

}  // namespace murmurase
