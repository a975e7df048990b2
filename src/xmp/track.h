#pragma once

#include <filesystem>

#include "xmp/movie.h"
#include "xmp/rdf.h"

namespace murmurase::xmp {

// Adds the tracks of an xmpDM:Tracks to `movie`, and the words of their Speech markers. A marker's
// own type overrides its track's. A marker without a speaker has the one before it, and without a
// start or a duration 0. Throws Failure if a time or a time base cannot be understood; `file` is
// where the packet was found.
void read_tracks(rdf::Property tracks, const std::filesystem::path& file, Movie& movie);

// Whether a Speech track stands anywhere within `property`.
bool holds_speech(rdf::Property property);

}  // namespace murmurase::xmp
