// Runs a fuzz target once over each file named, and over each file of the folders named.
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>

#include "check.h"

namespace {

int replay(const std::filesystem::path& path) {
  if (std::filesystem::is_directory(path)) {
    int count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(path)) count += replay(entry);
    return count;
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path.string());
  const std::string bytes(std::istreambuf_iterator<char>(file), {});
  std::cout << path.string() << std::endl;  // at once: the next line may never come
  LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
  return 1;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    int count = 0;
    for (int i = 1; i < argc; ++i) count += replay(argv[i]);
    std::cout << count << " inputs\n";
    return count > 0 ? 0 : 1;
  } catch (const std::exception& error) {
    std::cerr << error.what() << '\n';
    return 1;
  }
}
