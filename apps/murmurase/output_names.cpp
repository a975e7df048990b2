#include "output_names.h"

#include <fmt/format.h>
#include <utf8proc.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <unordered_map>
#include <unordered_set>

namespace host {
namespace {

// The name decomposed and without capitals; of one that is not UTF-8, the capitals of ASCII alone.
std::string folded(std::string name) {
  constexpr auto options =
      static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_DECOMPOSE | UTF8PROC_CASEFOLD);
  utf8proc_uint8_t* result = nullptr;
  const utf8proc_ssize_t length =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(name.data()),
                   static_cast<utf8proc_ssize_t>(name.size()), &result, options);
  const std::unique_ptr<utf8proc_uint8_t, decltype(&std::free)> owner(result, std::free);
  if (length >= 0) return {reinterpret_cast<const char*>(result), static_cast<std::size_t>(length)};
  std::ranges::transform(name, name.begin(), [](char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  });
  return name;
}

}  // namespace

std::vector<std::string> output_names(const std::vector<std::string>& movies) {
  std::vector<std::string> names;
  names.reserve(movies.size());
  for (const std::string& movie : movies) names.push_back(std::filesystem::path(movie).stem());
  std::unordered_set<std::string> own;
  for (const std::string& name : names) own.insert(folded(name));
  std::unordered_set<std::string> taken;
  std::unordered_map<std::string, int> next_numbers;  // a number once passed over stays so
  for (std::string& name : names) {
    const std::string stem = name;
    std::string plain = folded(stem);
    if (taken.insert(plain).second) continue;
    int& number = next_numbers.try_emplace(plain, 2).first->second;
    do {
      name = fmt::format("{}-{}", stem, number++);
      plain = folded(name);
    } while (own.contains(plain) || !taken.insert(plain).second);
  }
  return names;
}

}  // namespace host
