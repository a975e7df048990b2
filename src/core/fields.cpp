#include "core/fields.h"

#include <fmt/format.h>

#include "core/convert.h"
#include "core/error.h"

namespace murmurase {
namespace {

struct Field {
  std::string_view name;
  Value (*get)(const ControllerState&);
  void (*set)(ControllerState&, std::string_view name, const Value&);
};

template <auto Member>
constexpr Field field(std::string_view name) {
  return {name, [](const ControllerState& state) { return to_value(state.*Member); },
          [](ControllerState& state, std::string_view what, const Value& value) {
            from_value(value, what, state.*Member);
          }};
}

using State = ControllerState;
constexpr Field fields[] = {
    field<&State::xmpcommand>("xmpcommand"),
    field<&State::mov_file_path>("mov_file_path"),
    field<&State::frame_rate>("frame_rate"),
    field<&State::displayformat>("displayformat"),
    field<&State::first_frame>("first_frame"),
    field<&State::transcription_xml>("transcription_xml"),
    field<&State::speakers_array>("speakers_array"),
    field<&State::words_array>("words_array"),
    field<&State::clip_xml>("clip_xml"),
    field<&State::clip_xml_clone>("clip_xml_clone"),
    field<&State::text_to_save>("text_to_save"),
    field<&State::in>("in"),
    field<&State::speakersTableView>("speakersTableView"),
};

const Field& find(std::string_view name) {
  for (const Field& candidate : fields) {
    if (candidate.name == name) return candidate;
  }
  throw Error(ErrorKind::name,
              fmt::format("the controller has no field {}", printable(name.substr(0, 80))));
}

}  // namespace

Value get_field(const ControllerState& state, std::string_view name) {
  return find(name).get(state);
}

void set_field(ControllerState& state, std::string_view name, const Value& value) {
  const Field& target = find(name);
  target.set(state, target.name, value);
}

void throw_missing_field(const char* name) {
  throw Error(ErrorKind::missing_value, fmt::format("{} has not been set", name));
}

}  // namespace murmurase
