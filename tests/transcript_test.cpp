#include <gtest/gtest.h>

#include <cmath>

#include "export/spreadsheet.h"
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

std::string speakers_of(const Desk& desk) {
  std::string text;
  for (const SpeakerEntry& entry : *desk.controller.speakers_array) text += entry.speaker + "|";
  return text;
}

TEST(Speakers, InOrderOfFirstOccurrence) {
  Desk desk;
  load(desk, speech({{"", "", "", "A"},
                     {"", "", "", "B"},
                     {"", "", "", "A"},
                     {"", "", "", "C"},
                     {"", "", "", "a"},
                     {"", "", "", "A "},
                     {"", "", "", "B"}}) +
                 "<xmpDM:speaker>outside</xmpDM:speaker>");
  EXPECT_EQ(speakers_of(desk), "A|B|C|a|A |outside|");

  desk.controller.speakers_array->at(0).name = "Anna";
  EXPECT_EQ(build_speakers_array(desk.controller)->size(), 6U);  // a speaker recurs: the list
  EXPECT_EQ(desk.controller.speakers_array->at(0).name, std::nullopt);
}

TEST(Speakers, ResultAndFailure) {
  Desk desk;
  load(desk, speech({{"", "", "", "A"}, {"", "", "", "B"}}));
  EXPECT_FALSE(build_speakers_array(desk.controller));  // none recurs
  desk.controller.transcription_xml.reset();
  EXPECT_TRUE(is_error(error_of([&] { build_speakers_array(desk.controller); }),
                       ErrorKind::missing_value, "transcription_xml"));
  EXPECT_EQ(speakers_of(desk), "A|B|");
}

TEST(Grouping, Phrases) {
  const auto run = [](const char* speakers) {
    std::vector<Word> words;
    for (const char* c = speakers; *c != '\0'; ++c) words.push_back({"w", "0", "0", {*c}});
    return words;
  };
  const struct {
    std::vector<Word> words;
    const char* time_base;
    std::int64_t grouping;
    const char* phrases;
  } cases[] = {
      {example, "f1000", 3, "A Hello and welcome 0-0.4|A to the 1.25-1.4|B Thanks Bob 2.6-3|"},
      {example, "f1000", 100, "A Hello and welcome to the 0-0.4|B Thanks Bob 2.6-3|"},
      {run("AAAAAAA"), "f1000", 3, "A w w w 0-0|A w w w 0-0|A w 0-0|"},
      {run("AAABB"), "f1000", 2, "A w w 0-0|A w 0-0|B w w 0-0|"},
      {run("ABA"), "f1000", 100, "A w 0-0|B w 0-0|A w 0-0|"},
      {run("AAB"), "f1000", 1, "A w 0-0|A w 0-0|B w 0-0|"},
      {run("AB"), "f1000", 0, "A w 0-0|B w 0-0|"},
      {{{"caf\xEF\xBF\xBD\x65", "1500", "250", "A"}, {"\xEF\xBF\xBD", "9", "9", "A"}},
       "f1000",
       100,
       "A cafe  1.5-1.75|"},
      {{{" x ", "135000", "", "A"}}, "f90000", 100, "A  x  1.5-1.5|"},
      {{{"", "x", "1e3", "A"}}, " +f1000s1", 100, "A  0-1|"},
  };
  for (const auto& each : cases) {
    Desk desk;
    load(desk, speech(each.words, each.time_base));
    build_words_array(desk.controller, each.grouping);
    EXPECT_EQ(shown(*desk.controller.words_array), each.phrases);
  }
}

TEST(Grouping, Failures) {
  const std::string marker =
      "<rdf:li rdf:parseType=\"Resource\"><xmpDM:name>w</xmpDM:name>{}</rdf:li>";
  const auto markers = [&](const char* rest) {
    return track("Speech", "f1000", fmt::format(fmt::runtime(marker), rest));
  };
  const struct {
    std::string properties;
    std::int64_t grouping;
    ErrorKind kind;
    const char* message;
  } cases[] = {
      {speech({}), 100, ErrorKind::missing_value, "names no speakers"},
      {speech({{"a", "0", "0", "A"}, {"b", "0", "0", "A"}}), 0, ErrorKind::zero_division,
       "0 words"},
      {speech(example, "f25"), 100, ErrorKind::range, "\"f25\""},
      {speech(example, "f30000s1001"), 100, ErrorKind::range, "\"f30000s1001\""},
      {speech(example, "f0"), 100, ErrorKind::range, "\"f0\""},
      {speech(example, "f-1000"), 100, ErrorKind::range, "\"f-1000\""},
      {"<xmpDM:Tracks><xmpDM:trackType>Speech</xmpDM:trackType><xmpDM:speaker/></xmpDM:Tracks>",
       100, ErrorKind::missing_value, "frameRate"},
      {markers("<xmpDM:duration/><xmpDM:speaker/>"), 100, ErrorKind::missing_value, "startTime"},
      {markers("<xmpDM:startTime/><xmpDM:speaker/>"), 100, ErrorKind::missing_value, "duration"},
      {speech(example) + markers("<xmpDM:startTime/><xmpDM:duration/>"), 100,
       ErrorKind::missing_value, "\"w\" has no xmpDM:speaker"},
  };
  for (const auto& each : cases) {
    Desk desk;
    load(desk, each.properties);
    const std::string error = error_of([&] { build_words_array(desk.controller, each.grouping); });
    EXPECT_TRUE(is_error(error, each.kind, each.message)) << error;
    EXPECT_TRUE(desk.controller.words_array);
  }
}

