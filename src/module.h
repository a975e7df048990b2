#pragma once

#include "core/controller.h"
#include "core/operation.h"

namespace murmurase {

// What start-up makes; one per process outside of tests.
struct Module {
  explicit Module(Platform& platform) : process{platform, std::nullopt, true} {}

  Process process;
  OperationTable operations;
};

// Prepares the working folder, sets TEMP_XML_FILE and installs the operations. Errors: system when
// the working folder cannot be made, nothing being set or installed then; type when the module has
// been started before, its operations staying in place.
void start_up(Module& module);

}  // namespace murmurase
