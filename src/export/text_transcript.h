#pragma once

#include <cstdint>
#include <string>

#include "core/controller.h"

namespace murmurase {

// Groups the words (see build_words_array) and writes them to the file at `path` as text: a line
// "[label] words" for each phrase, under the speaker's display name in capitals wherever the speaker
// changes, with an empty line before every such heading but the first. UTF-8, line feeds.
//
// Builds the text in text_to_save and opens the file last: after an error text_to_save holds the part
// built so far, and a file at `path` is as it was. Errors: those of build_words_array; missing value
// for a transcription without words and for a phrase whose speaker is not listed; those of time_label;
// system for a path that cannot be written.
void save_to_text(Controller& controller, std::int64_t grouping, const std::string& path);

}  // namespace murmurase
