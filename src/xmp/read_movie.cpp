#include "xmp/read_movie.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string_view>
#include <utility>

#include "core/duration_scale.h"
#include "xmp/failure.h"
#include "xmp/names.h"
#include "xmp/packet.h"
#include "xmp/rate.h"
#include "xmp/rdf.h"
#include "xmp/track.h"

namespace murmurase::xmp {
namespace {

using rdf::Property;

// Calls `each` with the name of every field of the schema and the field.
template <typename Each>
void for_each_media_field(Property property, const Each& each) {
  rdf::for_each_field(property, [&](Property field) {
    if (field.space() == dynamic_media) each(field.name(), field);
  });
}

Timecode read_timecode(Property property) {
  Timecode timecode;
  timecode.property = property.name();
  for_each_media_field(property, [&](std::string_view name, Property field) {
    if (name == "timeFormat" && timecode.format.empty()) timecode.format = rdf::text(field);
    if (name == "timeValue" && timecode.value.empty()) timecode.value = rdf::text(field);
  });
  return timecode;
}

// What is gathered on the way, in whatever order the document has it.
struct Gathered {
  Timecode start_timecode;
  Timecode alternative_timecode;
  std::string video_rate;
  std::string time_scale;
  std::string sample_size;
  std::vector<Property> track_lists;
  std::vector<Property> other_clips;
  bool has_duration = false;
};

// Whether the property can be written with its own name, wherever it stands.
bool has_plain_name(Property property) {
  const xmlNs* space = property.node->ns;
  const auto is_name = [](const xmlChar* name) { return xmlValidateNCName(name, 0) == 0; };
  return property.space().size() <= rdf::longest_space && is_name(property.node->name) &&
         (space->prefix == nullptr || is_name(space->prefix));
}

// libxml2 leaves the ampersands in a namespace as references.
std::string namespace_of(Property property) {
  constexpr std::string_view reference = "&#38;";
  std::string space(property.space());
  for (std::size_t at = space.find(reference); at != std::string::npos;
       at = space.find(reference, at + 1))
    space.erase(at + 1, reference.size() - 1);
  return space;
}

void keep(Property property, Movie& movie) {
  // The readers would take these for parts of the transcription, wherever they stand.
  constexpr std::array<std::string_view, 11> taken{
      "name",      "speaker",   "timeValue", "trackType",     "scale",      "duration",
      "startTime", "frameRate", "markers",   "startTimecode", "altTimecode"};
  const bool media = property.space() == dynamic_media;
  if (media && std::ranges::find(taken, property.name()) != taken.end()) return;
  if (!has_plain_name(property)) return;
  const auto* prefix = reinterpret_cast<const char*>(property.node->ns->prefix);
  movie.others.push_back({prefix == nullptr ? "ns" : prefix, namespace_of(property),
                          std::string(property.name()), rdf::text(property)});
}

void gather(Property property, Movie& movie, Gathered& gathered) {
  (property.is_attribute() ? movie.has_attributes : movie.has_elements) = true;
  if (property.node->ns == nullptr) return;
  const std::string_view name = property.space() == dynamic_media ? property.name() : "";
  const auto take_first = [&](std::string& text) {
    if (text.empty()) text = rdf::text(property);
    keep(property, movie);
  };
  if (name == "duration" && !std::exchange(gathered.has_duration, true)) {
    for_each_media_field(property, [&](std::string_view field_name, Property field) {
      if (field_name == "value") movie.duration_value = rdf::text(field);
      if (field_name == "scale") movie.duration_scale = rdf::text(field);
    });
  } else if (name == "startTimecode" && gathered.start_timecode.property.empty()) {
    gathered.start_timecode = read_timecode(property);
  } else if (name == "altTimecode" && gathered.alternative_timecode.property.empty()) {
    gathered.alternative_timecode = read_timecode(property);
  } else if (name == "videoFrameRate") {
    take_first(gathered.video_rate);
  } else if (name == "startTimeScale") {
    take_first(gathered.time_scale);
  } else if (name == "startTimeSampleSize") {
    take_first(gathered.sample_size);
  } else if (name == "Tracks") {
    gathered.track_lists.push_back(property);
  } else if (property.space() == media_management &&
             (property.name() == "Pantry" || property.name() == "Ingredients")) {
    gathered.other_clips.push_back(property);
  } else if (rdf::is_simple(property)) {
    keep(property, movie);
  }
}

// Why the timecode cannot be the label of a frame; empty if it can.
std::string why_no_label(const Timecode& timecode) {
  if (!trimmed(timecode.format).empty() && !read_time_format(timecode.format))
    return fmt::format("its time format {} does not count frames", in_quotes(timecode.format));
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  constexpr int most_digits = 9;
  const std::string& value = timecode.value;
  const bool too_large = std::search_n(value.begin(), value.end(), most_digits + 1, '0',
                                       [&](char c, char) { return is_digit(c); }) != value.end();
  return too_large ? "it holds a number of more than 9 digits" : "";
}

constexpr const char* timecode_track = "timecode track";
constexpr const char* video_track = "video track";

RateEvidence evidence_of_track(const char* track, Rational rate) {
  return {track, to_text(rate), rate};
}

void read_timecodes(const Gathered& gathered, const MovieClock& clock, Movie& movie) {
  for (const Timecode& each : {gathered.alternative_timecode, gathered.start_timecode}) {
    if (each.value.empty()) continue;
    const std::string why = why_no_label(each);
    if (why.empty())
      movie.timecodes.push_back(each);
    else
      movie.warnings.push_back(
          fmt::format("the {} {} is left out: {}", each.property, in_quotes(each.value), why));
  }
  if (movie.timecodes.empty()) {
    if (!clock.warning.empty()) movie.warnings.push_back(clock.warning);
    if (!clock.label.empty()) {
      const bool drop_frame = clock.label.find(';') != std::string::npos;
      movie.timecodes.push_back(
          {timecode_track,
           clock.timecode_rate ? name_of_time_format({*clock.timecode_rate, drop_frame}) : "",
           clock.label});
      if (clock.timecode_rate)
        movie.evidence.push_back(evidence_of_track(timecode_track, *clock.timecode_rate));
      return;
    }
  }
  // A timecode that was set without a format counts as the movie's own does.
  if (movie.timecodes.size() == 2 && movie.timecodes[0].format.empty())
    movie.timecodes[0].format = movie.timecodes[1].format;
  for (const Timecode& each : movie.timecodes) {
    if (!is_label(each.value))
      movie.warnings.push_back(fmt::format(
          "the timecode {} does not have four fields; it is left as it is", in_quotes(each.value)));
    if (const std::optional<TimeFormat> format = read_time_format(each.format))
      movie.evidence.push_back({each.property + "/timeFormat", each.format, format->rate});
  }
}

void gather_evidence(const Gathered& gathered, const MovieClock& clock, Movie& movie) {
  if (!gathered.video_rate.empty())
    movie.evidence.push_back(
        {"videoFrameRate", gathered.video_rate, read_video_rate(gathered.video_rate)});
  if (!gathered.time_scale.empty() && !gathered.sample_size.empty()) {
    const std::string text = gathered.time_scale + "/" + gathered.sample_size;
    const std::optional<Rational> rate = read_fraction(text);
    movie.evidence.push_back(
        {"startTimeScale/startTimeSampleSize", text, rate ? true_rate(*rate) : std::nullopt});
  }
  if (!movie.duration_scale.empty())
    movie.evidence.push_back(evidence_of_scale(movie.duration_scale));
  if (clock.timecode_rate &&
      (movie.timecodes.empty() || movie.timecodes[0].property != timecode_track))
    movie.evidence.push_back(evidence_of_track(timecode_track, *clock.timecode_rate));
  if (clock.video_rate) movie.evidence.push_back(evidence_of_track(video_track, *clock.video_rate));
  for (const RateEvidence& each : movie.evidence) {
    if (!each.rate && !is_scale(each))
      movie.warnings.push_back(fmt::format("the {} {} gives no frame rate and is passed over",
                                           each.property, in_quotes(each.text)));
  }
}

// Says what is left out because nothing gives the frame rate.
void warn_without_rate(Movie& movie) {
  const bool has_duration = !movie.duration_scale.empty() || !movie.duration_value.empty();
  if (!has_duration && movie.timecodes.empty()) return;
  std::string warning = "nothing gives the frame rate";
  if (!movie.duration_scale.empty()) {
    const double rate = rate_of_scale(movie.duration_scale);
    const bool is_rate = rate > 0 && std::isfinite(rate);
    warning += fmt::format(" but the duration's scale {}, which reads as {}",
                           in_quotes(movie.duration_scale),
                           is_rate ? fmt::format("{} frames per second", rate) : "no rate");
  }
  const char* left_out = !has_duration             ? "the start timecode is"
                         : movie.timecodes.empty() ? "the duration is"
                                                   : "the duration and the start timecode are";
  warning += fmt::format("; {} left out, and times are clock times", left_out);
  movie.warnings.push_back(warning);
}

void read_rates(const Gathered& gathered, const MovieClock& clock, Movie& movie) {
  gather_evidence(gathered, clock, movie);
  const RateEvidence* used = used_evidence(movie);
  if (used == nullptr) {
    warn_without_rate(movie);
    return;
  }
  // If the scale alone would not be believed, the packet says the track's rate once more.
  if ((used->property == timecode_track || used->property == video_track) &&
      !evidence_of_scale(normal_scale(movie)).rate)
    movie.others.push_back({"xmpDM", dynamic_media, "videoFrameRate", used->text});
}

void warn_of_speech_elsewhere(const Gathered& gathered, Movie& movie) {
  const auto elsewhere = std::ranges::find_if(gathered.other_clips, holds_speech);
  if (!movie.words.empty() || elsewhere == gathered.other_clips.end()) return;
  movie.warnings.push_back(fmt::format(
      "the only Speech track stands in xmpMM:{}, the metadata of another clip that this "
      "movie was made from; read that clip, or have this movie transcribed",
      elsewhere->name()));
}

}  // namespace

Movie read_movie(const Packet& packet, const MovieClock& clock, const Packet* sidecar) {
  Movie movie;
  Gathered gathered;
  std::size_t passed_on = 0;         // of the properties, those of the packet
  std::vector<ParsedPacket> parsed;  // what is gathered lies in these
  for (const Packet* const each : {&packet, sidecar}) {
    if (each == nullptr) continue;
    parsed.push_back(parse_packet(*each));
    const std::string& problem = parsed.back().problem;
    if (!problem.empty()) {
      movie.damaged = true;
      movie.warnings.push_back(fmt::format(
          "the packet is damaged and was read as far as it can be: {}", escaped(problem)));
    }
    bool any = false;
    rdf::for_each_property(rdf::find_rdf(parsed.back().document.get()), [&](Property property) {
      any = true;
      gather(property, movie, gathered);
    });
    if (!any && !problem.empty())
      fail("no XMP properties are left in the damaged packet of {}; have it written again",
           in_quotes(each->file.native()));
    if (each == &packet) passed_on = movie.others.size();
  }
  movie.others.resize(passed_on);
  read_timecodes(gathered, clock, movie);
  read_rates(gathered, clock, movie);
  const std::filesystem::path& file = sidecar == nullptr ? packet.file : sidecar->file;
  for (const Property tracks : gathered.track_lists) read_tracks(tracks, file, movie);
  warn_of_speech_elsewhere(gathered, movie);
  return movie;
}

}  // namespace murmurase::xmp
