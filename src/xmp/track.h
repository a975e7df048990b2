#pragma once

#include <filesystem>
#include <string_view>

#include "xmp/movie.h"
#include "xmp/rdf.h"

namespace murmurase::xmp {

inline constexpr std::string_view dynamic_media = "http://ns.adobe.com/xmp/1.0/DynamicMedia/";

// Adds the tracks of an xmpDM:Tracks to `movie`, and the words of their Speech markers. A marker's
// own type overrides its track's. A marker without a speaker has the one before it, and without a
// start or a duration 0. Throws Failure if a time or a time base cannot be understood; `file` is
// where the packet was found.
void read_tracks(rdf::Property tracks, const std::filesystem::path& file, Movie& movie);

// Whether a Speech track stands anywhere within `property`.
bool holds_speech(rdf::Property property);

}  // namespace murmurase::xmp
