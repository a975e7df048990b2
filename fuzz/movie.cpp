// A movie's boxes to the place of its packet, the start timecode and the rate of its pictures.
#include <sys/mman.h>
#include <unistd.h>

#include <string>

#include "check.h"
#include "media/boxes.h"
#include "media/movie_clock.h"
#include "xmp/failure.h"

using namespace murmurase::fuzz;
using namespace murmurase::media;
using namespace murmurase::xmp;

namespace {

// A path of a file that holds these bytes and stays open.
std::string file_of(std::string_view bytes) {
  static const int file = memfd_create("movie", 0);
  check(ftruncate(file, 0) == 0 &&
            pwrite(file, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()),
        "the input is written");
  return "/dev/fd/" + std::to_string(file);
}

void check_rate(const std::optional<Rational>& rate) {
  check(!rate || (to_double(*rate) >= 1 && to_double(*rate) <= 1000), "a rate of pictures");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  try {
    InputFile file(file_of(text_of(data, size)));
    const std::optional<MovieBoxes> boxes = find_movie_boxes(file);
    if (!boxes) return 0;
    if (boxes->packet) file.read_whole(*boxes->packet);
    const MovieClock clock = read_movie_clock(file, boxes->moov);
    check_rate(clock.video_rate);
    check_rate(clock.timecode_rate);
    if (clock.label.empty()) return 0;
    check(clock.timecode_rate.has_value() && clock.label < "24:", "a time of a day");
    check(clock.label.find_first_not_of("0123456789:;") == std::string::npos, "a plain label");
  } catch (const Failure& failure) {
    check(std::string_view(failure.what()).find('\n') == std::string_view::npos, "one line");
  }
  return 0;
}
