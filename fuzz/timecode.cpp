// Frames to a timecode and back, and any text to frames.
#include "timecode/timecode.h"

#include <cmath>
#include <string>

#include "check.h"

using namespace murmurase;
using namespace murmurase::fuzz;

namespace {

// The frames of a label with four fields, in wider arithmetic.
Wide frames_of(std::string_view label, std::int64_t rate, bool drop_frame) {
  Wide field[4] = {};
  bool minus[4] = {};
  std::size_t at = 0;
  for (const char c : label) {
    if (c == '-') minus[at] = true;
    if (c == ':' || c == ';') ++at;
    if (c >= '0' && c <= '9') field[at] = field[at] * 10 + (minus[at] ? '0' - c : c - '0');
  }
  const Wide minutes = field[0] * 60 + field[1];
  const Wide skips = drop_frame ? (field[0] * 54 + field[1] / 10 * 9 + field[1] % 10) : 0;
  return (minutes * 60 + field[2]) * rate + field[3] - skips * (rate / 15);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input{text_of(data, size)};
  const auto choice = input.take<std::uint8_t>();
  const std::int64_t rate = choice & 1 ? input.take<std::int8_t>() : input.take<std::int64_t>();
  const char* const format = choice & 2 ? "DF" : choice & 4 ? "NDF" : "other";
  const Number frames =
      choice & 8 ? Number(input.take<std::int64_t>()) : Number(input.take<double>());
  std::string label;
  if (accepted([&] { label = to_timecode(frames, rate, format); })) {
    const double* real = std::get_if<double>(&frames);
    const Wide whole =
        real ? static_cast<Wide>(std::round(*real)) : Wide{std::get<std::int64_t>(frames)};
    check(frames_of(label, rate, choice & 2) == whole, "the label counts its frames");
    check((label.find(';') == label.npos) == (format[0] == 'N'), "the separator tells the format");
    accepted(
        [&] { check(to_frames(label, rate, format) == whole, "a label's frames make the label"); });
  }
  accepted([&] { to_frames(input.rest, rate, format), to_timestamp(frames); });
  return 0;
}
