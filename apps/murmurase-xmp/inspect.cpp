#include "inspect.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <iterator>
#include <nlohmann/json.hpp>
#include <unordered_map>
#include <vector>

#include "core/duration_scale.h"
#include "xmp/failure.h"
#include "xmp/normal_packet.h"
#include "xmp/rate.h"

namespace murmurase::tool {
namespace {

using json = nlohmann::ordered_json;

constexpr std::size_t excerpt_words = 8;

double seconds(const xmp::Count& count) {
  const auto units = to_rational(count.units);  // Never nothing: 18 decimals at the most.
  return to_double(*units) / to_double(count.base);
}

json rate_of(const xmp::Movie& movie) {
  json evidence = json::array();
  const xmp::RateEvidence* used = used_evidence(movie);
  for (const xmp::RateEvidence& each : movie.evidence) {
    evidence.push_back({{"property", each.property},
                        {"text", each.text},
                        {"rate", each.rate ? json(to_text(*each.rate)) : json()},
                        {"used", &each == used}});
  }
  const std::string scale = normal_scale(movie);
  return {{"frames_per_second", scale.empty() ? json() : json(rate_of_scale(scale))},
          {"duration_scale", scale.empty() ? json() : json(scale)},
          {"evidence", evidence}};
}

json timecodes_of(const xmp::Movie& movie) {
  json timecodes = json::array();
  for (const xmp::Timecode& each : movie.timecodes) {
    timecodes.push_back(
        {{"property", each.property},
         {"format", each.format},
         {"value", each.value},
         {"used", &each == &movie.timecodes.front() && used_evidence(movie) != nullptr}});
  }
  return timecodes;
}

json tracks_of(const xmp::Movie& movie) {
  json tracks = json::array();
  for (const xmp::Track& each : movie.tracks) {
    tracks.push_back({{"type", each.type},
                      {"name", each.name},
                      {"time_base", each.time_base},
                      {"markers", each.markers},
                      {"words", each.words}});
  }
  return tracks;
}

json speakers_of(const xmp::Movie& movie) {
  struct Speaker {
    std::string name;
    std::size_t words = 0;
    std::string excerpt;
  };
  std::vector<Speaker> speakers;
  std::unordered_map<std::string, std::size_t> places;
  for (const xmp::Word& word : movie.words) {
    const auto [place, added] = places.try_emplace(word.speaker, speakers.size());
    if (added) speakers.push_back({word.speaker, 0, {}});
    Speaker& speaker = speakers[place->second];
    if (speaker.words++ < excerpt_words)
      speaker.excerpt += (speaker.excerpt.empty() ? "" : " ") + word.name;
  }
  json list = json::array();
  for (const Speaker& each : speakers)
    list.push_back({{"speaker", each.name}, {"words", each.words}, {"first_words", each.excerpt}});
  return list;
}

// The words that the recognition was less than half sure of. Probabilities are percent, or parts of
// 1 where none is above it.
json doubtful_words(const xmp::Movie& movie) {
  std::vector<std::pair<const xmp::Word*, double>> known;
  double most = 0;
  for (const xmp::Word& word : movie.words) {
    double probability = 0;
    const std::string_view text = xmp::trimmed(word.probability);
    if (std::from_chars(text.data(), text.data() + text.size(), probability).ec != std::errc())
      continue;
    known.emplace_back(&word, probability);
    most = std::max(most, probability);
  }
  const double half = most > 1 ? 50 : 0.5;
  json list = json::array();
  for (const auto& [word, probability] : known) {
    if (probability < half)
      list.push_back(
          {{"word", word->name}, {"time", seconds(word->start)}, {"probability", probability}});
  }
  return list;
}

// Counts what is doubtful, and remembers the first word it was seen at.
struct Doubt {
  const char* what;
  std::size_t count = 0;
  const xmp::Word* first = nullptr;

