#pragma once

#include <libxml/parser.h>
#include <libxml/tree.h>

namespace murmurase::xml {

// libxml2's writer takes its form from settings of the thread, which a host may have changed for its
// own documents. While this lives, they are those of our files; then the host's are put back.
class WriterSettings {
 public:
  WriterSettings() {
    xmlIndentTreeOutput = 1;
    xmlTreeIndentString = "  ";
    xmlSaveNoEmptyTags = 0;
  }
  WriterSettings(const WriterSettings&) = delete;
  WriterSettings& operator=(const WriterSettings&) = delete;
  ~WriterSettings() {
    xmlIndentTreeOutput = indents_;
    xmlTreeIndentString = indentation_;
    xmlSaveNoEmptyTags = no_empty_tags_;
  }

 private:
  int indents_ = xmlIndentTreeOutput;
  const char* indentation_ = xmlTreeIndentString;
  int no_empty_tags_ = xmlSaveNoEmptyTags;
};

}  // namespace murmurase::xml
