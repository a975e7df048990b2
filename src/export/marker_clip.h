#pragma once

#include <string_view>

#include "core/controller.h"

namespace murmurase {

// A marker without its texts, for clips from version 5 on and for those before. The blanks belong to it.
inline constexpr std::string_view coloured_marker =
    "<marker> <name></name> <comment></comment> <color><alpha>0</alpha><red></red><green></green>"
    "<blue></blue></color> <in></in> <out></out> </marker>";
inline constexpr std::string_view plain_marker =
    "<marker> <name></name> <comment></comment> <in></in> <out></out> </marker>";

// Groups the words by the host's wordGroupingSlider_value (see build_words_array) and adds them to
// the clip as markers, in a copy of clip_xml: the first `clip` element gets, at its end, one
// `marker` per phrase, with the speaker's display name as its name and the words as its comment,
// and, when the `version` of the first `xmeml` element is 5 or more, with the speaker's colour out
// of eight. The clip's updatebehavior becomes "add". The clip is written to the file that the
// host chose, else to TEMP_XML_FILE, marked as a clip of Final Cut Pro and opened there; gives whether the opening was accepted.
//
// A phrase's start frame is its time_in times the clip's rate/timebase, toward zero. Its marker
// ends one frame before that, and starts where the phrase before it starts, the first marker at 0.
// The field `in` holds the last start frame.
//
// A clip that its repair left without a well-formed form is written all the same; clip_fault then
// says what is wrong with it, and is absent after every other clip.
//
// clip_xml_clone, the working copy, is absent after the clip was written. After an error it keeps
// what was changed so far, and the next export goes on from there; the file is as it was. Errors: those of build_words_array; type for a grouping value that is not whole; missing
// value without clip_xml, for a clip without xmeml, clip, updatebehavior or rate/timebase, and for
// a phrase whose speaker is not listed; xml for a name or words that XML cannot hold, and for a
// clip in an encoding that hides its markup; range for a start frame that 64 bits cannot count (the error
// names the marker), and for more than a million phrases; name without any file to write; system when it
// cannot be written.
bool create_clip_with_markers(Controller& controller);

}  // namespace murmurase
