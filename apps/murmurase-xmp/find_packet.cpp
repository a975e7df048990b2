#include "find_packet.h"

#include <system_error>
#include <utility>
#include <vector>

#include "foreign_movie.h"
#include "media/boxes.h"
#include "media/input_file.h"
#include "media/movie_clock.h"
#include "platform/byte_buffer.h"
#include "xmp/failure.h"

namespace murmurase::tool {

namespace {

namespace fs = std::filesystem;

std::string quoted_name(const fs::path& path) { return xmp::in_quotes(path.native()); }

std::string read_packet(const media::InputFile& file, media::Extent extent) {
  if (extent.length > most_bytes) {
    xmp::fail(
        "cannot read the XMP packet of {}: it has {} bytes, more than 512 MiB; have it written "
        "again",
        quoted_name(file.path()), extent.length);
  }
  return file.read_whole(extent);
}

xmp::Packet read_sidecar(const fs::path& path) {
  const media::InputFile file(path);
  return {path, read_packet(file, {0, file.size()})};
}

// The packet embedded in `movie`, empty if there is none, and whether its format is known.
ForeignMovie read_embedded(media::InputFile& file, xmp::MovieClock* clock) {
  if (const std::optional<media::MovieBoxes> boxes = find_movie_boxes(file)) {
    if (clock != nullptr) *clock = read_movie_clock(file, boxes->moov);
    return {true, boxes->packet ? read_packet(file, *boxes->packet) : ""};
  }
  if (clock != nullptr) *clock = read_foreign_clock(file);
  return read_foreign_movie(file);
}

// The first of each form is the one to name.
std::vector<fs::path> sidecar_names(const fs::path& movie, const char* ending) {
  std::vector<fs::path> names{fs::path(movie).replace_extension(ending), movie};
  names.back() += ending;
  if (names.front() == names.back()) names.pop_back();
  return names;
}

}  // namespace

std::optional<xmp::Packet> find_sidecar(const fs::path& movie) {
  const std::vector<fs::path> small = sidecar_names(movie, ".xmp");
  const std::vector<fs::path> capital = sidecar_names(movie, ".XMP");
  for (std::size_t i = 0; i < small.size(); ++i) {
    for (const fs::path& name : {small[i], capital[i]}) {
      std::error_code error;
      if (fs::exists(name, error)) return read_sidecar(name);
    }
  }
  return std::nullopt;
}

xmp::Packet find_packet(const fs::path& movie, xmp::MovieClock* clock) {
  if (is_xmp_file(movie)) return read_sidecar(movie);
  media::InputFile file(movie);
  ForeignMovie found = read_embedded(file, clock);
  if (!found.packet.empty()) return {movie, std::move(found.packet)};
  if (std::optional<xmp::Packet> sidecar = find_sidecar(movie)) return std::move(*sidecar);

  std::string looked_for;
  for (const fs::path& name : sidecar_names(movie, ".xmp"))
    looked_for += (looked_for.empty() ? "" : " or ") + quoted_name(name);
  if (!found.is_known) {
    xmp::fail(
        "cannot read {}: it is not a movie of a known format, and there is no sidecar {}; name a "
        "movie or an .xmp file",
        quoted_name(movie), looked_for);
  }
  xmp::fail("no XMP packet in {} and no sidecar {}; export the movie with its metadata",
            quoted_name(movie), looked_for);
}

}  // namespace murmurase::tool
