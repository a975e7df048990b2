#include "platform/platform.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#ifdef __linux__
#include <sys/xattr.h>
#endif
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

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
  std::string tool(const std::string& script) const {
    return make("tool $(x) \"`\\", "#!/bin/sh\n" + script + "\n", fs::perms::owner_all);
  }
  static std::string content(const std::string& file) {
    std::ostringstream text;
    text << std::ifstream(file, std::ios::binary).rdbuf();
    return text.str();
  }
  std::size_t files() const {
    return static_cast<std::size_t>(std::distance(fs::directory_iterator(folder_), {}));
  }

  fs::path folder_;
  Platform& platform_ = system_platform();
};

TEST_F(PlatformTest, PathsArriveAsOneArgument) {
  const std::string printer = tool("printf '<%s>' \"$@\"");
  for (const std::string& movie : std::initializer_list<std::string>{
           "/Movies/Take 1.mov", "-x", "", "a\"b$HOME`id`\\\\$(id)!*?'c;d|e&f>g\n\n\th#~",
           "\xFF\xC3", "trailing\\"}) {
    const ToolRun run = platform_.run_xmp_tool(printer, movie);
    EXPECT_EQ(run.output.view(), "<get><" + movie + ">");
    EXPECT_EQ(run.wait_status, 0);
  }
  EXPECT_TRUE(is_error(error_of([&] { platform_.run_xmp_tool(printer, std::string("a\0b", 3)); }),
                       ErrorKind::argument, "zero byte"));
}

TEST_F(PlatformTest, WaitStatus) {
  const auto status = [&](const char* script) {
    return platform_.run_xmp_tool(tool(script), "m").wait_status;
  };
  EXPECT_EQ(WEXITSTATUS(status("echo '<x/>'; exit 3")), 3);
  EXPECT_NE(status("echo '<x/>'; kill -9 $$"), 0);
  EXPECT_NE(status("echo '<x/>'; kill -PIPE $$"), 0);
  EXPECT_NE(platform_.run_xmp_tool(path("missing"), "m").wait_status, 0);
  EXPECT_NE(platform_.run_xmp_tool("", "m").wait_status, 0);
  EXPECT_NE(platform_.run_xmp_tool(make("plain", "x", fs::perms::owner_read), "m").wait_status, 0);
}

TEST_F(PlatformTest, LargeOutputAndClosedStandardStreams) {
  const ToolRun run = platform_.run_xmp_tool(tool("head -c 300000000 /dev/zero"), "m");
  EXPECT_EQ(run.output.view().size(), 300000000U);

  const int saved = dup(STDOUT_FILENO);
  close(STDOUT_FILENO);  // the pipe must not take its number
  const ToolRun closed = platform_.run_xmp_tool(tool("echo still read"), "m");
  dup2(saved, STDOUT_FILENO);
  close(saved);
  EXPECT_EQ(closed.output.view(), "still read\n");
}

TEST_F(PlatformTest, ReplacesFiles) {
  const std::string plain = path("plain");
  const mode_t mask = umask(027);
  platform_.replace_file(plain, "first");
  umask(mask);
  EXPECT_EQ(content(plain), "first");
  EXPECT_EQ(fs::status(plain).permissions(), fs::perms(0640));
  fs::permissions(plain, fs::perms(0604));
  platform_.replace_file(plain, "");
  EXPECT_EQ(content(plain), "");
  EXPECT_EQ(fs::status(plain).permissions(), fs::perms(0604));

  fs::create_directory(path("sub"));
  fs::create_symlink("sub/target", path("link"));  // leads to nothing yet, and stays a link
  platform_.replace_file(path("link"), "linked");
  EXPECT_TRUE(fs::is_symlink(path("link")));
  EXPECT_EQ(content(path("sub/target")), "linked");

  ASSERT_EQ(mkfifo(path("fifo").c_str(), 0600), 0);
  std::string read;
  std::thread reader([&] { read = content(path("fifo")); });
  platform_.replace_file(path("fifo"), "piped");
  reader.join();
  EXPECT_EQ(read, "piped");

  const int log = open(make("log", "before ", fs::perms::owner_all).c_str(), O_WRONLY | O_APPEND);
  platform_.replace_file(fmt::format("/dev/fd/{}", log), "after");
  close(log);
  EXPECT_EQ(content(path("log")), "before after");
  EXPECT_EQ(files(), 5U);  // and no temporary file
}

