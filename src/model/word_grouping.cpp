#include "model/word_grouping.h"

#include <fmt/format.h>

#include <string>
#include <string_view>

#include "core/error.h"
#include "core/numbers.h"
#include "xml/document.h"
#include "xmp/names.h"

namespace murmurase {
namespace {

constexpr std::int64_t no_limit = 100;

// The whole number at the start of a time base ("f90000": units per second), divided by 1000.
double time_base_divisor(std::string_view text) {
  std::string digits(text);
  if (const std::size_t f = digits.find('f'); f != std::string::npos) digits.erase(f, 1);
  const Wide units = leading_integer(digits);
  // "f30000s1001" counts 30000 / 1001 units per second.
  const std::size_t end =
      digits.find_first_not_of("0123456789", digits.find_first_of("0123456789"));
  const bool fractional = end != std::string::npos && digits[end] == 's' &&
                          leading_integer(std::string_view(digits).substr(end + 1)) > 1;
  if (units <= 0 || units % 1000 != 0 || fractional) {
    throw Error(ErrorKind::range,
                fmt::format("the transcription's time base \"{}\" is not a whole multiple of 1000 "
                            "units per second, so its times cannot be read as seconds",
                            printable(text.substr(0, 80))));
  }
  const Wide thousands = units / 1000;
  return static_cast<double>(thousands);
}

// A word without the characters that stand for what could not be decoded.
std::string_view without_replacements(std::string_view word, std::string& scratch) {
  constexpr std::string_view replacement = "\xEF\xBF\xBD";
  std::size_t at = word.find(replacement);
  if (at == std::string_view::npos) return word;
  std::string cleaned;
  std::size_t start = 0;
  for (; at != std::string_view::npos; at = word.find(replacement, start)) {
    cleaned += word.substr(start, at - start);
    start = at + replacement.size();
  }
  cleaned += word.substr(start);
  scratch = std::move(cleaned);
  return scratch;
}

// The children of a word's marker that count: the first of each name.
struct Marker {
  const xmlNode* start_time = nullptr;
  const xmlNode* duration = nullptr;
  const xmlNode* speaker = nullptr;
};

Marker read_marker(const xmlNode* element, std::string_view word) {
  Marker marker;
  for (const xmlNode* node = element->children; node != nullptr; node = node->next) {
    if (marker.start_time == nullptr && xml::is_named(node, xmp::names::start_time)) {
      marker.start_time = node;
    } else if (marker.duration == nullptr && xml::is_named(node, xmp::names::duration)) {
      marker.duration = node;
    } else if (marker.speaker == nullptr && xml::is_named(node, xmp::names::speaker)) {
      marker.speaker = node;
    }
  }
  const char* missing = marker.start_time == nullptr ? "startTime"
                        : marker.duration == nullptr ? "duration"
                        : marker.speaker == nullptr  ? "speaker"
                                                     : nullptr;
  if (missing != nullptr) {
    throw Error(ErrorKind::missing_value,
                fmt::format("the marker of the word \"{}\" has no xmpDM:{} element",
                            printable(word.substr(0, 80)), missing));
  }
  return marker;
}

}  // namespace

void build_words_array(Controller& controller, std::int64_t grouping) {
  if (controller.process.host_ui_active) {
    controller.host.reloadData(required(controller.speakersTableView, "speakersTableView"));
  }
  if (!controller.clip_xml_clone && controller.clip_xml) {
    controller.clip_xml_clone = xml::copy(*controller.clip_xml);
  }
  std::vector<WordGroup>& phrases = controller.words_array.emplace();
  if (required(controller.speakers_array, "speakers_array").empty()) {
    throw Error(ErrorKind::missing_value, "the transcription names no speakers");
  }
  const XmlElement& transcription = required(controller.transcription_xml, "transcription_xml");
  const xmlNode* frame_rate = xml::child(transcription.node, xmp::names::frame_rate);
  if (frame_rate == nullptr) {
    throw Error(ErrorKind::missing_value,
                "the transcription's Speech track has no xmpDM:frameRate element");
  }
  std::string scratch;
  const std::string time_base(xml::text_content(frame_rate, scratch));
  double divisor = 0;
  const auto seconds = [&](const xmlNode* element) {
    return leading_double(xml::text_content(element, scratch)) / divisor / 1000.0;
  };

  std::int64_t run_count = 0;
  std::string word_scratch;
  std::string speaker_scratch;
  for (const xmlNode* node = xml::first_element(transcription.document); node != nullptr;
       node = xml::next_element(node)) {
    if (!xml::is_named(node, xmp::names::name)) continue;
    const std::string_view word =
        without_replacements(xml::text_content(node, word_scratch), word_scratch);
    const Marker marker = read_marker(node->parent, word);
    const std::string_view speaker = xml::text_content(marker.speaker, speaker_scratch);
    if (phrases.empty() || phrases.back().speaker != speaker) {
      run_count = 0;
    } else if (grouping == 0) {
      throw Error(ErrorKind::zero_division, "a word grouping of 0 words in a phrase");
    } else if (grouping == no_limit || run_count % grouping != 0) {
      phrases.back().words.append(1, ' ').append(word);
      ++run_count;
      continue;
    }
    if (phrases.empty()) divisor = time_base_divisor(time_base);
    const double start = seconds(marker.start_time);
    phrases.push_back(
        {start, start + seconds(marker.duration), std::string(word), std::string(speaker)});
    ++run_count;
  }
}

}  // namespace murmurase
