#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/controller.h"
#include "core/numbers.h"
#include "core/value.h"

// Between dynamic values and the types of operations and fields.
namespace murmurase {

// The kind of a value as a message names it: "text", "a list", ...
std::string_view kind_name(const Value& value);

Value to_value(bool boolean);
Value to_value(double number);
Value to_value(std::int64_t number);
Value to_value(std::string text);
Value to_value(XmlDocument document);
Value to_value(XmlElement element);
Value to_value(HostObject object);
Value to_value(const SpeakerEntry& speaker);
Value to_value(const WordGroup& group);

template <typename T>
Value to_value(const std::vector<T>& items) {
  List list;
  list.reserve(items.size());
  for (const T& item : items) list.push_back(to_value(item));
  return {std::move(list)};
}

template <typename T>
Value to_value(const std::optional<T>& value) {
  return value ? to_value(*value) : Value{};
}

// Overwrite the target with the value, or throw a type error in which `what` names the value. A
// real may be given as an integer, and an integer as a real that is whole.
void from_value(const Value& value, std::string_view what, double& target);
void from_value(const Value& value, std::string_view what, std::int64_t& target);
void from_value(const Value& value, std::string_view what, Number& target);
void from_value(const Value& value, std::string_view what, std::string& target);
void from_value(const Value& value, std::string_view what, std::string_view& target);  // no copy
void from_value(const Value& value, std::string_view what, XmlDocument& target);
void from_value(const Value& value, std::string_view what, XmlElement& target);
void from_value(const Value& value, std::string_view what, HostObject& target);
void from_value(const Value& value, std::string_view what, SpeakerEntry& target);
void from_value(const Value& value, std::string_view what, WordGroup& target);

const List& as_list(const Value& value, std::string_view what);

template <typename T>
void from_value(const Value& value, std::string_view what, std::vector<T>& target) {
  const List& list = as_list(value, what);
  std::vector<T> items(list.size());
  for (std::size_t i = 0; i < list.size(); ++i) from_value(list[i], what, items[i]);
  target = std::move(items);
}

template <typename T>
void from_value(const Value& value, std::string_view what, std::optional<T>& target) {
  if (std::holds_alternative<std::monostate>(value.data)) {
    target.reset();
    return;
  }
  T present{};
  from_value(value, what, present);
  target = std::move(present);
}

}  // namespace murmurase
