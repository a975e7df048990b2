#pragma once

#include <sys/stat.h>

namespace murmurase {

// Gives the open file `file` the owner, group, permissions and access list of `old`, but no set-user-ID,
// and the other extended attributes as far as the system lets it. Returns whether the same people may
// now do the same with it.
bool keep_access(int old, const struct stat& status, int file);

}  // namespace murmurase
