#pragma once

#include "xml/document.h"

// The namespaces of packets, and the names in them.
namespace murmurase::xmp {

inline constexpr char dynamic_media[] = "http://ns.adobe.com/xmp/1.0/DynamicMedia/";
inline constexpr char media_management[] = "http://ns.adobe.com/xap/1.0/mm/";
inline constexpr char rdf_syntax[] = "http://www.w3.org/1999/02/22-rdf-syntax-ns#";

// The properties of the XMP Dynamic Media schema that the module reads a transcription from.
namespace names {

inline constexpr xml::Name duration{dynamic_media, "duration"};
inline constexpr xml::Name scale{dynamic_media, "scale"};
inline constexpr xml::Name time_value{dynamic_media, "timeValue"};
inline constexpr xml::Name track_type{dynamic_media, "trackType"};
inline constexpr xml::Name frame_rate{dynamic_media, "frameRate"};
inline constexpr xml::Name start_time{dynamic_media, "startTime"};
inline constexpr xml::Name name{dynamic_media, "name"};
inline constexpr xml::Name speaker{dynamic_media, "speaker"};

// The elements whose text is read; `duration` is both a structure of the movie and a marker's value.
inline constexpr const char* values[] = {scale.local,      time_value.local, track_type.local,
                                         frame_rate.local, start_time.local, duration.local,
                                         name.local,       speaker.local};

}  // namespace names
}  // namespace murmurase::xmp
