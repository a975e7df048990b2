#include "packet.h"

#include <exempi/xmp.h>
#include <exempi/xmpconsts.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include "boxes.h"
#include "failure.h"
#include "library.h"
#include "platform/byte_buffer.h"

namespace fs = std::filesystem;

namespace {

struct FileClose {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
struct XmpFileFree {
  void operator()(XmpFilePtr file) const { xmp_files_free(file); }
};
struct XmpFree {
  void operator()(XmpPtr xmp) const { xmp_free(xmp); }
};
using File = std::unique_ptr<std::FILE, FileClose>;
// A string that libexempi allocated.
struct XmpStringFree {
  void operator()(XmpStringPtr string) const { xmp_string_free(string); }
};
using XmpString = std::unique_ptr<_XmpString, XmpStringFree>;
using XmpFile = std::unique_ptr<_XmpFile, XmpFileFree>;
using Xmp = std::unique_ptr<_Xmp, XmpFree>;

// The text of `string`, valid as long as `string` is.
std::string_view view(const XmpString& string) {
  return {xmp_string_cstr(string.get()), xmp_string_len(string.get())};
}

std::string quoted_name(const fs::path& path) { return in_quotes(path.native()); }

[[noreturn]] void fail_to_read(const fs::path& path, const std::error_code& error) {
  const bool denied = error == std::errc::permission_denied;
  fail("cannot read {}: {}; {}", quoted_name(path), error.message(),
       denied ? "ask for permission to read it" : "check the path");
}

// Opens `path` for reading and sets `size` to its size in bytes. Throws Failure unless it is a
// regular file with something in it.
File open_file(const fs::path& path, std::uintmax_t& size) {
  std::error_code error;
  const fs::file_status status = fs::status(path, error);
  if (error) fail_to_read(path, error);
  if (fs::is_directory(status))
    fail("cannot read {}: it is a folder; name a movie in it", quoted_name(path));
  if (!fs::is_regular_file(status))
    fail("cannot read {}: it is not a regular file; name a movie", quoted_name(path));
  File file(std::fopen(path.c_str(), "rb"));
  if (!file) fail_to_read(path, {errno, std::generic_category()});
  size = fs::file_size(path, error);
  if (error) fail_to_read(path, error);
  if (size == 0) fail("cannot read {}: it is empty; {}", quoted_name(path), copy_again);
  return file;
}

std::string read_bytes(const fs::path& path, std::FILE* file, Extent extent) {
  if (extent.length > murmurase::most_bytes) {
    fail(
        "cannot read the XMP packet of {}: it has {} bytes, more than 512 MiB; have it written "
        "again",
        quoted_name(path), extent.length);
  }
  std::string bytes(extent.length, '\0');
  errno = EIO;  // What a file that has just become shorter comes to.
  if (fseeko(file, static_cast<off_t>(extent.offset), SEEK_SET) != 0 ||
      std::fread(bytes.data(), 1, bytes.size(), file) != bytes.size())
    fail_to_read(path, {errno, std::generic_category()});
  return bytes;
}

Packet read_sidecar(const fs::path& path) {
  std::uintmax_t size = 0;
  const File file = open_file(path, size);
  return {path, read_bytes(path, file.get(), {0, size})};
}

bool is_movie_or_sound(XmpFileType type) {
  constexpr std::array types{XMP_FT_MOV,   XMP_FT_MPEG4, XMP_FT_AVI, XMP_FT_MPEG,
                             XMP_FT_MPEG2, XMP_FT_WMAV,  XMP_FT_FLV, XMP_FT_SWF,
                             XMP_FT_WAV,   XMP_FT_MP3,   XMP_FT_AIFF};
  return std::find(types.begin(), types.end(), type) != types.end();
}

// libexempi cannot open what has but one byte before its first slash, or in all.
std::string for_libexempi(const fs::path& path) { return fs::absolute(path); }

// What libexempi stopped at, of which itself it tells a number.
std::string reason() {
  if (Bounds::memory_ran_out())
    return "libexempi would need more than the 512 MiB that it may take";
  return fmt::format("libexempi error {}", xmp_get_error());
}

// The packet embedded in `movie` as libexempi finds it, empty if there is none.
std::string extract_packet(const fs::path& movie) {
  // The XMP alone: reconciling it with the movie's own headers would replace its duration's scale.
  constexpr auto options = static_cast<XmpOpenFileOptions>(XMP_OPEN_READ | XMP_OPEN_ONLYXMP);
  const Bounds bounds("murmurase-xmp: cannot read " + quoted_name(movie) +
                      ": libexempi was still searching it after a minute; check that it plays\n");
  const XmpFile file(xmp_files_open_new(for_libexempi(movie).c_str(), options));
  if (!file) fail("cannot read {}: {}; check that it plays", quoted_name(movie), reason());
  const XmpString bytes(xmp_string_new());
  XmpPacketInfo info{};
  if (xmp_files_get_xmp_xmpstring(file.get(), bytes.get(), &info)) return std::string(view(bytes));
  if (xmp_get_error() != 0)
    fail("cannot read the XMP packet of {}: {}; have it written again", quoted_name(movie),
         reason());
  return {};
}

std::vector<fs::path> sidecar_names(const fs::path& movie) {
  std::vector<fs::path> names{fs::path(movie).replace_extension(".xmp"), movie};
  names.back() += ".xmp";
  if (names.front() == names.back()) names.pop_back();
  return names;
}

}  // namespace

Packet find_packet(const fs::path& movie) {
  if (is_xmp_file(movie)) return read_sidecar(movie);

  std::uintmax_t size = 0;
  File file = open_file(movie, size);
  const XmpFileType type = xmp_files_check_file_format(for_libexempi(movie).c_str());
  if (type == XMP_FT_MOV || type == XMP_FT_MPEG4) {
    // libexempi would parse the whole packet only to hand over its bytes, and would not tell a
    // truncated movie from one without a packet.
    if (const std::optional<Extent> box = find_packet_box(movie, file.get(), size))
      return {movie, read_bytes(movie, file.get(), *box)};
  }
  file.reset();
  if (is_movie_or_sound(type)) {
    std::string bytes = extract_packet(movie);
    if (!bytes.empty()) return {movie, std::move(bytes)};
  } else if (type != XMP_FT_UNKNOWN) {
    fail("cannot read {}: it is not a movie; name a movie or an .xmp file", quoted_name(movie));
  }

  std::string looked_for;
  for (const fs::path& sidecar : sidecar_names(movie)) {
    std::error_code error;
    if (fs::exists(sidecar, error)) return read_sidecar(sidecar);
    looked_for += (looked_for.empty() ? "" : " or ") + quoted_name(sidecar);
  }
  if (type == XMP_FT_UNKNOWN) {
    fail(
        "cannot read {}: it is not a movie of a known format, and there is no sidecar {}; name a "
        "movie or an .xmp file",
        quoted_name(movie), looked_for);
  }
  fail("no XMP packet in {} and no sidecar {}; export the movie with its metadata",
       quoted_name(movie), looked_for);
}

std::optional<TrackTimecode> read_timecode_track(const fs::path& movie) {
  {  // libexempi would parse the whole packet once more, most often for nothing.
    std::uintmax_t size = 0;
    const File opened = open_file(movie, size);
    if (!has_timecode_track(opened.get(), size)) return std::nullopt;
  }
  const XmpFile file(xmp_files_open_new(for_libexempi(movie).c_str(), XMP_OPEN_READ));
  const Xmp xmp(file ? xmp_files_get_new_xmp(file.get()) : nullptr);
  if (!xmp) return std::nullopt;
  const XmpString text(xmp_string_new());
  const auto field = [&](const char* path) {
    const bool found = xmp_get_property(xmp.get(), "http://ns.adobe.com/xmp/1.0/DynamicMedia/",
                                        path, text.get(), nullptr);
    return found ? std::string(view(text)) : std::string();
  };
  for (const std::string property : {"xmpDM:altTimecode", "xmpDM:startTimecode"}) {
    const std::string value = field((property + "/xmpDM:timeValue").c_str());
    if (!value.empty())
      return TrackTimecode{field((property + "/xmpDM:timeFormat").c_str()), value};
  }
  return std::nullopt;
}
