#pragma once

#include <string>
#include <vector>

#include "movie.h"

namespace host {

struct BatchOptions {
  std::vector<std::string> movies;
  std::string folder;
  std::string clip;    // empty: no marker clips
  unsigned jobs = 0;   // movies at once; 0: one for each processor
  MovieOptions movie;  // of each movie, but for its path
};

// Writes each movie's transcript, workbook and, with a clip, marker clip into the folder, named after
// the movie; a name that is taken already gets a number. Each movie is worked on in a process of its
// own. Gives whether all went well: what failed was told on standard error, a line a movie.
bool export_movies(const BatchOptions& options);

}  // namespace host
