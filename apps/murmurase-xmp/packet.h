#pragma once

#include <exempi/xmp.h>

#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

/// A string that libexempi allocated.
struct XmpStringFree {
  void operator()(XmpStringPtr string) const { xmp_string_free(string); }
};
using XmpString = std::unique_ptr<_XmpString, XmpStringFree>;

/// The text of `string`, valid as long as `string` is.
inline std::string_view view(const XmpString& string) {
  return {xmp_string_cstr(string.get()), xmp_string_len(string.get())};
}

/// An XMP packet, byte for byte as it was found.
struct Packet {
  std::filesystem::path file;  ///< Where it was found: the movie itself, or a sidecar.
  std::string bytes;
};

/// Finds the packet of `movie`: the one embedded in it, else the whole of its sidecar (`clip.xmp`
/// or `clip.mov.xmp` beside `clip.mov`). A `movie` that is an .xmp file is taken for the packet
/// itself. xmp_init() must have been called. Throws Failure if there is no packet, or if the movie
/// cannot be read, is truncated, or is not one.
Packet find_packet(const std::filesystem::path& movie);

/// The properties of `packet`, printed as a packet in which every property is an element and every
/// structure an rdf:parseType="Resource", whichever of the forms of XMP (ISO 16684-1, 7.4 to 7.9)
/// it used. Order and text stay. Throws Failure if the packet cannot be understood.
XmpString as_elements(Packet packet);
