#include "export/time_label.h"

#include "core/numbers.h"
#include "timecode/timecode.h"

namespace murmurase {

std::string time_label(const ControllerState& state, double seconds) {
  if (!state.frame_rate || !state.displayformat) return to_timestamp(seconds);
  const double frames = required(state.first_frame, "first_frame") + seconds * *state.frame_rate;
  return to_timecode(frames, round_half_away(*state.frame_rate, "the frame rate"),
                     *state.displayformat);
}

}  // namespace murmurase
