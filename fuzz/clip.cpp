// A clip's file, repaired where it must be, to a clip with markers.
#include "check.h"
#include "export/marker_clip.h"
#include "model/speaker_list.h"
#include "readers/clip_reader.h"
#include "readers/movie_reader.h"
#include "support.h"
#include "xml/document.h"
#include "xml/recovery.h"

using namespace murmurase;
using namespace murmurase::fuzz;

static int markers_in(const XmlDocument& document) {
  int count = 0;
  for (auto* node = xml::first_element(document); node != nullptr; node = xml::next_element(node)) {
    count += xml::is_named(node, {nullptr, "marker"}) ? 1 : 0;
  }
  return count;
}

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  test::Desk desk;
  desk.platform.tool_output = test::packet(test::speech({{"Hello,", "0", "400", "A &amp; B"},
                                                         {"you", "400", "200", "A &amp; B"},
                                                         {"&lt;there&gt;", "900", "100", "Zoë"}}));
  parse_xmp_from_mov(desk.controller, "movie.mov");
  build_speakers_array(desk.controller);
  desk.process.temp_xml_file = "out.xml";
  desk.platform.files["in.xml"] = text_of(data, size);
  ClipRepair repair;
  const bool written = accepted([&] {
    desk.controller.clip_xml = parse_xml_file(desk.controller, "in.xml").document;
    repair = repair_of(*desk.controller.clip_xml);
    create_clip_with_markers(desk.controller);
  });
  check(desk.platform.files.contains("out.xml") == written, "a file if and only if no error");
  check(desk.platform.files["in.xml"] == text_of(data, size), "the clip itself stays");
  if (!written) return 0;
  const xml::Recovery again =
      xml::recover(desk.platform.files["out.xml"], xml::clip_limit, xml::Blanks::keep);
  check(again.well_formed, "what is written is well-formed");
  if (repair.extent == ClipRepair::none) {
    check(again.problem_lines.empty(), "a clip without problems stays one");
  }
  check(markers_in(again.document) == markers_in(*desk.controller.clip_xml) + 2,
        "two phrases more");
  return 0;
}
