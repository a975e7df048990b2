#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "core/numbers.h"

// Conversions between positions in a movie and their labels, after SMPTE ST 12-1.
//
// rate           labels per second, a whole number of at least 1: the actual frame rate rounded half
//                away from zero (29.97 gives 30)
// displayformat  "DF" (drop-frame) skips rate / 15 labels at the start of every minute but each tenth;
//                "NDF" (non-drop-frame) skips none
namespace murmurase {

// The label of the whole frame nearest to `frames`, counted from 00:00:00:00, such as 01:02:03:04,
// or 01:02:03;04 when displayformat is not "NDF". Each field has at least two digits; hours do not
// wrap. Errors: zero division for a rate of 0; range for a rate below 0, and for frames or rates
// that are not finite or that 64 bits cannot count.
std::string to_timecode(Number frames, std::int64_t rate, std::string_view displayformat);

// The clock label of the whole second nearest to `seconds`, such as 01:02:05. Hours do not wrap.
// Range error for a time that is not finite or that 64 bits cannot count.
std::string to_timestamp(Number seconds);

// The frame count of a label. ":", ";" and "." separate fields alike; missing and unreadable fields
// count as 0, fields after the fourth are ignored, and fewer than four fields are the rightmost ones
// (a lone number is a frame count). Exactly two fields are the compact form: hours, minutes and
// seconds run together, then the frames (010203:04). displayformat is "NDF" when left out. A label
// that drop-frame counting skips counts on from its minute. Range error that names the label when 64
// bits cannot hold the count.
std::int64_t to_frames(std::string_view timecode, std::int64_t rate,
                       std::optional<std::string_view> displayformat = std::nullopt);

}  // namespace murmurase
