#pragma once

#include <string>

#include "xmp/movie.h"

namespace murmurase::xmp {

// The packet that means what `movie` says, in the form that the readers understand: every property
// an element, the duration's scale giving the true rate, the start timecode that counts, and one
// Speech track of complete markers. Its time base is the smallest multiple of 1000 units per second
// in which those of the movie's markers count whole units; where that is beyond 10^12, it is
// 254016000000 (of which the usual rates of films and sounds are divisors) and times are rounded to
// it. A packet so printed, read and printed again stays the same.
// Adds to the warnings of `movie`. Throws Failure if a time is too large to be counted.
std::string print_normal_packet(Movie& movie);

}  // namespace murmurase::xmp
