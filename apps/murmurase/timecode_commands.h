#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace host {

struct TimecodeOptions {
  std::string number;  // frames or seconds
  std::string label;
  double rate = 0;
  bool drop_frame = false;
};

// Adds the commands that convert between frames, labels and times. They read `options`, which must live as
// long as the app.
void add_timecode(CLI::App& app, TimecodeOptions& options);

}  // namespace host
