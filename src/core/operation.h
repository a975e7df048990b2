#pragma once

#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "core/controller.h"
#include "core/convert.h"
#include "core/error.h"

namespace murmurase {

// An operation as hosts call it: by name, with dynamic values.
struct Operation {
  std::string_view name;
  std::size_t least_arguments;
  std::size_t most_arguments;
  bool repeatable;  // may be installed again by a repeated start-up
  Value (*run)(std::string_view name, Controller&, std::span<const Value>);
};

// The installed operations, in the order of their installation.
class OperationTable {
 public:
  bool empty() const { return operations_.empty(); }

  // Type error for an operation that is there and not repeatable.
  void install(const Operation& operation);

  // Checks the number of arguments first. Name error for an operation that is not installed.
  Value call(std::string_view name, Controller& controller, std::span<const Value> arguments) const;

 private:
  std::vector<Operation> operations_;
};

namespace binder {

template <typename T>
inline constexpr bool is_optional = false;
template <typename T>
inline constexpr bool is_optional<std::optional<T>> = true;

template <typename Tuple, std::size_t... Index>
void convert(std::string_view name, std::span<const Value> values, Tuple& arguments,
             std::index_sequence<Index...>) {
  [[maybe_unused]] const auto one = [&](std::size_t i, auto& argument) {
    if (i < values.size()) {
      from_value(values[i], fmt::format("argument {} of {}", i + 1, name), argument);
    }
  };
  (one(Index, std::get<Index>(arguments)), ...);
}

template <typename Result, typename... Arguments>
struct Signature {
  static constexpr std::size_t most = sizeof...(Arguments);
  static constexpr std::size_t least =
      (std::size_t{0} + ... + (is_optional<std::remove_cvref_t<Arguments>> ? 0U : 1U));
  using Values = std::tuple<std::remove_cvref_t<Arguments>...>;

  template <typename Function>
  static Value run(std::string_view name, std::span<const Value> values, const Function& function) {
    Values arguments;
    convert(name, values, arguments, std::index_sequence_for<Arguments...>{});
    if constexpr (std::is_void_v<Result>) {
      std::apply(function, arguments);
      return {};
    } else {
      return to_value(std::apply(function, arguments));
    }
  }
};

}  // namespace binder

// Makes an operation of a typed function. Its first parameter may be the controller; optional
// parameters stand last.
template <auto Function, typename Result, typename... Arguments>
constexpr Operation bind(std::string_view name, bool repeatable, Result (*)(Arguments...)) {
  using Bound = binder::Signature<Result, Arguments...>;
  return {name, Bound::least, Bound::most, repeatable,
          [](std::string_view called, Controller&, std::span<const Value> values) {
            return Bound::run(called, values, Function);
          }};
}

template <auto Function, typename Result, typename... Arguments>
constexpr Operation bind(std::string_view name, bool repeatable,
                         Result (*)(Controller&, Arguments...)) {
  using Bound = binder::Signature<Result, Arguments...>;
  return {name, Bound::least, Bound::most, repeatable,
          [](std::string_view called, Controller& controller, std::span<const Value> values) {
            return Bound::run(called, values, [&](auto&... arguments) {
              return Function(controller, arguments...);
            });
          }};
}

template <auto Function>
constexpr Operation operation(std::string_view name, bool repeatable = false) {
  return bind<Function>(name, repeatable, Function);
}

}  // namespace murmurase
