#pragma once

#include <fcntl.h>
#include <unistd.h>

namespace murmurase {

// Takes the number of each standard stream that is closed, for a program to call first: else a file that
// is opened later would get it, and what is printed. Using such a stream fails as before.
inline void hold_standard_streams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) < 0) open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY);
  }
}

}  // namespace murmurase
