#include "core/numbers.h"

#include <gtest/gtest.h>

#include <cmath>

#include "support.h"

namespace murmurase {
namespace {

TEST(Numbers, IntegerAtTheStartOfAText) {
  const std::pair<const char*, std::int64_t> cases[] = {{"", 0},    {" \t\n12 ", 12}, {"+7x", 7},
                                                        {"-7", -7}, {"08", 8},        {"- 7", 0},
                                                        {"x1", 0},  {"1_000", 1},     {"--1", 0}};
  for (const auto& [text, value] : cases) EXPECT_EQ(leading_integer(text), value) << text;
  EXPECT_EQ(leading_integer("9223372036854775807"), INT64_MAX);
  EXPECT_EQ(leading_integer("-9223372036854775808"), INT64_MIN);
  EXPECT_THROW(leading_integer("9223372036854775808"), Error);
  EXPECT_THROW(leading_integer("-99999999999999999999999"), Error);
}

TEST(Numbers, DecimalAtTheStartOfAText) {
  const std::pair<const char*, double> cases[] = {{"", 0},
                                                  {"abc", 0},
                                                  {" -1.5e3x", -1500},
                                                  {"2.5.5", 2.5},
                                                  {"1,5", 1},
                                                  {"5.", 5},
                                                  {".5", 0.5},
                                                  {"1e", 1},
                                                  {"1e+", 1},
                                                  {"1e5", 1e5},
                                                  {"inf", 0},
                                                  {"nan", 0},
                                                  {"0x10", 0},
                                                  {"1__0", 1},
                                                  {"_1", 0},
                                                  {"1_", 1},
                                                  {"1e999", INFINITY},
                                                  {"0.1", 0.1},
                                                  {"123456789012345678", 123456789012345678.0}};
  for (const auto& [text, value] : cases) {
    EXPECT_EQ(leading_double(text), value) << text;
    EXPECT_EQ(leading_double_with_underscores(text), value) << text;
  }
  EXPECT_EQ(leading_double("1_000.2_5"), 1);
  EXPECT_EQ(leading_double_with_underscores("1_000.2_5"), 1000.25);
  EXPECT_EQ(leading_double("9007199254740993"), 9007199254740992.0);
}

TEST(Numbers, RoundingAndDivision) {
  EXPECT_EQ(round_half_away(9.5, "n"), 10);
  EXPECT_EQ(round_half_away(10.5, "n"), 11);
  EXPECT_EQ(round_half_away(-2.5, "n"), -3);
  EXPECT_EQ(round_half_away(0.49999999999999994, "n"), 0);
  EXPECT_EQ(truncate_to_integer(-1.9, "n"), -1);
  for (const double bad : {std::nan(""), static_cast<double>(INFINITY), 1e19, -1e19}) {
    EXPECT_TRUE(
        test::is_error(test::error_of([&] { static_cast<void>(round_half_away(bad, "it")); }),
                       ErrorKind::range, "it is "));
  }
  EXPECT_EQ(floor_div(-1, 1000), -1);
  EXPECT_EQ(floor_mod(-1, 1000), 999);
  EXPECT_EQ(ascii_upper("José ßz"), "JOSé ßZ");
}

}  // namespace
}  // namespace murmurase
