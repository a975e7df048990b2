#include "model/speaker_list.h"

#include <fmt/format.h>

#include <string>
#include <unordered_set>

#include "core/error.h"
#include "xmp/names.h"

namespace murmurase {
namespace {

// Lets a set of strings be asked with a view.
struct ViewHash : std::hash<std::string_view> {
  using is_transparent = void;
};

}  // namespace

std::optional<std::vector<SpeakerEntry>> build_speakers_array(Controller& controller) {
  const XmlElement& transcription = required(controller.transcription_xml, "transcription_xml");
  std::vector<SpeakerEntry> speakers;
  std::unordered_set<std::string, ViewHash, std::equal_to<>> known;
  bool recurs = false;
  std::string scratch;
  for (const xmlNode* node = xml::first_element(transcription.document); node != nullptr;
       node = xml::next_element(node)) {
    if (!xml::is_named(node, xmp::names::speaker)) continue;
    const std::string_view speaker = xml::text_content(node, scratch);
    if (known.contains(speaker)) {
      recurs = true;
    } else {
      known.emplace(speaker);
      speakers.push_back({std::string(speaker), std::nullopt});
    }
  }
  controller.speakers_array = std::move(speakers);
  return recurs ? controller.speakers_array : std::nullopt;
}

SpeakerLookup::SpeakerLookup(const std::vector<SpeakerEntry>& speakers) {
  entries_.reserve(speakers.size());
  for (const SpeakerEntry& entry : speakers) entries_.emplace(entry.speaker, &entry);
}

const SpeakerEntry& SpeakerLookup::get(std::string_view speaker) const {
  const auto found = entries_.find(speaker);
  if (found == entries_.end()) {
    throw Error(ErrorKind::missing_value,
                fmt::format("the speaker list has no entry \"{}\"", printable(speaker)));
  }
  return *found->second;
}

}  // namespace murmurase
