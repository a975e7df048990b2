#include "track.h"

#include <fmt/format.h>

#include <optional>
#include <string>

#include "failure.h"

namespace {

using rdf::Property;

// The rate at the start of `text`, "f30000s1001" or "f1000"; the f may be missing.
std::optional<Rational> take_time_base(std::string_view& text) {
  if (text.starts_with('f')) text.remove_prefix(1);
  const auto units = take_decimal(text);
  auto base = units ? to_rational(*units) : std::nullopt;
  if (base && text.starts_with('s')) {
    text.remove_prefix(1);
    const auto seconds = take_decimal(text);
    const auto divisor = seconds ? to_rational(*seconds) : std::nullopt;
    base = divisor ? divide(*base, *divisor) : std::nullopt;
  }
  if (!base || base->numerator <= 0) return std::nullopt;
  return base;
}

// A count of units, which may carry its own base: "15", "15f25". No text is 0.
std::optional<Count> read_count(std::string_view text, Rational base) {
  text = trimmed(text);
  if (text.empty()) return Count{{}, base};
  const auto units = take_decimal(text);
  if (!units) return std::nullopt;
  if (text.starts_with('f')) {
    const auto own = take_time_base(text);
    if (!own) return std::nullopt;
    base = *own;
  }
  if (!text.empty()) return std::nullopt;
  return Count{*units, base};
}

// A type may be a text or an array of texts.
std::string type_text(Property property) {
  std::string types;
  rdf::for_each_item(property, [&](Property item) {
    if (!types.empty()) types += ", ";
    types += trimmed(rdf::text(item));
  });
  return types.empty() ? std::string(trimmed(rdf::text(property))) : types;
}

bool is_speech(std::string_view types) {
  while (true) {
    const std::size_t comma = types.find(", ");
    if (types.substr(0, comma) == "Speech") return true;
    if (comma == std::string_view::npos) return false;
    types.remove_prefix(comma + 2);
  }
}

struct Marker {
  Property start_time;
  Property duration;
  Property name;
  Property speaker;
  Property probability;
  Property type;

  // Where the field of that name belongs; null if it is of no interest.
  Property* slot(std::string_view field) {
    if (field == "startTime") return &start_time;
    if (field == "duration") return &duration;
    if (field == "name") return &name;
    if (field == "speaker") return &speaker;
    if (field == "probability") return &probability;
    if (field == "type") return &type;
    return nullptr;
  }
};

// Reads the markers of one track.
class TrackReader {
 public:
  TrackReader(const std::filesystem::path& file, Movie& movie) : file_(file), movie_(movie) {}

  void read(Property item) {
    Property markers;
    Property time_base;
    rdf::for_each_field(item, [&](Property field) {
      if (field.space() != dynamic_media) return;
      const std::string_view name = field.name();
      if (name == "trackName" && track_.name.empty()) track_.name = rdf::text(field);
      if (name == "trackType" && track_.type.empty()) track_.type = type_text(field);
      if (name == "frameRate" && !time_base) time_base = field;
      if (name == "markers" && !markers) markers = field;
    });
    if (time_base) track_.time_base = trimmed(rdf::text(time_base));
    read_base();
    if (markers) rdf::for_each_item(markers, [&](Property marker) { read_marker(marker); });
    if (without_speaker_ > 0) {
      movie_.warnings.push_back(fmt::format(
          "{} of the words of track {} come before its first speaker; their speaker is left "
          "empty",
          without_speaker_, movie_.tracks.size() + 1));
    }
    movie_.tracks.push_back(std::move(track_));
  }

 private:
  template <typename... Parts>
  [[noreturn]] void fail_here(fmt::format_string<Parts...> format, Parts&&... parts) const {
    fail("cannot read the XMP packet of {}: {} in track {}; correct it there",
         in_quotes(file_.native()), fmt::format(format, std::forward<Parts>(parts)...),
         movie_.tracks.size() + 1);
  }

  void read_base() {
    if (track_.time_base.empty()) return;  // 1 unit per second
    std::string_view text = track_.time_base;
    const auto base = take_time_base(text);
    base_is_known_ = base && text.empty();
    if (base_is_known_) base_ = *base;
  }

  Count count(Property property, const char* what, const std::string& word) const {
    const std::string text = property ? rdf::text(property) : std::string();
    const auto count = read_count(text, base_);
    if (!count)
      fail_here("the {} {} of the word {} (marker {}) is no count of time units", what,
                in_quotes(text), in_quotes(word), track_.markers);
    if (!base_is_known_ && count->base == base_)
      fail_here("the frameRate {} is no time base", in_quotes(track_.time_base));
    return *count;
  }

  void read_marker(Property item) {
    ++track_.markers;
    Marker marker;
    rdf::for_each_field(item, [&](Property field) {
      (field.is_attribute() ? movie_.has_attributes : movie_.has_elements) = true;
      if (field.space() != dynamic_media) return;
      Property* const slot = marker.slot(field.name());
      if (slot != nullptr && !*slot) *slot = field;
    });
    if (!is_speech(marker.type ? type_text(marker.type) : track_.type)) return;
    if (marker.speaker) speaker_ = rdf::text(marker.speaker);
    if (marker.name) read_word(marker);
  }

  void read_word(const Marker& marker) {
    Word word;
    word.name = rdf::text(marker.name);
    word.start = count(marker.start_time, "startTime", word.name);
    if (!marker.duration || trimmed(rdf::text(marker.duration)) != "maximum") {
      word.duration = count(marker.duration, "duration", word.name);
    }
    if (!speaker_) ++without_speaker_;
    word.speaker = speaker_.value_or("");
    if (marker.probability) word.probability = rdf::text(marker.probability);
    movie_.words.push_back(std::move(word));
    ++track_.words;
  }

  const std::filesystem::path& file_;
  Movie& movie_;
  Track track_;
  Rational base_{1, 1};
  bool base_is_known_ = true;
  std::optional<std::string> speaker_;
  std::size_t without_speaker_ = 0;
};

}  // namespace

void read_tracks(rdf::Property tracks, const std::filesystem::path& file, Movie& movie) {
  rdf::for_each_item(tracks, [&](Property item) { TrackReader(file, movie).read(item); });
}
