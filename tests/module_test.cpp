#include "module.h"

#include <gtest/gtest.h>

#include "core/fields.h"
#include "support.h"

namespace murmurase::test {
namespace {

std::string names(const Module& module) {
  std::string text;
  for (const Operation& each : module.operations.operations()) text.append(each.name).append(" ");
  return text;
}

const char* const all_operations =
    "to_timecode to_timestamp to_frames parse_xml_file parse_xmp_from_mov build_speakers_array "
    "build_words_array save_to_text save_to_excel create_clip_with_markers ";

TEST(StartUp, WorkingFolder) {
  const struct {
    std::vector<std::string> application_support;
    std::map<std::string, bool> directories;
    std::optional<std::string> temp_xml_file;
    std::size_t folders_after;
  } cases[] = {
      {{"/a", "/b"}, {{"/a", true}}, "/a/Fernwork/Parlenda.xml", 2},
      {{"/a"}, {{"/a", false}, {"/a/Fernwork", false}}, "/a/Fernwork/Parlenda.xml", 2},
      {{"~/a"}, {{"/home/ed/a", true}}, "/home/ed/a/Fernwork/Parlenda.xml", 2},
      {{}, {}, std::nullopt, 0},
  };
  for (const auto& each : cases) {
    FakePlatform platform;
    platform.application_support = each.application_support;
    platform.directories = each.directories;
    Module module(platform);
    start_up(module);
    EXPECT_EQ(module.process.temp_xml_file, each.temp_xml_file);
    EXPECT_EQ(platform.directories.size(), each.folders_after);
    EXPECT_TRUE(platform.files.empty());
    EXPECT_EQ(names(module), all_operations);
  }
}

TEST(StartUp, FailsWithoutItsFolder) {
  FakePlatform platform;
  platform.application_support = {"/a"};
  Module module(platform);
  EXPECT_TRUE(is_error(error_of([&] { start_up(module); }), ErrorKind::system, "/a/Fernwork"));
  EXPECT_FALSE(module.process.temp_xml_file);
  EXPECT_EQ(names(module), "");
  FakeHost host;
  Controller controller(module.process, host);
  EXPECT_TRUE(is_error(error_of([&] { module.operations.call("to_timestamp", controller, {}); }),
                       ErrorKind::name, "start-up"));
}

TEST(StartUp, RunsOnce) {
  FakePlatform platform;
  Module module(platform);
  start_up(module);
  platform.application_support = {"/a"};
  platform.directories["/a"] = true;
  EXPECT_TRUE(is_error(error_of([&] { start_up(module); }), ErrorKind::type, "parse_xml_file"));
  EXPECT_EQ(module.process.temp_xml_file, "/a/Fernwork/Parlenda.xml");
  EXPECT_EQ(names(module), all_operations);
}

TEST(Operations, CountsAndKindsOfArguments) {
  FakePlatform platform;
  FakeHost host;
  Module module(platform);
  start_up(module);
  Controller controller(module.process, host);
  const Value text{std::string("DF")};
  const Value number{std::int64_t{30}};
  const Value real{1.5};
  const Value null;
  const struct {
    const char* name;
    std::vector<Value> arguments;
    ErrorKind kind;
    const char* message;
  } cases[] = {
      {"to_timecode", {}, ErrorKind::argument, "wrong number of arguments (0 for 3)"},
      {"to_timecode",
       {text, text, text, text},
       ErrorKind::argument,
       "wrong number of arguments (4 for 3)"},
      {"to_timestamp",
       {number, number},
       ErrorKind::argument,
       "wrong number of arguments (2 for 1)"},
      {"to_frames", {text}, ErrorKind::argument, "wrong number of arguments (1 for 2)"},
      {"to_frames",
       {text, number, text, text},
       ErrorKind::argument,
       "wrong number of arguments (4 for 3)"},
      {"parse_xmp_from_mov", {}, ErrorKind::argument, "wrong number of arguments (0 for 1)"},
      {"build_speakers_array", {null}, ErrorKind::argument, "wrong number of arguments (1 for 0)"},
      {"build_words_array", {}, ErrorKind::argument, "wrong number of arguments (0 for 1)"},
      {"save_to_text", {number}, ErrorKind::argument, "wrong number of arguments (1 for 2)"},
      {"to_timecode",
       {text, number, text},
       ErrorKind::type,
       "argument 1 of to_timecode must be a number, not text"},
      {"to_timecode",
       {number, real, text},
       ErrorKind::type,
       "argument 2 of to_timecode must be a whole number, not 1.5"},
      {"to_timestamp", {null}, ErrorKind::type, "not null"},
      {"save_to_text",
       {number, number},
       ErrorKind::type,
       "argument 2 of save_to_text must be text"},
      {"to_time", {}, ErrorKind::name, "no operation to_time"},
  };
  for (const auto& each : cases) {
    const std::string error =
        error_of([&] { module.operations.call(each.name, controller, each.arguments); });
    EXPECT_TRUE(is_error(error, each.kind, each.message)) << error;
  }
  const std::vector<Value> label = {Value{1800.0}, Value{30.0}, text};
  EXPECT_EQ(std::get<std::string>(module.operations.call("to_timecode", controller, label).data),
            "00:01:00;02");
  const std::vector<Value> frames = {Value{std::string("1:0")}, number, null};  // null: left out
  EXPECT_EQ(std::get<std::int64_t>(module.operations.call("to_frames", controller, frames).data),
            30);
}

TEST(Fields, TakeOnlyTheirKind) {
  ControllerState state;
  const Value text{std::string("x")};
  const Record entry = {{"Name", {}}, {"Speaker", text}};
  const Record nameless = {{"Speaker", text}};
  const Record numbered = {{"Speaker", {1.0}}, {"Name", {}}};
  const struct {
    const char* field;
    Value value;
    const char* error;
  } cases[] = {
      {"frame_rate", {std::int64_t{25}}, ""},
      {"frame_rate", text, "3: frame_rate must be a number, not text"},
      {"in", {2.0}, ""},
      {"in", {2.5}, "3: in must be a whole number, not 2.5"},
      {"xmpcommand", {1.0}, "3: xmpcommand must be text, not a real"},
      {"clip_xml", text, "3: clip_xml must be an XML document, not text"},
      {"transcription_xml", text, "3: transcription_xml must be an XML element, not text"},
      {"speakersTableView", {true}, "3: speakersTableView must be a host object, not a boolean"},
      {"speakers_array", {List{{entry}}}, ""},
      {"speakers_array",
       {List{{entry}, {nameless}}},
       "2: a record of speakers_array lacks \"Name\""},
      {"speakers_array",
       {List{{numbered}}},
       "3: \"Speaker\" of speakers_array must be text, not a real"},
      {"speakers_array", {List{text}}, "3: speakers_array must be a record, not text"},
      {"words_array", {entry}, "3: words_array must be a list, not a record"},
      {"no_field", text, "2: the controller has no field no_field"},
  };
  for (const auto& each : cases) {
    EXPECT_EQ(error_of([&] { set_field(state, each.field, each.value); }), each.error);
  }
  EXPECT_EQ(state.frame_rate, 25.0);
  EXPECT_EQ(state.in, 2);
  EXPECT_EQ(state.speakers_array->size(), 1U);
  set_field(state, "frame_rate", {});
  EXPECT_EQ(state.frame_rate, std::nullopt);
}

}  // namespace
}  // namespace murmurase::test
