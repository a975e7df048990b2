// The border between the module and its hosts: converts, catches everything, decides nothing.

#include <fmt/format.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <memory>
#include <new>
#include <optional>

#include "core/convert.h"
#include "core/fields.h"
#include "module.h"
#include "murmurase/murmurase.h"
#include "platform/platform.h"
#include "readers/clip_reader.h"

using murmurase::Entry;
using murmurase::Error;
using murmurase::ErrorKind;
using murmurase::HostObject;
using murmurase::List;
using murmurase::Record;
using murmurase::Value;

struct murmurase_error {
  murmurase_error_kind kind;
  int number;
  std::string message;
};

namespace {

// The one error that must exist when memory has run out.
murmurase_error* out_of_memory() {
  static murmurase_error error{MURMURASE_ERROR_MEMORY, 0, "out of memory"};
  return &error;
}

murmurase_error* new_error(ErrorKind kind, int number, const char* message) noexcept {
  try {
    return new murmurase_error{static_cast<murmurase_error_kind>(kind), number, message};
  } catch (...) {
    return out_of_memory();
  }
}

// Runs one call of the interface; whatever it throws becomes the error that it gives.
template <typename Call>
murmurase_error* guarded(const Call& call) noexcept {
  try {
    call();
    return nullptr;
  } catch (const Error& error) {
    return new_error(error.kind(), error.number(), error.what());
  } catch (const std::bad_alloc&) {
    return out_of_memory();
  } catch (const std::exception& error) {
    return new_error(ErrorKind::internal, 0, error.what());
  } catch (...) {
    return new_error(ErrorKind::internal, 0, "an unknown failure inside the module");
  }
}

murmurase_value* as_handle(Value* value) { return reinterpret_cast<murmurase_value*>(value); }
const murmurase_value* as_handle(const Value* value) {
  return reinterpret_cast<const murmurase_value*>(value);
}

bool is_null(const Value& value) { return std::holds_alternative<std::monostate>(value.data); }

// The value behind a handle; the null value for NULL.
const Value& as_value(const murmurase_value* handle) {
  static const Value null;
  return handle == nullptr ? null : *reinterpret_cast<const Value*>(handle);
}

// NULL for the null value, else a handle that the host owns.
murmurase_value* give(Value value) {
  return is_null(value) ? nullptr : as_handle(std::make_unique<Value>(std::move(value)).release());
}

template <typename T>
T& checked(T* pointer, const char* what) {
  if (pointer == nullptr)
    throw Error(ErrorKind::argument, fmt::format("{} is a null pointer", what));
  return *pointer;
}

murmurase_error* make(Value value, murmurase_value** result) {
  return guarded([&] {
    auto& target = checked(result, "the result");
    target = give(std::move(value));
  });
}

template <typename T>
const T* held(const murmurase_value* value) {
  return std::get_if<T>(&as_value(value).data);
}

template <typename T>
const T& read(const murmurase_value* value, const char* wanted) {
  if (const auto* found = held<T>(value)) return *found;
  throw Error(ErrorKind::type,
              fmt::format("{} was asked of {}", wanted, murmurase::kind_name(as_value(value))));
}

template <typename T>
T& change(murmurase_value* value, const char* wanted) {
  return const_cast<T&>(read<T>(value, wanted));
}

// Lists hold no lists, and records neither: values stay a few levels deep, whatever a host does.
const Value& list_item(const murmurase_value* item) {
  if (held<List>(item) != nullptr) throw Error(ErrorKind::type, "a list cannot hold a list");
  return as_value(item);
}

const Value& record_item(const murmurase_value* item) {
  if (held<List>(item) != nullptr || held<Record>(item) != nullptr) {
    throw Error(ErrorKind::type, "a record cannot hold a list or a record");
  }
  return as_value(item);
}

template <typename ListType>
auto& item_at(ListType& list, size_t index) {
  if (index >= list.size()) {
    throw Error(ErrorKind::range,
                fmt::format("item {} was asked of a list of {}", index, list.size()));
  }
  return list[index];
}

class CallbackHost : public murmurase::HostBridge {
 public:
  explicit CallbackHost(const murmurase_host& callbacks) : callbacks_(callbacks) {}

  double wordGroupingSlider_value() override {
    double value = 0;
    call(callbacks_.wordGroupingSlider_value, "wordGroupingSlider_value", &value);
    return value;
  }

  void reloadData(HostObject table) override {
    call(callbacks_.reloadData, "reloadData", table.pointer);
  }

 private:
  template <typename Callback, typename Argument>
  void call(Callback callback, const char* name, Argument argument) {
    if (callback == nullptr) {
      throw Error(ErrorKind::name, fmt::format("the host provides no {}", name));
    }
    if (!callback(callbacks_.context, argument)) {
      throw Error(ErrorKind::host, fmt::format("the host's {} failed", name));
    }
  }

