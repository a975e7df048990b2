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
    const auto value = static_cast<double>(static_cast<std::int64_t>(leading_integer(number)));
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

std::int64_t round_half_away(Number number, std::string_view what) {
  if (const auto* whole = std::get_if<std::int64_t>(&number)) return *whole;
  const double real = *std::get_if<double>(&number);
  const double rounded = std::round(real);
  if (!(rounded >= -integer_limit && rounded < integer_limit)) {
    throw Error(ErrorKind::range,
                fmt::format("{} is {}, which is no countable number", what, real));
  }
  return static_cast<std::int64_t>(rounded);
}

Wide leading_integer(std::string_view text) {
  Cursor cursor{text};
  cursor.skip_space();
  const bool negative = cursor.peek() == '-';
  if (is_sign(cursor.peek())) ++cursor.at;
  constexpr Wide enough = Wide{1'000'000'000'000'000} * 1'000'000'000'000'000;  // 31 digits
  Wide value = 0;
  for (; is_digit(cursor.peek()) && value < enough; ++cursor.at) {
    value = value * 10 + (cursor.peek() - '0');
  }
  return negative ? -value : value;
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
