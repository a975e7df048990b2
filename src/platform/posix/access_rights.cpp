#include "platform/posix/access_rights.h"

#include <unistd.h>
#ifdef __APPLE__
#include <copyfile.h>
#else
#include <sys/xattr.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>
#endif

namespace murmurase {
namespace {

#ifdef __APPLE__
bool keep_attributes(int old, int file) {
  return fcopyfile(old, file, nullptr, COPYFILE_ACL | COPYFILE_XATTR) == 0;
}
#else
bool keep_attributes(int old, int file) {
  constexpr std::size_t most_bytes =
      1 << 16;                         // of an attribute, and of all names; the kernel's limits
  std::array<char, most_bytes> names;  // NOLINT(*-member-init): filled below
  std::array<char, most_bytes> value;  // NOLINT(*-member-init)
  // A list that the folder gives to new files may let in whom the old file did not.
  if (fremovexattr(file, "system.posix_acl_access") != 0 && errno != ENODATA && errno != ENOTSUP) {
    return false;
  }
  const ssize_t length = flistxattr(old, names.data(), names.size());
  if (length < 0) return errno == ENOTSUP;
  const char* name = names.data();
  for (; name < names.data() + length; name += std::strlen(name) + 1) {
    const std::string_view attribute = name;
    // Signatures and privileges belong to the old bytes.
    if (attribute.starts_with("security.") && attribute != "security.selinux") continue;
    const ssize_t size = fgetxattr(old, name, value.data(), value.size());
    const bool kept =
        size >= 0 && fsetxattr(file, name, value.data(), static_cast<std::size_t>(size), 0) == 0;
    if (!kept && attribute.starts_with("system.")) return false;  // an access list
  }
  return true;
}
#endif

}  // namespace

bool keep_access(int old, const struct stat& status, int file) {
  struct stat fresh {};
  if (fstat(file, &fresh) != 0) return false;
  if ((fresh.st_uid != status.st_uid || fresh.st_gid != status.st_gid) &&
      fchown(file, status.st_uid, status.st_gid) != 0) {
    return false;
  }
  return keep_attributes(old, file) && fchmod(file, status.st_mode & 0777) == 0;
}

}  // namespace murmurase