  murmurase_host callbacks_;
};

std::optional<std::string> text_or_none(const char* text) {
  return text == nullptr ? std::nullopt : std::optional<std::string>(text);
}

struct Startup {
  murmurase::Module module{murmurase::system_platform()};
  murmurase_error* error = nullptr;
};

// Made at first use, in a place that needs no memory to be found for it, and never destroyed, so that a
// host may still call while the process ends.
Startup& startup() noexcept {
  alignas(Startup) static std::byte place[sizeof(Startup)];
  static Startup& only = *new (place) Startup;
  return only;
}

}  // namespace

struct murmurase_controller {
  explicit murmurase_controller(const murmurase_host& callbacks)
      : host(callbacks), controller(startup().module.process, host) {}

  CallbackHost host;
  murmurase::Controller controller;
};

int murmurase_interface_version(void) { return MURMURASE_INTERFACE_VERSION; }

const char* murmurase_version(void) { return MURMURASE_RELEASE; }

murmurase_error_kind murmurase_error_get_kind(const murmurase_error* error) {
  return error == nullptr ? MURMURASE_ERROR_ARGUMENT : error->kind;
}

const char* murmurase_error_message(const murmurase_error* error) {
  return error == nullptr ? "" : error->message.c_str();
}

int murmurase_error_number(const murmurase_error* error) {
  return error == nullptr ? 0 : error->number;
}

void murmurase_error_free(murmurase_error* error) {
  if (error != out_of_memory()) delete error;
}

void Init_murmurase_algorithm(void) {
  murmurase_error* const failure = guarded([] { murmurase::start_up(startup().module); });
  murmurase_error_free(std::exchange(startup().error, failure));
}

const murmurase_error* murmurase_startup_error(void) { return startup().error; }

const char* murmurase_temp_xml_file(void) {
  const std::optional<std::string>& file = startup().module.process.temp_xml_file;
  return file ? file->c_str() : nullptr;
}

murmurase_error* murmurase_new_boolean(bool boolean, murmurase_value** result) {
  return make({boolean}, result);
}

murmurase_error* murmurase_new_integer(int64_t integer, murmurase_value** result) {
  return make({integer}, result);
}

murmurase_error* murmurase_new_real(double real, murmurase_value** result) {
  return make({real}, result);
}

murmurase_error* murmurase_new_text(const char* text, size_t length, murmurase_value** result) {
  return guarded([&] {
    auto& target = checked(result, "the result");
    if (length > 0) checked(text, "the text");
    if (length > std::string().max_size()) throw std::bad_alloc();
    target = give({length > 0 ? std::string(text, length) : std::string()});
  });
}

murmurase_error* murmurase_new_host_object(void* object, murmurase_value** result) {
  return make({HostObject{object}}, result);
}

murmurase_error* murmurase_new_list(murmurase_value** result) { return make({List{}}, result); }

murmurase_error* murmurase_new_record(murmurase_value** result) { return make({Record{}}, result); }

murmurase_error* murmurase_value_copy(const murmurase_value* value, murmurase_value** result) {
  return guarded([&] {
    auto& target = checked(result, "the result");
    target = give(as_value(value));
  });
}

void murmurase_value_free(murmurase_value* value) { delete reinterpret_cast<Value*>(value); }

murmurase_kind murmurase_value_kind(const murmurase_value* value) {
  static constexpr murmurase_kind kinds[] = {
      MURMURASE_NULL,        MURMURASE_BOOLEAN,    MURMURASE_INTEGER, MURMURASE_REAL,
      MURMURASE_TEXT,        MURMURASE_LIST,       MURMURASE_RECORD,  MURMURASE_XML_DOCUMENT,
      MURMURASE_XML_ELEMENT, MURMURASE_HOST_OBJECT};
  return kinds[as_value(value).data.index()];
}

murmurase_error* murmurase_get_boolean(const murmurase_value* value, bool* result) {
  return guarded([&] { checked(result, "the result") = read<bool>(value, "a boolean"); });
}

murmurase_error* murmurase_get_integer(const murmurase_value* value, int64_t* result) {
  return guarded([&] { checked(result, "the result") = read<int64_t>(value, "an integer"); });
}

murmurase_error* murmurase_get_real(const murmurase_value* value, double* result) {
  return guarded([&] {
    const auto* integer = held<int64_t>(value);
    checked(result, "the result") =
        integer != nullptr ? static_cast<double>(*integer) : read<double>(value, "a real");
  });
}

murmurase_error* murmurase_get_text(const murmurase_value* value, const char** text,
                                    size_t* length) {
  return guarded([&] {
    const auto& string = read<std::string>(value, "text");
    checked(text, "the text") = string.c_str();
    if (length != nullptr) *length = string.size();
  });
}

murmurase_error* murmurase_get_host_object(const murmurase_value* value, void** result) {
  return guarded(
      [&] { checked(result, "the result") = read<HostObject>(value, "a host object").pointer; });
}

size_t murmurase_size(const murmurase_value* value) {
  if (const auto* list = held<List>(value)) return list->size();
  const auto* record = held<Record>(value);
  return record == nullptr ? 0 : record->size();
}

murmurase_error* murmurase_list_get(const murmurase_value* list, size_t index,
                                    const murmurase_value** item) {
  return guarded([&] {
    const Value& found = item_at(read<List>(list, "an item"), index);
    checked(item, "the result") = is_null(found) ? nullptr : as_handle(&found);
  });
}

