#pragma once

#include <algorithm>
#include <numeric>
#include <string>
#include <string_view>
#include <vector>

namespace murmurase {

// The known word that a mistyped one was most likely meant to be: one that it begins, or one at most two
// letters away (changed, left out or added); empty if there is none.
inline std::string nearest(std::string_view mistyped, const std::vector<std::string>& known) {
  std::string best;
  std::size_t fewest = std::min<std::size_t>(3, mistyped.size());
  for (const std::string& word : known) {
    if (mistyped.size() >= 3 && word.starts_with(mistyped)) return word;
    // edits[j]: how many make the first j letters of the word of what was typed so far.
    std::vector<std::size_t> edits(word.size() + 1);
    std::iota(edits.begin(), edits.end(), std::size_t{0});
    for (const char letter : mistyped) {
      std::size_t diagonal = edits[0]++;
      for (std::size_t j = 0; j < word.size(); ++j) {
        const std::size_t changed = diagonal + (letter == word[j] ? 0 : 1);
        diagonal = edits[j + 1];
        edits[j + 1] = std::min({changed, edits[j] + 1, edits[j + 1] + 1});
      }
    }
    if (edits.back() >= fewest) continue;
    fewest = edits.back();
    best = word;
  }
  return best;
}

}  // namespace murmurase
