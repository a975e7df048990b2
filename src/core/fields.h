#pragma once

#include <string_view>

#include "core/controller.h"
#include "core/value.h"

namespace murmurase {

// A state field by its name. Errors: name for an unknown field; type for a value that it does not
// take, the field then unchanged.
Value get_field(const ControllerState& state, std::string_view name);
void set_field(ControllerState& state, std::string_view name, const Value& value);

}  // namespace murmurase
