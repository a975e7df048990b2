#pragma once

#include <string>

#include "core/controller.h"

namespace murmurase {

// The label of a phrase time, in seconds from the movie's first frame: a timecode counted from
// first_frame when frame_rate and displayformat are set, else a clock label. Errors: missing value
// for first_frame; range for a time or rate that is not finite; zero division for a rate of 0.
std::string time_label(const ControllerState& state, double seconds);

}  // namespace murmurase
