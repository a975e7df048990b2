#include "export/marker_clip.h"

#include <fmt/format.h>

#include <array>
#include <cmath>
#include <memory>

#include "core/convert.h"
#include "core/error.h"
#include "core/numbers.h"
#include "model/speaker_list.h"
#include "model/word_grouping.h"
#include "platform/platform.h"
#include "readers/clip_reader.h"
#include "xml/document.h"
#include "xml/edit.h"
#include "xml/problem_channel.h"

namespace murmurase {
namespace {

struct Colour {
  const char* color;  // its label, which no clip holds
  const char* red;
  const char* green;
  const char* blue;
};

// The halves are not all the same.
constexpr std::array<Colour, 8> palette = {{{"Red", "255", "0", "0"},
                                            {"Orange", "255", "127", "0"},
                                            {"Yellow", "255", "255", "0"},
                                            {"Green", "48", "191", "72"},
                                            {"Turquoise", "48", "191", "191"},
                                            {"Blue", "0", "128", "255"},
                                            {"Purple", "127", "0", "255"},
                                            {"Pink", "255", "0", "127"}}};

constexpr std::int64_t first_coloured_version = 5;
constexpr std::string_view final_cut_pro_creator = "KeyG";

constexpr xml::Name plain_name(const char* local) { return {nullptr, local}; }

std::string clip_name(const XmlDocument& clip) {
  return clip->URL == nullptr
             ? "the clip"
             : fmt::format("the clip {}", printable(reinterpret_cast<const char*>(clip->URL)));
}

xmlNode* found(xmlNode* node, const XmlDocument& clip, std::string_view what) {
  if (node == nullptr) {
    throw Error(ErrorKind::missing_value,
                fmt::format("{} has no {}; {}", clip_name(clip), what, wanted_clip));
  }
  return node;
}

// The first element of that name anywhere in the document, or null.
xmlNode* first_named(const XmlDocument& document, const char* local) {
  xmlNode* node = xml::first_element(document);
  while (node != nullptr && !xml::is_named(node, plain_name(local))) node = xml::next_element(node);
  return node;
}

// The first rate/timebase below the clip, or null; the first rate may have none.
xmlNode* timebase_of(const xmlNode* clip) {
  for (const xmlNode* rate = clip->children; rate != nullptr; rate = rate->next) {
    if (!xml::is_named(rate, plain_name("rate"))) continue;
    if (xmlNode* timebase = xml::child(rate, plain_name("timebase"))) return timebase;
  }
  return nullptr;
}

struct Marker {
  std::string_view name;
  std::string_view comment;
  const Colour* colour;  // null for none
  std::int64_t in;       // frames
  std::int64_t out;
};

// Makes the markers of one clip, in the form of coloured_marker or plain_marker. To parse these texts
// for each marker would take longer.
class MarkerBuilder {
 public:
  explicit MarkerBuilder(xmlNode* clip) : clip_(clip), build_(clip->doc) {}

  void append(const Marker& marker) {
    std::unique_ptr<xmlNode, decltype(&xmlFreeNode)> node(build_.element(nullptr, marker_),
                                                          xmlFreeNode);
    field(node.get(), name_, marker.name);
    field(node.get(), comment_, marker.comment);
    if (marker.colour != nullptr) {
      build_.shared_text(node.get(), blank_);
      xmlNode* colour = build_.element(node.get(), color_);
      build_.shared_text(build_.element(colour, alpha_), zero_);
      build_.shared_text(build_.element(colour, red_), build_.share(marker.colour->red));
      build_.shared_text(build_.element(colour, green_), build_.share(marker.colour->green));
      build_.shared_text(build_.element(colour, blue_), build_.share(marker.colour->blue));
    }
    const fmt::format_int in(marker.in);
    const fmt::format_int out(marker.out);
    field(node.get(), in_, {in.data(), in.size()});
    field(node.get(), out_, {out.data(), out.size()});
    build_.shared_text(node.get(), blank_);
    xmlAddChild(clip_, node.release());
  }

 private:
  void field(xmlNode* marker, xml::Builder::Shared name, std::string_view text) {
    build_.shared_text(marker, blank_);
    build_.text(build_.element(marker, name), text);
  }

