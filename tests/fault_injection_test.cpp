// Fails each allocation of the module's road, one after the other, once and from there on for good, and
// each step of writing a file. The interposed functions see the calls of libxml2 and the C library too.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>

#include "core/error.h"
#include "murmurase/murmurase.h"
#include "platform/platform.h"
#include "support.h"

namespace {

long until_failure = 0;  // counts down to the allocation that fails; 0 when none is to
bool for_good = false;   // whether those after it fail too
bool failed = false;
long alive = 0;  // blocks allocated and not freed

bool refused() {
  if (until_failure == 0) return false;
  if (until_failure > 1) {
    --until_failure;
    return false;
  }
  if (!for_good) until_failure = 0;
  failed = true;
  errno = ENOMEM;
  return true;
}

void* counted(void* block) {
  alive += block != nullptr ? 1 : 0;
  return block;
}

std::string_view failing_step;  // of writing a file

// Does what the C library's function of that name does, unless it is to fail.
template <typename... Arguments>
int step_done(const char* name, Arguments... arguments) {
  const auto original = reinterpret_cast<int (*)(Arguments...)>(dlsym(RTLD_NEXT, name));
  const bool fails = failing_step == name;
  if (!fails || failing_step == "close") {  // a close that fails has closed all the same
    const int result = original(arguments...);
    if (!fails) return result;
  }
  errno = EIO;
  return -1;
}

}  // namespace

extern "C" {
void* __libc_malloc(size_t size);                // NOLINT
void* __libc_calloc(size_t count, size_t size);  // NOLINT
void* __libc_realloc(void* old, size_t size);    // NOLINT
void __libc_free(void* block);                   // NOLINT

void* malloc(size_t size) noexcept { return refused() ? nullptr : counted(__libc_malloc(size)); }
void* calloc(size_t count, size_t size) noexcept {
  return refused() ? nullptr : counted(__libc_calloc(count, size));
}
void* realloc(void* old, size_t size) noexcept {
  if (refused()) return nullptr;
  void* block = __libc_realloc(old, size);
  if (old == nullptr) counted(block);
  return block;
}
void free(void* block) noexcept {
  alive -= block != nullptr ? 1 : 0;
  __libc_free(block);
}

int fsync(int file) { return step_done("fsync", file); }
int close(int file) { return step_done("close", file); }
int fchmod(int file, mode_t mode) noexcept { return step_done("fchmod", file, mode); }
int rename(const char* from, const char* to) noexcept { return step_done("rename", from, to); }
}

namespace {

namespace fs = std::filesystem;
using murmurase::test::content;

const std::string data = MURMURASE_DATA;
const std::string clip = MURMURASE_ASSETS "/sample-clip.xml";

bool three_words(void*, double* words) {
  *words = 3;
  return true;
}

// Calls of the interface that stop at the first error; allocates nothing itself.
class Road {
 public:
  Road() {
    const murmurase_host host = {sizeof(murmurase_host), nullptr, three_words, nullptr};
    step([&] { return murmurase_controller_new(&host, &controller_); });
  }
  ~Road() { murmurase_controller_free(controller_); }
  Road(const Road&) = delete;
  Road& operator=(const Road&) = delete;

  template <typename Call>
  void step(const Call& call) {
    if (error == nullptr) error = call();
  }
  // What the function gives as its result.
  template <typename Function, typename... Arguments>
  murmurase_value* get(Function function, Arguments... arguments) {
    murmurase_value* value = nullptr;
    step([&] { return function(arguments..., &value); });
    return value;
  }
  murmurase_value* text(std::string_view bytes) {
    return get(murmurase_new_text, bytes.data(), bytes.size());
  }
  murmurase_value* integer(std::int64_t number) { return get(murmurase_new_integer, number); }
  void set(const char* field, murmurase_value* value) {
    step([&] { return murmurase_set(controller_, field, value); });
    murmurase_value_free(value);
  }
  murmurase_value* field(const char* name) { return get(murmurase_get, controller_, name); }
  murmurase_value* call(const char* operation, std::initializer_list<murmurase_value*> arguments) {
    murmurase_value* result =
        get(murmurase_call, controller_, operation, arguments.begin(), arguments.size());
    for (murmurase_value* argument : arguments) murmurase_value_free(argument);
    return result;
  }
  void run(const char* operation, std::initializer_list<murmurase_value*> arguments = {}) {
    murmurase_value_free(call(operation, arguments));
  }
  void read_clip(std::string_view path) {
    murmurase_value* file = call("parse_xml_file", {text(path)});
    const murmurase_value* document = nullptr;
    step([&] { return murmurase_list_get(file, 0, &document); });
    step([&] { return murmurase_set(controller_, "clip_xml", document); });
    murmurase_value_free(file);
  }

  murmurase_error* error = nullptr;

 private:
  murmurase_controller* controller_ = nullptr;
};

class FaultInjection : public testing::Test {
 protected:
  FaultInjection() {
    std::string name = "/dev/shm/murmurase-XXXXXX";  // where to flush a file costs nothing
    folder_ = mkdtemp(name.data());
    setenv("XDG_DATA_HOME", folder_.c_str(), 1);
  }
  ~FaultInjection() override { fs::remove_all(folder_); }

