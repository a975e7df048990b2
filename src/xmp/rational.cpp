#include "xmp/rational.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <limits>
#include <numeric>

namespace murmurase::xmp {
namespace {

bool is_digit(char c) { return c >= '0' && c <= '9'; }

std::optional<std::int64_t> product(std::int64_t a, std::int64_t b) {
  std::int64_t result = 0;
  if (__builtin_mul_overflow(a, b, &result)) return std::nullopt;
  return result;
}

std::optional<std::int64_t> power_of_ten(int exponent) {
  if (exponent > 18) return std::nullopt;
  std::int64_t power = 1;
  while (exponent-- > 0) power *= 10;
  return power;
}

// Appends the digits at the start of `text` to `digits` and takes them off it. How many; nothing
// if they have no room.
std::optional<int> take_digits(std::string_view& text, std::int64_t& digits) {
  int count = 0;
  for (; !text.empty() && is_digit(text.front()); text.remove_prefix(1), ++count) {
    if (__builtin_mul_overflow(digits, std::int64_t{10}, &digits) ||
        __builtin_add_overflow(digits, std::int64_t{text.front() - '0'}, &digits))
      return std::nullopt;
  }
  return count;
}

// The exponent at the start of `text`, taken off it; 0 if there is none.
int take_exponent(std::string_view& text) {
  if (text.empty() || (text.front() != 'e' && text.front() != 'E')) return 0;
  std::string_view rest = text.substr(1);
  const bool negative = rest.starts_with('-');
  if (negative || rest.starts_with('+')) rest.remove_prefix(1);
  int exponent = 0;
  const auto [end, error] = std::from_chars(rest.data(), rest.data() + rest.size(), exponent);
  if (rest.empty() || !is_digit(rest.front())) return 0;
  rest.remove_prefix(static_cast<std::size_t>(end - rest.data()));
  text = rest;
  if (error != std::errc()) exponent = std::numeric_limits<int>::max() / 2;
  return negative ? -exponent : exponent;
}

}  // namespace

std::optional<Rational> make_rational(std::int64_t numerator, std::int64_t denominator) {
  constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
  if (denominator == 0 || numerator == least || denominator == least) return std::nullopt;
  const std::int64_t divisor = std::gcd(numerator, denominator) * (denominator < 0 ? -1 : 1);
  return Rational{numerator / divisor, denominator / divisor};
}

std::optional<Rational> multiply(Rational a, Rational b) {
  // Crosswise reduced first, which leaves the products no larger than they must be.
  const auto left = make_rational(a.numerator, b.denominator);
  const auto right = make_rational(b.numerator, a.denominator);
  if (!left || !right) return std::nullopt;
  const auto numerator = product(left->numerator, right->numerator);
  const auto denominator = product(left->denominator, right->denominator);
  if (!numerator || !denominator) return std::nullopt;
  return make_rational(*numerator, *denominator);
}

std::optional<Rational> divide(Rational a, Rational b) {
  const auto inverse = make_rational(b.denominator, b.numerator);
  return inverse ? multiply(a, *inverse) : std::nullopt;
}

std::optional<Rational> to_rational(Decimal number) {
  const auto power = power_of_ten(number.decimals);
  return power ? make_rational(number.digits, *power) : std::nullopt;
}

std::optional<std::int64_t> least_common_multiple(std::int64_t a, std::int64_t b) {
  return product(a / std::gcd(a, b), b);
}

std::optional<Decimal> scale(Decimal number, Rational factor) {
  if (factor.denominator == 1) {
    const auto digits = product(number.digits, factor.numerator);
    if (!digits) return std::nullopt;
    return Decimal{*digits, number.decimals};
  }
  const auto exact = to_rational(number);
  const auto scaled = exact ? multiply(*exact, factor) : std::nullopt;
  if (!scaled) return std::nullopt;
  std::int64_t whole = scaled->numerator / scaled->denominator;
  const std::int64_t rest = scaled->numerator % scaled->denominator;
  const std::int64_t size = rest < 0 ? -rest : rest;
  if (size >= scaled->denominator - size) whole += scaled->numerator < 0 ? -1 : 1;
  return Decimal{whole, 0};
}

double to_double(Rational fraction) {
  return static_cast<double>(fraction.numerator) / static_cast<double>(fraction.denominator);
}

std::string to_text(Rational fraction) {
  return fraction.denominator == 1 ? fmt::to_string(fraction.numerator)
                                   : fmt::format("{}/{}", fraction.numerator, fraction.denominator);
}

std::string to_text(Decimal number) {
  for (; number.decimals > 0 && number.digits % 10 == 0; --number.decimals) number.digits /= 10;
  if (number.decimals == 0) return fmt::to_string(number.digits);
  const std::int64_t power = *power_of_ten(number.decimals);
  const std::int64_t whole = number.digits / power;
  const std::int64_t rest = number.digits % power;
  return fmt::format("{}{}.{:0{}}", number.digits < 0 ? "-" : "", whole < 0 ? -whole : whole,
                     rest < 0 ? -rest : rest, number.decimals);
}

std::optional<Decimal> take_decimal(std::string_view& text) {
  std::string_view rest = text;
  const bool negative = rest.starts_with('-');
  if (negative || rest.starts_with('+')) rest.remove_prefix(1);
  Decimal number;
  const std::optional<int> whole = take_digits(rest, number.digits);
  if (!whole) return std::nullopt;
  if (rest.size() > 1 && rest[0] == '.' && is_digit(rest[1])) {
    rest.remove_prefix(1);
    const std::optional<int> decimals = take_digits(rest, number.digits);
    if (!decimals) return std::nullopt;
    number.decimals = *decimals;
  } else if (*whole == 0) {
    return std::nullopt;
  }
  const int exponent = take_exponent(rest);
  if (exponent < -18 || exponent > 18) return std::nullopt;
  number.decimals -= exponent;
  if (number.decimals < 0) {
    const auto digits = product(number.digits, *power_of_ten(-number.decimals));
    if (!digits) return std::nullopt;
    number = {*digits, 0};
  }
  if (number.decimals > 18) return std::nullopt;
  if (negative) number.digits = -number.digits;
  text = rest;
  return number;
}

std::optional<Rational> read_fraction(std::string_view text) {
  text = trimmed(text);
  const auto number = take_decimal(text);
  const auto numerator = number ? to_rational(*number) : std::nullopt;
  if (!numerator || text.empty()) return numerator;
  if (text.front() != '/') return std::nullopt;
  text.remove_prefix(1);
  const auto divisor = take_decimal(text);
  const auto denominator = divisor ? to_rational(*divisor) : std::nullopt;
  if (!denominator || !text.empty()) return std::nullopt;
  return divide(*numerator, *denominator);
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r\n";
  text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
  return text.substr(0, text.find_last_not_of(blanks) + 1);
}

}  // namespace murmurase::xmp
