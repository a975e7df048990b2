#pragma once

#include <cstdint>
#include <string>

#include "movie.h"

// What each word of the command line does. Each throws a Failure; nothing else is printed then.
namespace host {

// details: how many words each says, and the first ones.
void print_speakers(const MovieOptions& options, bool as_json, bool details);
void print_phrases(const MovieOptions& options, bool as_json);

// "-" for standard output.
void write_text(const MovieOptions& options, const std::string& output);

void write_excel(const MovieOptions& options, const std::string& output);

// Writes the clip with the phrases as markers to `output`, or where the module keeps it when that is
// empty, whose path is then printed; has it opened by a program when that is not empty. What the clip
// needed in repairs is told on standard error.
void write_markers(const MovieOptions& options, const std::string& clip, const std::string& output,
                   const std::string& open_with);

// rate: frames per second; the labels count it rounded to a whole number. Frames and seconds are whole,
// with all their digits, or real.
void print_label(const json& frames, double rate, bool drop_frame);
void print_frames(const std::string& label, double rate, bool drop_frame);
void print_clock(const json& seconds);

}  // namespace host
