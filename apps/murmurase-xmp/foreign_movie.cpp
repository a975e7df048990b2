#include "foreign_movie.h"

#include <dlfcn.h>
#include <exempi/xmp.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>

#include "child.h"
#include "xmp/failure.h"
#include "xmp/rate.h"

namespace murmurase::tool {
namespace {

struct XmpFileFree {
  void operator()(XmpFilePtr file) const { xmp_files_free(file); }
};
struct XmpStringFree {
  void operator()(XmpStringPtr string) const { xmp_string_free(string); }
};
using XmpFile = std::unique_ptr<_XmpFile, XmpFileFree>;
using XmpString = std::unique_ptr<_XmpString, XmpStringFree>;

bool is_movie_or_sound(XmpFileType type) {
  constexpr std::array types{XMP_FT_MOV,   XMP_FT_MPEG4, XMP_FT_AVI, XMP_FT_MPEG,
                             XMP_FT_MPEG2, XMP_FT_WMAV,  XMP_FT_FLV, XMP_FT_SWF,
                             XMP_FT_WAV,   XMP_FT_MP3,   XMP_FT_AIFF};
  return std::find(types.begin(), types.end(), type) != types.end();
}

// A letter that says whether the format is known, and the packet.
std::string search_by_exempi(const media::InputFile& movie) {
  const std::string name = xmp::in_quotes(movie.path().native());
  const std::string path = movie.descriptor_path();
  if (!xmp_init()) xmp::fail("libexempi cannot start; reinstall it, or close other programs");
  const XmpFileType type = xmp_files_check_file_format(path.c_str());
  if (type == XMP_FT_UNKNOWN) return "?";
  if (!is_movie_or_sound(type))
    xmp::fail("cannot read {}: it is not a movie; name a movie or an .xmp file", name);
  // The XMP alone: reconciling it with the movie's own headers would replace its duration's scale.
  constexpr auto options = static_cast<XmpOpenFileOptions>(XMP_OPEN_READ | XMP_OPEN_ONLYXMP);
  const XmpFile file(xmp_files_open_new(path.c_str(), options));
  if (!file)
    xmp::fail("cannot read {}: libexempi error {}; check that it plays", name, xmp_get_error());
  const XmpString bytes(xmp_string_new());
  XmpPacketInfo info{};
  if (xmp_files_get_xmp_xmpstring(file.get(), bytes.get(), &info))
    return '!' + std::string(xmp_string_cstr(bytes.get()), xmp_string_len(bytes.get()));
  if (xmp_get_error() != 0)
    xmp::fail("cannot read the XMP packet of {}: libexempi error {}; have it written again", name,
              xmp_get_error());
  return "!";
}

#ifdef __APPLE__
constexpr const char* media_info_library = "libmediainfo.0.dylib";
#else
constexpr const char* media_info_library = "libmediainfo.so.0";
#endif

// The part of libmediainfo's C interface that is used, as its header MediaInfoDLL.h declares it.
class MediaInfo {
 public:
  explicit MediaInfo(void* library)
      : library_(library),
        get_(function<Get>("MediaInfoA_Get")),
        media_(function<void*()>("MediaInfoA_New")()) {}

  bool open(const std::string& path) {
    return function<std::size_t(void*, const char*)>("MediaInfoA_Open")(media_, path.c_str()) != 0;
  }

  enum Stream { general = 0, video = 1, other = 4 };
  std::string get(Stream stream, const char* field) {
    constexpr int text = 1;
    constexpr int name = 0;
    return get_(media_, stream, 0, field, text, name);
  }

 private:
  using Get = const char*(void*, int, std::size_t, const char*, int, int);

  template <typename Function>
  Function* function(const char* name) {
    auto* found = reinterpret_cast<Function*>(dlsym(library_, name));
    if (found == nullptr)
      xmp::fail("{} has no function {}; reinstall it", media_info_library, name);
    return found;
  }

  void* library_;
  Get* get_;
  void* media_;
};

// The rate and the label, each on a line, which may be empty; nothing without the library.
std::string search_by_media_info(const media::InputFile& movie) {
  void* library = dlopen(media_info_library, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) return {};
  MediaInfo media(library);
  if (!media.open(movie.descriptor_path())) return "\n\n";
  const bool constant = media.get(MediaInfo::video, "FrameRate_Mode") != "VFR";
  std::string label;
  for (const MediaInfo::Stream stream : {MediaInfo::video, MediaInfo::other, MediaInfo::general})
    if (label.empty()) label = media.get(stream, "TimeCode_FirstFrame");
  return (constant ? media.get(MediaInfo::video, "FrameRate") : "") + '\n' + label + '\n';
}

}  // namespace

ForeignMovie read_foreign_movie(const media::InputFile& file) {
  std::string found = in_child(file, "libexempi", [&] { return search_by_exempi(file); });
  const bool is_known = found.starts_with('!');
  return {is_known, found.substr(1)};
}

xmp::MovieClock read_foreign_clock(const media::InputFile& file) {
  xmp::MovieClock clock;
  try {
    const std::string found =
        in_child(file, "libmediainfo", [&] { return search_by_media_info(file); });
    const std::size_t end = found.find('\n');
    if (end == std::string::npos) {
      clock.warning =
          "a timecode that it may have in itself is passed over; install libmediainfo to have it "
          "read";
      return clock;
    }
    clock.video_rate = xmp::read_video_rate(found.substr(0, end));
    clock.label = xmp::trimmed(std::string_view(found).substr(end + 1));
    if (!clock.label.empty()) clock.timecode_rate = clock.video_rate;
  } catch (const xmp::Failure& failure) {
    clock.warning =
        fmt::format("a timecode that it may have in itself is passed over: {}", failure.what());
  }
  return clock;
}

}  // namespace murmurase::tool
