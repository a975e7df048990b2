#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "xmp/rational.h"

namespace murmurase::xmp {

// The facts about a movie, as its packet gives them (XMP Dynamic Media, ISO 16684-1 and its schemas), in
// whichever form they are written. What a packet says of other clips (xmpMM:Pantry, xmpMM:Ingredients) is
// not here.

// What a movie's file says of its time, beside its packet.
struct MovieClock {
  std::string label;                      // The timecode of its start; empty if it has none.
  std::optional<Rational> timecode_rate;  // The frames per second that the label counts.
  std::optional<Rational> video_rate;     // The pictures per second, if it is constant.
  std::string warning;                    // Why a timecode could not be read; empty if none.
};

// A timecode structure, as it is written.
struct Timecode {
  std::string property;  // Where it was found, such as "startTimecode".
  std::string format;    // Such as "2997DropTimecode"; empty if it does not say.
  std::string value;     // Such as "01:00:00;00".
};

// What the packet says of the rate of the movie's frames.
struct RateEvidence {
  std::string property;
  std::string text;
  std::optional<Rational> rate;  // Frames per second; nothing if the text gives no rate.
};

// A count of units of time.
struct Count {
  Decimal units;
  Rational base;  // Units per second.
};

// A spoken word.
struct Word {
  std::string name;
  Count start;
  std::optional<Count> duration;  // Nothing for "maximum": until the end of the movie.
  std::string speaker;
  std::string probability;     // As it is written; empty if it is not given.
  bool had_line_ends = false;  // In its name or its speaker, where blanks stand for them now.
};

struct Track {
  std::string name;
  std::string type;       // Of several, a list with ", " between them.
  std::string time_base;  // As it is written; empty if it is not given: 1 unit per second.
  std::size_t markers = 0;
  std::size_t words = 0;
  bool is_speech = false;
};

// A property that is passed on as it is.
struct OtherProperty {
  std::string prefix;
  std::string space;
  std::string name;
  std::string value;
};

struct Movie {
  std::string duration_value;
  std::string duration_scale;
  std::vector<RateEvidence> evidence;  // The strongest first.
  std::vector<Timecode> timecodes;     // The one that counts first.
  std::vector<Track> tracks;
  std::vector<Word> words;  // Of all Speech markers, in the order of the document.
  std::vector<OtherProperty> others;
  bool has_attributes = false;  // Which forms its properties are written in.
  bool has_elements = false;
  bool damaged = false;
  std::size_t repeated = 0;  // Bytes of the speakers that words have from the word before them.
  std::vector<std::string> warnings;  // What was recovered or had to be assumed.
};

}  // namespace murmurase::xmp
