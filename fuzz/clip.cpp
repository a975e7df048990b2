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

static int markers_of_first_clip(const XmlDocument& document) {
  const xmlNode* clip = xml::first_element(document);
  while (!xml::is_named(clip, {nullptr, "clip"})) clip = xml::next_element(clip);
  int count = 0;
  for (const xmlNode* node = clip->children; node != nullptr; node = node->next)
    count += xml::is_named(node, {nullptr, "marker"});
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
  const bool written = accepted([&] {
    desk.controller.clip_xml = parse_xml_file(desk.controller, "in.xml").document;
    create_clip_with_markers(desk.controller);
  });
  check(desk.platform.files.contains("out.xml") == written, "a file if and only if no error");
  check(desk.platform.files["in.xml"] == text_of(data, size), "the clip itself stays");
  if (!written) return 0;
  const xml::Recovery again = xml::recover(desk.platform.files["out.xml"], xml::Blanks::keep);
  // The parser's words depend on whether it builds a document.
  const auto line = [](const std::optional<XmlFault>& fault) { return fault ? fault->line : -1; };
  const int reported = line(desk.controller.clip_fault);
  check(again.limit != nullptr || line(again.fault) == reported, "it is well-formed, or reported");
  if (reported >= 0) return 0;
  if (repair_of(*desk.controller.clip_xml).extent == ClipRepair::none) {
    check(again.problem_lines.empty(), "a clip without problems stays one");
  }
  check(
      markers_of_first_clip(again.document) == markers_of_first_clip(*desk.controller.clip_xml) + 2,
      "two phrases more");
  return 0;
}
