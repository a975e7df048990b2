#pragma once

#include <cstdint>
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
  explicit Failure(const std::string& message, bool names_its_file = false)
      : std::runtime_error(message), names_file(names_its_file) {}

  bool names_file;
};

struct FreeValue {
  void operator()(murmurase_value* value) const;
};
using Value = std::unique_ptr<murmurase_value, FreeValue>;

// The folder that this program was started from.
std::filesystem::path program_folder();

// Loads and starts the module that belongs to this program, before all else here; once, whoever
// asks. It makes its working folder only if that is needed.
void load_module(bool working_folder = false);

// Values in and out as JSON, in which a handle is null.
json to_json(const murmurase_value* value);
Value to_value(const json& data);

// The file that an export of markers writes unless another is set.
std::string temp_xml_file();

// Asks the XMP tool that is running to end. For signal handlers too, whether or not there is a module.
void end_tool();

// The one controller of this program. It lives until the process ends: freeing a million nodes first
// would only delay that.
class Controller {
 public:
  // words: the largest number of words in a phrase, for the operation that asks its host; 100 means
  // no limit.
  explicit Controller(std::int64_t words = 100);

  json get(const char* name) const;
  bool holds(const char* name) const;  // whether the field is set; a handle, which JSON lacks, too
  void set(const char* name, const json& value);
  // Reads a clip file into clip_xml. Gives what of it was repaired; empty for nothing.
  std::string read_clip(const std::string& path);
  // The file that an export of markers writes, and the program that opens it.
  void set_clip_file(const std::string& path);
  void set_open_command(const std::string& command);
  // How the last XMP tool ended, as waitpid reports it.
  int tool_status() const;
  // What is wrong with the clip that was last written, and where; empty for nothing.
  std::string clip_fault() const;
  // Gives what the operation gives. A null handle is the null value.
  Value call(const char* operation, std::initializer_list<json> arguments);

 private:
  Value field(const char* name) const;

  std::int64_t words_;
  murmurase_controller* controller_ = nullptr;
};

}  // namespace host
