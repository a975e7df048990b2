#include "xmp/rate.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "core/duration_scale.h"
#include "core/numbers.h"

namespace murmurase::xmp {
namespace {

// The rates that time formats give in hundredths or thousandths.
struct NtscFormat {
  std::string_view digits;
  Rational rate;
};
constexpr std::array ntsc_formats{NtscFormat{"23976", {24000, 1001}},
                                  NtscFormat{"2997", {30000, 1001}},
                                  NtscFormat{"5994", {60000, 1001}}};

bool is_separator(char c) { return c == ':' || c == ';' || c == '.' || c == ','; }

constexpr const char* scale_property = "duration/scale";

bool take_end(std::string_view& text, std::string_view end) {
  if (!text.ends_with(end)) return false;
  text.remove_suffix(end.size());
  return true;
}

}  // namespace

std::optional<TimeFormat> read_time_format(std::string_view format) {
  format = trimmed(format);
  if (!take_end(format, "Timecode")) return std::nullopt;
  const bool drop_frame = !take_end(format, "NonDrop") && take_end(format, "Drop");
  for (const NtscFormat& each : ntsc_formats)
    if (each.digits == format) return TimeFormat{each.rate, drop_frame};
  const auto rate = read_fraction(format);
  if (!rate || rate->denominator != 1 || !true_rate(*rate)) return std::nullopt;
  return TimeFormat{*rate, drop_frame};
}

std::string name_of_time_format(TimeFormat format) {
  if (format.rate.denominator == 1)
    return format.drop_frame ? "" : fmt::format("{}Timecode", format.rate.numerator);
  for (const NtscFormat& each : ntsc_formats) {
    if (each.rate != format.rate) continue;
    if (each.digits == "23976") return format.drop_frame ? "" : "23976Timecode";
    return fmt::format("{}{}Timecode", each.digits, format.drop_frame ? "Drop" : "NonDrop");
  }
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
  const std::string capitals = ascii_upper(trimmed(text));
  if (capitals == "NTSC") return Rational{30000, 1001};
  if (capitals == "PAL" || capitals == "SECAM") return Rational{25, 1};
  std::string_view number = capitals;
  const bool interlaced = take_end(number, "I");
  if (!interlaced && !take_end(number, "FPS") && !take_end(number, "PSF")) take_end(number, "P");
  auto rate = read_fraction(number);
  // Two fields make a frame; but some writers count the frames of interlaced video, too.
  if (interlaced && rate && to_double(*rate) > 30) rate = divide(*rate, {2, 1});
  return rate ? true_rate(*rate) : std::nullopt;
}

const RateEvidence* used_evidence(const Movie& movie) {
  const auto found = std::find_if(movie.evidence.begin(), movie.evidence.end(),
                                  [](const RateEvidence& each) { return each.rate.has_value(); });
  return found == movie.evidence.end() ? nullptr : &*found;
}

bool is_scale(const RateEvidence& evidence) { return evidence.property == scale_property; }

RateEvidence evidence_of_scale(const std::string& scale) {
  const double rate = rate_of_scale(scale);
  if (!(rate >= 20 && rate <= 120)) return {scale_property, scale, std::nullopt};
  const auto millionths = make_rational(std::llround(rate * 1e6), 1'000'000);
  return {scale_property, scale, true_rate(*millionths)};
}

std::string normal_scale(const Movie& movie) {
  const RateEvidence* evidence = used_evidence(movie);
  if (evidence == nullptr) return {};
  if (is_scale(*evidence)) return movie.duration_scale;
  const Rational rate = *evidence->rate;
  const double wanted = to_double(rate);
  if (rate_of_scale(movie.duration_scale) == wanted) return movie.duration_scale;
  // The duration of a frame; from 100 frames per second on the readers take it for that of a
  // hundredth of one. So it is written where the rate's last bit would be lost otherwise.
  const std::string frame = fmt::format("{}/{}", rate.denominator, rate.numerator);
  const bool exact = rate_of_scale(frame) == wanted || rate.denominator != 1;
  return wanted < 100 && exact ? frame
                               : fmt::format("{}/{}", rate.denominator, rate.numerator * 100);
}

bool is_label(std::string_view value) {
  int fields = 0;
  std::string_view rest = trimmed(value);
  while (true) {
    const std::size_t digits = std::min(rest.find_first_not_of("0123456789"), rest.size());
    if (digits == 0) return false;
    ++fields;
    if (digits == rest.size()) return fields == 4;
    if (!is_separator(rest[digits])) return false;
    rest.remove_prefix(digits + 1);
  }
}

std::string normal_timecode(const Timecode& timecode) {
  const std::optional<TimeFormat> format = read_time_format(timecode.format);
  if (!format || !is_label(timecode.value)) return timecode.value;
  std::string value = timecode.value;
  std::ranges::replace_if(value, is_separator, ':');
  if (format->drop_frame) value[value.rfind(':')] = ';';
  return value;
}

}  // namespace murmurase::xmp
