#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "names.h"

namespace host {

// What the commands that read a movie share of the command line.
struct MovieOptions {
  std::string movie;
  std::string xmp_tool;        // empty: the one beside this program
  std::int64_t words = 100;    // the largest number of words in a phrase; 100 is no limit
  Names names;                 // of speakers that the movie must have
  std::string names_file;      // empty: none
  Names names_of_file;         // what it holds
  std::string own_names_file;  // of this movie alone, and wins over the other; empty: none
  bool keep = false;           // no output replaces a file
};

// Reads the movie into the controller: its transcription, its speakers, and the names that the user
// gives them. A movie without a speech transcription is a failure. `said` becomes what the XMP tool
// said on standard error though it succeeded, to be passed on when all has gone well.
void read_movie(Controller& controller, const MovieOptions& options, std::string& said);

// The failure with the movie named first, unless the reason names it, and with what the XMP tool had said.
Failure movie_failure(const std::string& movie, const Failure& failure, std::string said = {});

// The files that may be read or run for the movie, whether they are there or not.
std::vector<std::string> inputs_of(const MovieOptions& options);

}  // namespace host
