#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

// The house's conventions for numbers and text. None depends on the locale.
namespace murmurase {

// A whole number keeps all its digits. A double keeps about 16.
using Number = std::variant<std::int64_t, double>;

// Has room for sums and products of numbers of 64 bits.
__extension__ using Wide = __int128;

// The least real number above all whole numbers of 64 bits; the negative one is the least of these.
inline constexpr double integer_limit = 0x1p63;

// Largest whole number not above the exact quotient. The divisor is positive.
template <typename Whole>
constexpr Whole floor_div(Whole dividend, std::type_identity_t<Whole> divisor) {
  const Whole quotient = dividend / divisor;
  return quotient * divisor > dividend ? quotient - 1 : quotient;
}

// dividend - divisor * floor_div(dividend, divisor): from 0 to divisor - 1.
constexpr std::int64_t floor_mod(std::int64_t dividend, std::int64_t divisor) {
  const std::int64_t remainder = dividend % divisor;
  return remainder < 0 ? remainder + divisor : remainder;
}

// Nearest whole number, halves away from zero. `what` names the number in the range error for one
// that is infinite, not a number or beyond 64 bits.
std::int64_t round_half_away(Number number, std::string_view what);

// The whole number at the start of the text: leading white space, a sign, decimal digits up to the
// first other character; 0 when there is none. Never fails: of more than 31 digits the first 31 count,
// which is far beyond 64 bits.
Wide leading_integer(std::string_view text);

// The decimal number at the start of the text: leading white space, a sign, digits, a fraction and an
// exponent; 0.0 when there is none, infinite beyond a double's range.
double leading_double(std::string_view text);

// The same, with single underscores between two digits ignored.
double leading_double_with_underscores(std::string_view text);

// The text with a to z as A to Z and every other byte unchanged.
std::string ascii_upper(std::string_view text);

}  // namespace murmurase
