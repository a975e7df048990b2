#pragma once

#include <libxml/xmlerror.h>
#include <libxml/xmlversion.h>

namespace murmurase::xml {

#if LIBXML_VERSION >= 21200
using Problem = const xmlError;
#else
using Problem = xmlError;
#endif

// Has a function told of all that libxml2 reports in this thread, of any severity and from any part
// of it, for as long as the channel lives; nothing is printed. A host may use libxml2 too: what it
// had chosen is put back.
class ProblemChannel {
 public:
  using Handler = void (*)(void* data, Problem* problem);

  explicit ProblemChannel(
      Handler handler = [](void*, Problem*) {}, void* data = nullptr)
      : handler_(xmlStructuredError), data_(xmlStructuredErrorContext) {
    xmlSetStructuredErrorFunc(data, handler);
  }
  ProblemChannel(const ProblemChannel&) = delete;
  ProblemChannel& operator=(const ProblemChannel&) = delete;
  ~ProblemChannel() { xmlSetStructuredErrorFunc(data_, handler_); }

 private:
  xmlStructuredErrorFunc handler_;
  void* data_;
};

}  // namespace murmurase::xml
