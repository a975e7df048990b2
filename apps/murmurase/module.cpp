#include "module.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <optional>
#include <utility>
#include <vector>
#ifdef __APPLE__
#include <mach-o/dyld.h>
#endif

namespace host {
namespace {

namespace fs = std::filesystem;

// The functions of the interface that this host calls.
// clang-format off
#define FUNCTIONS(F) \
  F(call) F(clip_fault) F(controller_new) F(document_repair) F(end_tool) F(error_free)      \
  F(error_message) F(get) F(get_boolean) F(get_integer) F(get_real) F(get_text)             \
  F(interface_version) F(list_append) F(list_get) F(new_integer) F(new_list) F(new_real)    \
  F(new_record) F(new_text) F(record_get) F(record_key) F(record_set) F(set)                \
  F(set_clip_file) F(set_host_ui_active) F(set_open_command) F(size) F(startup_error)       \
  F(temp_xml_file)                                                                          \
  F(tool_status) F(value_free) F(value_kind)
// clang-format on

struct Interface {
#define DECLARE(name) decltype(&murmurase_##name) name = nullptr;  // NOLINT(bugprone-macro-*)
  FUNCTIONS(DECLARE)
#undef DECLARE
  decltype(&Init_murmurase_algorithm) start = nullptr;
};

Interface module;

// Within reach to the end, as what is kept on purpose should be; volatile, for nothing reads it.
murmurase_controller* volatile alive = nullptr;

void check(murmurase_error* error) {
  if (error == nullptr) return;
  const std::string message = module.error_message(error);
  module.error_free(error);
  throw Failure(message);
}

template <typename Function>
void find(void* library, const char* name, Function& function) {
  function = reinterpret_cast<Function>(dlsym(library, name));
  if (function == nullptr) {
    throw Failure(fmt::format("the module lacks {}; install program and module together", name));
  }
}

// A variable of the environment, missing while this lives: the module asks while it starts, and what
// the programs that it runs are told is put back.
class Missing {
 public:
  explicit Missing(const char* name) : name_(name) {
    if (const char* before = std::getenv(name)) before_ = before;
    unsetenv(name);
  }
  Missing(const Missing&) = delete;
  Missing& operator=(const Missing&) = delete;
  ~Missing() {
    if (before_) setenv(name_, before_->c_str(), 1);
  }

