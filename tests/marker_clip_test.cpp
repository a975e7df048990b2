#include "export/marker_clip.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>

#include <regex>

#include "model/speaker_list.h"
#include "readers/clip_reader.h"
#include "readers/movie_reader.h"
#include "support.h"
#include "xml/document.h"
#include "xml/edit.h"

namespace murmurase::test {
namespace {

const char* const sample =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE xmeml>\n<!-- kept -->\n"
    "<xmeml version=\"5\">\n\t<clip id=\"c\">\n\t\t<name>own</name>\n"
    "\t\t<rate><ntsc>TRUE</ntsc><timebase> 25</timebase></rate>\n\t\t<in>7</in>\n"
    "\t\t<updatebehavior>replace</updatebehavior>\n\t\t<marker><name>old</name></marker>\n"
    "\t\t<clip><name>inner</name></clip>\n\t</clip>\n</xmeml>\n";

// The sample with one piece of it replaced.
std::string sample_with(const std::string& piece, const std::string& other) {
  std::string clip = sample;
  return clip.replace(clip.find(piece), piece.size(), other);
}

// The same, with a document type that declares an entity and a default.
std::string with_document_type(const std::string& piece, const std::string& other) {
  std::string clip = sample_with(piece, other);
  const std::string_view end = "xmeml>";
  return clip.replace(clip.find(end), end.size(),
                      "xmeml [<!ENTITY five \"5\"><!ATTLIST xmeml version CDATA \"6\">]>");
}

// A desk with a transcription and a clip loaded.
struct ClipDesk : Desk {
  explicit ClipDesk(const std::vector<Word>& words, const std::string& clip = sample) {
    platform.tool_output = packet(speech(words));
    parse_xmp_from_mov(controller, "a.mov");
    build_speakers_array(controller);
    load(clip);
    process.temp_xml_file = "out.xml";
  }
  void load(const std::string& clip) {
    platform.files["clip.xml"] = clip;
    controller.clip_xml = parse_xml_file(controller, "clip.xml").document;
  }
  std::string run() {
    return error_of([&] { create_clip_with_markers(controller); });
  }
  std::string written() { return platform.files["out.xml"]; }
};

std::string as_text(const XmlDocument& document) { return xml::serialize(document, "").bytes; }

// The clip as it must be written: read, updated, and with these markers behind all that it holds.
std::string with_markers(const std::string& clip, const std::vector<std::string>& markers,
                         bool indented) {
  Desk desk;
  desk.platform.files["clip.xml"] = clip;
  std::string text = xml::serialize(parse_xml_file(desk.controller, "clip.xml").document, "").bytes;
  text.replace(text.find(">replace<"), 9, ">add<");
  std::string added;
  for (const std::string& marker : markers) added += indented ? "  " + marker + "\n  " : marker;
  return text.insert(text.rfind("</clip>"), added);
}

TEST(MarkerClip, Markers) {
  const std::vector<Word> words = {
      {"Good", "1200", "0", "Speaker 1"},
      {"Hi", "3700", "0", "Speaker 2"},
      {"&amp; <![CDATA[<]]>\n\"\xC3\xA9\"&#13;", "3710", "0", "Speaker 2"},
      {"", "3710", "0", "Speaker 3"}};
  const std::vector<std::string> coloured = {
      "<marker> <name>Anna</name> <comment>Good</comment> <color><alpha>0</alpha><red>255</red>"
      "<green>0</green><blue>0</blue></color> <in>0</in> <out>29</out> </marker>",
      "<marker> <name/> <comment>Hi &amp; &lt;\n\"\xC3\xA9\"&#13;</comment> <color><alpha>0</alpha>"
      "<red>255</red><green>127</green><blue>0</blue></color> <in>30</in> <out>91</out> </marker>",
      "<marker> <name>Speaker 3</name> <comment/> <color><alpha>0</alpha><red>255</red>"
      "<green>255</green><blue>0</blue></color> <in>92</in> <out>91</out> </marker>"};
  std::vector<std::string> plain;
  for (const std::string& marker : coloured) {
    plain.push_back(std::regex_replace(marker, std::regex("<color>.*</color> "), ""));
  }
  // Whether the clip is repaired, too: then its blanks stay.
  const std::tuple<std::string, std::vector<std::string>, bool> cases[] = {
      {sample, coloured, false},
      {sample_with("\"5\"", "\"99999999999999999999b\""), coloured, false},
      {sample_with("\"5\"", "\"4\""), plain, false},
      {sample_with("\"5\"", "\"v5\""), plain, false},
      {sample_with(" version=\"5\"", ""), plain, false},
      {with_document_type("version=\"5\"", "version=\"&five;\""), coloured, false},
      {with_document_type(" version=\"5\"", ""), coloured, false},  // its default
      {sample_with("own", "r & d"), coloured, true},
      {sample_with("own", "\xE9..\n\xE9..o"), coloured, true},
  };
  for (const auto& [clip, markers, repaired] : cases) {
    ClipDesk desk(words, clip);
    desk.controller.speakers_array->at(0).name = "Anna";
    desk.controller.speakers_array->at(1).name = "";
    EXPECT_EQ(desk.run(), "");
    EXPECT_EQ(desk.written(), with_markers(clip, markers, !repaired));
    EXPECT_EQ(desk.controller.in, 92);
    EXPECT_FALSE(desk.controller.clip_xml_clone);
    EXPECT_EQ(desk.platform.marked, "KeyG out.xml");
  }
}

// What the groups of the pattern match, for each of its matches.
std::string all_of(const std::string& text, const char* pattern) {
  std::string found;
  const std::regex expression(pattern);
  for (std::sregex_iterator at(text.begin(), text.end(), expression), end; at != end; ++at) {
    for (std::size_t group = 1; group < at->size(); ++group) found += (*at)[group].str() + " ";
  }
  return found;
}

// The markers' in and out points.
std::string points(const std::string& clip) {
  return all_of(clip, "<in>(.*)</in> <out>(.*)</out>");
}

TEST(MarkerClip, FramesTruncate) {
  const std::tuple<const char*, std::vector<const char*>, const char*> cases[] = {
      {"25", {"1160"}, "0 27 "},
      {"30", {"1999"}, "0 58 "},
      {" 3<!-- -->0x", {"0", "1000", "1000"}, "0 -1 0 29 30 29 "},
      {"25", {"2000", "-1010"}, "0 49 50 -26 "},
      {"none", {"2000", "9000"}, "0 -1 0 -1 "},
      {"99999999999999999999", {"0"}, "0 -1 "},
  };
  for (const auto& [timebase, starts, expected] : cases) {
    std::vector<Word> words;
    for (const char* start : starts) words.push_back({"w", start, "0", {char('A' + words.size())}});
    ClipDesk desk(words, sample_with(" 25", timebase));
    EXPECT_EQ(desk.run(), "");
    EXPECT_EQ(points(desk.written()), expected);
  }
}

TEST(MarkerClip, ColoursComeRoundAgain) {
  std::vector<Word> words;
  for (int i = 0; i < 17; ++i) words.push_back({"w", "0", "0", fmt::format("S{}", i)});
  ClipDesk desk(words);
  EXPECT_EQ(desk.run(), "");
  const std::string palette =
      "255 0 0 255 127 0 255 255 0 48 191 72 48 191 191 0 128 255 127 0 255 255 0 127 ";
  EXPECT_EQ(all_of(desk.written(), "<red>(.*)</red><green>(.*)</green><blue>(.*)</blue>"),
            palette + palette + "255 0 0 ");
}

TEST(MarkerClip, ExportsDoNotPileUp) {
  ClipDesk silent({});
  silent.controller.speakers_array = {{"A", std::nullopt}};
  EXPECT_EQ(silent.run(), "");
  EXPECT_EQ(silent.written(), with_markers(sample, {}, true));
  ClipDesk desk({{"a", "0", "0", "A"}, {"b", "1000", "0", "A"}, {"c", "2000", "0", "A"}});
  desk.host.slider = 2;
  const std::string before = as_text(*desk.controller.clip_xml);
  for (int i = 0; i < 2; ++i) {
    EXPECT_EQ(desk.run(), "");
    EXPECT_EQ(points(desk.written()), "0 -1 0 49 ");
    EXPECT_EQ(as_text(*desk.controller.clip_xml), before);
  }
}

// A failed export writes nothing and keeps the working copy with what was done so far; the next one
// goes on from there.
TEST(MarkerClip, FailuresKeepTheWorkingCopy) {
  using Kind = ErrorKind;
  const std::vector<Word> words = {{"one", "0", "0", "A"}, {"two", "1000", "0", "B"}};
  const auto no_change = [](ClipDesk&) {};
  const struct {
    std::string clip;
    void (*change)(ClipDesk&);
    Kind kind;
    const char* part;
    int markers;  // -1: not even updated
  } cases[] = {
      {"<clip/>", no_change, Kind::missing_value, "clip clip.xml has no xmeml", -1},
      {"<xmeml xmlns='space'><clip/></xmeml>", no_change, Kind::missing_value, "no xmeml", -1},
      {sample_with("updatebehavior>replace</update", "b>replace</"), no_change, Kind::missing_value,
       "updatebehavior", -1},
      {sample_with("timebase> 25</time", "b> 25</"), no_change, Kind::missing_value,
       "rate/timebase", 0},
      {sample, [](ClipDesk& desk) { desk.controller.speakers_array->pop_back(); },
       Kind::missing_value, "\"B\"", 1},
      {sample, [](ClipDesk& desk) { desk.controller.speakers_array->at(1).name = "a\x01"; },
       Kind::xml, "the speaker's name of phrase 2, \"a\\x01\"", 1},
      {sample_with(" 25", "9223372036854775807"), no_change, Kind::range,
       "start frame of marker 2: 1 s at 9.22", 1},
      {sample, [](ClipDesk& desk) { desk.process.temp_xml_file.reset(); }, Kind::name,
       "TEMP_XML_FILE", 2},
      {sample, [](ClipDesk& desk) { desk.platform.files_can_be_written = false; }, Kind::system,
       "write out.xml", 2},
  };
  for (const auto& each : cases) {
    ClipDesk desk(words, each.clip);
    desk.platform.files["out.xml"] = "before";
    each.change(desk);
    const std::string error = desk.run();
    EXPECT_TRUE(is_error(error, each.kind, each.part)) << error;
    EXPECT_EQ(desk.written(), "before");
    EXPECT_EQ(desk.platform.marked, "");
    ASSERT_TRUE(desk.controller.clip_xml_clone);
    const std::string clone = as_text(*desk.controller.clip_xml_clone);
    EXPECT_EQ(clone.find(">add<") != std::string::npos, each.markers >= 0) << each.part;
    std::string markers;
    for (int i = 0; i < each.markers; ++i) markers += "<marker> ";
    EXPECT_EQ(all_of(clone, "(<marker>) "), markers) << each.part;
  }

  ClipDesk desk(words);
  desk.process.temp_xml_file.reset();
  EXPECT_NE(desk.run(), "");
  desk.process.temp_xml_file = "out.xml";
  EXPECT_EQ(desk.run(), "");
  EXPECT_EQ(points(desk.written()), "0 -1 0 24 0 -1 0 24 ");

  ClipDesk none(words);
  none.host.slider = 1.5;
  EXPECT_TRUE(is_error(none.run(), Kind::type, "wordGroupingSlider_value"));
  none.host.slider = 100;
  none.controller.clip_xml.reset();
  EXPECT_TRUE(is_error(none.run(), Kind::missing_value, "clip_xml"));
}

// A lenient parse of a packet lets bytes through that are no UTF-8, and no others that XML cannot
// hold.
TEST(MarkerClip, WordsThatXmlCannotHold) {
  for (const char* word : {"a\x01\x62", "a&#1;b", "a\xEF\xBF\xBF\x62"}) {
    ClipDesk desk({{word, "0", "0", "A"}});
    EXPECT_EQ(desk.run(), "");
    EXPECT_EQ(all_of(desk.written(), "<comment>(.*)</comment>"), "ab ");
  }
  ClipDesk desk({{"caf\xE9 ", "0", "0", "A"}});
  EXPECT_TRUE(is_error(desk.run(), ErrorKind::xml, "the words of phrase 1, \"caf\\xE9 \","));
}

// What no repair makes well-formed is written, and reported with the line of the written file.
TEST(MarkerClip, FaultsOfWrittenClips) {
  const std::string declaration = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>";
  const std::tuple<std::string, int, const char*> cases[] = {
      {sample_with("kept", "not -- kept"), 3, "Double hyphen within comment"},
      {sample_with("id=\"c\"", "id='c' id='d'"), 4, "Attribute id redefined"},
      {" " + std::string(sample), 2, "XML declaration allowed only at the start"},
      {sample_with("<!-- kept -->", declaration), 3, "XML declaration allowed only at the start"},
      {sample_with("own", "Take <two:"), 4, "Failed to parse QName 'two:'"},
      {sample_with("own", "<a:b/>"), 4, "Namespace prefix a on b is not defined"},
      {sample_with("own", "r & d"), 0, ""},
      {sample, 0, ""}};
  ClipDesk desk({{"w", "0", "0", "A"}});
  for (const auto& [clip, line, reason] : cases) {
    desk.load(clip);
    EXPECT_EQ(desk.run(), "");
    EXPECT_EQ(all_of(desk.written(), "<name>(A)</name> <comment>(w)</comment>"), "A w ");
    const XmlFault fault = desk.controller.clip_fault.value_or(XmlFault{});
    EXPECT_EQ(fault.line, line) << desk.written();
    EXPECT_TRUE(fault.reason.starts_with(reason)) << fault.reason;
  }
}

TEST(MarkerClip, SettingsOfTheHostChangeNothing) {
  const auto exported = [](const std::string& clip) {
    ClipDesk desk({{"w", "0", "0", "A"}}, clip);
    return desk.run() + desk.written();
  };
  for (const std::string& clip : {std::string(sample), sample_with("own", "r & d")}) {
    const std::string expected = exported(clip);
    const int keep = xmlKeepBlanksDefault(0);
    const int full_tags = std::exchange(xmlSaveNoEmptyTags, 1);
    EXPECT_EQ(exported(clip), expected);
    EXPECT_EQ(std::exchange(xmlSaveNoEmptyTags, full_tags), 1);
    xmlKeepBlanksDefault(keep);
  }
}

}  // namespace
}  // namespace murmurase::test