  // Runs the part of the road once for each of its allocations. Where it fails, `output` is as it was,
  // or whole. Run again it must succeed, and leave as many blocks as ever, those of the document that it
  // sets as `field` not counted: how many a dictionary of libxml2 needs is left to chance.
  void fail_each(const std::string& name, const std::function<void()>& part, Road& road,
                 const fs::path& output, const char* field) {
    const auto settle = [&] {
      part();
      if (field != nullptr) road.set(field, nullptr);
      xmlResetLastError();
      ASSERT_EQ(road.error, nullptr) << name << ": " << murmurase_error_message(road.error);
    };
    settle();
    const std::string expected = content(output);
    std::string message;
    message.reserve(1000);
    for (const bool all : {false, true}) {
      failed = true;
      for (long number = 1; failed; ++number) {
        const std::string where =
            name + (all ? ", from" : ", ") + " allocation " + std::to_string(number);
        std::ofstream(output, std::ios::binary) << "old";
        settle();
        std::ofstream(output, std::ios::binary) << "old";
        const long before = alive;
        failed = false;
        for_good = all;
        until_failure = number;
        part();
        until_failure = 0;
        message.clear();
        if (road.error != nullptr) {
          message = murmurase_error_message(road.error);
          EXPECT_TRUE(murmurase_error_get_kind(road.error) == MURMURASE_ERROR_MEMORY ||
                      murmurase_error_number(road.error) == ENOMEM)
              << where << ": " << message;
          murmurase_error_free(road.error);
          road.error = nullptr;
          EXPECT_TRUE(failed && !message.empty() && message.find('\n') == std::string::npos)
              << where << ": " << message;
        }
        EXPECT_TRUE(content(output) == expected || (content(output) == "old" && !message.empty()))
            << where << content(output);
        settle();
        EXPECT_EQ(alive, before) << where << " " << message;
        if (!failed) std::printf("%s: %ld allocations\n", name.c_str(), number - 1);
      }
    }
    part();
  }

  fs::path folder_;
};

TEST_F(FaultInjection, EachStepOfAWrite) {
  const fs::path out = folder_ / "out";
  for (const char* step : {"fsync", "close", "rename", "fchmod"}) {
    const bool in_place = step == std::string_view("fchmod");  // or others could read the new file
    std::ofstream(out) << "old";
    failing_step = step;
    const std::string error =
        murmurase::test::error_of([&] { murmurase::system_platform().replace_file(out, "new"); });
    failing_step = {};
    EXPECT_EQ(error.ends_with("out: Input/output error"), !in_place) << step << error;
    EXPECT_EQ(content(out), in_place ? "new" : "old") << step;
    EXPECT_EQ(std::distance(fs::directory_iterator(folder_), {}), 1) << step;
  }
}

// Start-up counts once in a process. After one that failed every call is an error, and so is another.
TEST_F(FaultInjection, EachAllocationOfStartUp) {
  int status = 0;
  for (long number = 1; WIFEXITED(status) && WEXITSTATUS(status) == 0; ++number) {
    const pid_t child = fork();
    if (child == 0) {
      until_failure = number;
      Init_murmurase_algorithm();
      until_failure = 0;
      Road road;
      road.read_clip(clip);
      if (murmurase_startup_error() != nullptr && road.error == nullptr) _exit(1);
      Init_murmurase_algorithm();
      _exit(murmurase_startup_error() == nullptr ? 1 : failed ? 0 : 2);
    }
    ASSERT_EQ(waitpid(child, &status, 0), child);
  }
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 2) << status;
}

TEST_F(FaultInjection, EachAllocationOfTheRoad) {
  Init_murmurase_algorithm();
  murmurase_set_host_ui_active(false);
  Road road;
  const std::string text = folder_ / "out.txt";
  const std::string sheet = folder_ / "out.xls";
  const std::string marked = murmurase_temp_xml_file();
  const std::string movie = folder_ / "interview.xmp";
  std::string packet = content(data + "/interview.xmp");
  for (int i = 0; i < 40; ++i) {  // more names than libxml2 makes room for at the start
    const std::string name = "xmpDM:" + std::string(40, 'a') + std::to_string(i);
    packet.insert(packet.find("<xmpDM:Tracks>"), "<" + name + "/>");
  }
  std::ofstream(movie) << packet;
  const std::string broken = folder_ / "broken.xml";
  std::ofstream(broken) << content(clip).replace(content(clip).find("<name>"), 6, "<name>A & B ");
  const std::string tool = data + "/print_packet";
  const auto read = [&] {
    road.set("xmpcommand", road.text(tool));
    road.set("mov_file_path", road.text(movie));
    road.run("parse_xmp_from_mov", {road.text(movie)});
    road.run("build_speakers_array");
    road.set("speakers_array", road.field("speakers_array"));
    road.run("save_to_text", {road.integer(3), road.text(text)});
  };
  fail_each("read", read, road, text, "transcription_xml");
  const auto write = [&] { road.run("save_to_excel", {road.integer(3), road.text(sheet)}); };
  fail_each("excel", write, road, sheet, nullptr);
  for (const std::string& file : {clip, broken}) {
    const auto mark = [&] {
      road.read_clip(file);
      road.run("create_clip_with_markers");
    };
    fail_each("markers", mark, road, marked, "clip_xml");
  }
}

}  // namespace
