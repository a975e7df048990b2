#include "core/numbers.h"

#include <fmt/format.h>
#include <locale.h>
#include <stdlib.h>
#ifdef __APPLE__
#include <xlocale.h>
#endif

#include <cmath>

#include "core/error.h"

namespace murmurase {
namespace {

bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }
bool is_digit(char c) { return c >= '0' && c <= '9'; }
bool is_sign(char c) { return c == '+' || c == '-'; }

// Walks over one text; past its end stands a zero byte, which continues no number.
struct Cursor {
  std::string_view text;
  std::size_t at = 0;

  char peek(std::size_t ahead = 0) const {
    return at + ahead < text.size() ? text[at + ahead] : '\0';
  }
  void skip_space() {
    while (is_space(peek())) ++at;
  }
};

std::int64_t checked_integer(double rounded, double number, std::string_view what) {
  constexpr double limit = 9223372036854775808.0;  // 2 to the 63rd
  if (!(rounded >= -limit && rounded < limit)) {
    throw Error(ErrorKind::range,
                fmt::format("{} is {}, which is no countable number", what, number));
  }
  return static_cast<std::int64_t>(rounded);
}

// strtod reads by the locale's decimal point, so it is given the C locale for good.
double parse_double(const std::string& digits) {
  static const locale_t c_locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return strtod_l(digits.c_str(), nullptr, c_locale);
}

double leading_double(std::string_view text, bool underscores) {
  Cursor cursor{text};
  cursor.skip_space();
  std::string number;
  if (is_sign(cursor.peek())) number += text[cursor.at++];
  std::size_t digits = 0;
  const auto take_digits = [&] {
    while (is_digit(cursor.peek()) || (underscores && cursor.peek() == '_' && cursor.at > 0 &&
                                       is_digit(text[cursor.at - 1]) && is_digit(cursor.peek(1)))) {
      if (cursor.peek() != '_') {
        number += cursor.peek();
        ++digits;
      }
      ++cursor.at;
    }
  };
  take_digits();
  if (cursor.peek() == '.' && is_digit(cursor.peek(1))) {
    number += '.';
    ++cursor.at;
    take_digits();
  } else if (digits <= 15 && cursor.peek() != 'e' && cursor.peek() != 'E') {
    // Exact, and what nearly every time is.
    const auto value = static_cast<double>(leading_integer(number));
    return value == 0 && digits > 0 && number.starts_with('-') ? -0.0 : value;
  }
  if (digits == 0) return 0.0;
  if (cursor.peek() == 'e' || cursor.peek() == 'E') {
    const std::size_t sign = is_sign(cursor.peek(1)) ? 1 : 0;
    if (is_digit(cursor.peek(1 + sign))) {
      number += 'e';
      if (sign != 0) number += cursor.peek(1);
      cursor.at += 1 + sign;
      take_digits();
    }
  }
  return parse_double(number);
}

}  // namespace

std::int64_t round_half_away(double number, std::string_view what) {
  return checked_integer(std::round(number), number, what);
}

std::int64_t truncate_to_integer(double number, std::string_view what) {
  return checked_integer(std::trunc(number), number, what);
}

std::int64_t leading_integer(std::string_view text) {
  Cursor cursor{text};
  cursor.skip_space();
  const bool negative = cursor.peek() == '-';
  if (is_sign(cursor.peek())) ++cursor.at;
  std::int64_t value = 0;  // kept negative: the range below zero is the larger one
  bool overflow = false;
  for (; is_digit(cursor.peek()); ++cursor.at) {
    overflow |= __builtin_mul_overflow(value, std::int64_t{10}, &value) ||
                __builtin_sub_overflow(value, std::int64_t{cursor.peek() - '0'}, &value);
  }
  if (!negative) overflow |= __builtin_sub_overflow(std::int64_t{0}, value, &value);
  if (overflow) {
    throw Error(ErrorKind::range,
                fmt::format("the number {} is too large", printable(text.substr(0, 40))));
  }
  return value;
}

double leading_double(std::string_view text) { return leading_double(text, false); }

double leading_double_with_underscores(std::string_view text) { return leading_double(text, true); }

std::string ascii_upper(std::string_view text) {
  std::string upper(text);
  for (char& c : upper) {
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  }
  return upper;
}

}  // namespace murmurase
