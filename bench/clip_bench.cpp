// Measures the clip reader and the marker export against libxml2 alone, doing the same in the same
// run. Prints the median ratio of pairs. Usage: clip_bench [PAIRS]   (default 7; 1 is a quick
// check)

#include <fmt/format.h>
#include <libxml/parser.h>
#include <libxml/xmlsave.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "export/marker_clip.h"
#include "model/speaker_list.h"
#include "platform/platform.h"
#include "readers/clip_reader.h"
#include "readers/movie_reader.h"

namespace {

using namespace murmurase;
namespace fs = std::filesystem;

class NoHost : public HostBridge {
 public:
  double wordGroupingSlider_value() override { return 1; }
  void reloadData(HostObject) override {}
};

struct Desk {
  NoHost host;
  Process process{system_platform(), std::nullopt, false};
  Controller controller{process, host};
};

template <typename Work>
double seconds(const Work& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
  std::ranges::sort(values);
  return values[values.size() / 2];
}

// Each pair is measured back to back, in alternating order, after one pair that is not counted.
template <typename Ours, typename Theirs>
void compare(const char* what, int pairs, const Ours& ours, const Theirs& theirs) {
  std::vector<double> ratios;
  std::vector<double> times;
  for (int i = 0; i <= pairs; ++i) {
    double mine = 0;
    double other = 0;
    if (i % 2 == 0) other = seconds(theirs);
    mine = seconds(ours);
    if (i % 2 != 0) other = seconds(theirs);
    if (i == 0 && pairs > 1) continue;
    ratios.push_back(mine / other);
    times.push_back(mine);
  }
  fmt::print("{:<58} {:5.2f} times   ({:.3f} s)\n", what, median(ratios), median(times));
}

void write(const std::string& path, const std::string& bytes) {
  std::ofstream(path, std::ios::binary) << bytes;
}

std::string clip(int items, const char* text) {
  std::string xml =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE xmeml>\n<xmeml "
      "version=\"5\">\n<clip>\n"
      "  <name>Clip</name>\n  <rate>\n    <timebase>25</timebase>\n  </rate>\n"
      "  <updatebehavior>replace</updatebehavior>\n";
  for (int i = 0; i < items; ++i) {
    xml += fmt::format("  <clipitem id=\"item {}\"><name>{}</name><start>{}</start></clipitem>\n",
                       i, text, i);
  }
  return xml + "</clip>\n</xmeml>\n";
}

std::string transcription(int words) {
  std::string xml =
      "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF"
      " xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\"><rdf:Description"
      " xmlns:xmpDM=\"http://ns.adobe.com/xmp/1.0/DynamicMedia/\"><xmpDM:Tracks><rdf:Bag><rdf:li"
      " rdf:parseType=\"Resource\"><xmpDM:trackType>Speech</xmpDM:trackType>"
      "<xmpDM:frameRate>f1000</xmpDM:frameRate><xmpDM:markers><rdf:Seq>";
  for (int i = 0; i < words; ++i) {
    xml += fmt::format(
        "<rdf:li rdf:parseType=\"Resource\"><xmpDM:startTime>{}</xmpDM:startTime>"
        "<xmpDM:duration>250</xmpDM:duration><xmpDM:name>Several words {}</xmpDM:name>"
        "<xmpDM:speaker>Speaker {}</xmpDM:speaker></rdf:li>\n",
        i * 300, i, i / 5 % 4);
  }
  return xml +
         "</rdf:Seq></xmpDM:markers></rdf:li></rdf:Bag></xmpDM:Tracks></rdf:Description>"
         "</rdf:RDF></x:xmpmeta>";
}

const xmlChar* text(const std::string& string) {
  return reinterpret_cast<const xmlChar*>(string.c_str());
}

void bare_field(xmlNode* parent, const char* name, const std::string& value) {
  xmlNewTextChild(parent, nullptr, reinterpret_cast<const xmlChar*>(name), text(value));
}

// The same nodes with nothing but libxml2, in a copy of the clip.
void bare_markers(xmlDoc* original, const std::vector<WordGroup>& phrases,
                  const std::string& path) {
  xmlDoc* document = xmlCopyDoc(original, 1);
  xmlNode* clip_element = xmlDocGetRootElement(document)->children;
  std::int64_t in = 0;
  const auto blank = [](xmlNode* parent) {
    xmlAddChild(parent, xmlNewText(reinterpret_cast<const xmlChar*>(" ")));
  };
  for (const WordGroup& phrase : phrases) {
    xmlNode* marker =
        xmlNewChild(clip_element, nullptr, reinterpret_cast<const xmlChar*>("marker"), nullptr);
    blank(marker);
    bare_field(marker, "name", phrase.speaker);
    blank(marker);
    bare_field(marker, "comment", phrase.words);
    blank(marker);
    xmlNode* color =
        xmlNewChild(marker, nullptr, reinterpret_cast<const xmlChar*>("color"), nullptr);
    bare_field(color, "alpha", "0");
    bare_field(color, "red", "255");
    bare_field(color, "green", "127");
    bare_field(color, "blue", "0");
    blank(marker);
    bare_field(marker, "in", std::to_string(in));
    in = static_cast<std::int64_t>(phrase.time_in * 25);
    blank(marker);
    bare_field(marker, "out", std::to_string(in - 1));
    blank(marker);
  }
  xmlSaveFormatFileEnc(path.c_str(), document, "UTF-8", 1);
  xmlFreeDoc(document);
}

void markers(const std::string& folder, int pairs) {
  Desk desk;
  write(folder + "/packet", transcription(100000));
  write(folder + "/tool", "#!/bin/sh\nexec cat \"$2\"\n");
  fs::permissions(folder + "/tool", fs::perms::owner_all);
  desk.controller.xmpcommand = folder + "/tool";
  parse_xmp_from_mov(desk.controller, folder + "/packet");
  build_speakers_array(desk.controller);
  write(folder + "/clip.xml", clip(1, "item"));
  desk.controller.clip_xml = parse_xml_file(desk.controller, folder + "/clip.xml").document;
  desk.process.temp_xml_file = folder + "/ours.xml";
  create_clip_with_markers(desk.controller);
  compare(
      "100,000 markers: grouped, added, written / added, saved", pairs,
      [&] { create_clip_with_markers(desk.controller); },
      [&] {
        bare_markers(desk.controller.clip_xml->get(), *desk.controller.words_array,
                     folder + "/theirs.xml");
      });
}

void reading(const std::string& folder, int pairs) {
  Desk desk;
  const std::string path = folder + "/big.xml";
  write(path, clip(200000, "item"));
  compare(
      "reading a clip without problems / bare parse", pairs,
      [&] { parse_xml_file(desk.controller, path); },
      [&] {
        xmlFreeDoc(xmlReadFile(path.c_str(), nullptr,
                               XML_PARSE_RECOVER | XML_PARSE_NONET | XML_PARSE_NOBLANKS));
      });
}

void repairing(const std::string& folder, int pairs) {
  Desk desk;
  const std::string large = folder + "/large.xml";
  const std::string small = folder + "/small.xml";
  for (const char* fault : {"R & D", "caf\xE9..."}) {
    write(large, clip(100000, fault));
    write(small, clip(10000, fault));
    compare(
        *fault == 'R' ? "a bare \"&\" on each of 100,000 lines / of 10,000"
                      : "a wrong byte on each of 100,000 lines / of 10,000",
        pairs, [&] { parse_xml_file(desk.controller, large); },
        [&] { parse_xml_file(desk.controller, small); });
  }
}

}  // namespace

int main(int count, char** arguments) {
  const int pairs = count > 1 ? std::max(1, std::atoi(arguments[1])) : 7;  // NOLINT(cert-err34-c)
  std::string folder = (fs::temp_directory_path() / "murmurase-bench-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) return 1;
  markers(folder, pairs);
  reading(folder, pairs);
  repairing(folder, pairs);
  fs::remove_all(folder);
  return 0;
}
