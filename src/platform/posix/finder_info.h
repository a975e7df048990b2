#pragma once

#include <string>
#include <string_view>

namespace murmurase {

// As Platform::set_finder_info: in the extended attribute com.apple.FinderInfo, or off macOS
// user.com.apple.FinderInfo, whose other bytes are kept.
void set_finder_info(const std::string& path, std::string_view creator);

}  // namespace murmurase
