#include "xmp/track.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>

#include "xmp/failure.h"
#include "xmp/names.h"

namespace murmurase::xmp {
namespace {

using rdf::Property;

// Bytes of speakers that stand once and are written with each word that follows: more than any
// transcript has, and what a long name would grow to without measure.
constexpr std::size_t most_repeated = std::size_t{64} << 20;

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

// An xmpDM:Time: a value, and how many seconds one of it is, "1/25".
struct Time {
  std::string value;
  std::string scale;
};

Time time_of(Property property) {
  Time time;
  rdf::for_each_field(property, [&](Property field) {
    if (field.space() != dynamic_media) return;
    if (field.name() == "value") time.value = rdf::text(field);
    if (field.name() == "scale") time.scale = rdf::text(field);
  });
  return time;
}

std::optional<Count> read_time(const Time& time) {
  std::string_view value = trimmed(time.value);
  const auto units = take_decimal(value);
  const auto unit = read_fraction(time.scale);
  if (!units || !value.empty() || !unit || unit->numerator <= 0) return std::nullopt;
  return Count{*units, *divide({1, 1}, *unit)};
}

// The types with ", " between them, however they are listed: a text with commas, or an array.
std::string type_text(Property property) {
  std::string listed;
  rdf::for_each_item(property, [&](Property item) { listed += rdf::text(item) + ','; });
  if (listed.empty()) listed = rdf::text(property);
  std::string types;
  for (std::string_view rest = listed;;) {
    const std::size_t comma = rest.find(',');
    const std::string_view type = trimmed(rest.substr(0, comma));
    if (!type.empty()) types.append(types.empty() ? "" : ", ").append(type);
    if (comma == std::string_view::npos) return types;
    rest.remove_prefix(comma + 1);
  }
}

bool is_speech(const std::string& types) {
  return (", " + types + ", ").find(", Speech, ") != std::string::npos;
}

// `text` with a blank for each line end: a text transcript would show what follows one as a new line.
std::string without_line_ends(std::string whole, bool& had_line_ends) {
  const auto may_begin_one = [](char c) {
    return c == '\n' || c == '\r' || c == '\xC2' || c == '\xE2';
  };
  if (std::ranges::none_of(whole, may_begin_one)) return whole;  // nearly always
  constexpr std::array<std::string_view, 6> ends{"\r\n",     "\n",           "\r",
                                                 "\xC2\x85", "\xE2\x80\xA8", "\xE2\x80\xA9"};
  std::string line;
  std::string_view text = whole;
  while (!text.empty()) {
    const auto* end =
        std::ranges::find_if(ends, [&](std::string_view each) { return text.starts_with(each); });
    const bool ends_line = end != ends.end();
    had_line_ends |= ends_line;
    line += ends_line ? ' ' : text.front();
    text.remove_prefix(ends_line ? end->size() : 1);
  }
  return line;
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
    track_.is_speech = is_speech(track_.type);
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
    std::string text = property ? rdf::text(property) : std::string();
    auto count = read_count(text, base_);
    if (property && !rdf::is_simple(property) && trimmed(text).empty()) {
      const Time time = time_of(property);
      text = fmt::format("value={} scale={}", time.value, time.scale);
      count = read_time(time);
    }
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
      Property* slot = marker.slot(field.name());
      if (slot != nullptr && !*slot) *slot = field;
    });
    if (!(marker.type ? is_speech(type_text(marker.type)) : track_.is_speech)) return;
    if (marker.speaker) {
      speaker_had_line_ends_ = false;
      speaker_ = without_line_ends(rdf::text(marker.speaker), speaker_had_line_ends_);
    }
    if (marker.name) read_word(marker);
  }

  void read_word(const Marker& marker) {
    Word word;
    word.had_line_ends = speaker_had_line_ends_;
    word.name = without_line_ends(rdf::text(marker.name), word.had_line_ends);
    word.start = count(marker.start_time, "startTime", word.name);
    if (!marker.duration || trimmed(rdf::text(marker.duration)) != "maximum") {
      word.duration = count(marker.duration, "duration", word.name);
    }
    if (!speaker_) ++without_speaker_;
    word.speaker = speaker_.value_or("");
    if (!marker.speaker) movie_.repeated += word.speaker.size();
    if (movie_.repeated > most_repeated)
      fail_here("the speaker {}... is too long to be repeated for each word",
                in_quotes(word.speaker.substr(0, 40)));
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
  bool speaker_had_line_ends_ = false;
  std::size_t without_speaker_ = 0;
};

}  // namespace

bool holds_speech(Property property) {
  if (property.space() == dynamic_media && property.name() == "trackType")
    return is_speech(type_text(property));
  bool found = false;
  rdf::for_each_field(property, [&](Property part) { found = found || holds_speech(part); });
  return found;
}

void read_tracks(rdf::Property tracks, const std::filesystem::path& file, Movie& movie) {
  rdf::for_each_item(tracks, [&](Property item) { TrackReader(file, movie).read(item); });
}

}  // namespace murmurase::xmp
