#pragma once

#include <string>
#include <vector>

#include "movie.h"

namespace host {

struct BatchOptions {
  std::vector<std::string> movies;
  std::string folder;
  std::string
      clip;  // a clip for all, or a folder with one named after each; empty: no marker clips
  unsigned jobs = 0;   // movies at once; 0: one for each processor
  MovieOptions movie;  // of each movie, but for its path and its own names file
};

// Writes each movie's transcript, workbook and, with a clip, marker clip into the folder, named after
// the movie; a name that is taken already gets a number. A names
// file beside a movie, such as take01.names.json beside take01.mov, is that movie's own. Each movie is
// worked on in a process of its own. Standard output gets a line for each movie, and a total if there is
// more than one; standard error a line for each movie that failed, if only in part. Gives whether none
// did.
bool export_movies(const BatchOptions& options);

}  // namespace host
