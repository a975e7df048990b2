#include "core/duration_scale.h"

#include "core/numbers.h"

namespace murmurase {

double rate_of_scale(std::string_view scale) {
  const std::size_t slash = scale.find('/');
  const double numerator = leading_double_with_underscores(scale.substr(0, slash));
  double denominator = 0.0;
  if (slash != std::string_view::npos) {
    const std::string_view rest = scale.substr(slash + 1);
    denominator = leading_double_with_underscores(rest.substr(0, rest.find('/')));
  }
  // Hundredths of a frame per second are what most scales count; the others count frames.
  const double rate = denominator / numerator / 100.0;
  return rate < 1 ? rate * 100.0 : rate;
}

}  // namespace murmurase
