#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "xmp/movie.h"
#include "xmp/rational.h"

namespace murmurase::xmp {

// What a time format such as "2997DropTimecode" says.
struct TimeFormat {
  Rational rate;  // Frames per second.
  bool drop_frame = false;
};

// Nothing for a format that does not count frames, such as one of samples or of feet of film.
std::optional<TimeFormat> read_time_format(std::string_view format);

// The name of the time format that says this; empty if there is none.
std::string name_of_time_format(TimeFormat format);

// Frames per second of an xmpDM:videoFrameRate: "24", "NTSC", "PAL", "29.97 fps", "30000/1001",
// "23.98p"; "50i" counts fields, of which two make a frame.
std::optional<Rational> read_video_rate(std::string_view text);

// `rate` as it is meant: 29.97, 23.976 and their like stand for 30000/1001, 24000/1001 and so on.
// Nothing if it is no rate of frames: below 1 or above 1000 per second.
std::optional<Rational> true_rate(Rational rate);

// The evidence that the rate is taken from; null if there is none.
const RateEvidence* used_evidence(const Movie& movie);

// The scale of the movie's duration from which the readers compute the true rate: the movie's own
// if they do, or if it is the evidence. Empty without evidence.
std::string normal_scale(const Movie& movie);

// The evidence that the duration's scale is: a rate if it reads as 20 to 120 frames per second.
RateEvidence evidence_of_scale(const std::string& scale);
bool is_scale(const RateEvidence& evidence);

// Whether the value is four numbers with single separators between them, which may be any of ":;.,".
bool is_label(std::string_view value);

// The timecode's value with the separators that its format asks for, if it is a label.
std::string normal_timecode(const Timecode& timecode);

}  // namespace murmurase::xmp
