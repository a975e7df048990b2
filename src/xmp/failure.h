#pragma once

#include <fmt/format.h>

#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

namespace murmurase::xmp {

// What the user reads: what failed, on which file, why and what to do. Always a single line.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// What to do about a file that is not whole.
inline constexpr std::string_view copy_again = "copy it from its source again";

// Throws a Failure of the formatted text.
template <typename... Arguments>
[[noreturn]] void fail(fmt::format_string<Arguments...> format, Arguments&&... arguments) {
  throw Failure(fmt::format(format, std::forward<Arguments>(arguments)...));
}

// `text` fit to be shown within one line of UTF-8: control characters, line separators, controls of
// the writing direction, backslashes and bytes that are not UTF-8 are written as \n, \t, \r, \\ or
// \xNN, byte by byte.
std::string escaped(std::string_view text);

// `escaped(text)` in double quotes, for the names of files.
std::string in_quotes(std::string_view text);

}  // namespace murmurase::xmp
