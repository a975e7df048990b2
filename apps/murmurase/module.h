#pragma once

#include <filesystem>
#include <initializer_list>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>

#include "murmurase/murmurase.h"

// The host's side of the module: everything goes through the functions that dlopen finds.
namespace host {

using json = nlohmann::ordered_json;

// A failure whose message is for the user.
struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct FreeValue {
  void operator()(murmurase_value* value) const;
};
using Value = std::unique_ptr<murmurase_value, FreeValue>;

// The folder that this program was started from.
std::filesystem::path program_folder();

// Loads and starts the module that belongs to this program. Once, before all else here.
void load_module();

// Values in and out as JSON, in which a handle is null.
json to_json(const murmurase_value* value);
Value to_value(const json& json);

// The one controller of this program. It lives until the process ends: freeing a million nodes first
// would only delay that.
class Controller {
 public:
  Controller();

  json get(const char* name) const;
  bool holds(const char* name) const;  // whether the field is set; a handle, which JSON lacks, too
  void set(const char* name, const json& value);
  // Gives what the operation gives. A null handle is the null value.
  Value call(const char* operation, std::initializer_list<json> arguments);

 private:
  Value field(const char* name) const;

  static murmurase_controller* controller_;
};

}  // namespace host
