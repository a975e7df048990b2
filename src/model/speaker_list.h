#pragma once

#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/controller.h"

namespace murmurase {

// Sets speakers_array: one entry, without a name, for each distinct xmpDM:speaker text of the whole
// document that holds transcription_xml, in the order of first occurrence. Gives the list when a
// speaker occurred more than once, else nothing. Error: missing value without transcription_xml.
std::optional<std::vector<SpeakerEntry>> build_speakers_array(Controller& controller);

// The display name of an entry: its name, an empty one too, else its identifier.
inline std::string_view display_name(const SpeakerEntry& entry) {
  return entry.name ? *entry.name : entry.speaker;
}

// The speaker look-up over one list, which must outlive it unchanged: the first entry whose identifier
// is exactly the given one, in constant time.
class SpeakerLookup {
 public:
  explicit SpeakerLookup(const std::vector<SpeakerEntry>& speakers);

  // Missing value error that names the speaker when no entry has the identifier.
  const SpeakerEntry& get(std::string_view speaker) const;

 private:
  std::unordered_map<std::string_view, const SpeakerEntry*> entries_;
};

}  // namespace murmurase