  void note_if(bool condition, const xmp::Word& word) {
    if (!condition) return;
    if (count++ == 0) first = &word;
  }
};

std::vector<std::string> warnings_of(const xmp::Movie& movie) {
  std::vector<std::string> warnings = movie.warnings;
  const xmp::RateEvidence* used = used_evidence(movie);
  for (const xmp::RateEvidence& each : movie.evidence) {
    if (each.rate && *each.rate != *used->rate && !is_scale(each)) {
      warnings.push_back(
          fmt::format("{} gives {} frames per second, {} gives {}; the former counts",
                      used->property, to_text(*used->rate), each.property, to_text(*each.rate)));
    }
  }
  if (movie.words.empty()) warnings.emplace_back("there is no Speech track with words");
  Doubt order{"start before the word before them"};
  Doubt overlap{"start before the word before them ends"};
  Doubt negative{"have a negative time"};
  Doubt line_ends{"have line ends in their name or their speaker, which become blanks"};
  const xmp::Word* before = nullptr;
  double end = 0;
  for (const xmp::Word& word : movie.words) {
    const double start = seconds(word.start);
    const double length = word.duration ? seconds(*word.duration) : 0;
    negative.note_if(start < 0 || length < 0, word);
    line_ends.note_if(word.had_line_ends, word);
    if (before != nullptr) {
      const bool early = start < seconds(before->start);
      order.note_if(early, word);
      overlap.note_if(!early && start < end - 1e-9, word);
    }
    before = &word;
    end = start + length;
  }
  for (const Doubt& doubt : {order, overlap, negative, line_ends}) {
    if (doubt.count > 0) {
      warnings.push_back(fmt::format("words that {}: {}, the first is {} at {:.3f} s", doubt.what,
                                     doubt.count, xmp::in_quotes(doubt.first->name),
                                     seconds(doubt.first->start)));
    }
  }
  return warnings;
}

std::string shown(const json& text) { return xmp::escaped(text.get_ref<const std::string&>()); }

std::string as_lines(const json& found) {
  std::string out;
  const auto line = [&]<typename... Parts>(fmt::format_string<Parts...> format, Parts&&... parts) {
    fmt::format_to(std::back_inserter(out), format, std::forward<Parts>(parts)...);
    out += '\n';
  };
  const json& packet = found["packet"];
  line("packet     {}, {} bytes, {}, in {}", shown(packet["source"]),
       packet["bytes"].get<std::size_t>(), shown(packet["form"]), shown(packet["file"]));
  const json& rate = found["rate"];
  if (rate["frames_per_second"].is_null()) {
    line("rate       unknown: times are clock times");
  } else {
    line("rate       {} frames per second, written as the scale {}",
         rate["frames_per_second"].dump(),
         xmp::in_quotes(rate["duration_scale"].get_ref<const std::string&>()));
  }
  for (const json& each : rate["evidence"]) {
    line("  {} {}: {}{}", each["used"].get<bool>() ? "*" : " ", shown(each["property"]),
         shown(each["text"]),
         each["rate"].is_null() || each["rate"] == each["text"] ? "" : " = " + shown(each["rate"]));
  }
  line("timecode   {}",
       found["start_timecode"].is_null() ? "none" : shown(found["start_timecode"]));
  for (const json& each : found["timecodes"])
    line("  {} {}: {} {}", each["used"].get<bool>() ? "*" : " ", shown(each["property"]),
         shown(each["value"]), shown(each["format"]));
  line("tracks     {}", found["tracks"].size());
  for (const json& each : found["tracks"]) {
    line("    {} {}: {} markers, {} words, {}", shown(each["type"]),
         xmp::in_quotes(each["name"].get_ref<const std::string&>()),
         each["markers"].get<std::size_t>(), each["words"].get<std::size_t>(),
         shown(each["time_base"]).empty() ? "1 unit per second" : shown(each["time_base"]));
  }
  line("speakers   {}", found["speakers"].size());
  for (const json& each : found["speakers"])
    line("    {}: {} words: {}", xmp::in_quotes(each["speaker"].get_ref<const std::string&>()),
         each["words"].get<std::size_t>(), shown(each["first_words"]));
  line("doubtful   {} words are less than half sure", found["doubtful_words"].size());
  std::size_t left = 10;
  for (const json& each : found["doubtful_words"]) {
    if (left-- == 0) break;
    line("    {:.3f} s {}: {}", each["time"].get<double>(), shown(each["word"]),
         each["probability"].dump());
  }
  line("warnings   {}", found["warnings"].size());
  for (const json& each : found["warnings"]) line("    {}", each.get_ref<const std::string&>());
  return out;
}

}  // namespace

std::string inspect(const std::string& path, const xmp::Packet& packet, xmp::Movie& movie,
                    bool as_json) {
  print_normal_packet(movie);  // Which may have something to warn of, too.
  const bool embedded = packet.file == path && !is_xmp_file(path);
  const char* form = movie.has_attributes && movie.has_elements ? "elements and attributes"
                     : movie.has_attributes                     ? "attributes"
                                                                : "elements";
  json found{{"movie", path},
             {"packet",
              {{"source", embedded ? "embedded" : "sidecar"},
               {"file", packet.file.native()},
               {"bytes", packet.bytes.size()},
               {"form", form},
               {"damaged", movie.damaged}}},
             {"rate", rate_of(movie)},
             {"start_timecode", movie.timecodes.empty() || used_evidence(movie) == nullptr
                                    ? json()
                                    : json(normal_timecode(movie.timecodes.front()))},
             {"timecodes", timecodes_of(movie)},
             {"tracks", tracks_of(movie)},
             {"speakers", speakers_of(movie)},
             {"doubtful_words", doubtful_words(movie)},
             {"warnings", warnings_of(movie)}};
  if (as_json) return found.dump(2, ' ', false, json::error_handler_t::replace) + '\n';
  return as_lines(found);
}

}  // namespace murmurase::tool
