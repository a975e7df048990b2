#include <gtest/gtest.h>

#include <regex>

#include "export/text_transcript.h"
#include "model/speaker_list.h"
#include "model/word_grouping.h"
#include "readers/movie_reader.h"
#include "support.h"

namespace murmurase::test {
namespace {

const std::vector<Word> example = {{"Hello", "0", "400", "A"},     {"and", "450", "200", "A"},
                                   {"welcome", "700", "500", "A"}, {"to", "1250", "150", "A"},
                                   {"the", "1450", "100", "A"},    {"Thanks", "2600", "400", "B"},
                                   {"Bob", "3100", "300", "B"}};

void load(Desk& desk, const std::string& properties) {
  desk.platform.tool_output = packet(properties);
  parse_xmp_from_mov(desk.controller, "a.mov");
  build_speakers_array(desk.controller);
}

std::string shown(const std::vector<WordGroup>& phrases) {
  std::string text;
  for (const WordGroup& phrase : phrases) {
    text +=
        fmt::format("{} {} {}-{}|", phrase.speaker, phrase.words, phrase.time_in, phrase.time_out);
  }
  return text;
}

// A word of each of the speakers, who have a letter each.
std::vector<Word> said_by(std::string_view speakers) {
  std::vector<Word> words;
  for (const char speaker : speakers) words.push_back({"w", "0", "0", {speaker}});
  return words;
}

std::string speakers_of(const Desk& desk) {
  std::string text;
  for (const SpeakerEntry& entry : *desk.controller.speakers_array) text += entry.speaker + "|";
  return text;
}

TEST(Speakers, InOrderOfFirstOccurrence) {
  Desk desk;
  load(desk, speech(said_by("ABACaB")) + "<xmpDM:speaker>A </xmpDM:speaker>");
  EXPECT_EQ(speakers_of(desk), "A|B|C|a|A |");
  desk.controller.speakers_array->at(0).name = "Anna";
  EXPECT_EQ(build_speakers_array(desk.controller)->size(), 5U);  // a speaker recurs: the list
  EXPECT_EQ(desk.controller.speakers_array->at(0).name, std::nullopt);

  load(desk, speech(said_by("AB")));
  EXPECT_FALSE(build_speakers_array(desk.controller));  // none recurs
  desk.controller.transcription_xml.reset();
  EXPECT_TRUE(is_error(error_of([&] { build_speakers_array(desk.controller); }),
                       ErrorKind::missing_value, "transcription_xml"));
  EXPECT_EQ(speakers_of(desk), "A|B|");
}

TEST(Grouping, Phrases) {
  const std::tuple<std::vector<Word>, const char*, std::int64_t, const char*> cases[] = {
      {example, "f1000", 3, "A Hello and welcome 0-0.4|A to the 1.25-1.4|B Thanks Bob 2.6-3|"},
      {example, "f1000", 100, "A Hello and welcome to the 0-0.4|B Thanks Bob 2.6-3|"},
      {said_by("AAAAAAA"), "f1000", 3, "A w w w 0-0|A w w w 0-0|A w 0-0|"},
      {said_by("AAABB"), "f1000", 2, "A w w 0-0|A w 0-0|B w w 0-0|"},
      {said_by("ABA"), "f1000", 100, "A w 0-0|B w 0-0|A w 0-0|"},
      {said_by("AAB"), "f1000", 1, "A w 0-0|A w 0-0|B w 0-0|"},
      {said_by("AB"), "f1000", 0, "A w 0-0|B w 0-0|"},
      {{{"c\uFFFDafe", "1500", "250", "A"}, {"\uFFFD", "9", "9", "A"}},
       "f1000",
       100,
       "A cafe  1.5-1.75|"},
      {{{" x ", "135000", "", "A"}}, "f90000", 100, "A  x  1.5-1.5|"},
      {{{"", "x", "1e3", "A"}}, " +f1000 fps", 100, "A  0-1|"},
  };
  for (const auto& [words, time_base, grouping, phrases] : cases) {
    Desk desk;
    load(desk, speech(words, time_base));
    build_words_array(desk.controller, grouping);
    EXPECT_EQ(shown(*desk.controller.words_array), phrases);
  }
}

TEST(Grouping, Failures) {
  using Kind = ErrorKind;
  const auto lacking = [](const std::string& element) {
    const std::string marker = speech({{"w", "0", "0", "A"}});
    const std::regex found(fmt::format("<xmpDM:{0}>.*</xmpDM:{0}>", element));
    return std::regex_replace(marker, found, "") + "<xmpDM:speaker>A</xmpDM:speaker>";
  };
  const struct {
    std::string properties;
    std::int64_t grouping;
    Kind kind;
    const char* message;
  } cases[] = {
      {speech({}), 100, Kind::missing_value, "names no speakers"},
      {speech(said_by("AA")), 0, Kind::zero_division, "0 words"},
      {speech(example, "f25"), 100, Kind::range, "\"f25\""},
      {speech(example, "f30000s1001"), 100, Kind::range, "\"f30000s1001\""},
      {speech(example, "f10000000000000000000001"), 100, Kind::range, "00001\""},
      {speech(example, "f-1000"), 100, Kind::range, "\"f-1000\""},
      {lacking("frameRate"), 100, Kind::missing_value, "frameRate"},
      {lacking("startTime"), 100, Kind::missing_value, "startTime"},
      {lacking("duration"), 100, Kind::missing_value, "duration"},
      {lacking("speaker"), 100, Kind::missing_value, "\"w\" has no xmpDM:speaker"},
  };
  for (const auto& each : cases) {
    Desk desk;
    load(desk, each.properties);
    const std::string error = error_of([&] { build_words_array(desk.controller, each.grouping); });
    EXPECT_TRUE(is_error(error, each.kind, each.message)) << error;
    EXPECT_TRUE(desk.controller.words_array);
  }
}

TEST(TextTranscript, Text) {
  std::vector<Word> words = example;
  words.push_back({"José", "3500", "1", "A"});
  for (Word& word : words) word.speaker = word.speaker == "A" ? "Speaker ß" : "Speaker 2";
  Desk desk;
  load(desk, speech(words));
  desk.controller.speakers_array->at(1).name = "Anna";
  save_to_text(desk.controller, 3, "out.txt");
  EXPECT_EQ(desk.platform.files["out.txt"],
            "  SPEAKER ß\n[00:00:00] Hello and welcome\n[00:00:01] to the\n\n"
            "  ANNA\n[00:00:03] Thanks Bob\n\n  SPEAKER ß\n[00:00:04] José\n");
  EXPECT_EQ(desk.controller.text_to_save, desk.platform.files["out.txt"]);

  desk.controller.frame_rate = 25.0;
  desk.controller.first_frame = 90000;
  desk.controller.speakers_array->at(0).name = "";
  save_to_text(desk.controller, 100, "out.txt");
  EXPECT_EQ(desk.platform.files["out.txt"],
            "  \n[01:00:00:00] Hello and welcome to the\n\n  ANNA\n[01:00:02:15] Thanks Bob\n\n"
            "  \n[01:00:03:13] José\n");

  // The first heading is the first entry of the list, even where another speaker speaks first.
  load(desk, "<xmpDM:speaker>B</xmpDM:speaker>" + speech(said_by("AB")));
  desk.controller.frame_rate.reset();
  save_to_text(desk.controller, 100, "out.txt");
  EXPECT_EQ(desk.platform.files["out.txt"], "  B\n[00:00:00] w\n[00:00:00] w\n");
}

TEST(TextTranscript, FailuresKeepWhatWasBuilt) {
  Desk desk;
  load(desk, speech(said_by("AB")));
  desk.controller.speakers_array->pop_back();
  const std::string error = error_of([&] { save_to_text(desk.controller, 100, "out"); });
  EXPECT_TRUE(is_error(error, ErrorKind::missing_value, "\"B\""));
  EXPECT_EQ(desk.controller.text_to_save, "  A\n[00:00:00] w\n");
}

}  // namespace
}  // namespace murmurase::test
