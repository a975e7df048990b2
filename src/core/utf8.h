#pragma once

#include <cstddef>
#include <string_view>

namespace murmurase {

// The length in bytes, 1 to 4, of the character of well-formed UTF-8 (RFC 3629) that the text
// starts with; 0 when it starts with none.
constexpr std::size_t utf8_character(std::string_view text) {
  // The second byte's range keeps out overlong forms, surrogates and what is above U+10FFFF.
  struct Form {
    unsigned first_least, first_most, second_least, second_most;
    std::size_t length;
  };
  constexpr Form forms[] = {{0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
                            {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3},
                            {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
                            {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4}};
  const auto within = [&](std::size_t i, unsigned least, unsigned most) {
    return i < text.size() && static_cast<unsigned char>(text[i]) >= least &&
           static_cast<unsigned char>(text[i]) <= most;
  };
  if (within(0, 0, 0x7F)) return 1;
  for (const Form& form : forms) {
    if (!within(0, form.first_least, form.first_most)) continue;
    bool complete = within(1, form.second_least, form.second_most);
    for (std::size_t i = 2; i < form.length; ++i) complete = complete && within(i, 0x80, 0xBF);
    return complete ? form.length : 0;
  }
  return 0;
}

}  // namespace murmurase
