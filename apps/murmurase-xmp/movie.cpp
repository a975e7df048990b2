#include "movie.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "core/utf8.h"
#include "failure.h"
#include "rate.h"
#include "rdf.h"
#include "track.h"
#include "xml/recovery.h"

namespace {

using rdf::Property;

// Bytes that are no UTF-8 as the characters of ISO 8859-1 that their writer meant.
std::string as_utf8(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size() + bytes.size() / 8);
  while (!bytes.empty()) {
    const std::size_t length = murmurase::utf8_character(bytes);
    if (length > 0) {
      text += bytes.substr(0, length);
    } else {
      const auto byte = static_cast<unsigned char>(bytes.front());
      text += static_cast<char>(0xC0 | byte >> 6);
      text += static_cast<char>(0x80 | (byte & 0x3F));
    }
    bytes.remove_prefix(length > 0 ? length : 1);
  }
  return text;
}

murmurase::xml::Recovery parse(const Packet& packet, Movie& movie) {
  using murmurase::xml::Blanks;
  using murmurase::xml::packet_limit;
  murmurase::xml::Recovery parsed =
      murmurase::xml::recover(packet.bytes, packet_limit, Blanks::drop);
  std::string first_problem = parsed.first_problem;
  if (const std::vector<int>& lines = parsed.problem_lines; !lines.empty() && lines.front() > 0)
    first_problem += fmt::format(" (line {})", lines.front());
  const xmlChar* const encoding = parsed.document ? parsed.document->encoding : nullptr;
  const bool in_utf8 = encoding == nullptr ||
                       xmlStrcasecmp(encoding, reinterpret_cast<const xmlChar*>("UTF-8")) == 0;
  if (!parsed.well_formed && in_utf8 && packet.bytes.find('\0') == std::string::npos) {
    // The parser would take all that follows a wrong byte for ISO 8859-1.
    const std::string text = as_utf8(packet.bytes);
    if (text != packet.bytes) parsed = murmurase::xml::recover(text, packet_limit, Blanks::drop);
  }
  const std::string file = in_quotes(packet.file.native());
  const xmlDoc* const document = parsed.document.get();
  if (parsed.limit != nullptr)
    fail("cannot read the XMP packet of {}: {}; have it written again", file, parsed.limit);
  if (document != nullptr && document->intSubset != nullptr) {
    fail(
        "cannot read the XMP packet of {}: it declares a document type, which XMP has not; have it "
        "written again",
        file);
  }
  if (document == nullptr || rdf::find_rdf(document) == nullptr) {
    if (!first_problem.empty())
      fail("cannot read the XMP packet of {}: it is not well-formed XML: {}; have it written again",
           file, first_problem);
    fail("no XMP properties in the packet of {}; have it written again", file);
  }
  movie.damaged = !first_problem.empty();
  if (movie.damaged)
    movie.warnings.push_back(fmt::format(
        "the packet is damaged and was read as far as it can be: {}", escaped(first_problem)));
  return parsed;
}

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
  bool has_duration = false;
};

