#pragma once

#include <string>
#include <vector>

namespace host {

enum class OutputKind {
  transcript,
  workbook,
  marker_clip,
  working_clip  // the one in the working folder, which may have got no markers
};

struct Output {
  std::string path;
  OutputKind kind;
};

// Throws a Failure when one of the outputs would replace a file that this run reads or runs, or a file that
// is not of the output's kind; with `keep`, any file. The bytes of the file decide, not its name: a
// transcript replaces text, a workbook a workbook, a marker clip a clip that holds markers of this
// program, and each of them an empty file. A link stands for what it leads to. Devices, pipes and open
// descriptors are written to and nothing of them is replaced, so they pass.
void check_outputs(const std::vector<std::string>& inputs, const std::vector<Output>& outputs,
                   bool keep);

// The file of a program: the first one in $PATH that can be run when the name has no slash. Empty for none.
std::string program_file(const std::string& name);

}  // namespace host
