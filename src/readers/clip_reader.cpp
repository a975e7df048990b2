#include "readers/clip_reader.h"

#include <fmt/format.h>
#include <libxml/tree.h>

#include <algorithm>
#include <memory>
#include <new>

#include "core/convert.h"
#include "core/error.h"
#include "platform/platform.h"
#include "readers/line_repair.h"
#include "xml/problem_channel.h"
#include "xml/recovery.h"

namespace murmurase {
namespace {

[[noreturn]] void fail(const std::string& path, std::string_view reason) {
  throw Error(ErrorKind::xml,
              fmt::format("the clip {} cannot be read as XML: {}", printable(path), reason));
}

[[noreturn]] void fail_without_xml(const std::string& path, const xml::Recovery& recovery) {
  fail(path, fmt::format("{}; {}", recovery.fault ? recovery.fault->reason : "it holds none",
                         wanted_clip));
}

xml::Recovery parse(std::string_view text, xml::Blanks blanks, xml::Wanted wanted,
                    const std::string& path) {
  xml::Recovery recovery = xml::recover(text, blanks, wanted);
  if (!recovery.document) fail_without_xml(path, recovery);
  return recovery;
}

// Each number once, and none that names no line: empty lines at the end of the text are none.
std::vector<std::int64_t> existing_lines(const std::vector<int>& numbers, std::string_view text) {
  text = text.substr(0, text.find_last_not_of('\n') + 1);
  const std::int64_t last = text.empty() ? 0 : std::ranges::count(text, '\n') + 1;
  std::vector<std::int64_t> lines;
  for (const int number : numbers) {
    if (number >= 1 && number <= last) lines.push_back(number);
  }
  std::ranges::sort(lines);
  lines.erase(std::unique(lines.begin(), lines.end()), lines.end());
  return lines;
}

// The text without its line feeds, and with these lines, or all, repaired. A line that several
// problems name, or both repairs, comes out as if it were repaired once.
std::string joined(std::string_view text, const ClipRepair& repair, const std::string& path) {
  const auto ampersands = static_cast<std::size_t>(std::ranges::count(text, '&'));
  if (text.size() + ampersands * 4 > most_bytes) fail(path, "repaired, it is larger than 512 MiB");
  std::string result;
  result.reserve(text.size() + text.size() / 8);
  auto next = repair.repaired_lines.begin();
  for (std::int64_t number = 1; !text.empty(); ++number) {
    const std::size_t length = std::min(text.find('\n'), text.size());
    const std::string_view line = text.substr(0, length);
    text.remove_prefix(std::min(length + 1, text.size()));
    const bool named = next != repair.repaired_lines.end() && *next == number;
    if (named) ++next;
    if (named || repair.extent == ClipRepair::all) {
      append_repaired_line(result, line);
    } else {
      result += line;
    }
  }
  return result;
}

// Keeps the note of a document's repair as long as the document: the last handle's end frees both.
struct Annotation {
  XmlDocument document;
  ClipRepair repair;

  void operator()(_xmlDoc*) { document.reset(); }
};

}  // namespace

ClipFile parse_xml_file(Controller& controller, const std::string& path) {
  const xml::ProblemChannel quiet;
  const ByteBuffer file = controller.process.platform.read_file(path);
  ClipRepair repair;
  constexpr auto whole = xml::Wanted::only_without_problems;
  xml::Recovery clip = parse(file.view(), xml::Blanks::drop, whole, path);
  if (!clip.problem_lines.empty()) {
    repair = {ClipRepair::lines, existing_lines(clip.problem_lines, file.view())};
    clip = {};  // one document at a time in memory
    clip = parse(joined(file.view(), repair, path), xml::Blanks::keep, whole, path);
  }
  if (!clip.problem_lines.empty()) {
    repair = {ClipRepair::all, {}};
    clip = {};
    clip = parse(joined(file.view(), repair, path), xml::Blanks::keep, xml::Wanted::always, path);
  }
  if (clip.limit != nullptr) fail(path, clip.limit);
  const xmlNode* first = clip.document->children;
  if (first == nullptr) fail_without_xml(path, clip);
  // A document that knows its file lets later errors name it.
  clip.document->URL = xmlStrdup(reinterpret_cast<const xmlChar*>(path.c_str()));
  if (clip.document->URL == nullptr) throw std::bad_alloc();
  std::string name = first->name != nullptr ? reinterpret_cast<const char*>(first->name) : "";
  _xmlDoc* const document = clip.document.get();
  return {XmlDocument(document, Annotation{std::move(clip.document), std::move(repair)}),
          std::move(name)};
}

Value to_value(ClipFile clip) {
  return {List{to_value(std::move(clip.document)), to_value(std::move(clip.name))}};
}

ClipRepair repair_of(const XmlDocument& document) {
  const auto* annotation = std::get_deleter<Annotation>(document);
  return annotation != nullptr ? annotation->repair : ClipRepair{};
}

}  // namespace murmurase
