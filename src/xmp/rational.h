#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace murmurase::xmp {

// A fraction in lowest terms, its denominator positive.
struct Rational {
  std::int64_t numerator = 0;
  std::int64_t denominator = 1;

  friend bool operator==(const Rational&, const Rational&) = default;
};

// A decimal number as it is written: 12.50 has the digits 1250, of which 2 are decimals.
struct Decimal {
  std::int64_t digits = 0;
  int decimals = 0;  // 0 to 18.
};

// All arithmetic is exact; nothing where a result has no room in 64 bits, or by zero.
std::optional<Rational> make_rational(std::int64_t numerator, std::int64_t denominator);
std::optional<Rational> multiply(Rational a, Rational b);
std::optional<Rational> divide(Rational a, Rational b);
std::optional<Rational> to_rational(Decimal number);
std::optional<std::int64_t> least_common_multiple(std::int64_t a,
                                                  std::int64_t b);  // Of positives.

// `number` times `factor`, exact where `factor` is whole; else the nearest whole number, halves
// away from zero.
std::optional<Decimal> scale(Decimal number, Rational factor);

double to_double(Rational fraction);
std::string to_text(Rational fraction);  // "30000/1001", or "25".
std::string to_text(Decimal number);     // Without zeros that say nothing.

// Takes the decimal number off the start of `text`: a sign, digits, a fraction, an exponent.
// Nothing if there is none, or if it has no room; `text` is then as it was.
std::optional<Decimal> take_decimal(std::string_view& text);

// The fraction that the whole `text` writes, numbers parted by a slash or a number alone.
std::optional<Rational> read_fraction(std::string_view text);

// `text` without the white space around it.
std::string_view trimmed(std::string_view text);

}  // namespace murmurase::xmp