murmurase_error* murmurase_list_set(murmurase_value* list, size_t index,
                                    const murmurase_value* item) {
  return guarded([&] {
    Value copy = list_item(item);
    item_at(change<List>(list, "an item"), index) = std::move(copy);
  });
}

murmurase_error* murmurase_list_append(murmurase_value* list, const murmurase_value* item) {
  return guarded([&] {
    Value copy = list_item(item);
    change<List>(list, "an item").push_back(std::move(copy));
  });
}

murmurase_error* murmurase_record_get(const murmurase_value* record, const char* key,
                                      const murmurase_value** item) {
  return guarded([&] {
    checked(key, "the key");
    for (const Entry& entry : read<Record>(record, "an entry")) {
      if (entry.key != key) continue;
      checked(item, "the result") = is_null(entry.value) ? nullptr : as_handle(&entry.value);
      return;
    }
    throw Error(ErrorKind::name, fmt::format("the record has no \"{}\"", key));
  });
}

murmurase_error* murmurase_record_set(murmurase_value* record, const char* key,
                                      const murmurase_value* item) {
  return guarded([&] {
    checked(key, "the key");
    Value copy = record_item(item);
    auto& entries = change<Record>(record, "an entry");
    for (Entry& entry : entries) {
      if (entry.key != key) continue;
      entry.value = std::move(copy);
      return;
    }
    entries.push_back({key, std::move(copy)});
  });
}

const char* murmurase_record_key(const murmurase_value* record, size_t index) {
  const auto* entries = held<Record>(record);
  return entries == nullptr || index >= entries->size() ? nullptr : (*entries)[index].key.c_str();
}

murmurase_error* murmurase_document_repair(const murmurase_value* document,
                                           murmurase_repair* repair, murmurase_value** lines) {
  return guarded([&] {
    const auto found =
        murmurase::repair_of(read<murmurase::XmlDocument>(document, "the repair of a document"));
    checked(repair, "the result");
    if (lines != nullptr) *lines = give(murmurase::to_value(found.repaired_lines));
    *repair = static_cast<murmurase_repair>(found.extent);
  });
}

const char* murmurase_clip_fault(const murmurase_controller* controller, int64_t* line) {
  if (controller == nullptr || !controller->controller.clip_fault) return nullptr;
  const murmurase::XmlFault& fault = *controller->controller.clip_fault;
  if (line != nullptr) *line = fault.line;
  return fault.reason.c_str();
}

murmurase_error* murmurase_controller_new(const murmurase_host* host,
                                          murmurase_controller** result) {
  return guarded([&] {
    const size_t size = checked(host, "the host").size;
    if (size < offsetof(murmurase_host, wordGroupingSlider_value)) {
      throw Error(ErrorKind::argument, "the host does not begin with its size");
    }
    murmurase_host callbacks{};  // those that an older host does not know stay null
    std::memcpy(&callbacks, host, std::min(size, sizeof callbacks));
    auto& target = checked(result, "the result");
    target = new murmurase_controller(callbacks);
  });
}

void murmurase_controller_free(murmurase_controller* controller) { delete controller; }

murmurase_error* murmurase_get(const murmurase_controller* controller, const char* field,
                               murmurase_value** result) {
  return guarded([&] {
    auto& target = checked(result, "the result");
    target = give(murmurase::get_field(checked(controller, "the controller").controller,
                                       &checked(field, "the field's name")));
  });
}

murmurase_error* murmurase_set(murmurase_controller* controller, const char* field,
                               const murmurase_value* value) {
  return guarded([&] {
    murmurase::set_field(checked(controller, "the controller").controller,
                         &checked(field, "the field's name"), as_value(value));
  });
}

murmurase_error* murmurase_call(murmurase_controller* controller, const char* operation,
                                const murmurase_value* const* arguments, size_t count,
                                murmurase_value** result) {
  return guarded([&] {
    murmurase::Controller& receiver = checked(controller, "the controller").controller;
    checked(operation, "the operation's name");
    if (count > 0) checked(arguments, "the list of arguments");
    std::vector<Value> values;
    values.reserve(count);
    for (size_t i = 0; i < count; ++i) values.push_back(as_value(arguments[i]));
    Value value = startup().module.operations.call(operation, receiver, values);
    if (result != nullptr) *result = give(std::move(value));
  });
}

int murmurase_tool_status(const murmurase_controller* controller) {
  return controller == nullptr ? 0 : controller->controller.tool_status;
}

void murmurase_end_tool(void) { murmurase::system_platform().end_xmp_tool(); }

void murmurase_set_host_ui_active(bool active) { startup().module.process.host_ui_active = active; }

murmurase_error* murmurase_set_open_command(murmurase_controller* controller, const char* command) {
  return guarded([&] {
    checked(controller, "the controller").controller.open_command = text_or_none(command);
  });
}

murmurase_error* murmurase_set_clip_file(murmurase_controller* controller, const char* path) {
  return guarded(
      [&] { checked(controller, "the controller").controller.clip_file = text_or_none(path); });
}
