#include "xml/recovery.h"

#include <fmt/format.h>

#include <new>

#include "core/printable.h"
#include "xml/parser.h"

namespace murmurase::xml {
namespace {

struct Problems {
  Recovery& recovery;
  xmlSAXHandler* unwanted = nullptr;  // builds what is not wanted after a problem; or null
  Limits limits;
};

void build_no_more(xmlSAXHandler& builder) {
  builder.startElementNs = nullptr;
  builder.endElementNs = nullptr;
  builder.reference = nullptr;
  builder.characters = nullptr;
  builder.ignorableWhitespace = nullptr;
  builder.cdataBlock = nullptr;
  builder.comment = nullptr;
  builder.processingInstruction = nullptr;
}

// The parser's words end in a line feed, and after one may quote the bytes.
std::string in_one_line(const xmlError& problem) {
  std::string_view words = problem.message != nullptr ? problem.message : "unknown problem";
  words = words.substr(0, words.find('\n'));
  return problem.line > 0 ? fmt::format("{} (line {})", printable(words), problem.line)
                          : printable(words);
}

void note_problem(void* data, Problem* problem) noexcept {
  auto& [recovery, unwanted, limits] = *static_cast<Problems*>(data);
  if (unwanted != nullptr) build_no_more(*unwanted);
  try {
    limits.note(*problem);
    std::vector<int>& lines = recovery.problem_lines;
    if (lines.empty()) recovery.first_problem = in_one_line(*problem);
    if (lines.empty() || lines.back() != problem->line) lines.push_back(problem->line);
  } catch (...) {
    limits.memory_ran_out = true;  // nothing may be thrown through the parser
  }
}

}  // namespace

Recovery recover(std::string_view bytes, Blanks blanks, Wanted wanted) {
  Recovery recovery;
  Problems problems{recovery, nullptr, {}};
  const ProblemChannel channel(note_problem, &problems);
  const int options = blanks == Blanks::drop ? XML_PARSE_NOBLANKS : 0;
  const Context context = open_parser(bytes, options | XML_PARSE_COMPACT);
  if (wanted == Wanted::only_without_problems) problems.unwanted = context->sax;
  xmlParseDocument(context.get());
  recovery.document = own(context->myDoc);
  context->myDoc = nullptr;
  if (problems.limits.memory_ran_out) throw std::bad_alloc();
  recovery.limit = problems.limits.passed;
  recovery.well_formed = recovery.document && context->wellFormed == 1;
  return recovery;
}

}  // namespace murmurase::xml
