// The repair of a line against a slow and simple model of its rules.
#include "readers/line_repair.h"

#include <string>

#include "check.h"
#include "repair_model.h"

using namespace murmurase;
using namespace murmurase::fuzz;

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string line(text_of(data, size));
  std::string once = "before ";
  append_repaired_line(once, line);
  check(once == "before " + repaired(escaped(line)), "the repair follows its rules");
  std::string twice;
  append_repaired_line(twice, once);
  check(twice == once, "a repaired line stays as it is");
  return 0;
}
