#pragma once

#include "media/input_file.h"
#include "xmp/movie.h"

namespace murmurase::media {

// Reads the timecode track and the video track of a QuickTime or MPEG-4 movie, the first of each.
xmp::MovieClock read_movie_clock(InputFile& file, Extent moov);

}  // namespace murmurase::media