TEST_F(PlatformTest, AFailedWriteKeepsTheOldFile) {
  const std::string old = make("old", "old", fs::perms(0644));
  fs::create_symlink("loop", path("loop"));
  const struct {
    std::string path;
    int number;
  } cases[] = {{path("none/file"), ENOENT}, {folder_, EISDIR}, {path("loop"), ELOOP},
               {"/dev/full", ENOSPC},       {"", ENOENT},      {old + "/file", ENOTDIR}};
  for (const auto& each : cases) {
    try {
      platform_.replace_file(each.path, "new");
      FAIL() << each.path;
    } catch (const Error& error) {
      EXPECT_EQ(error.number(), each.number) << each.path;
      EXPECT_EQ(error.kind(), ErrorKind::system);
    }
  }
  // A disk that is full at any byte of the file.
  const std::string bytes(5000, 'x');
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  for (rlim_t offset = 0; offset < bytes.size(); ++offset) {
    const rlimit small{offset, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    const std::string error = error_of([&] { platform_.replace_file(old, bytes); });
    const std::string of_new = error_of([&] { platform_.replace_file(path("new"), bytes); });
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_TRUE(is_error(error, ErrorKind::system, "old: File too large")) << error;
    EXPECT_TRUE(is_error(of_new, ErrorKind::system, "new: File too large")) << of_new;
  }
  EXPECT_EQ(content(old), "old");
  EXPECT_EQ(files(), 2U);
}

TEST_F(PlatformTest, ApplicationSupport) {
  const auto set = [](const char* name, const std::string& value) {
    value.empty() ? unsetenv(name) : setenv(name, value.c_str(), 1);
  };
  const std::string plain = make("plain", "", fs::perms(0600));
  const struct {
    std::string data_home;
    std::string home;
    std::string directory;
  } cases[] = {{path("data"), "", path("data")},
               {"relative", path("home"), "~/.local/share"},
               {"", path("home"), "~/.local/share"},
               {"", "", ""},
               {"", "relative", ""},
               {"", plain, ""}};
  for (const auto& each : cases) {
    set("XDG_DATA_HOME", each.data_home);
    set("HOME", each.home);
    const std::vector<std::string> found = platform_.application_support_directories();
    EXPECT_EQ(found.empty() ? "" : found.front(), each.directory);
    // The default is made when it is missing; what the user names is taken as it is.
    EXPECT_EQ(!found.empty() && platform_.is_directory(platform_.expand_tilde(found.front())),
              each.directory.starts_with('~'));
  }
  EXPECT_FALSE(platform_.is_directory(plain));
  EXPECT_THROW(platform_.create_directory(path("a/b")), Error);
}

TEST_F(PlatformTest, ReadsFiles) {
  const std::string large(300000, 'x');
  for (const std::string& bytes : {std::string(), std::string("a\0b\n", 4), large}) {
    EXPECT_EQ(platform_.read_file(make("file", bytes, fs::perms::owner_all)).view(), bytes);
  }
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  ASSERT_EQ(write(ends[1], "piped", 5), 5);
  close(ends[1]);
  EXPECT_EQ(platform_.read_file(fmt::format("/dev/fd/{}", ends[0])).view(), "piped");
  close(ends[0]);

  const auto failure = [&](const std::string& file) {
    return error_of([&] { platform_.read_file(file); });
  };
  EXPECT_TRUE(is_error(failure(folder_), ErrorKind::system, folder_.string() + ": Is a directory"));
  EXPECT_TRUE(is_error(failure(path("none")), ErrorKind::system, "none: No such file"));
  EXPECT_TRUE(is_error(failure(std::string("a\0b", 3)), ErrorKind::argument, "zero byte"));
}

TEST_F(PlatformTest, OpeningIsAcceptedByAProgramThatEndsWell) {
  const std::string file = path("a \"$HOME\" `id`; \n.xml");
  const std::string opener =
      tool("test $# = 1 && printf '%s' \"$1\" >\"" + path("opened") + "\"; echo noise; exit $?");
  testing::internal::CaptureStdout();
  EXPECT_TRUE(platform_.open_with(opener, file));
  EXPECT_TRUE(platform_.open_with("true", file));  // found in $PATH
  EXPECT_FALSE(platform_.open_with("false", file));
  EXPECT_FALSE(platform_.open_with(path("none"), file));
  EXPECT_FALSE(platform_.open_with("", file));
  EXPECT_FALSE(platform_.open_with(folder_, file));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(content(path("opened")), file);
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
