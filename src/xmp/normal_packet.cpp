#include "xmp/normal_packet.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string_view>

#include "xmp/failure.h"
#include "xmp/names.h"
#include "xmp/rate.h"

namespace murmurase::xmp {
namespace {

constexpr std::int64_t largest_base = 1'000'000'000'000;
constexpr std::int64_t fine_base = 254'016'000'000;

// With places for the namespaces.
constexpr char head[] =
    "<?xpacket begin=\"\xEF\xBB\xBF\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?>\n"
    "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\">\n"
    " <rdf:RDF xmlns:rdf=\"{}\">\n"
    "  <rdf:Description rdf:about=\"\""
    " xmlns:xmpDM=\"{}\">\n";
constexpr std::string_view tail =
    "  </rdf:Description>\n"
    " </rdf:RDF>\n"
    "</x:xmpmeta>\n"
    "<?xpacket end=\"r\"?>\n";

// Also fit for an attribute, and kept on one line.
void append_escaped(std::string& out, std::string_view text) {
  constexpr std::string_view special = "&<>\"\r\n\t";
  constexpr std::size_t most_text = 10'000'000;  // Bytes that XML parsers take in one piece.
  if (text.size() > most_text) fail("a text in the packet is longer than 10 MB; shorten it there");
  while (true) {
    const std::size_t at = std::min(text.find_first_of(special), text.size());
    out += text.substr(0, at);
    if (at == text.size()) return;
    switch (const char c = text[at]) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      default:
        fmt::format_to(std::back_inserter(out), "&#{};", static_cast<int>(c));
    }
    text.remove_prefix(at + 1);
  }
}

void append_field(std::string& out, std::string_view name, std::string_view text) {
  out.append("<xmpDM:").append(name).append(">");
  append_escaped(out, text);
  out.append("</xmpDM:").append(name).append(">");
}

// The whole movie's duration in seconds; nothing if the packet does not give it.
std::optional<Rational> duration_of(const Movie& movie) {
  const auto value = read_fraction(movie.duration_value);
  const auto unit = read_fraction(movie.duration_scale);
  return value && unit ? multiply(*value, *unit) : std::nullopt;
}

// The units per second in which all `words` are to be counted.
std::int64_t common_base(const Movie& movie) {
  std::int64_t base = 1000;
  std::int64_t last = base;
  const auto add = [&](std::int64_t units) {
    if (units == last || base == 0) return;
    last = units;
    base = least_common_multiple(base, units).value_or(0);
    if (base > largest_base) base = 0;
  };
  const std::optional<Rational> end = duration_of(movie);
  for (const Word& word : movie.words) {
    add(word.start.base.numerator);
    if (word.duration) add(word.duration->base.numerator);
    if (!word.duration && end) add(end->denominator);
  }
  return base != 0 ? base : fine_base;
}

Decimal counted(const Count& count, std::int64_t base, const Word& word) {
  if (count.base == Rational{base, 1}) return count.units;
  const auto factor = divide({base, 1}, count.base);
  const auto units = factor ? scale(count.units, *factor) : std::nullopt;
  if (!units) fail("the times of the word {} are too large to be counted", in_quotes(word.name));
  return *units;
}

// The time from `start` to the end of the movie, in seconds; 0 if that is not known.
Decimal until_end(std::optional<Rational> end, Decimal start, std::int64_t base) {
  const auto units = end ? multiply(*end, {base, 1}) : std::nullopt;
  const auto begin = to_rational(start);
  if (!units || !begin) return {};
  // A unit of the base is as fine as the times are; a fraction of one is not given.
  const std::int64_t length =
      units->numerator / units->denominator - begin->numerator / begin->denominator;
  return {std::max<std::int64_t>(0, length), 0};
}

void append_words(std::string& out, Movie& movie) {
  const std::int64_t base = common_base(movie);
  fmt::format_to(std::back_inserter(out),
                 "   <xmpDM:Tracks><rdf:Bag><rdf:li rdf:parseType=\"Resource\">\n"
                 "    <xmpDM:trackType>Speech</xmpDM:trackType>\n"
                 "    <xmpDM:frameRate>f{}</xmpDM:frameRate>\n"
                 "    <xmpDM:markers><rdf:Seq>\n",
                 base);
  const std::optional<Rational> end = duration_of(movie);
  std::size_t without_end = 0;
  for (const Word& word : movie.words) {
    const Decimal start = counted(word.start, base, word);
    const Decimal duration =
        word.duration ? counted(*word.duration, base, word) : until_end(end, start, base);
    if (!word.duration && !end) ++without_end;
    out += "     <rdf:li rdf:parseType=\"Resource\">";
    append_field(out, "startTime", to_text(start));
    append_field(out, "duration", to_text(duration));
    append_field(out, "name", word.name);
    append_field(out, "speaker", word.speaker);
    if (!word.probability.empty()) append_field(out, "probability", word.probability);
    out += "</rdf:li>\n";
  }
  out += "    </rdf:Seq></xmpDM:markers>\n   </rdf:li></rdf:Bag></xmpDM:Tracks>\n";
  if (without_end > 0) {
    movie.warnings.push_back(
        fmt::format("{} words last until the end of the movie, which the packet does not tell; "
                    "their duration is written as 0",
                    without_end));
  }
}

// The duration's value in units of `new_scale`, whole if it was.
std::string rescaled_value(const Movie& movie, const std::string& new_scale) {
  if (new_scale == movie.duration_scale) return movie.duration_value;
  const auto unit = read_fraction(new_scale);
  const auto seconds = duration_of(movie);
  const auto value = seconds && unit ? divide(*seconds, *unit) : std::nullopt;
  if (!value) return {};
  const auto whole = scale({1, 0}, *value);
  return whole ? to_text(*whole) : std::string();
}

void append_duration(std::string& out, const Movie& movie) {
  const std::string scale = normal_scale(movie);
  if (scale.empty()) return;
  const std::string value = rescaled_value(movie, scale);
  out += "   <xmpDM:duration rdf:parseType=\"Resource\">";
  if (!value.empty()) append_field(out, "value", value);
  append_field(out, "scale", scale);
  out += "</xmpDM:duration>\n";
}

void append_timecode(std::string& out, const Timecode& timecode) {
  out += "   <xmpDM:startTimecode rdf:parseType=\"Resource\">";
  if (!timecode.format.empty()) append_field(out, "timeFormat", timecode.format);
  append_field(out, "timeValue", normal_timecode(timecode));
  out += "</xmpDM:startTimecode>\n";
}

void append_other(std::string& out, const OtherProperty& other) {
  out += "   ";
  if (other.space == dynamic_media) {
    append_field(out, other.name, other.value);
  } else {
    // Declared where it is used: two places of a packet may give a prefix two meanings.
    fmt::format_to(std::back_inserter(out), "<{}:{} xmlns:{}=\"", other.prefix, other.name,
                   other.prefix);
    append_escaped(out, other.space);
    out += "\">";
    append_escaped(out, other.value);
    fmt::format_to(std::back_inserter(out), "</{}:{}>", other.prefix, other.name);
  }
  out += '\n';
}

}  // namespace

std::string print_normal_packet(Movie& movie) {
  std::string out = fmt::format(head, rdf_syntax, dynamic_media);
  append_duration(out, movie);
  if (!movie.timecodes.empty() && used_evidence(movie) != nullptr)
    append_timecode(out, movie.timecodes.front());
  for (const OtherProperty& other : movie.others) append_other(out, other);
  const bool has_speech =
      std::any_of(movie.tracks.begin(), movie.tracks.end(),
                  [](const Track& track) { return track.words > 0 || track.is_speech; });
  if (has_speech) append_words(out, movie);
  out += tail;
  return out;
}

}  // namespace murmurase::xmp
