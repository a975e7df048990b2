#include "platform/posix/finder_info.h"

#include <sys/types.h>
#include <sys/xattr.h>

#include <array>

namespace murmurase {
namespace {

// The structures FileInfo and ExtendedFileInfo of the Finder, big-endian: type, creator, flags, ...
using FinderInfo = std::array<char, 32>;
constexpr std::size_t creator_offset = 4;
constexpr std::size_t creator_length = 4;
constexpr std::size_t flags_low_byte = 9;  // of the two from 8 on
constexpr char extension_hidden = 0x10;

#ifdef __APPLE__
constexpr const char* attribute = "com.apple.FinderInfo";
ssize_t read(const char* path, FinderInfo& info) {
  return getxattr(path, attribute, info.data(), info.size(), 0, 0);
}
int write(const char* path, const FinderInfo& info) {
  return setxattr(path, attribute, info.data(), info.size(), 0, 0);
}
#else
constexpr const char* attribute = "user.com.apple.FinderInfo";
ssize_t read(const char* path, FinderInfo& info) {
  return getxattr(path, attribute, info.data(), info.size());
}
int write(const char* path, const FinderInfo& info) {
  return setxattr(path, attribute, info.data(), info.size(), 0);
}
#endif

}  // namespace

void set_finder_info(const std::string& path, std::string_view creator) {
  FinderInfo info{};
  if (read(path.c_str(), info) != static_cast<ssize_t>(info.size())) info = {};
  creator.copy(&info[creator_offset], creator_length);
  info[flags_low_byte] = static_cast<char>(info[flags_low_byte] | extension_hidden);
  static_cast<void>(write(path.c_str(), info));  // not every file system keeps attributes
}

}  // namespace murmurase
