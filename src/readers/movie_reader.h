#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/controller.h"

namespace murmurase {

// Has the XMP tool (xmpcommand) print the movie's packet and reads it. Gives the track-type elements
// in document order, or nothing when the tool failed, which makes transcription_xml absent and leaves
// all else as it was. Otherwise sets:
//
//   frame_rate         from the duration's scale (a rational of seconds per unit, "1/2997" or
//                      "1001/30000"); keeps its value without one
//   displayformat      "DF" when the start timecode holds a ";", else "NDF"
//   first_frame        the start timecode's frame count; 0 without one
//   transcription_xml  the parent of the last track type that is exactly "Speech", or absent
//
// Errors make transcription_xml absent too: system for output that cannot be read; xml for output that
// is no XML, all else being as it was; range for a start timecode that 64 bits cannot count, or one with
// a frame rate that is not finite, frame_rate and displayformat being set by then. Two leave it as it
// was: system when the shell that runs the tool cannot be started; missing value for a start timecode
// with no frame rate known, displayformat being set by then.
std::optional<std::vector<XmlElement>> parse_xmp_from_mov(Controller& controller,
                                                          const std::string& movie_path);

}  // namespace murmurase
