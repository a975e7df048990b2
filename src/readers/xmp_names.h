#pragma once

#include "xml/document.h"

// The properties of the XMP Dynamic Media schema that a transcription is read from.
namespace murmurase::xmp {

inline constexpr char dynamic_media[] = "http://ns.adobe.com/xmp/1.0/DynamicMedia/";

inline constexpr xml::Name duration{dynamic_media, "duration"};
inline constexpr xml::Name scale{dynamic_media, "scale"};
inline constexpr xml::Name time_value{dynamic_media, "timeValue"};
inline constexpr xml::Name track_type{dynamic_media, "trackType"};
inline constexpr xml::Name frame_rate{dynamic_media, "frameRate"};
inline constexpr xml::Name start_time{dynamic_media, "startTime"};
inline constexpr xml::Name name{dynamic_media, "name"};
inline constexpr xml::Name speaker{dynamic_media, "speaker"};

// The elements whose text is read; `duration` is both a structure of the movie and a marker's value.
inline constexpr const char* values[] = {"scale",     "timeValue", "trackType", "frameRate",
                                         "startTime", "duration",  "name",      "speaker"};

}  // namespace murmurase::xmp
