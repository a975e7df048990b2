#pragma once

#include <string>

#include "input_file.h"
#include "movie_clock.h"

// Movies and sounds in formats whose boxes we do not walk ourselves: AVI, MPEG, MXF, Matroska and others.

struct ForeignMovie {
  bool is_known = false;  // Whether libexempi knows the format for one of movies or sounds.
  std::string packet;     // As libexempi finds it; empty if there is none.
};

// Throws Failure if the file is of another kind that libexempi knows, or cannot be read.
ForeignMovie read_foreign_movie(const InputFile& file);

// What libmediainfo finds. It is loaded when it is asked for, and need not be installed: the clock's
// warning then says so.
MovieClock read_foreign_clock(const InputFile& file);
