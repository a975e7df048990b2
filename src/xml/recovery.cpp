#include "xml/recovery.h"

#include <libxml/SAX2.h>

#include <new>

#include "core/printable.h"
#include "xml/parser.h"

namespace murmurase::xml {
namespace {

struct Problems {
  Recovery& recovery;
  Source& source;
  bool unwanted_after_one = false;  // what comes after a problem
  Limits limits;
};

void start_element(void* context, const xmlChar* local, const xmlChar* prefix, const xmlChar* uri,
                   int namespace_count, const xmlChar** namespaces, int attribute_count,
                   int defaulted_count, const xmlChar** attributes) {
  count_parts(context, 1 + namespace_count + attribute_count);
  count_element(context, namespace_count, attribute_count);
  xmlSAX2StartElementNs(context, local, prefix, uri, namespace_count, namespaces, attribute_count,
                        defaulted_count, attributes);
}

void comment(void* context, const xmlChar* text) {
  count_parts(context, 1);
  xmlSAX2Comment(context, text);
}

void instruction(void* context, const xmlChar* target, const xmlChar* text) {
  count_parts(context, 1);
  count_instruction(context, target, text);
  xmlSAX2ProcessingInstruction(context, target, text);
}

void cdata(void* context, const xmlChar* text, int length) {
  count_parts(context, 1);
  xmlSAX2CDataBlock(context, text, length);
}

void reference(void* context, const xmlChar* name) {
  count_parts(context, 1);
  xmlSAX2Reference(context, name);
}

void build_counted(xmlSAXHandler& builder) {
  builder.startElementNs = start_element;
  builder.comment = comment;
  builder.processingInstruction = instruction;
  builder.cdataBlock = cdata;
  builder.reference = reference;
}

// The parser's words end in a line feed, and after one may quote the bytes.
std::string in_one_line(const xmlError& problem) {
  const std::string_view words = problem.message != nullptr ? problem.message : "unknown problem";
  return printable(words.substr(0, words.find('\n')));
}

// Warnings are none, nor is a namespace that is no URI, nor what only a validating parser minds.
bool is_fault(const xmlError& problem) {
  return problem.level == XML_ERR_FATAL ||
         (problem.level == XML_ERR_ERROR && problem.domain == XML_FROM_NAMESPACE &&
          problem.code != XML_WAR_NS_URI);
}

void note_problem(void* data, Problem* problem) noexcept {
  auto& problems = *static_cast<Problems*>(data);
  auto& [recovery, source, unwanted_after_one, limits] = problems;
  if (source.parser == nullptr) return limits.note(*problem);  // no memory for the parser itself
  if (unwanted_after_one) build_no_more(*source.parser->sax);
  try {
    limits.note(*problem);
    count_parts(source.parser, 1);
    if (source.limit != nullptr) return;
    std::vector<int>& lines = recovery.problem_lines;
    if (lines.empty() || lines.back() != problem->line) lines.push_back(problem->line);
    if (!recovery.fault && is_fault(*problem)) {
      recovery.fault = {problem->line, in_one_line(*problem)};
    }
  } catch (...) {
    limits.memory_ran_out = true;  // nothing may be thrown through the parser
  }
}

}  // namespace

Recovery recover(std::string_view bytes, Blanks blanks, Wanted wanted, Kind kind) {
  Recovery recovery;
  Source source{bytes};
  if (kind == Kind::clip) {
    source.most_parts = most_clip_parts;
    source.too_many_parts = "it has more than 6 million elements, other parts or faults";
  }
  Problems problems{recovery, source, wanted == Wanted::only_without_problems, {}};
  const ProblemChannel channel(note_problem, &problems);
  const int options = (blanks == Blanks::drop ? XML_PARSE_NOBLANKS : 0) |
                      (kind == Kind::packet ? XML_PARSE_HUGE : 0);
  const Context context = open_parser(source, options | XML_PARSE_COMPACT);
  build_counted(*context->sax);
  if (wanted == Wanted::never) build_no_more(*context->sax);
  xmlParseDocument(context.get());
  recovery.document = own(context->myDoc);
  context->myDoc = nullptr;
  if (problems.limits.memory_ran_out) throw std::bad_alloc();
  recovery.limit = source.limit != nullptr ? source.limit : problems.limits.passed;
  recovery.well_formed = recovery.document && context->wellFormed == 1;
  return recovery;
}

}  // namespace murmurase::xml
