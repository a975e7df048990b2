#pragma once

#include <string>

#include "media/input_file.h"
#include "xmp/movie.h"

namespace murmurase::tool {

// Movies and sounds in formats whose boxes we do not walk ourselves: AVI, MPEG, MXF, Matroska and others.

struct ForeignMovie {
  bool is_known = false;  // Whether libexempi knows the format for one of movies or sounds.
  std::string packet;     // As libexempi finds it; empty if there is none.
};

// Throws Failure if the file is of another kind that libexempi knows, or cannot be read.
ForeignMovie read_foreign_movie(const media::InputFile& file);

// What libmediainfo finds. It is loaded when it is asked for, and need not be installed: the clock's
// warning then says so.
xmp::MovieClock read_foreign_clock(const media::InputFile& file);

}  // namespace murmurase::tool
