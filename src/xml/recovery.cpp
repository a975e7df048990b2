#include "xml/recovery.h"

#include <libxml/SAX2.h>

#include <new>

#include "core/printable.h"
#include "xml/parser.h"

namespace murmurase::xml {
namespace {

struct Problems {
  Recovery& recovery;
  const PartLimit& most;
  Source& source;
  xmlSAXHandler* builder = nullptr;
  xmlSAXHandler* unwanted = nullptr;  // builds what is not wanted after a problem; or null
  Limits limits;
  std::size_t parts = 0;  // of the document, and problems
};

void count(Problems& problems, int parts) {
  problems.parts += static_cast<std::size_t>(parts);
  if (problems.parts > problems.most.parts) {
    end_early(problems.source, *problems.builder, problems.most.passed);
  }
}

void count(void* context, int parts) {
  count(*static_cast<Problems*>(static_cast<xmlParserCtxt*>(context)->_private), parts);
}

void start_element(void* context, const xmlChar* local, const xmlChar* prefix, const xmlChar* uri,
                   int namespace_count, const xmlChar** namespaces, int attribute_count,
                   int defaulted_count, const xmlChar** attributes) {
  count(context, 1 + namespace_count + attribute_count);
  xmlSAX2StartElementNs(context, local, prefix, uri, namespace_count, namespaces, attribute_count,
                        defaulted_count, attributes);
}

void comment(void* context, const xmlChar* text) {
  count(context, 1);
  xmlSAX2Comment(context, text);
}

void instruction(void* context, const xmlChar* target, const xmlChar* text) {
  count(context, 1);
  xmlSAX2ProcessingInstruction(context, target, text);
}

void cdata(void* context, const xmlChar* text, int length) {
  count(context, 1);
  xmlSAX2CDataBlock(context, text, length);
}

void reference(void* context, const xmlChar* name) {
  count(context, 1);
  xmlSAX2Reference(context, name);
}

void count_parts(xmlParserCtxt& context, Problems& problems) {
  context._private = &problems;
  xmlSAXHandler& builder = *context.sax;
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

// Warnings are none, nor is what only a validating parser minds.
bool is_fault(const xmlError& problem) {
  return problem.level == XML_ERR_FATAL ||
         (problem.level == XML_ERR_ERROR && problem.domain == XML_FROM_NAMESPACE);
}

void note_problem(void* data, Problem* problem) noexcept {
  auto& problems = *static_cast<Problems*>(data);
  auto& [recovery, most, source, builder, unwanted, limits, parts] = problems;
  if (unwanted != nullptr) build_no_more(*unwanted);
  try {
    limits.note(*problem);
    count(problems, 1);
    if (source.limit != nullptr) return;
    std::vector<int>& lines = recovery.problem_lines;
    if (lines.empty()) recovery.first_problem = in_one_line(*problem);
    if (lines.empty() || lines.back() != problem->line) lines.push_back(problem->line);
    if (!recovery.fault && is_fault(*problem)) {
      recovery.fault = {problem->line, in_one_line(*problem)};
    }
  } catch (...) {
    limits.memory_ran_out = true;  // nothing may be thrown through the parser
  }
}

}  // namespace

Recovery recover(std::string_view bytes, const PartLimit& most, Blanks blanks, Wanted wanted) {
  Recovery recovery;
  Source source{bytes};
  Problems problems{recovery, most, source, nullptr, nullptr, {}, 0};
  const ProblemChannel channel(note_problem, &problems);
  const int options = blanks == Blanks::drop ? XML_PARSE_NOBLANKS : 0;
  const Context context = open_parser(source, options | XML_PARSE_COMPACT);
  problems.builder = context->sax;
  count_parts(*context, problems);
  if (wanted == Wanted::never) build_no_more(*context->sax);
  if (wanted == Wanted::only_without_problems) problems.unwanted = context->sax;
  xmlParseDocument(context.get());
  recovery.document = own(context->myDoc);
  context->myDoc = nullptr;
  if (problems.limits.memory_ran_out) throw std::bad_alloc();
  recovery.limit = source.limit != nullptr ? source.limit : problems.limits.passed;
  recovery.well_formed = recovery.document && context->wellFormed == 1;
  return recovery;
}

}  // namespace murmurase::xml
