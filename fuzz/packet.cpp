// A packet to phrases to a text. The last byte is the word grouping too.
#include "check.h"
#include "export/text_transcript.h"
#include "model/speaker_list.h"
#include "model/word_grouping.h"
#include "readers/movie_reader.h"
#include "support.h"

using namespace murmurase;
using namespace murmurase::fuzz;

namespace {

// All words with their speakers, whatever phrases they stand in.
std::string words_of(Controller& controller, std::int64_t grouping) {
  build_words_array(controller, grouping);
  std::string words;
  std::string_view speaker;
  for (const WordGroup& phrase : *controller.words_array) {
    words += words.empty() || phrase.speaker != speaker ? "\n" + phrase.speaker + ":" : "";
    words += " " + phrase.words;
    speaker = phrase.speaker;
  }
  return words;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  test::Desk desk;
  desk.platform.tool_output = text_of(data, size);
  const std::int64_t grouping = 1 + data[size - 1] % 100;
  const bool written = accepted([&] {
    parse_xmp_from_mov(desk.controller, "movie.mov");
    build_speakers_array(desk.controller);
    save_to_text(desk.controller, grouping, "movie.txt");
  });
  check(desk.platform.files.contains("movie.txt") == written, "a file if and only if no error");
  if (!written) return 0;
  const std::string& text = desk.platform.files["movie.txt"];
  check(text == desk.controller.text_to_save, "the file holds text_to_save");
  check(words_of(desk.controller, 1) == words_of(desk.controller, grouping), "no word is lost");
  return 0;
}
