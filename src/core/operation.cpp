#include "core/operation.h"

#include <algorithm>

namespace murmurase {

void OperationTable::install(const Operation& operation) {
  const auto installed = std::ranges::find(operations_, operation.name, &Operation::name);
  if (installed == operations_.end()) {
    operations_.push_back(operation);
  } else if (operation.repeatable) {
    *installed = operation;
  } else {
    throw Error(ErrorKind::type,
                fmt::format("{} is installed already; start-up runs once", operation.name));
  }
}

Value OperationTable::call(std::string_view name, Controller& controller,
                           std::span<const Value> arguments) const {
  const auto found = std::ranges::find(operations_, name, &Operation::name);
  if (found == operations_.end()) {
    throw Error(ErrorKind::name,
                operations_.empty()
                    ? "the module has no operations: its start-up has not succeeded"
                    : fmt::format("there is no operation {}", printable(name.substr(0, 80))));
  }
  const std::size_t count = arguments.size();
  if (count < found->least_arguments || count > found->most_arguments) {
    const std::size_t expected =
        count < found->least_arguments ? found->least_arguments : found->most_arguments;
    throw Error(ErrorKind::argument,
                fmt::format("wrong number of arguments ({} for {})", count, expected));
  }
  return found->run(found->name, controller, arguments);
}

}  // namespace murmurase
