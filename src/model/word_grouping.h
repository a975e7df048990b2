#pragma once

#include <cstdint>

#include "core/controller.h"

namespace murmurase {

// Replaces words_array by the phrases of the transcription: every xmpDM:name of the document is a word,
// in document order, and consecutive words of one speaker make phrases of `grouping` words, counted
// from the start of the speaker's run, the last one shorter. A grouping of 100 means no limit.
//
// First asks the host to redisplay its speakers table, unless host_ui_active is false, and copies
// clip_xml to clip_xml_clone where only the first is set.
//
// Errors, words_array then holding the phrases made so far: missing value without an entry in
// speakers_array, without transcription_xml or its frameRate, or for a word's marker without
// startTime, duration or speaker; range, at the first word, for a time base that is not a whole multiple
// of 1000 units per second, whose times would not be seconds; zero division for a grouping of 0 at the
// first word that continues a run; and the host's own failures.
void build_words_array(Controller& controller, std::int64_t grouping);

}  // namespace murmurase
