// A packet to its normal form, which must stay the same when it is normalised again.
#include "xmp/normal_packet.h"

#include <algorithm>

#include "check.h"
#include "core/printable.h"
#include "inspect.h"
#include "xmp/failure.h"
#include "xmp/read_movie.h"

using namespace murmurase;
using namespace murmurase::fuzz;
using namespace murmurase::tool;
using namespace murmurase::xmp;

// Nothing if it cannot be understood.
static std::optional<std::string> normalised(const Packet& packet, Movie& movie) {
  try {
    movie = read_movie(packet, {});
    std::string text = print_normal_packet(movie);
    Movie shown = movie;
    check(!inspect("a.xmp", packet, shown, true).empty(), "it can be inspected");
    std::string lines = inspect("a.xmp", packet, shown, false);
    std::erase(lines, '\n');
    check(printable(lines) == lines, "any terminal shows it");
    return text;
  } catch (const Failure& failure) {
    check(printable(failure.what()) == failure.what(), "one line an error");
    return std::nullopt;
  }
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Movie movie;
  const auto once = normalised({"a.xmp", std::string(text_of(data, size))}, movie);
  if (!once) return 0;
  Movie again;
  check(normalised({"a.xmp", *once}, again) == once, "the normal packet stays as it is");
  check(!again.damaged, "the normal packet is well-formed");
  for (const std::string& warning : again.warnings)
    check(std::ranges::find(movie.warnings, warning) != movie.warnings.end(), "no new warning");
  return 0;
}
