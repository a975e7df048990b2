#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "core/error.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace murmurase::fuzz {

// What must hold whatever the input.
inline void check(bool holds, const char* what) {
  if (holds) return;
  static_cast<void>(std::fprintf(stderr, "does not hold: %s\n", what));
  std::abort();
}

inline std::string_view text_of(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

// Whether the call went through. A refusal is fine, when it is one that a user may see.
template <typename Call>
bool accepted(const Call& call) {
  try {
    call();
    return true;
  } catch (const Error& error) {
    const std::string_view message = error.what();
    check(!message.empty() && message.find('\n') == std::string_view::npos, "one line an error");
    check(error.kind() != ErrorKind::internal, "no internal error");
    return false;
  }
}

}  // namespace murmurase::fuzz
