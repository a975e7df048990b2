#pragma once

#include <string>
#include <string_view>

namespace murmurase {

// As Platform::replace_file and Platform::replace_own_file.
void replace_file(const std::string& path, std::string_view bytes);
void replace_own_file(const std::string& path, std::string_view bytes);

}  // namespace murmurase
