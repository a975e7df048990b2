#include "platform/platform.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#ifdef __linux__
#include <sys/xattr.h>
#endif
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <fstream>

#include "support.h"

namespace murmurase::test {
namespace {

namespace fs = std::filesystem;

class PlatformTest : public testing::Test {
 protected:
  PlatformTest() {
    std::string name = testing::TempDir() + "murmurase-XXXXXX";
    folder_ = mkdtemp(name.data());
  }
  ~PlatformTest() override { fs::remove_all(folder_); }

  std::string path(const std::string& name) const { return folder_ / name; }
  std::string make(const std::string& name, const std::string& content, fs::perms mode) const {
    std::ofstream(path(name), std::ios::binary) << content;
    fs::permissions(path(name), mode);
    return path(name);
  }

  fs::path folder_;
  Platform& platform_ = system_platform();
};

TEST_F(PlatformTest, ApplicationSupport) {
  const std::string home = path("home");
  const struct {
    std::string data_home;
    std::string home;
    std::string directory;
  } cases[] = {{path("data"), "", path("data")},
               {"relative", home, "~/.local/share"},
               {"", "relative", ""},
               {"/dev/null/data", home, ""}};
  for (const auto& each : cases) {
    setenv("XDG_DATA_HOME", each.data_home.c_str(), 1);
    setenv("HOME", each.home.c_str(), 1);
    const std::vector<std::string> found = platform_.application_support_directories();
    EXPECT_EQ(found.empty() ? "" : found.front(), each.directory);
  }
  unsetenv("HOME");
  EXPECT_TRUE(platform_.application_support_directories().empty());
  EXPECT_TRUE(fs::is_directory(home + "/.local/share"));
  EXPECT_TRUE(fs::is_directory(path("data")));
}

TEST_F(PlatformTest, NoZeroByteInAPath) {
  const std::string zero("a\0b", 3);
  for (const std::string& error : {error_of([&] { platform_.read_file(zero); }),
                                   error_of([&] { platform_.replace_file(zero, ""); }),
                                   error_of([&] { platform_.run_xmp_tool("true", zero); })}) {
    EXPECT_TRUE(is_error(error, ErrorKind::argument, "zero byte")) << error;
  }
}

TEST_F(PlatformTest, ProgramsOfHostsThatWaitForAllTheirChildren) {
  const std::string program = make("program", "#!/bin/sh\necho noise\n", fs::perms::owner_all);
  const auto wait_for_all = [](int) {
    while (waitpid(-1, nullptr, WNOHANG) > 0) continue;
  };
  for (void (*handler)(int) : {SIG_DFL, SIG_IGN, +wait_for_all}) {
    const auto before = std::signal(SIGCHLD, handler);
    EXPECT_EQ(platform_.run_xmp_tool(program, "a").wait_status, 0);
    EXPECT_EQ(platform_.run_xmp_tool("false", "a").wait_status, 1 << 8);
    testing::internal::CaptureStdout();
    EXPECT_TRUE(platform_.open_with(program, "a"));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    for (const std::string& command : {path("none"), folder_.string(), std::string("false")}) {
      EXPECT_FALSE(platform_.open_with(command, "a")) << command;
    }
    std::signal(SIGCHLD, before);
  }
}

#ifdef __linux__
TEST_F(PlatformTest, FinderInformation) {
  const char* const attribute = "user.com.apple.FinderInfo";
  const std::string file = make("clip.xml", "x", fs::perms::owner_all);
  const auto info = [&] {
    std::string bytes(64, '\0');
    const ssize_t length = getxattr(file.c_str(), attribute, bytes.data(), bytes.size());
    return bytes.substr(0, static_cast<std::size_t>(std::max<ssize_t>(length, 0)));
  };
  platform_.set_finder_info(path("none"), "KeyG");  // no error
  platform_.set_finder_info(file, "KeyG");
  if (setxattr(file.c_str(), "user.probe", "x", 1, 0) != 0) {
    GTEST_SKIP() << "this file system keeps no attributes";
  }
  EXPECT_EQ(info(), std::string("\0\0\0\0KeyG\0\x10", 10) + std::string(22, '\0'));

  std::string before = "TEXTedit\x40\x03 the rest of 22 bytes";
  before.resize(32, '.');
  ASSERT_EQ(setxattr(file.c_str(), attribute, before.data(), before.size(), 0), 0);
  platform_.set_finder_info(file, "KeyG");
  EXPECT_EQ(info(), before.replace(4, 6, "KeyG\x40\x13"));
}
#endif

}  // namespace
}  // namespace murmurase::test