TEST(Grouping, AsksTheHostForARedisplay) {
  Desk desk;
  load(desk, speech(example));
  desk.process.host_ui_active = true;
  EXPECT_TRUE(is_error(error_of([&] { build_words_array(desk.controller, 100); }),
                       ErrorKind::missing_value, "speakersTableView"));
  desk.controller.speakersTableView = HostObject{};
  build_words_array(desk.controller, 100);
  EXPECT_EQ(desk.host.reloads, 1);
}

TEST(TextTranscript, Text) {
  std::vector<Word> words = example;
  words.push_back({"José", "3500", "1", "A"});
  const std::string clock =
      "  SPEAKER ß\n[00:00:00] Hello and welcome\n[00:00:01] to the\n\n  ANNA\n[00:00:03] Thanks "
      "Bob\n"
      "\n  SPEAKER ß\n[00:00:04] José\n";
  Desk desk;
  for (Word& word : words) word.speaker = word.speaker == "A" ? "Speaker ß" : "Speaker 2";
  load(desk, speech(words));
  desk.controller.speakers_array->at(1).name = "Anna";
  save_to_text(desk.controller, 3, "out.txt");
  EXPECT_EQ(desk.platform.files["out.txt"], clock);
  EXPECT_EQ(desk.controller.text_to_save, clock);

  desk.controller.frame_rate = 25.0;
  desk.controller.first_frame = 90000;
  desk.controller.speakers_array->at(0).name = "";
  save_to_text(desk.controller, 3, "out.txt");
  EXPECT_EQ(desk.platform.files["out.txt"],
            "  \n[01:00:00:00] Hello and welcome\n[01:00:01:06] to the\n\n  ANNA\n"
            "[01:00:02:15] Thanks Bob\n\n  \n[01:00:03:13] José\n");
}

// The first heading is the first entry of the list, even where another speaker speaks first.
TEST(TextTranscript, FirstHeading) {
  Desk desk;
  load(desk,
       "<xmpDM:speaker>Z</xmpDM:speaker>" + speech({{"a", "0", "1", "A"}, {"z", "0", "1", "Z"}}));
  save_to_text(desk.controller, 100, "out.txt");
  EXPECT_EQ(desk.platform.files["out.txt"], "  Z\n[00:00:00] a\n[00:00:00] z\n");
}

TEST(TextTranscript, FailuresKeepWhatWasBuilt) {
  Desk desk;
  load(desk, speech({}) + "<xmpDM:speaker>A</xmpDM:speaker>");
  const auto failing = [&] { return error_of([&] { save_to_text(desk.controller, 100, "out"); }); };
  EXPECT_TRUE(is_error(failing(), ErrorKind::missing_value, "no words"));
  EXPECT_EQ(desk.controller.text_to_save, "  A\n");

  load(desk, speech(example));
  desk.controller.speakers_array->pop_back();
  EXPECT_TRUE(is_error(failing(), ErrorKind::missing_value, "\"B\""));
  EXPECT_EQ(desk.controller.text_to_save, "  A\n[00:00:00] Hello and welcome to the\n");
}

TEST(Exports, FailuresWriteNothing) {
  for (const auto save : {save_to_text, save_to_excel}) {
    Desk desk;
    desk.controller.mov_file_path = "a.mov";
    const auto failing = [&] { return error_of([&] { save(desk.controller, 100, "out"); }); };
    load(desk, speech(example));
    desk.controller.speakers_array->pop_back();
    EXPECT_TRUE(is_error(failing(), ErrorKind::missing_value, "\"B\""));
    load(desk, speech({}));
    EXPECT_TRUE(is_error(failing(), ErrorKind::missing_value, "no speakers"));

    load(desk, speech(example));
    for (const double rate : {static_cast<double>(INFINITY), static_cast<double>(NAN), 0.0}) {
      desk.controller.frame_rate = rate;
      EXPECT_TRUE(
          is_error(failing(), rate == 0.0 ? ErrorKind::zero_division : ErrorKind::range, ""));
    }
    desk.controller.frame_rate = 25.0;
    desk.controller.first_frame.reset();
    EXPECT_TRUE(is_error(failing(), ErrorKind::missing_value, "first_frame"));
    desk.controller.first_frame = 0;
    desk.controller.mov_file_path = "a\xFF.mov";
    if (save == save_to_excel) {
      EXPECT_TRUE(is_error(failing(), ErrorKind::range, "movie's path a\\xFF.mov cannot"));
    }
    desk.controller.mov_file_path = "a.mov";
    EXPECT_TRUE(desk.platform.files.empty());

    desk.platform.files_can_be_written = false;
    EXPECT_TRUE(is_error(failing(), ErrorKind::system, "write out"));
  }
}

// A hundred thousand speakers: a list walked for each word or phrase would take minutes.
TEST(TextTranscript, ManySpeakers) {
  std::vector<Word> words;
  for (int i = 0; i < 100000; ++i) words.push_back({"w", "0", "1", std::to_string(i)});
  Desk desk;
  load(desk, speech(words));
  save_to_text(desk.controller, 100, "out.txt");
  EXPECT_EQ(desk.controller.speakers_array->size(), 100000U);
  EXPECT_TRUE(desk.platform.files["out.txt"].ends_with("\n\n  99999\n[00:00:00] w\n"));
}

}  // namespace
}  // namespace murmurase::test
