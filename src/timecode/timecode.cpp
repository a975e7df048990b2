#include "timecode/timecode.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <limits>

#include "core/error.h"

namespace murmurase {
namespace {

constexpr std::string_view drop_frame = "DF";
constexpr std::string_view non_drop_frame = "NDF";

// A label under construction: four numbers of up to 20 characters and three separators.
class Label {
 public:
  void number(std::int64_t value) {
    if (value >= 0 && value < 100) {
      *end_++ = static_cast<char>('0' + value / 10);
      *end_++ = static_cast<char>('0' + value % 10);
      return;
    }
    char* const start = end_;
    end_ = std::to_chars(end_, text_.data() + text_.size(), value).ptr;
    if (end_ - start == 1) {
      *end_++ = *start;
      *start = '0';
    }
  }
  void separator(char c) { *end_++ = c; }
  std::string text() const { return std::string(text_.data(), static_cast<const char*>(end_)); }

 private:
  std::array<char, 96> text_{};
  char* end_ = text_.data();
};

constexpr std::int64_t least = std::numeric_limits<std::int64_t>::min();
constexpr std::int64_t most = std::numeric_limits<std::int64_t>::max();

// Whether the product of two numbers is far from the limits of its type.
bool has_room_for_product(Wide a, std::int64_t b) {
  if (a >= least && a <= most) return true;
  return std::abs(static_cast<double>(a) * static_cast<double>(b)) < 1e37;
}

bool is_separator(char c) { return c == ':' || c == ';' || c == '.'; }

// The first four fields of a label, and how many it has in all. Every label has at least one; an
// empty last field is a field.
struct Fields {
  std::array<std::string_view, 4> text;
  std::size_t count = 0;

  void add(std::string_view field) {
    if (count < text.size()) text[count] = field;
    ++count;
  }
};

Fields split(std::string_view label) {
  Fields fields;
  std::size_t start = 0;
  for (std::size_t i = 0; i < label.size(); ++i) {
    if (is_separator(label[i])) {
      fields.add(label.substr(start, i - start));
      start = i + 1;
    }
  }
  fields.add(label.substr(start));
  return fields;
}

// The integer at the start of a compact label's first field, in decimal, after a "0" where that makes
// the number of characters even. Only the first eight characters (four fields) are kept.
struct CompactDigits {
  std::array<char, 8> text{};
  std::size_t length = 0;

  explicit CompactDigits(std::string_view field) {
    const auto at = [&](std::size_t i) { return i < field.size() ? field[i] : '\0'; };
    const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
    std::size_t start = 0;
    while (at(start) == ' ' || (at(start) >= '\t' && at(start) <= '\r')) ++start;
    const bool minus = at(start) == '-';
    if (minus || at(start) == '+') ++start;
    while (at(start) == '0') ++start;
    std::size_t digits = 0;
    while (is_digit(at(start + digits))) ++digits;
    if (digits == 0) {
      add('0');
      add('0');
      return;
    }
    if ((digits + (minus ? 1 : 0)) % 2 != 0) add('0');
    if (minus) add('-');
    for (std::size_t i = 0; i < digits; ++i) add(field[start + i]);
  }

  void add(char c) {
    if (length < text.size()) text[length] = c;
    ++length;
  }
};

}  // namespace

std::string to_timecode(Number frames, std::int64_t rate, std::string_view displayformat) {
  const std::int64_t count = round_half_away(frames, "the frame count");
  if (rate == 0) throw Error(ErrorKind::zero_division, "a timecode at 0 frames per second");
  if (rate < 0) throw Error(ErrorKind::range, "a timecode at fewer than 0 frames per second");
  if (rate > most / 3600) {
    throw Error(ErrorKind::range,
                fmt::format("a timecode at {} frames per second: too large a rate", rate));
  }
  const std::int64_t drop = displayformat == drop_frame ? rate / 15 : 0;
  const std::int64_t hour = 3600 * rate - 54 * drop;
  const std::int64_t block = hour / 6;  // ten minutes
  const std::int64_t in_hour = floor_mod(count, hour);
  const std::int64_t tens = in_hour / block;
  const std::int64_t in_block = in_hour % block;
  // The first minute of a block keeps every label, the other nine begin at label `drop`.
  std::int64_t units = 0;
  std::int64_t in_minute = in_block;
  if (in_block >= 60 * rate) {
    const std::int64_t minute = 60 * rate - drop;
    units = 1 + (in_block - 60 * rate) / minute;
    in_minute = drop + (in_block - 60 * rate) % minute;
  }
  Label label;
  label.number(floor_div(count, hour));
  label.separator(':');
  label.number(10 * tens + units);
  label.separator(':');
  label.number(in_minute / rate);
  label.separator(displayformat == non_drop_frame ? ':' : ';');
  label.number(in_minute % rate);
  return label.text();
}

std::string to_timestamp(Number seconds) {
  const std::int64_t count = round_half_away(seconds, "the time");
  const std::int64_t in_hour = floor_mod(count, 3600);
  Label label;
  label.number(floor_div(count, 3600));
  label.separator(':');
  label.number(in_hour / 60);
  label.separator(':');
  label.number(in_hour % 60);
  return label.text();
}

std::int64_t to_frames(std::string_view timecode, std::int64_t rate,
                       std::optional<std::string_view> displayformat) {
  Fields fields = split(timecode);
  std::optional<CompactDigits> digits;
  if (fields.count == 2) {
    digits.emplace(fields.text[0]);
    const std::string_view frames = fields.text[1];
    fields.count = 0;
    for (std::size_t i = 0; i < std::min(digits->length, digits->text.size()); i += 2) {
      fields.add({&digits->text[i], 2});
    }
    fields.add(frames);
  }
  const std::size_t count = std::min(fields.count, fields.text.size());
  const auto from_right = [&](std::size_t position) {
    return position < count ? leading_integer(fields.text[count - 1 - position]) : Wide{0};
  };
  const Wide minutes = from_right(2);
  const Wide hours = from_right(3);
  const Wide seconds = 60 * (60 * hours + minutes) + from_right(1);
  // Of all minutes but each tenth.
  const Wide dropping_minutes = 54 * hours + minutes - floor_div(minutes, 10);
  const std::int64_t drop = displayformat == drop_frame ? floor_div(rate, 15) : 0;
  const bool countable =
      has_room_for_product(seconds, rate) && has_room_for_product(dropping_minutes, drop);
  const Wide frames =
      countable ? seconds * rate - dropping_minutes * drop + from_right(0) : Wide{most} + 1;
  if (frames < least || frames > most) {
    throw Error(
        ErrorKind::range,
        fmt::format("the timecode \"{}\" at {} frames per second counts more frames than 64 "
                    "bits hold",
                    printable(timecode.substr(0, 80)), rate));
  }
  return static_cast<std::int64_t>(frames);
}

}  // namespace murmurase
