#include "rate.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

namespace {

struct NamedFormat {
  std::string_view name;
  TimeFormat format;
};

constexpr std::array formats{
    NamedFormat{"24Timecode", {{24, 1}, false}},
    NamedFormat{"25Timecode", {{25, 1}, false}},
    NamedFormat{"2997DropTimecode", {{30000, 1001}, true}},
    NamedFormat{"2997NonDropTimecode", {{30000, 1001}, false}},
    NamedFormat{"30Timecode", {{30, 1}, false}},
    NamedFormat{"50Timecode", {{50, 1}, false}},
    NamedFormat{"5994DropTimecode", {{60000, 1001}, true}},
    NamedFormat{"5994NonDropTimecode", {{60000, 1001}, false}},
    NamedFormat{"60Timecode", {{60, 1}, false}},
    NamedFormat{"23976Timecode", {{24000, 1001}, false}},
};

constexpr const char* scale_property = "duration/scale";

// What the readers compute, in their own order of arithmetic.
double read_scale(double numerator, double denominator) {
  const double rate = denominator / numerator / 100.0;
  return rate < 1 ? rate * 100.0 : rate;
}

double read_scale(Rational scale) {
  return read_scale(static_cast<double>(scale.numerator), static_cast<double>(scale.denominator));
}

}  // namespace

std::optional<TimeFormat> read_time_format(std::string_view format) {
  const auto* const found =
      std::find_if(formats.begin(), formats.end(),
                   [name = trimmed(format)](const NamedFormat& each) { return each.name == name; });
  if (found == formats.end()) return std::nullopt;
  return found->format;
}

std::string name_of_time_format(TimeFormat format) {
  for (const NamedFormat& each : formats)
    if (each.format.rate == format.rate && each.format.drop_frame == format.drop_frame)
      return std::string(each.name);
  return {};
}

std::optional<Rational> true_rate(Rational rate) {
  const double value = to_double(rate);
  if (!(value >= 1 && value <= 1000)) return std::nullopt;
  const double nearest = std::round(value);
  const auto whole = static_cast<std::int64_t>(nearest);
  if (std::abs(value - nearest) < 0.0005) return Rational{whole, 1};
  // Two decimals are what most writers give.
  for (const std::int64_t nominal : {24, 30, 48, 60, 96, 120, 240}) {
    const Rational ntsc{nominal * 1000, 1001};
    if (std::abs(value - to_double(ntsc)) <= 0.005) return make_rational(nominal * 1000, 1001);
  }
  return rate;
}

std::optional<Rational> read_video_rate(std::string_view text) {
  text = trimmed(text);
  if (text == "NTSC") return Rational{30000, 1001};
  if (text == "PAL" || text == "SECAM") return Rational{25, 1};
  if (text.ends_with("fps")) text.remove_suffix(3);
  const auto rate = read_fraction(text);
  return rate ? true_rate(*rate) : std::nullopt;
}

const RateEvidence* used_evidence(const Movie& movie) {
  const auto found = std::find_if(movie.evidence.begin(), movie.evidence.end(),
                                  [](const RateEvidence& each) { return each.rate.has_value(); });
  return found == movie.evidence.end() ? nullptr : &*found;
}

bool is_scale(const RateEvidence& evidence) { return evidence.property == scale_property; }

RateEvidence evidence_of_scale(const std::string& scale) {
  const std::optional<double> rate = rate_of_scale(scale);
  if (!rate || *rate < 20 || *rate > 120) return {scale_property, scale, std::nullopt};
  const auto millionths = make_rational(std::llround(*rate * 1e6), 1'000'000);
  return {scale_property, scale, true_rate(*millionths)};
}

std::string normal_scale(const Movie& movie) {
  const RateEvidence* const evidence = used_evidence(movie);
  if (evidence == nullptr) return {};
  if (is_scale(*evidence)) return movie.duration_scale;
  const Rational rate = *evidence->rate;
  const double wanted = to_double(rate);
  if (rate_of_scale(movie.duration_scale) == wanted) return movie.duration_scale;
  // The duration of a frame; from 100 frames per second on the readers take it for that of a
  // hundredth of one. So it is written where the rate's last bit would be lost otherwise.
  const Rational frame{rate.denominator, rate.numerator};
  const bool exact = read_scale(frame) == wanted || rate.denominator != 1;
  return wanted < 100 && exact ? fmt::format("{}/{}", frame.numerator, frame.denominator)
                               : fmt::format("{}/{}", frame.numerator, frame.denominator * 100);
}

std::optional<double> rate_of_scale(std::string_view scale) {
  const std::size_t slash = scale.find('/');
  std::string_view first = trimmed(scale.substr(0, slash));
  const auto numerator = take_decimal(first);
  if (slash == std::string_view::npos || !numerator) return std::nullopt;
  std::string_view second = trimmed(scale.substr(slash + 1));
  const auto denominator = take_decimal(second);
  if (!denominator || numerator->digits <= 0 || denominator->digits <= 0) return std::nullopt;
  const auto value = [](Decimal number) {
    return static_cast<double>(number.digits) / std::pow(10.0, number.decimals);
  };
  return read_scale(value(*numerator), value(*denominator));
}

std::string normal_timecode(const Timecode& timecode) {
  const std::optional<TimeFormat> format = read_time_format(timecode.format);
  if (!format) return timecode.value;
  std::string value = timecode.value;
  std::size_t last = std::string::npos;
  for (std::size_t i = value.find_first_of(":;.,"); i != std::string::npos;
       i = value.find_first_of(":;.,", i + 1)) {
    value[i] = ':';
    last = i;
  }
  if (format->drop_frame && last != std::string::npos) value[last] = ';';
  return value;
}
