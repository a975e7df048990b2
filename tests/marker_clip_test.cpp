#include "export/marker_clip.h"

#include <gtest/gtest.h>
#include <libxml/parser.h>
#include <libxml/xpath.h>

#include <array>

#include "model/speaker_list.h"
#include "readers/clip_reader.h"
#include "readers/movie_reader.h"
#include "support.h"
#include "xml/document.h"

namespace murmurase::test {
namespace {

const char* const sample =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE xmeml>\n<!-- kept -->\n"
    "<xmeml version=\"5\">\n\t<clip id=\"c\">\n\t\t<name>own</name>\n\t\t<rate><ntsc>TRUE</ntsc>"
    "<timebase> "
    "25</timebase></rate>\n\t\t<in>7</in>\n\t\t<updatebehavior>replace</updatebehavior>\n"
    "\t\t<marker><name>old</name></marker>\n\t\t<clip><name>inner</name></clip>\n\t</clip>\n</"
    "xmeml>\n";

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

std::string as_text(const XmlDocument& document) {
  xmlChar* bytes = nullptr;
  int size = 0;
  xmlDocDumpFormatMemory(document.get(), &bytes, &size, 1);
  std::string text(reinterpret_cast<char*>(bytes), static_cast<std::size_t>(size));
  xmlFree(bytes);
  return text;
}

const xmlChar* xml_text(const std::string& text) {
  return reinterpret_cast<const xmlChar*>(text.c_str());
}

void set(xmlDoc* document, const char* path, const std::string& text) {
  xmlXPathContext* context = xmlXPathNewContext(document);
  xmlXPathObject* found = xmlXPathEvalExpression(xml_text(path), context);
  xmlChar* escaped = xmlEncodeSpecialChars(document, xml_text(text));
  xmlNodeSetContent(found->nodesetval->nodeTab[0], escaped);
  xmlFree(escaped);
  xmlXPathFreeObject(found);
  xmlXPathFreeContext(context);
}

struct Expected {
  std::string name;
  std::string comment;
  std::array<int, 3> colour;
  std::int64_t in;
  std::int64_t out;
};

// What the export must write, made by parsing the template for every marker and searching it.
std::string by_templates(const std::string& clip, bool coloured,
                         const std::vector<Expected>& markers) {
  const std::string form =
      coloured ? "<marker> <name></name> <comment></comment> <color><alpha>0</alpha><red></red>"
                 "<green></green><blue></blue></color> <in></in> <out></out> </marker>"
               : "<marker> <name></name> <comment></comment> <in></in> <out></out> </marker>";
  Desk desk;
  desk.platform.files["clip.xml"] = clip;
  const XmlDocument document = parse_xml_file(desk.controller, "clip.xml").document;
  set(document.get(), "//clip/updatebehavior", "add");
  xmlNode* target = xml::child(xml::first_element(document), {nullptr, "clip"});
  for (const Expected& each : markers) {
    xmlDoc* marker = xmlReadMemory(form.data(), static_cast<int>(form.size()), nullptr, nullptr, 0);
    set(marker, "//name", each.name);
    set(marker, "//comment", each.comment);
    if (coloured) {
      set(marker, "//color/red", std::to_string(each.colour[0]));
      set(marker, "//color/green", std::to_string(each.colour[1]));
      set(marker, "//color/blue", std::to_string(each.colour[2]));
    }
    set(marker, "//in", std::to_string(each.in));
    set(marker, "//out", std::to_string(each.out));
    xmlAddChild(target, xmlDocCopyNode(xmlDocGetRootElement(marker), document.get(), 1));
    xmlFreeDoc(marker);
  }
  return as_text(document);
}

TEST(MarkerClip, WritesWhatTheTemplatesMean) {
  const std::vector<Word> words = {
      {"Good", "1200", "0", "Speaker 1"},
      {"Hi", "3700", "0", "Speaker 2"},
      {"&amp; <![CDATA[<]]>\n\"\xC3\xA9\"&#13;", "3710", "0", "Speaker 2"},
      {"", "3710", "0", "Speaker 3"}};
  const std::vector<Expected> markers = {{"Anna", "Good", {255, 0, 0}, 0, 29},
                                         {"", "Hi & <\n\"\xC3\xA9\"\r", {255, 127, 0}, 30, 91},
                                         {"Speaker 3", "", {255, 255, 0}, 92, 91}};
  const struct {
    std::string clip;
    bool coloured;
  } cases[] = {
      {sample, true},
      {sample_with("\"5\"", "\"12b\""), true},
      {sample_with("\"5\"", "\"4\""), false},
      {sample_with("\"5\"", "\"v5\""), false},
      {sample_with(" version=\"5\"", ""), false},
      {with_document_type("version=\"5\"", "version=\"&five;\""), true},
      {with_document_type(" version=\"5\"", ""), true},  // its default
      {sample_with("kept", "r & d"), true},              // repaired: its blanks stay
      {sample_with("own", "\xE9..\n\xE9..o"), true},
      {sample_with("UTF-8", "ISO-8859-1"), true},
  };
  for (const auto& each : cases) {
    ClipDesk desk(words, each.clip);
    desk.controller.speakers_array->at(0).name = "Anna";
    desk.controller.speakers_array->at(1).name = "";
    EXPECT_EQ(desk.run(), "");
    EXPECT_EQ(desk.written(), by_templates(each.clip, each.coloured, markers)) << each.clip;
    EXPECT_EQ(desk.controller.in, 92);
    EXPECT_FALSE(desk.controller.clip_xml_clone);
    EXPECT_EQ(desk.platform.marked, "KeyG out.xml");
  }
}

// The markers' in and out points.
std::string points(const std::string& clip) {
  std::string text;
  for (std::size_t at = clip.find("</comment>"); at != std::string::npos;
       at = clip.find("</comment>", at + 1)) {
    const std::size_t in = clip.find("<in>", at) + 4;
    const std::size_t out = clip.find("<out>", at) + 5;
    text += clip.substr(in, clip.find('<', in) - in) + "-" +
            clip.substr(out, clip.find('<', out) - out) + " ";
  }
  return text;
}

TEST(MarkerClip, FramesTruncate) {
  const struct {
    const char* timebase;
    std::vector<const char*> starts;
    const char* points;
  } cases[] = {
      {"25", {"1160"}, "0-27 "},
      {"30", {"1999"}, "0-58 "},
      {" 3<!-- -->0x", {"0", "1000", "1000"}, "0--1 0-29 30-29 "},
      {"25", {"2000", "-1010"}, "0-49 50--26 "},
      {"none", {"2000", "9000"}, "0--1 0--1 "},
  };
  for (const auto& each : cases) {
    std::vector<Word> words;
    for (const char* start : each.starts)
      words.push_back({"w", start, "0", {char('A' + words.size())}});
    ClipDesk desk(words, sample_with(" 25", each.timebase));
    EXPECT_EQ(desk.run(), "");
    EXPECT_EQ(points(desk.written()), each.points);
  }
}

TEST(MarkerClip, ColoursComeRoundAgain) {
  std::vector<Word> words;
  for (int i = 0; i < 18; ++i) words.push_back({"w", "0", "0", fmt::format("S{}", i)});
  ClipDesk desk(words);
  EXPECT_EQ(desk.run(), "");
  std::string colours;
  const std::string clip = desk.written();
  for (std::size_t at = clip.find("<red>"); at != std::string::npos;
       at = clip.find("<red>", at + 1)) {
    colours += clip.substr(at, clip.find("</color>", at) - at);
  }
  std::string expected;
  const char* const palette[] = {"255 0 0",    "255 127 0", "255 255 0", "48 191 72",
                                 "48 191 191", "0 128 255", "127 0 255", "255 0 127"};
  for (std::size_t i = 0; i < 18; ++i) {
    std::string numbers = palette[i % 8];
    numbers.replace(numbers.find(' '), 1, "</red><green>");
    numbers.replace(numbers.find(' '), 1, "</green><blue>");
    expected += "<red>" + numbers + "</blue>";
  }
  EXPECT_EQ(colours, expected);
}

TEST(MarkerClip, ExportsDoNotPileUp) {
  ClipDesk desk({{"a", "0", "0", "A"}, {"b", "1000", "0", "A"}});
  const std::string before = as_text(*desk.controller.clip_xml);
  EXPECT_EQ(desk.run(), "");
  const std::string first = desk.written();
  EXPECT_EQ(desk.run(), "");
  EXPECT_EQ(desk.written(), first);
  EXPECT_EQ(as_text(*desk.controller.clip_xml), before);
}

TEST(MarkerClip, NoWordsNoMarkers) {
  ClipDesk desk({});
  desk.controller.speakers_array = {{"A", std::nullopt}};
  EXPECT_EQ(desk.run(), "");
  EXPECT_EQ(desk.written(), by_templates(sample, true, {}));
  EXPECT_EQ(desk.controller.in, 0);
}

TEST(MarkerClip, GroupsByTheHostsValue) {
  ClipDesk desk({{"a", "0", "0", "A"}, {"b", "1000", "0", "A"}, {"c", "2000", "0", "A"}});
  desk.host.slider = 2;
  EXPECT_EQ(desk.run(), "");
  EXPECT_EQ(points(desk.written()), "0--1 0-49 ");
  desk.host.slider = 1.5;
  EXPECT_TRUE(is_error(desk.run(), ErrorKind::type, "wordGroupingSlider_value"));
}

TEST(MarkerClip, Opening) {
  const struct {
    std::optional<std::string> command;
    bool accepted;
    bool result;
  } cases[] = {{std::nullopt, true, false}, {"open it", true, true}, {"open it", false, false}};
  for (const auto& each : cases) {
    ClipDesk desk({{"a", "0", "0", "A"}});
    desk.process.open_command = each.command;
    desk.platform.opening_is_accepted = each.accepted;
    EXPECT_EQ(create_clip_with_markers(desk.controller), each.result);
    EXPECT_EQ(desk.platform.opened, each.command ? "open it out.xml" : "");
  }
}

// A failed export writes nothing and keeps the working copy with what was done so far; the next one
// goes on from there.
TEST(MarkerClip, FailuresKeepTheWorkingCopy) {
  const std::vector<Word> words = {{"one", "0", "0", "A"}, {"two", "1000", "0", "B"}};
  const auto no_change = [](ClipDesk&) {};
  const struct {
    std::string clip;
    void (*change)(ClipDesk&);
    ErrorKind kind;
    const char* part;
    bool updated;
    std::size_t markers;
  } cases[] = {
      {"<clip/>", no_change, ErrorKind::missing_value, "clip clip.xml has no xmeml", false, 0},
      {"<xmeml/>", no_change, ErrorKind::missing_value, "no clip element", false, 0},
      {"<xmeml xmlns='space'><clip/></xmeml>", no_change, ErrorKind::missing_value, "no xmeml",
       false, 0},
      {sample_with("<updatebehavior>replace</updatebehavior>", ""), no_change,
       ErrorKind::missing_value, "updatebehavior", false, 0},
      {sample_with("<timebase> 25</timebase>", ""), no_change, ErrorKind::missing_value,
       "rate/timebase", true, 0},
      {sample, [](ClipDesk& desk) { desk.controller.speakers_array->pop_back(); },
       ErrorKind::missing_value, "\"B\"", true, 1},
      {sample, [](ClipDesk& desk) { desk.controller.speakers_array->at(1).name = "a\x01"; },
       ErrorKind::xml, "the speaker's name of phrase 2, \"a\\x01\"", true, 1},
      {sample, [](ClipDesk& desk) { desk.controller.speakers_array->at(1).name = "a\xE9"; },
       ErrorKind::xml, "the speaker's name of phrase 2, \"a\\xE9\"", true, 1},
      {sample_with(" 25", "9223372036854775807"), no_change, ErrorKind::range, "start frame", true,
       1},
      {sample, [](ClipDesk& desk) { desk.process.temp_xml_file.reset(); }, ErrorKind::name,
       "TEMP_XML_FILE", true, 2},
      {sample, [](ClipDesk& desk) { desk.platform.files_can_be_written = false; },
       ErrorKind::system, "write out.xml", true, 2},
      {sample_with("kept", "not -- XML"), no_change, ErrorKind::xml,
       "the clip clip.xml cannot be written as XML: ", true, 2},
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
    EXPECT_EQ(clone.find("<updatebehavior>add</updatebehavior>") != std::string::npos,
              each.updated);
    std::size_t markers = 0;
    for (std::size_t at = 0; (at = clone.find("<marker> ", at)) != std::string::npos; ++at)
      ++markers;
    EXPECT_EQ(markers, each.markers) << each.part;
  }

  ClipDesk desk(words);
  desk.process.temp_xml_file.reset();
  EXPECT_NE(desk.run(), "");
  desk.process.temp_xml_file = "out.xml";
  EXPECT_EQ(desk.run(), "");
  EXPECT_EQ(points(desk.written()), "0--1 0-24 0--1 0-24 ");

  ClipDesk none(words);
  none.controller.clip_xml.reset();
  EXPECT_TRUE(is_error(none.run(), ErrorKind::missing_value, "clip_xml"));
}

// A lenient parse of a packet lets bytes through that are no UTF-8, and no others that XML cannot
// hold.
TEST(MarkerClip, WordsThatXmlCannotHold) {
  const struct {
    const char* word;
    const char* error;
  } cases[] = {{"caf\xE9 ", "the words of phrase 1, \"caf\\xE9 \","},
               {"a\x01"
                "b",
                ""},
               {"a&#1;b", ""},
               {"a\xEF\xBF\xBF"
                "b",
                ""}};
  for (const auto& each : cases) {
    ClipDesk desk({{each.word, "0", "0", "A"}});
    const std::string error = desk.run();
    if (*each.error != '\0') {
      EXPECT_TRUE(is_error(error, ErrorKind::xml, each.error)) << error;
    } else {
      EXPECT_EQ(error, "");
      EXPECT_NE(desk.written().find("<comment>ab</comment>"), std::string::npos) << desk.written();
    }
  }
}

// Cut at every byte, a clip gives one of the errors, or a file that a strict parser takes.
TEST(MarkerClip, ClipsCutAnywhere) {
  const std::string clip = sample;
  for (std::size_t length = 0; length < clip.size(); ++length) {
    std::string error;
    try {
      ClipDesk desk({{"w", "0", "0", "A"}}, clip.substr(0, length));
      error = desk.run();
      if (error.empty()) {
        const std::string written = desk.written();
        xmlDoc* document = xmlReadMemory(written.data(), static_cast<int>(written.size()), nullptr,
                                         nullptr, XML_PARSE_NONET);
        EXPECT_NE(document, nullptr) << length;
        xmlFreeDoc(document);
      }
    } catch (const Error& failure) {
      error = failure.what();
      EXPECT_EQ(failure.kind(), ErrorKind::xml) << length << error;
    }
    EXPECT_EQ(error.find('\n'), std::string::npos);
  }
}

}  // namespace
}  // namespace murmurase::test
