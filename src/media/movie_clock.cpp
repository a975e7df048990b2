#include "media/movie_clock.h"

#include <cmath>
#include <limits>
#include <map>

#include "media/boxes.h"
#include "timecode/timecode.h"
#include "xmp/rate.h"

namespace murmurase::media {
namespace {

std::optional<xmp::Rational> fraction(std::uint64_t numerator, std::uint64_t denominator) {
  constexpr std::uint64_t most = std::numeric_limits<std::int64_t>::max();
  if (numerator > most || denominator > most) return std::nullopt;
  return xmp::make_rational(static_cast<std::int64_t>(numerator),
                            static_cast<std::int64_t>(denominator));
}

// Units per second of a media or movie header.
std::uint64_t time_scale(InputFile& file, std::optional<Extent> header) {
  if (!header) return 0;
  return number_in(file, *header, number_in(file, *header, 0, 1) == 1 ? 20 : 12, 4);
}

// How many samples last how many units; empty if there are more durations than a constant rate has.
std::map<std::uint64_t, std::uint64_t> sample_durations(InputFile& file, Extent table) {
  constexpr std::size_t most_durations = 64;
  std::map<std::uint64_t, std::uint64_t> samples;
  const std::uint64_t entries = number_in(file, table, 4, 4);
  for (std::uint64_t i = 0; i < entries && 16 + 8 * i <= table.length; ++i) {
    samples[number_in(file, table, 12 + 8 * i, 4)] += number_in(file, table, 8 + 8 * i, 4);
    if (samples.size() > most_durations) return {};
  }
  return samples;
}

// The rate of the duration that nearly all pictures have. Where the time scale is too coarse for the
// rate, they take turns with durations a unit away; their mean counts then.
std::optional<xmp::Rational> video_rate(InputFile& file, Extent media) {
  constexpr std::uint64_t most_samples = 1U << 31;  // Whose durations 64 bits can add.
  const std::uint64_t scale = time_scale(file, find_box(file, media, {"mdhd"}));
  const auto table = find_box(file, media, {"minf", "stbl", "stts"});
  if (!table) return std::nullopt;
  std::uint64_t all = 0;
  std::uint64_t most = 0;
  std::uint64_t duration = 0;
  const auto samples = sample_durations(file, *table);
  for (const auto& [units, count] : samples) {
    all += count;
    if (count <= most) continue;
    most = count;
    duration = units;
  }
  const auto nearly_all = [all](std::uint64_t count) {
    return count > 0 && all - count <= 1 + all / 100;
  };
  std::optional<xmp::Rational> rate;
  if (duration > 0 && nearly_all(most)) {
    rate = fraction(scale, duration);
  } else if (duration >= 10 && all < most_samples) {
    std::uint64_t near = 0;
    std::uint64_t length = 0;
    for (const std::uint64_t units : {duration - 1, duration, duration + 1}) {
      const auto found = samples.find(units);
      if (found == samples.end()) continue;
      near += found->second;
      length += found->second * units;
    }
    const auto mean = nearly_all(near) ? fraction(length, near) : std::nullopt;
    const auto units = fraction(scale, 1);
    if (mean && units) rate = divide(*units, *mean);
  }
  return rate ? true_rate(*rate) : std::nullopt;
}

// Whether the samples lie in this very file.
bool is_self_contained(InputFile& file, Extent media, std::uint64_t reference) {
  const auto table = find_box(file, media, {"minf", "dinf", "dref"});
  if (!table || table->length < 8) return true;
  Boxes references(file, {table->offset + 8, table->length - 8});
  std::optional<Box> found = references.next();
  for (std::uint64_t i = 1; found && i < reference; ++i) found = references.next();
  return found && number_in(file, found->content, 3, 1) % 2 == 1;
}

// The 32 bits of the first sample of a timecode track.
std::optional<std::uint64_t> first_sample(InputFile& file, Extent media) {
  const auto samples = find_box(file, media, {"minf", "stbl"});
  if (!samples) return std::nullopt;
  const auto chunks = find_box(file, *samples, {"stsc"});
  const auto sizes = find_box(file, *samples, {"stsz"});
  const auto offsets = find_box(file, *samples, {"stco"});
  const auto long_offsets = find_box(file, *samples, {"co64"});
  if (!chunks || !sizes || number_in(file, *chunks, 8, 4) != 1 ||
      number_in(file, *chunks, 12, 4) == 0)
    return std::nullopt;
  std::uint64_t size = number_in(file, *sizes, 4, 4);
  if (size == 0) size = number_in(file, *sizes, 12, 4);
  const std::uint64_t offset = offsets        ? number_in(file, *offsets, 8, 4)
                               : long_offsets ? number_in(file, *long_offsets, 8, 8)
                                              : 0;
  if (size < 4 || offset == 0 || offset > file.size() - 4 || file.size() < 4) return std::nullopt;
  return number_in(file, {offset, 4}, 0, 4);
}

// The frames that so many units are, to the nearest.
std::optional<std::int64_t> frames_in(std::uint64_t units, std::uint64_t units_per_second,
                                      xmp::Rational rate) {
  const auto seconds = fraction(units, units_per_second);
  const auto frames = seconds ? multiply(*seconds, rate) : std::nullopt;
  const auto whole = frames ? scale({1, 0}, *frames) : std::nullopt;
  return whole ? std::optional(whole->digits) : std::nullopt;
}

// How many frames of the track come before the start of the movie, by its list of edits.
std::optional<std::int64_t> skipped_frames(InputFile& file, Extent moov, Extent track, Extent media,
                                           xmp::Rational rate) {
  const auto edits = find_box(file, track, {"edts", "elst"});
  if (!edits || number_in(file, *edits, 4, 4) == 0) return 0;
  const unsigned bytes = number_in(file, *edits, 0, 1) == 1 ? 8 : 4;
  const std::uint64_t nothing = std::numeric_limits<std::uint64_t>::max() >> (64 - 8 * bytes);
  const std::uint64_t media_scale = time_scale(file, find_box(file, media, {"mdhd"}));
  const std::uint64_t media_time = number_in(file, *edits, 8 + bytes, bytes);
  if (media_time != nothing) return frames_in(media_time, media_scale, rate);
  // The movie starts with a stretch without timecode.
  const std::uint64_t wait = number_in(file, *edits, 8, bytes);
  const auto missing = frames_in(wait, time_scale(file, find_box(file, moov, {"mvhd"})), rate);
  const auto skipped = frames_in(number_in(file, *edits, 12 + 3 * bytes, bytes), media_scale, rate);
  if (!missing || !skipped) return std::nullopt;
  return *skipped - *missing;
}

// Takes up the start and the rate of a timecode track ("Timecode Media" of the QuickTime file format).
// False if it cannot be read.
bool read_timecode_track(InputFile& file, Extent moov, Extent track, Extent media,
                         xmp::MovieClock& clock) {
  const auto description = find_box(file, media, {"minf", "stbl", "stsd"});
  if (!description || number_in(file, *description, 12, 4) != 0x746D6364) return false;  // "tmcd"
  enum Flags { drop_frame = 1, may_be_negative = 4, is_counter = 8 };
  const std::uint64_t flags = number_in(file, *description, 28, 4);
  const auto frames_per_second =
      fraction(number_in(file, *description, 32, 4), number_in(file, *description, 36, 4));
  clock.timecode_rate = frames_per_second ? true_rate(*frames_per_second) : std::nullopt;
  if (!clock.timecode_rate) return false;
  if ((flags & is_counter) != 0) return true;
  const auto sample = first_sample(file, media);
  if (!sample || !is_self_contained(file, media, number_in(file, *description, 22, 2)))
    return false;
  const auto skipped = skipped_frames(file, moov, track, media, *clock.timecode_rate);
  if (!skipped) return false;

  const std::int64_t nominal = std::llround(to_double(*clock.timecode_rate));
  const bool drops = (flags & drop_frame) != 0 && nominal % 30 == 0;
  const std::int64_t a_day = nominal * 86'400 - (drops ? nominal / 15 * 54 * 24 : 0);
  const std::int64_t start = (flags & may_be_negative) != 0 ? static_cast<std::int32_t>(*sample)
                                                            : static_cast<std::int64_t>(*sample);
  const std::int64_t frames = ((start % a_day + *skipped % a_day) % a_day + a_day) % a_day;
  clock.label = to_timecode(static_cast<double>(frames), nominal, drops ? "DF" : "NDF");
  return true;
}

}  // namespace

xmp::MovieClock read_movie_clock(InputFile& file, Extent moov) {
  xmp::MovieClock clock;
  bool has_timecode = false;
  Boxes tracks(file, moov);
  while (const auto track = tracks.next()) {
    if (track->type() != "trak" || (has_timecode && clock.video_rate)) continue;
    const auto media = find_box(file, track->content, {"mdia"});
    const auto handler = media ? find_box(file, *media, {"hdlr"}) : std::nullopt;
    if (!handler) continue;
    const std::uint64_t kind = number_in(file, *handler, 8, 4);
    if (kind == 0x76696465 && !clock.video_rate) {  // "vide"
      clock.video_rate = video_rate(file, *media);
    } else if (kind == 0x746D6364 && !has_timecode) {  // "tmcd"
      has_timecode = true;
      if (!read_timecode_track(file, moov, track->content, *media, clock))
        clock.warning = "the start of its timecode track cannot be read and is passed over";
    }
  }
  return clock;
}

}  // namespace murmurase::media
