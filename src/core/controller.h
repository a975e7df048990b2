#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/value.h"

namespace murmurase {

class Platform;

// One speaker. The display name is absent until the host gives one.
struct SpeakerEntry {
  std::string speaker;              // "Speaker": the identifier as the transcription writes it
  std::optional<std::string> name;  // "Name"
};

// One phrase.
struct WordGroup {
  double time_in = 0;   // seconds from the movie's first frame
  double time_out = 0;  // seconds: the end of the phrase's first word
  std::string words;    // joined by single blanks
  std::string speaker;  // the identifier
};

// The state of the work in hand: the fields of the host's controller, absent until set.
struct ControllerState {
  std::optional<std::string> xmpcommand;
  std::optional<std::string> mov_file_path;
  std::optional<double> frame_rate;          // frames per second
  std::optional<std::string> displayformat;  // "DF" or "NDF"
  std::optional<double> first_frame;         // a whole number of frames
  std::optional<XmlElement> transcription_xml;
  std::optional<std::vector<SpeakerEntry>> speakers_array;
  std::optional<std::vector<WordGroup>> words_array;
  std::optional<XmlDocument> clip_xml;
  std::optional<XmlDocument> clip_xml_clone;
  std::optional<std::string> text_to_save;
  std::optional<std::int64_t> in;  // frames
  std::optional<HostObject> speakersTableView;
};

// What the host provides. Both calls throw when the host cannot answer.
class HostBridge {
 public:
  virtual ~HostBridge() = default;
  // The largest number of words in a phrase; 100 means no limit.
  virtual double wordGroupingSlider_value() = 0;
  virtual void reloadData(HostObject speakersTableView) = 0;
};

// What all controllers of a process share; made by start-up.
struct Process {
  Platform& platform;
  std::optional<std::string> temp_xml_file;  // TEMP_XML_FILE: unset without Application Support
  bool host_ui_active = true;
};

struct Controller : ControllerState {
  Controller(Process& the_process, HostBridge& the_host) : process(the_process), host(the_host) {}

  Process& process;
  HostBridge& host;
  std::optional<std::string> open_command;  // opens written clips; the host's choice
  std::optional<std::string> clip_file;     // in place of temp_xml_file; the host's choice
  int tool_status = 0;                      // the last XMP tool's, as waitpid reports it
  std::optional<XmlFault> clip_fault;  // of the last clip written; absent when it is well-formed
};

// The field's value, or the error for a field that an operation needs and finds absent.
template <typename T>
const T& required(const std::optional<T>& field, const char* name);

[[noreturn]] void throw_missing_field(const char* name);

template <typename T>
const T& required(const std::optional<T>& field, const char* name) {
  if (!field) throw_missing_field(name);
  return *field;
}

}  // namespace murmurase
