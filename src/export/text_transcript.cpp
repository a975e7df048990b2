#include "export/text_transcript.h"

#include <string_view>
#include <vector>

#include "core/error.h"
#include "core/numbers.h"
#include "export/time_label.h"
#include "model/speaker_list.h"
#include "model/word_grouping.h"
#include "platform/platform.h"

namespace murmurase {
namespace {

void add_heading(std::string& text, const SpeakerEntry& speaker) {
  text.append("  ").append(ascii_upper(display_name(speaker))).append("\n");
}

void add_phrase(std::string& text, std::string_view label, const WordGroup& phrase) {
  text.append("[").append(label).append("] ").append(phrase.words).append("\n");
}

}  // namespace

void save_to_text(Controller& controller, std::int64_t grouping, const std::string& path) {
  build_words_array(controller, grouping);
  const std::vector<SpeakerEntry>& speakers = *controller.speakers_array;
  const std::vector<WordGroup>& phrases = *controller.words_array;
  std::string& text = controller.text_to_save.emplace();

  // The first heading is the list's first speaker, whoever speaks the first phrase.
  add_heading(text, speakers.front());
  std::string_view heading = speakers.front().speaker;
  if (phrases.empty()) {
    throw Error(ErrorKind::missing_value, "the transcription holds no words");
  }
  add_phrase(text, time_label(controller, phrases.front().time_in), phrases.front());

  const SpeakerLookup lookup(speakers);
  for (std::size_t i = 1; i < phrases.size(); ++i) {
    const std::string label = time_label(controller, phrases[i].time_in);
    const SpeakerEntry& speaker = lookup.get(phrases[i].speaker);
    if (speaker.speaker != heading) {
      heading = speaker.speaker;
      text += '\n';
      add_heading(text, speaker);
    }
    add_phrase(text, label, phrases[i]);
  }
  controller.process.platform.replace_file(path, text);
}

}  // namespace murmurase
