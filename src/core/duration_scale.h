#pragma once

#include <string_view>

namespace murmurase {

// Frames per second, of the scale of a movie's duration: its denominator divided by its numerator and by
// 100, times 100 if that is below 1. 1/2997 gives 29.97, 1/25 gives 25. A part that is missing or no
// number counts as 0, so the result may be 0, infinite or not a number.
double rate_of_scale(std::string_view scale);

}  // namespace murmurase