  using Shared = xml::Builder::Shared;
  xmlNode* clip_;
  xml::Builder build_;
  Shared blank_ = build_.share(" ");
  Shared zero_ = build_.share("0");
  Shared marker_ = build_.share("marker");
  Shared name_ = build_.share("name");
  Shared comment_ = build_.share("comment");
  Shared color_ = build_.share("color");
  Shared alpha_ = build_.share("alpha");
  Shared red_ = build_.share("red");
  Shared green_ = build_.share("green");
  Shared blue_ = build_.share("blue");
  Shared in_ = build_.share("in");
  Shared out_ = build_.share("out");
};

constexpr std::size_t most_markers = 1'000'000;  // of about 3 KiB in memory each

void check_text(std::string_view text, std::string_view what, std::size_t phrase) {
  if (xml::can_hold(text)) return;
  throw Error(ErrorKind::xml,
              fmt::format("{} of phrase {}, \"{}\", cannot be written to a clip: XML holds neither "
                          "control characters nor bytes that are not UTF-8",
                          what, phrase + 1, printable(text.substr(0, 80))));
}

// The start frame of phrase `i`. 64 bits must hold the frame before it too.
std::int64_t start_frame(const WordGroup& phrase, double timebase, std::size_t i) {
  const double frame = std::trunc(phrase.time_in * timebase);
  if (!(frame > -integer_limit && frame < integer_limit)) {
    throw Error(ErrorKind::range,
                fmt::format("64 bits cannot count the start frame of marker {}: {} s at {} frames "
                            "per second",
                            i + 1, phrase.time_in, timebase));
  }
  return static_cast<std::int64_t>(frame);
}

void add_markers(Controller& controller, xmlNode* clip, bool coloured, double timebase) {
  const std::vector<SpeakerEntry>& speakers = required(controller.speakers_array, "speakers_array");
  const std::vector<WordGroup>& phrases = required(controller.words_array, "words_array");
  if (phrases.size() > most_markers) {
    throw Error(
        ErrorKind::range,
        fmt::format("{} phrases are more than the {} that a clip takes as markers; group more "
                    "words into each",
                    phrases.size(), most_markers));
  }
  const SpeakerLookup lookup(speakers);
  MarkerBuilder builder(clip);
  std::int64_t& in = controller.in.emplace(0);
  for (std::size_t i = 0; i < phrases.size(); ++i) {
    const SpeakerEntry& speaker = lookup.get(phrases[i].speaker);
    const auto position = static_cast<std::size_t>(&speaker - speakers.data());
    check_text(display_name(speaker), "the speaker's name", i);
    check_text(phrases[i].words, "the words", i);
    const std::int64_t start = start_frame(phrases[i], timebase, i);
    builder.append({display_name(speaker), phrases[i].words,
                    coloured ? &palette[position % palette.size()] : nullptr,
                    std::exchange(in, start), start - 1});
  }
}

}  // namespace

bool create_clip_with_markers(Controller& controller) {
  const xml::ProblemChannel quiet;
  std::int64_t grouping = 0;
  from_value(to_value(controller.host.wordGroupingSlider_value()), "wordGroupingSlider_value",
             grouping);
  build_words_array(controller, grouping);
  if (!controller.clip_xml_clone) {
    controller.clip_xml_clone = xml::copy(required(controller.clip_xml, "clip_xml"));
  }
  const XmlDocument document = *controller.clip_xml_clone;

  const xmlNode* xmeml = found(first_named(document, "xmeml"), document, "xmeml element");
  const bool coloured =
      leading_integer(xml::attribute_start(xmeml, "version")) >= first_coloured_version;
  xmlNode* clip = found(first_named(document, "clip"), document, "clip element");
  xml::set_text(
      found(xml::child(clip, plain_name("updatebehavior")), document, "updatebehavior in its clip"),
      "add");
  const xmlNode* timebase = found(timebase_of(clip), document, "rate/timebase in its clip");
  add_markers(controller, clip, coloured,
              static_cast<double>(leading_integer(xml::text_start(timebase))));

  Process& process = controller.process;
  if (!controller.clip_file && !process.temp_xml_file) {
    throw Error(ErrorKind::name,
                "TEMP_XML_FILE is not set: start-up found no Application Support directory");
  }
  const std::string& path = controller.clip_file ? *controller.clip_file : *process.temp_xml_file;
  xml::Serialized file = xml::serialize(document, clip_name(document));
  if (controller.clip_file) {
    process.platform.replace_file(path, file.bytes);
  } else {
    process.platform.replace_own_file(path, file.bytes);
  }
  controller.clip_fault = std::move(file.fault);
  controller.clip_xml_clone.reset();
  process.platform.set_finder_info(path, final_cut_pro_creator);
  return controller.open_command && process.platform.open_with(*controller.open_command, path);
}

}  // namespace murmurase
