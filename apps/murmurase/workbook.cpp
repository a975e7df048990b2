#include "workbook.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>

namespace host {
namespace {

constexpr std::size_t most_in_cell = 32767;  // UTF-16 units, as Excel 97-2003 counts characters

std::size_t units(const json& text) {
  std::size_t count = 0;
  for (const char c : text.get_ref<const std::string&>()) {
    const bool continues = (c & 0xC0) == 0x80;
    const bool begins_two_units = (c & 0xF8) == 0xF0;
    count += continues ? 0 : begins_two_units ? 2 : 1;
  }
  return count;
}

// The most words of a phrase of which a cell holds any, wherever phrases break: one less than the fewest
// neighbouring words of one speaker that it does not hold.
std::size_t words_that_fit(const json& words) {
  std::size_t fewest = std::numeric_limits<std::size_t>::max();
  std::size_t first = 0;
  std::size_t length = 0;  // of the words from the first on, each with a blank behind it
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (words[i]["speaker"] != words[first]["speaker"]) {
      first = i;
      length = 0;
    }
    length += units(words[i]["words"]) + 1;
    for (; length > most_in_cell + 1; ++first) {
      fewest = std::min(fewest, i - first + 1);
      length -= units(words[first]["words"]) + 1;
    }
    if (fewest == 1) return 0;
  }
  return fewest - 1;
}

}  // namespace

void write_workbook(Controller& controller, std::int64_t words, const std::string& path) {
  try {
    controller.call("save_to_excel", {words, path});
  } catch (const Failure& failure) {
    const json phrases = controller.get("words_array");
    const auto too_long = std::ranges::find_if(
        phrases, [](const json& phrase) { return units(phrase["words"]) > most_in_cell; });
    if (!std::string_view(failure.what()).starts_with("cell D") || too_long == phrases.end()) throw;
    controller.call("build_words_array", {1});
    const std::size_t most = words_that_fit(controller.get("words_array"));
    if (most == 0) throw;  // one word fills a cell
    const char* others = most == 1     ? ""
                         : most <= 100 ? " or less"
                                       : " or less, but not 100, which means no limit";
    throw Failure(
        fmt::format("phrase {} is longer than the {} characters that a cell of a workbook holds; "
                    "use --words {}{}",
                    too_long - phrases.begin() + 1, most_in_cell, most == 100 ? 99 : most, others));
  }
}

}  // namespace host
