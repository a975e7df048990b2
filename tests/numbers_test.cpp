#include "core/numbers.h"

#include <gtest/gtest.h>

#include <cmath>

#include "core/error.h"

namespace murmurase {
namespace {

TEST(Numbers, IntegerAtTheStartOfAText) {
  const std::pair<const char*, std::int64_t> cases[] = {{"", 0},    {" \t\n12 ", 12}, {"+7x", 7},
                                                        {"-7", -7}, {"08", 8},        {"- 7", 0},
                                                        {"x1", 0},  {"1_000", 1},     {"--1", 0}};
  for (const auto& [text, value] : cases) EXPECT_EQ(leading_integer(text), value) << text;
  EXPECT_EQ(leading_integer("-9223372036854775809") + 1, INT64_MIN);
  EXPECT_EQ(leading_integer(std::string(99, '9')), leading_integer(std::string(31, '9')));
}

TEST(Numbers, DecimalAtTheStartOfAText) {
  const std::pair<const char*, double> cases[] = {
      {"", 0},    {"abc", 0},          {" -1.5e3x", -1500}, {"2.5.5", 2.5}, {"1,5", 1},
      {"5.", 5},  {".5", 0.5},         {"1e", 1},           {"1e+", 1},     {"1e5", 1e5},
      {"inf", 0}, {"nan", 0},          {"0x10", 0},         {"1__0", 1},    {"_1", 0},
      {"1_", 1},  {"1e999", INFINITY}, {"0.1", 0.1}};
  for (const auto& [text, value] : cases) {
    EXPECT_EQ(leading_double(text), value) << text;
    EXPECT_EQ(leading_double_with_underscores(text), value) << text;
  }
  EXPECT_FALSE(std::signbit(leading_double("-x")));
  EXPECT_EQ(leading_double("1_000.2_5"), 1);
  EXPECT_EQ(leading_double_with_underscores("1_000.2_5"), 1000.25);
  EXPECT_EQ(leading_double("9007199254740993"), 9007199254740992.0);
}

TEST(Numbers, Rounding) {
  const std::pair<double, std::int64_t> cases[] = {
      {9.5, 10}, {10.5, 11}, {-2.5, -3}, {0.49999999999999994, 0}};
  for (const auto& [real, whole] : cases) EXPECT_EQ(round_half_away(real, "n"), whole) << real;
  for (const double bad : {std::nan(""), 1e19, -1e19}) {
    EXPECT_THROW(static_cast<void>(round_half_away(bad, "it")), Error);
  }
}

}  // namespace
}  // namespace murmurase
