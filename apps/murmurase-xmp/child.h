#pragma once

#include <functional>
#include <string>

#include "media/input_file.h"

namespace murmurase::tool {

// Gives the text that `work` returns, which runs in a process of its own: what a foreign library does
// to a hostile movie does not reach ours. That process may use a minute of processor time and 512 MiB
// of memory, and what it prints is lost. Throws the Failure that `work` throws, and one that names the
// movie and `library` if the process crashes, or needs more than that.
std::string in_child(const media::InputFile& movie, const char* library,
                     const std::function<std::string()>& work);

}  // namespace murmurase::tool
