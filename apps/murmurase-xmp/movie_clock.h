#pragma once

#include <optional>
#include <string>

#include "input_file.h"
#include "rational.h"

// What a movie's file says of its time, beside its packet.
struct MovieClock {
  std::string label;                      // The timecode of its start; empty if it has none.
  std::optional<Rational> timecode_rate;  // The frames per second that the label counts.
  std::optional<Rational> video_rate;     // The pictures per second, if it is constant.
  std::string warning;                    // Why a timecode could not be read; empty if none.
};

// Reads the timecode track and the video track of a QuickTime or MPEG-4 movie, the first of each.
MovieClock read_movie_clock(InputFile& file, Extent moov);
