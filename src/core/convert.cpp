#include "core/convert.h"

#include <fmt/format.h>

#include <array>
#include <cmath>

#include "core/error.h"

namespace murmurase {
namespace {

[[noreturn]] void throw_kind(std::string_view what, std::string_view wanted, const Value& value) {
  throw Error(ErrorKind::type,
              fmt::format("{} must be {}, not {}", what, wanted, kind_name(value)));
}

template <typename T>
const T& as(const Value& value, std::string_view what, std::string_view wanted) {
  const T* held = std::get_if<T>(&value.data);
  if (held == nullptr) throw_kind(what, wanted, value);
  return *held;
}

// Whether the record has the key; the target then has its value.
template <typename T>
bool read_entry_if_any(const Value& value, std::string_view what, std::string_view key, T& target) {
  for (const Entry& entry : as<Record>(value, what, "a record")) {
    if (entry.key != key) continue;
    from_value(entry.value, fmt::format("\"{}\" of {}", key, what), target);
    return true;
  }
  return false;
}

template <typename T>
void read_entry(const Value& value, std::string_view what, std::string_view key, T& target) {
  if (read_entry_if_any(value, what, key, target)) return;
  throw Error(ErrorKind::name, fmt::format("a record of {} lacks \"{}\"", what, key));
}

}  // namespace

std::string_view kind_name(const Value& value) {
  static constexpr std::array<std::string_view, 10> names = {
      "null",   "a boolean", "an integer",      "a real",         "text",
      "a list", "a record",  "an XML document", "an XML element", "a host object"};
  return names.at(value.data.index());
}

Value to_value(bool boolean) { return {boolean}; }
Value to_value(double number) { return {number}; }
Value to_value(std::int64_t number) { return {number}; }
Value to_value(std::string text) { return {std::move(text)}; }
Value to_value(XmlDocument document) { return {std::move(document)}; }
Value to_value(XmlElement element) { return {std::move(element)}; }
Value to_value(HostObject object) { return {object}; }

Value to_value(const SpeakerEntry& speaker) {
  return {Record{{"Speaker", to_value(speaker.speaker)}, {"Name", to_value(speaker.name)}}};
}

Value to_value(const WordGroup& group) {
  return {Record{{"time_in", to_value(group.time_in)},
                 {"time_out", to_value(group.time_out)},
                 {"words", to_value(group.words)},
                 {"speaker", to_value(group.speaker)}}};
}

void from_value(const Value& value, std::string_view what, double& target) {
  if (const auto* integer = std::get_if<std::int64_t>(&value.data)) {
    target = static_cast<double>(*integer);
  } else {
    target = as<double>(value, what, "a number");
  }
}

void from_value(const Value& value, std::string_view what, std::int64_t& target) {
  if (const auto* real = std::get_if<double>(&value.data)) {
    if (std::trunc(*real) != *real || *real < -integer_limit || *real >= integer_limit) {
      throw Error(ErrorKind::type, fmt::format("{} must be a whole number, not {}", what, *real));
    }
    target = static_cast<std::int64_t>(*real);
  } else {
    target = as<std::int64_t>(value, what, "a whole number");
  }
}

void from_value(const Value& value, std::string_view what, Number& target) {
  if (const auto* integer = std::get_if<std::int64_t>(&value.data)) {
    target = *integer;
  } else {
    target = as<double>(value, what, "a number");
  }
}

void from_value(const Value& value, std::string_view what, std::string& target) {
  target = as<std::string>(value, what, "text");
}

void from_value(const Value& value, std::string_view what, std::string_view& target) {
  target = as<std::string>(value, what, "text");
}

void from_value(const Value& value, std::string_view what, XmlDocument& target) {
  target = as<XmlDocument>(value, what, "an XML document");
}

void from_value(const Value& value, std::string_view what, XmlElement& target) {
  target = as<XmlElement>(value, what, "an XML element");
}

void from_value(const Value& value, std::string_view what, HostObject& target) {
  target = as<HostObject>(value, what, "a host object");
}

void from_value(const Value& value, std::string_view what, SpeakerEntry& target) {
  read_entry(value, what, "Speaker", target.speaker);
  if (!read_entry_if_any(value, what, "Name", target.name)) target.name.reset();
}

void from_value(const Value& value, std::string_view what, WordGroup& target) {
  read_entry(value, what, "time_in", target.time_in);
  read_entry(value, what, "time_out", target.time_out);
  read_entry(value, what, "words", target.words);
  read_entry(value, what, "speaker", target.speaker);
}

const List& as_list(const Value& value, std::string_view what) {
  return as<List>(value, what, "a list");
}

}  // namespace murmurase
