#include "timecode/timecode.h"

#include <gtest/gtest.h>

#include <cmath>

#include "support.h"

namespace murmurase {
namespace {

// What the count through a day does not reach: parts of a frame, later days, other rates.
TEST(Timecode, Labels) {
  const std::tuple<double, int, const char*, const char*> cases[] = {
      {108266.625, 30, "DF", "01:00:12;15"}, {1799.6, 30, "DF", "00:01:00;02"},
      {1234.5, 25, "NDF", "00:00:49:10"},    {1235.5, 25, "NDF", "00:00:49:11"},
      {86651.748, 24, "NDF", "01:00:10:12"}, {29.6, 30, "NDF", "00:00:01:00"},
      {2160000, 25, "NDF", "24:00:00:00"},   {10800000, 30, "NDF", "100:00:00:00"},
      {86346, 24, "DF", "01:00:00;00"},      {89946, 25, "DF", "01:00:00;00"},
      {1800, 30, "other", "00:01:00;00"},    {119, 120, "NDF", "00:00:00:119"},
      {-1, 25, "NDF", "-1:59:59:24"},
  };
  for (const auto& [frames, rate, format, label] : cases) {
    EXPECT_EQ(to_timecode(frames, rate, format), label);
  }
}

TEST(Timecode, ClockLabels) {
  const std::pair<double, const char*> cases[] = {
      {3725.4, "01:02:05"}, {3725.5, "01:02:06"}, {0.4, "00:00:00"},   {59.4, "00:00:59"},
      {59.5, "00:01:00"},   {3599.5, "01:00:00"}, {36000, "10:00:00"}, {360000, "100:00:00"}};
  for (const auto& [seconds, label] : cases) EXPECT_EQ(to_timestamp(seconds), label);
}

// Labels that to_timecode does not make.
TEST(Timecode, FrameCounts) {
  const std::pair<const char*, std::int64_t> at_25[] = {
      {"00:00:10.12", 262},    {"01:02:03", 1553},   {"010203:04", 93079},
      {"000100", 100},         {"123:04", 2079},     {"1234567:08", 125692},
      {"000123:04", 2079},     {"1:2:3:4:5", 93079}, {"01:02:03:", 93075},
      {"12:34", 334},          {"ab:12", 12},        {"::5:", 125},
      {"-5:04", -121},         {"-12:04", 304},      {"1 2:x:3 :+4", 90079},
      {"999999999:4", 961074}, {"- 7", 0},           {"1_0", 1}};
  for (const auto& [label, frames] : at_25) EXPECT_EQ(to_frames(label, 25), frames) << label;
  for (const char* label : {"", ":"}) EXPECT_EQ(to_frames(label, 25), 0) << label;
  EXPECT_EQ(to_frames("00:01:00;00", 30, "DF"), 1798);  // a label that is left out
  EXPECT_EQ(to_frames("01.00.00.00", 30, "DF"), 107892);
  EXPECT_EQ(to_frames("01:00:00;00", 30, "NDF"), 108000);
  EXPECT_EQ(to_frames("99999999999999999999:0:0:5", 0, "NDF"), 5);
  EXPECT_EQ(to_frames("0:0:-99999999999999999999:99999999999999999998", 1), -1);
  EXPECT_EQ(to_frames("9223372036854775807", INT64_MAX, "DF"), INT64_MAX);
}

TEST(Timecode, WhatCannotBeCounted) {
  const auto label = [](Number frames, std::int64_t rate) {
    return test::error_of([=] { static_cast<void>(to_timecode(frames, rate, "NDF")); });
  };
  EXPECT_TRUE(test::is_error(label(1, 0), ErrorKind::zero_division, "0 frames"));
  EXPECT_TRUE(test::is_error(label(1, -1), ErrorKind::range, "fewer than 0"));
  EXPECT_TRUE(test::is_error(label(INFINITY, 25), ErrorKind::range, "frame count is inf"));
  EXPECT_TRUE(test::is_error(label(1, INT64_MAX), ErrorKind::range, "5807 frames per second"));
  EXPECT_THROW(static_cast<void>(to_timestamp(NAN)), Error);
  for (const char* text : {"9223372036854775808", "9223372036854775807:00:00:00"}) {
    const std::string error =
        test::error_of([&] { static_cast<void>(to_frames(text, INT64_MAX)); });
    EXPECT_TRUE(test::is_error(error, ErrorKind::range, text)) << error;
  }
}

// Every frame of a day: no label repeats or is skipped, and each gives its count back. The labels are
// those of a counter that knows drop-frame only as "these labels are left out".
TEST(Timecode, EveryFrameOfADay) {
  const struct {
    int rate;
    const char* format;
    int drop;
    std::int64_t day;
  } cases[] = {{24, "NDF", 0, 2073600},
               {25, "NDF", 0, 2160000},
               {30, "NDF", 0, 2592000},
               {30, "DF", 2, 2589408},
               {60, "DF", 4, 5178816}};
  for (const auto& each : cases) {
    std::int64_t count = 0;
    int faults = 0;
    for (int second = 0; second < 24 * 3600; ++second) {
      const int minute = second / 60;
      const std::string start = fmt::format("{:02}:{:02}:{:02}{}", minute / 60, minute % 60,
                                            second % 60, each.drop != 0 ? ';' : ':');
      const bool dropping = second % 60 == 0 && minute % 10 != 0;
      for (int frame = dropping ? each.drop : 0; frame < each.rate; ++frame, ++count) {
        const std::string label = to_timecode(count, each.rate, each.format);
        const bool expected = label == fmt::format("{}{:02}", start, frame);
        if (!expected || to_frames(label, each.rate, each.format) != count) ++faults;
      }
    }
    EXPECT_EQ(faults, 0) << each.rate << each.format;
    EXPECT_EQ(count, each.day) << each.rate << each.format;
  }
}

}  // namespace
}  // namespace murmurase