 private:
  const char* name_;
  std::optional<std::string> before_;
};

// Makes a value by one of the interface's functions.
template <typename Make, typename... Arguments>
Value make(Make function, Arguments... arguments) {
  murmurase_value* made = nullptr;
  check(function(arguments..., &made));
  return Value(made);
}

}  // namespace

void FreeValue::operator()(murmurase_value* value) const { module.value_free(value); }

fs::path program_folder() {
#ifdef __APPLE__
  std::array<char, 4096> path{};
  uint32_t size = path.size();
  if (_NSGetExecutablePath(path.data(), &size) != 0) throw Failure("cannot find this program");
  return fs::canonical(path.data()).parent_path();
#else
  return fs::read_symlink("/proc/self/exe").parent_path();
#endif
}

void load_module(bool working_folder) {
  if (module.start != nullptr) return;
  const fs::path folder = program_folder();
  void* library = nullptr;
  std::string reason;
  for (const char* place : {"../lib", MURMURASE_LIB_FROM_BIN}) {
    const fs::path path = folder / place / "murmurase_algorithm.so";
    if (!fs::exists(path)) continue;
    library = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (library != nullptr) break;
    reason = dlerror();
  }
  if (library == nullptr) {
    throw Failure(reason.empty()
                      ? fmt::format("there is no murmurase_algorithm.so in {} or {}; install the "
                                    "module with the program",
                                    (folder / "../lib").lexically_normal().string(),
                                    (folder / MURMURASE_LIB_FROM_BIN).lexically_normal().string())
                      : fmt::format("the module cannot be loaded: {}", reason));
  }
  find(library, "murmurase_interface_version", module.interface_version);
  if (module.interface_version() != MURMURASE_INTERFACE_VERSION) {
    throw Failure(
        fmt::format("the module has interface version {} and this program needs {}; "
                    "install program and module together",
                    module.interface_version(), MURMURASE_INTERFACE_VERSION));
  }
#define FIND(name) find(library, "murmurase_" #name, module.name);
  FUNCTIONS(FIND)
#undef FIND
  find(library, "Init_murmurase_algorithm", module.start);

  {
    std::optional<Missing> home;
    std::optional<Missing> data_home;
    if (!working_folder) {
      home.emplace("HOME");
      data_home.emplace("XDG_DATA_HOME");
    }
    module.start();
  }
  if (const murmurase_error* error = module.startup_error()) {
    throw Failure(fmt::format("the module cannot start: {}", module.error_message(error)));
  }
  module.set_host_ui_active(false);  // a command line has no table to redisplay
}

json to_json(const murmurase_value* value) {
  switch (module.value_kind(value)) {
    case MURMURASE_BOOLEAN: {
      bool boolean = false;
      check(module.get_boolean(value, &boolean));
      return boolean;
    }
    case MURMURASE_INTEGER: {
      int64_t integer = 0;
      check(module.get_integer(value, &integer));
      return integer;
    }
    case MURMURASE_REAL: {
      double real = 0;
      check(module.get_real(value, &real));
      return real;
    }
    case MURMURASE_TEXT: {
      const char* text = nullptr;
      size_t length = 0;
      check(module.get_text(value, &text, &length));
      return std::string(text, length);
    }
    case MURMURASE_LIST: {
      json list = json::array();
      for (size_t i = 0; i < module.size(value); ++i) {
        const murmurase_value* item = nullptr;
        check(module.list_get(value, i, &item));
        list.push_back(to_json(item));
      }
      return list;
    }
    case MURMURASE_RECORD: {
      json record = json::object();
      for (size_t i = 0; i < module.size(value); ++i) {
        const char* key = module.record_key(value, i);
        const murmurase_value* item = nullptr;
        check(module.record_get(value, key, &item));
        record[key] = to_json(item);
      }
      return record;
    }
    default:
      return nullptr;
  }
}

Value to_value(const json& data) {
  if (data.is_number_integer()) return make(module.new_integer, data.get<int64_t>());
  if (data.is_number()) return make(module.new_real, data.get<double>());
  if (data.is_string()) {
    const auto& text = data.get_ref<const std::string&>();
    return make(module.new_text, text.data(), text.size());
  }
  if (data.is_array()) {
    Value list = make(module.new_list);
    for (const json& item : data) check(module.list_append(list.get(), to_value(item).get()));
    return list;
  }
  if (data.is_object()) {
    Value record = make(module.new_record);
    for (const auto& [key, item] : data.items()) {
      check(module.record_set(record.get(), key.c_str(), to_value(item).get()));
    }
    return record;
  }
  return nullptr;
}

std::string temp_xml_file() {
  const char* path = module.temp_xml_file();
  if (path == nullptr) throw Failure("there is no home to keep the clip in; name a file to write");
  return path;
}

void end_tool() {
  if (module.end_tool != nullptr) module.end_tool();
}

Controller::Controller(std::int64_t words) : words_(words) {
  const auto slider = [](void* context, double* value) {
    *value = static_cast<double>(*static_cast<std::int64_t*>(context));
    return true;
  };
  const murmurase_host callbacks = {sizeof(murmurase_host), &words_, slider, nullptr};
  check(module.controller_new(&callbacks, &controller_));
  alive = controller_;
}

Value Controller::field(const char* name) const {
  return make([&](murmurase_value** result) { return module.get(controller_, name, result); });
}

json Controller::get(const char* name) const { return to_json(field(name).get()); }

bool Controller::holds(const char* name) const { return field(name) != nullptr; }

void Controller::set(const char* name, const json& value) {
  check(module.set(controller_, name, to_value(value).get()));
}

std::string Controller::read_clip(const std::string& path) {
  const Value file = call("parse_xml_file", {path});
  const murmurase_value* document = nullptr;
  check(module.list_get(file.get(), 0, &document));
  check(module.set(controller_, "clip_xml", document));
  murmurase_repair repair = MURMURASE_REPAIR_NONE;
  const Value lines = make(
      [&](murmurase_value** result) { return module.document_repair(document, &repair, result); });
  if (repair == MURMURASE_REPAIR_NONE) return {};
  if (repair == MURMURASE_REPAIR_ALL) return "all its lines; parts of it may be missing";
  const json numbers = to_json(lines.get());
  if (numbers.empty()) return "its line breaks";
  constexpr std::size_t most_shown = 10;
  std::string text = numbers.size() == 1 ? "line " : "lines ";
  for (std::size_t i = 0; i < std::min(numbers.size(), most_shown); ++i) {
    text += (i == 0 ? "" : ", ") + numbers[i].dump();
  }
  if (numbers.size() > most_shown) {
    text += fmt::format(" and {} more", numbers.size() - most_shown);
  }
  return text;
}

void Controller::set_clip_file(const std::string& path) {
  check(module.set_clip_file(controller_, path.c_str()));
}

void Controller::set_open_command(const std::string& command) {
  check(module.set_open_command(controller_, command.c_str()));
}

int Controller::tool_status() const { return module.tool_status(controller_); }

std::string Controller::clip_fault() const {
  int64_t line = 0;
  const char* fault = module.clip_fault(controller_, &line);
  if (fault == nullptr) return {};
  return line > 0 ? fmt::format("its line {} is not well-formed XML ({})", line, fault)
                  : fmt::format("it is not well-formed XML ({})", fault);
}

Value Controller::call(const char* operation, std::initializer_list<json> arguments) {
  std::vector<Value> values;
  std::vector<const murmurase_value*> handles;
  for (const json& argument : arguments) {
    handles.push_back(values.emplace_back(to_value(argument)).get());
  }
  return make([&](murmurase_value** result) {
    return module.call(controller_, operation, handles.data(), handles.size(), result);
  });
}

}  // namespace host