void keep(Property property, Movie& movie) {
  // The readers would take these for parts of the transcription, wherever they stand.
  constexpr std::array<std::string_view, 9> taken{"name",      "speaker",   "timeValue",
                                                  "trackType", "scale",     "duration",
                                                  "startTime", "frameRate", "markers"};
  const bool media = property.space() == dynamic_media;
  if (!rdf::is_simple(property)) return;
  if (media && std::ranges::find(taken, property.name()) != taken.end()) return;
  const xmlNs* const space = property.node->ns;
  const auto* const prefix = reinterpret_cast<const char*>(space->prefix);
  movie.others.push_back({prefix == nullptr ? "ns" : prefix, std::string(property.space()),
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
  } else {
    keep(property, movie);
  }
}

bool is_label(std::string_view value) {
  int fields = 0;
  std::string_view rest = trimmed(value);
  while (true) {
    const std::size_t digits = std::min(rest.find_first_not_of("0123456789"), rest.size());
    if (digits == 0) return false;
    ++fields;
    if (digits == rest.size()) return fields == 4;
    if (std::string_view(":;.,").find(rest[digits]) == std::string_view::npos) return false;
    rest.remove_prefix(digits + 1);
  }
}

constexpr const char* timecode_track = "timecode track";
constexpr const char* video_track = "video track";

RateEvidence evidence_of_track(const char* track, Rational rate) {
  return {track, to_text(rate), rate};
}

void read_timecodes(const Gathered& gathered, const MovieClock& clock, Movie& movie) {
  for (const Timecode& each : {gathered.alternative_timecode, gathered.start_timecode})
    if (!each.value.empty()) movie.timecodes.push_back(each);
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
      movie.warnings.push_back(fmt::format("the {} {} is no timecode of four fields; left as it is",
                                           each.property, in_quotes(each.value)));
    const std::optional<TimeFormat> format = read_time_format(each.format);
    if (!each.format.empty())
      movie.evidence.push_back({each.property + "/timeFormat", each.format,
                                format ? std::optional(format->rate) : std::nullopt});
  }
}

void read_rates(const Gathered& gathered, const MovieClock& clock, Movie& movie) {
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
  if (const RateEvidence* const used = used_evidence(movie)) {
    // Where the scale alone would not be believed, the packet says the track's rate once more.
    if ((used->property == timecode_track || used->property == video_track) &&
        !evidence_of_scale(normal_scale(movie)).rate)
      movie.others.push_back({"xmpDM", std::string(dynamic_media), "videoFrameRate", used->text});
    return;
  }
  const bool has_duration = !movie.duration_scale.empty() || !movie.duration_value.empty();
  if (!has_duration && movie.timecodes.empty()) return;
  std::string warning = "nothing tells the frame rate";
  if (!movie.duration_scale.empty()) {
    const std::optional<double> rate = rate_of_scale(movie.duration_scale);
    warning += fmt::format(" but the duration's scale {}, which reads as {}",
                           in_quotes(movie.duration_scale),
                           rate ? fmt::format("{} frames per second", *rate) : "no rate");
  }
  const char* const left_out = !has_duration ? "the start timecode is"
                               : movie.timecodes.empty()
                                   ? "the duration is"
                                   : "the duration and the start timecode are";
  warning += fmt::format("; {} left out, and times are clock times", left_out);
  movie.warnings.push_back(warning);
}

}  // namespace

Movie read_movie(const Packet& packet, const MovieClock& clock, const Packet* sidecar) {
  Movie movie;
  Gathered gathered;
  std::size_t passed_on = 0;                     // Of the properties, those of the packet.
  std::vector<murmurase::xml::Recovery> parsed;  // Which what is gathered lies in.
  for (const Packet* const each : {&packet, sidecar}) {
    if (each == nullptr) continue;
    parsed.push_back(parse(*each, movie));
    bool any = false;
    rdf::for_each_property(rdf::find_rdf(parsed.back().document.get()), [&](Property property) {
      any = true;
      gather(property, movie, gathered);
    });
    if (!any)
      fail("no XMP properties in the packet of {}; have it written again",
           in_quotes(each->file.native()));
    if (each == &packet) passed_on = movie.others.size();
  }
  movie.others.resize(passed_on);
  read_timecodes(gathered, clock, movie);
  read_rates(gathered, clock, movie);
  const std::filesystem::path& file = sidecar == nullptr ? packet.file : sidecar->file;
  for (const Property tracks : gathered.track_lists) read_tracks(tracks, file, movie);
  return movie;
}

std::optional<Rational> duration_of(const Movie& movie) {
  const auto value = read_fraction(movie.duration_value);
  const auto unit = read_fraction(movie.duration_scale);
  return value && unit ? multiply(*value, *unit) : std::nullopt;
}
