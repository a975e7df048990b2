#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/controller.h"

namespace murmurase {

// Has the XMP tool (xmpcommand) print the movie's packet and reads it. Gives the track-type elements
// in document order, or nothing when the tool failed, which makes transcription_xml absent and leaves
// all else as it was. Otherwise sets, in this order:
//
//   frame_rate         from the duration's scale (a rational of seconds per unit, "1/2997" or
//                      "1001/30000"); keeps its value without one
//   displayformat      "DF" when the start timecode holds a ";", else "NDF"
//   first_frame        the start timecode's frame count; 0 without one
//   transcription_xml  the parent of the last track type that is exactly "Speech", or absent
//
// Errors: system when the tool cannot be run; xml for output that is no XML, with nothing changed;
// missing value for a start timecode with no frame rate known, displayformat being set by then; range
// for one with a frame rate that is not finite.
std::optional<std::vector<XmlElement>> parse_xmp_from_mov(Controller& controller,
                                                          const std::string& movie_path);

}  // namespace murmurase
