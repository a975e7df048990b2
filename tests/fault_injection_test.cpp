// Fails each allocation of the module's road, one after the other, and each step of writing a file. The
// interposed functions see the calls of libxml2 and the C library too.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <libxml/xmlerror.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "core/error.h"
#include "murmurase/murmurase.h"
#include "platform/platform.h"
#include "support.h"

namespace {

long until_failure = 0;  // counts down to the allocation that fails; 0 when none is to
bool failed = false;
long alive = 0;  // blocks allocated and not freed

bool refused() {
  if (until_failure == 0 || --until_failure > 0) return false;
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
    const murmurase_host host = {nullptr, three_words, nullptr};
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
  void set(const char* field, murmurase_value* value) {
    step([&] { return murmurase_set(controller_, field, value); });
    murmurase_value_free(value);
  }
  murmurase_value* call(const char* operation, std::initializer_list<murmurase_value*> arguments) {
    murmurase_value* result =
        get(murmurase_call, controller_, operation, arguments.begin(), arguments.size());
    for (murmurase_value* argument : arguments) murmurase_value_free(argument);
    return result;
  }
  void save(const char* operation, const std::string& path) {
    call(operation, {get(murmurase_new_integer, 3), text(path)});
  }
  void read_clip(const std::string& path) {
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

  std::string path(const char* name) const { return folder_ / name; }

  fs::path folder_;
};

TEST_F(FaultInjection, EachStepOfAWrite) {
  const std::string out = path("out");
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

// After each failure nothing is lost, and an output is as it was or whole.
TEST_F(FaultInjection, EachAllocationOfTheRoad) {
  Init_murmurase_algorithm();
  murmurase_set_host_ui_active(false);
  const std::string tool = data + "/print_packet";
  const std::string movie = data + "/interview.xmp";
  const std::string broken = path("broken.xml");
  std::ofstream(broken) << content(clip).replace(content(clip).find("<name>"), 6, "<name>A & B ");
  const std::string outputs[] = {path("out.txt"), path("out.xls"), murmurase_temp_xml_file()};
  std::string message;
  message.reserve(1000);
  const auto travel = [&] {
    Road road;
    road.set("xmpcommand", road.text(tool));
    road.set("mov_file_path", road.text(movie));
    murmurase_value_free(road.call("parse_xmp_from_mov", {road.text(movie)}));
    murmurase_value_free(road.call("build_speakers_array", {}));
    road.save("save_to_text", outputs[0]);
    road.save("save_to_excel", outputs[1]);
    road.read_clip(broken);
    murmurase_value_free(road.call("create_clip_with_markers", {}));
    until_failure = 0;
    message = road.error != nullptr ? murmurase_error_message(road.error) : "";
    EXPECT_TRUE(road.error == nullptr ||
                murmurase_error_get_kind(road.error) == MURMURASE_ERROR_MEMORY ||
                murmurase_error_number(road.error) == ENOMEM)
        << message;
    murmurase_error_free(road.error);
    xmlResetLastError();
  };
  travel();
  ASSERT_EQ(message, "");
  std::vector<std::string> whole;
  for (const std::string& output : outputs) whole.push_back(content(output));
  failed = true;
  for (long number = 1; failed; ++number) {
    for (const std::string& output : outputs) std::ofstream(output, std::ios::binary) << "old";
    const long before = alive;
    failed = false;
    until_failure = number;
    travel();
    EXPECT_EQ(alive, before) << number << message;
    EXPECT_EQ(message.find('\n'), message.npos) << message;
    for (std::size_t i = 0; i < whole.size(); ++i) {
      const std::string found = content(outputs[i]);
      EXPECT_TRUE(found == whole[i] || (found == "old" && !message.empty())) << number << message;
    }
  }
}

}  // namespace
