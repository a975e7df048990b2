#include "module.h"

#include <gtest/gtest.h>

#include "core/fields.h"
#include "support.h"

namespace murmurase::test {
namespace {

const Value text{std::string("DF")};
const Value number{std::int64_t{30}};
const Value real{1.5};

TEST(Operations, CountsAndKindsOfArguments) {
  FakePlatform platform;
  FakeHost host;
  Module module(platform);
  start_up(module);
  Controller controller(module.process, host);
  const struct {
    const char* name;
    std::vector<Value> arguments;
    const char* error;
  } cases[] = {
      {"to_frames", {text}, "1: wrong number of arguments (1 for 2)"},
      {"to_frames", {text, number, text, text}, "1: wrong number of arguments (4 for 3)"},
      {"build_speakers_array", {{}}, "1: wrong number of arguments (1 for 0)"},
      {"save_to_text", {number}, "1: wrong number of arguments (1 for 2)"},
      {"save_to_text", {number, real}, "3: argument 2 of save_to_text must be text, not a real"},
      {"to_timestamp", {text}, "3: argument 1 of to_timestamp must be a number, not text"},
      {"to_timestamp", {{}}, "3: argument 1 of to_timestamp must be a number, not null"},
      {"build_words_array",
       {real},
       "3: argument 1 of build_words_array must be a whole number, not 1.5"},
      {"to_time", {}, "2: there is no operation to_time"},
  };
  const auto call = [&](const char* name, const std::vector<Value>& arguments) {
    return module.operations.call(name, controller, arguments);
  };
  for (const auto& each : cases) {
    EXPECT_EQ(error_of([&] { call(each.name, each.arguments); }), each.error);
  }
  EXPECT_EQ(std::get<std::string>(call("to_timecode", {{1800.0}, {30.0}, text}).data),
            "00:01:00;02");
  const Value many_digits{std::int64_t{9007199254740993}};
  EXPECT_EQ(std::get<std::string>(call("to_timestamp", {many_digits}).data), "2501999792983:36:33");
  const std::vector<Value> frames = {many_digits, {25.0}, {std::string("NDF")}};
  EXPECT_EQ(std::get<std::string>(call("to_timecode", frames).data), "100079991719:20:39:18");
  EXPECT_EQ(std::get<std::int64_t>(call("to_frames", {text, number, {}}).data), 0);  // left out
}

TEST(StartUp, CountsOnce) {
  FakePlatform platform;
  FakeHost host;
  platform.support = {"/a", "/b"};
  Module module(platform);
  start_up(module);
  const char* const file = module.process.temp_xml_file->c_str();
  EXPECT_STREQ(file, "/a/Fernwork/Parlenda.xml");
  EXPECT_EQ(error_of([&] { start_up(module); }),
            "3: parse_xml_file is installed already; start-up runs once");

  Module unusable(platform);
  for (const bool again : {false, true}) {
    platform.folders_can_be_made = again;
    const std::string error = error_of([&] { start_up(unusable); });
    EXPECT_TRUE(is_error(error, ErrorKind::system, "cannot make the folder /a/Fernwork")) << error;
    EXPECT_EQ(error.find("start-up failed earlier") != std::string::npos, again) << error;
    EXPECT_TRUE(unusable.operations.empty() && !unusable.process.temp_xml_file);
  }
}

TEST(Fields, TakeOnlyTheirKind) {
  ControllerState state;
  const Record entry = {{"Name", {}}, {"Speaker", text}};
  const Record unnamed = {{"Speaker", text}};
  const Record unsaid = {{"Name", text}};
  const Record numbered = {{"Speaker", real}, {"Name", {}}};
  const struct {
    const char* field;
    Value value;
    const char* error;
  } cases[] = {
      {"frame_rate", number, ""},
      {"frame_rate", text, "3: frame_rate must be a number, not text"},
      {"in", {2.0}, ""},
      {"in", {2.5}, "3: in must be a whole number, not 2.5"},
      {"clip_xml", text, "3: clip_xml must be an XML document, not text"},
      {"transcription_xml", text, "3: transcription_xml must be an XML element, not text"},
      {"speakersTableView", {true}, "3: speakersTableView must be a host object, not a boolean"},
      {"speakers_array", {List{{entry}, {unnamed}}}, ""},
      {"speakers_array", {List{{unsaid}}}, "2: a record of speakers_array lacks \"Speaker\""},
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
  EXPECT_EQ(state.frame_rate, 30.0);
  EXPECT_EQ(state.in, 2);
  EXPECT_EQ(state.speakers_array->size(), 2U);
  set_field(state, "frame_rate", {});
  EXPECT_EQ(state.frame_rate, std::nullopt);
}

}  // namespace
}  // namespace murmurase::test
