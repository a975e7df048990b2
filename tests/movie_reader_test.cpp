#include "readers/movie_reader.h"

#include <gtest/gtest.h>

#include <cmath>

#include "model/speaker_list.h"
#include "support.h"
#include "xml/document.h"

namespace murmurase::test {
namespace {

std::string scale(const std::string& text) {
  return "<xmpDM:duration rdf:parseType=\"Resource\">\n <xmpDM:value>1</xmpDM:value>\n"
         " <xmpDM:scale>" +
         text + "</xmpDM:scale>\n</xmpDM:duration>\n";
}

std::string start(const std::string& timecode) {
  return "<xmpDM:startTimecode rdf:parseType=\"Resource\"><xmpDM:timeValue>" + timecode +
         "</xmpDM:timeValue></xmpDM:startTimecode>\n";
}

std::optional<std::size_t> read(Desk& desk, const std::string& output, int status = 0) {
  desk.platform.tool_output = output;
  desk.platform.tool_status = status;
  const auto track_types = parse_xmp_from_mov(desk.controller, "a.mov");
  return track_types ? std::optional(track_types->size()) : std::nullopt;
}

TEST(MovieReader, FrameRates) {
  const std::pair<const char*, double> cases[] = {
      {"1/2997", 29.97},  {"1/2500", 25.0},       {"1/25", 25.0},
      {"1/30", 30.0},     {"2997", 0.0},          {"1001/30000", 29.97002997002997},
      {"1/2_400", 24.0},  {" 1 / 2400 /7", 24.0}, {"1//2400", 0.0},
      {"0/25", INFINITY}, {"1e0/2.5e3x", 25.0},   {"-x/.5e", INFINITY},
      {"1__0/25", 25.0},  {"inf/1,5", INFINITY},  {"&#49;/<![CDATA[25]]>00", 25.0}};
  for (const auto& [written, rate] : cases) {
    Desk desk;
    read(desk, packet(scale(written)));
    EXPECT_EQ(desk.controller.frame_rate, rate) << written;
  }
  Desk desk;
  read(desk, packet(scale("")));
  EXPECT_TRUE(std::isnan(*desk.controller.frame_rate));
}

TEST(MovieReader, StartTimecodes) {
  const std::tuple<const char*, const char*, double> cases[] = {{"01:00:00;00", "DF", 107892},
                                                                {"00:59:58;18", "DF", 107850},
                                                                {"10:00:00:00", "NDF", 1080000},
                                                                {"", "NDF", 0}};
  for (const auto& [timecode, format, frames] : cases) {
    Desk desk;
    read(desk, packet(scale("1/2997") + start(timecode)));
    EXPECT_EQ(desk.controller.displayformat, format) << timecode;
    EXPECT_EQ(desk.controller.first_frame, frames) << timecode;
  }
}

// The movie before leaves its rate, its format and its start, but never its transcription.
TEST(MovieReader, WhatAReadChanges) {
  Desk desk;
  Controller& state = desk.controller;
  const std::string words = speech({{"Hello", "0", "1", "A"}});
  EXPECT_EQ(read(desk, packet(scale("1/2500") + start("01:00:00:00") + words)), 1U);
  ASSERT_TRUE(state.transcription_xml);

  EXPECT_EQ(read(desk, packet(words), 256), std::nullopt);  // printed all, then exited with 1
  EXPECT_FALSE(state.transcription_xml);
  EXPECT_EQ(state.first_frame, 90000);

  EXPECT_EQ(read(desk, packet(start("00:00:01;00"))), 0U);  // no scale: the old rate
  EXPECT_EQ(state.frame_rate, 25.0);
  EXPECT_EQ(state.displayformat, "DF");
  EXPECT_EQ(state.first_frame, 25);

  EXPECT_EQ(read(desk, packet(words + track("Comment", "f1000", ""))), 2U);  // no start timecode
  EXPECT_EQ(state.displayformat, "NDF");
  EXPECT_EQ(state.first_frame, 0);
  EXPECT_TRUE(state.transcription_xml);
}

TEST(MovieReader, FailuresLeaveNoTranscription) {
  const std::string words = speech({{"Hello", "0", "1", "A"}});
  const auto failure = std::make_exception_ptr(system_error("read", "the output", EFBIG));
  const std::tuple<std::string, ErrorKind, const char*, double> cases[] = {
      {"", ErrorKind::xml, "a.mov", 25.0},
      {"no packet here", ErrorKind::xml, "a.mov", 25.0},
      {"<!-- -->", ErrorKind::xml, "a.mov", 25.0},
      {"too much", ErrorKind::system, "the output", 25.0},
      {packet(scale("0/1") + start("1:0")), ErrorKind::range, "rate is inf", INFINITY},
      {packet(scale("1/30") + start("9223372036854775808")), ErrorKind::range, "775808\"", 30.0}};
  for (const auto& [printed, kind, part, rate] : cases) {
    const std::string& output = printed;  // clang 14 keeps the other out of a lambda
    Desk desk;
    read(desk, packet(scale("1/2500") + start("1:0") + words));
    if (kind == ErrorKind::system) desk.platform.tool_failure = failure;
    const std::string error = error_of([&] { read(desk, output); });
    EXPECT_TRUE(is_error(error, kind, part)) << error;
    EXPECT_FALSE(desk.controller.transcription_xml) << error;
    EXPECT_EQ(desk.controller.frame_rate, rate) << error;
    EXPECT_EQ(desk.controller.first_frame, 25) << error;
  }
  Desk unrated;  // stops before the first frame and the transcription change
  read(unrated, packet(words));
  EXPECT_TRUE(is_error(error_of([&] { read(unrated, packet(start("1;0") + words)); }),
                       ErrorKind::missing_value, "frame_rate"));
  EXPECT_EQ(unrated.controller.displayformat, "DF");
  EXPECT_EQ(unrated.controller.first_frame, 0);
  EXPECT_TRUE(unrated.controller.transcription_xml);
}

TEST(MovieReader, TheLastSpeechTrackCounts) {
  Desk desk;
  read(desk, packet(track("Speech", "f1000", "") + track("Speech", "f2000", "") +
                    track("speech", "f3000", "") + track(" Speech", "f4000", "")));
  std::string scratch;
  const XmlElement& element = *desk.controller.transcription_xml;
  EXPECT_EQ(xml::text_content(element.node->children->next, scratch), "f2000");

  read(desk, packet("<xmpDM:Tracks><rdf:Bag><rdf:li xmpDM:trackType=\"Speech\"/></rdf:Bag>"
                    "</xmpDM:Tracks>"));  // an attribute is not found
  EXPECT_FALSE(desk.controller.transcription_xml);
}

std::string with_type(const std::string& type, std::string document) {
  return document.insert(document.find("<x:xmpmeta"), type);
}

std::string first_speaker(const std::string& document) {
  Desk desk;
  read(desk, document);
  build_speakers_array(desk.controller);
  return desk.controller.speakers_array->at(0).speaker;
}

// Blanks, references, entities and nested elements count to the letter inside a value.
TEST(MovieReader, TextsToTheLetter) {
  const std::pair<const char*, const char*> cases[] = {{" A\n\t", " A\n\t"},
                                                       {"<b>x</b> <i>y</i>", "x y"},
                                                       {"a&amp;b&#x416;", "a&bЖ"},
                                                       {"a<!-- no -->b<?pi no?>c", "abc"},
                                                       {"<![CDATA[ <x> ]]>&e;", " <x> inner "},
                                                       {"&e;", "inner "},
                                                       {"&undeclared;z", "z"}};
  const std::string type = "<!DOCTYPE x [<!ENTITY f 'in'><!ENTITY e '&f;<b>ner</b> '>]>";
  for (const auto& [written, expected] : cases) {
    const std::string document = packet("&e;" + speech({{"&e;", "0", "1", written}}));
    EXPECT_EQ(first_speaker(with_type(type, document)), expected);
  }
  const std::string elsewhere = packet(speech({{"", "0", "1", "&e;A"}}));
  EXPECT_EQ(first_speaker(with_type("<!DOCTYPE x SYSTEM 'elsewhere.dtd'>", elsewhere)), "A");
}

TEST(MovieReader, Encoding) {
  const std::string words = packet(speech({{"a", "0", "1", "\xE9t\xE9"}}));
  const std::size_t declaration = words.find("<x:xmpmeta");
  EXPECT_EQ(
      first_speaker("<?xml version='1.0' encoding='ISO-8859-1'?>" + words.substr(declaration)),
      "été");
}

TEST(MovieReader, HostileDocumentsEndInAnError) {
  const std::pair<std::string, const char*> cases[] = {
      {with_type(entity_bomb(), packet(speech({{"&e10;", "0", "1", "A"}}))),
       "expand without measure"},
      {packet(numbered("<d{}>", 1000)), "nested too deep"},
      {packet(numbered("<d/>", 4'000) + "<d " + numbered("a{}='' ", 60'000) + "/>"),
       "too many attributes or namespaces"},
      {packet("<d " + numbered("xmlns:a{}='u' ", 20'000) + ">" + numbered("<d/>", 60'000)),
       "too many attributes or namespaces"},
      {packet(speech({{std::string(11'000'000, 'x'), "0", "1", "A"}})), "longer than 10 MB"},
      {"<!DOCTYPE x [<!--" + std::string(1'100'000, 'x') + "-->]>" + packet(""), "1 MiB"},
      {"<!DOCTYPE x [<!ENTITY a '&b;'><!ENTITY b '&a;'>]>" + packet(speech({{"&a;", "", "", ""}})),
       "expand without measure"}};
  for (const auto& each : cases) {
    Desk desk;
    testing::internal::CaptureStderr();
    const std::string error = error_of([&] { read(desk, each.first); });
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_TRUE(is_error(error, ErrorKind::xml, each.second)) << each.second << error;
    EXPECT_FALSE(desk.controller.displayformat);
  }
}

}  // namespace
}  // namespace murmurase::test
