#pragma once

#include <string>
#include <vector>

#include "module.h"

// The names that a user gives to speakers.
namespace host {

struct SpeakerName {
  std::string speaker;  // its identifier
  std::string name;
};
using Names = std::vector<SpeakerName>;

// Reads a names file: what 'speakers --json' prints, with "Name"s filled in, or lines ID=NAME. Entries
// without a name are left out. Failure, which names the file: it cannot be read, or is neither.
Names read_names(const std::string& path);

// An ID=NAME of the command line: exact, blanks included.
SpeakerName name_of(const std::string& text);

// Names the speakers in speakers_array. `known` may name speakers that the movie has not; of `required`
// that is a failure. Later names win over earlier ones.
void name_speakers(Controller& controller, const Names& known, const Names& required);

}  // namespace host
