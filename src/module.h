#pragma once

#include <exception>

#include "core/controller.h"
#include "core/operation.h"

namespace murmurase {

// What start-up makes; one per process outside of tests.
struct Module {
  explicit Module(Platform& platform) : process{platform, std::nullopt, true} {}

  Process process;
  OperationTable operations;
  std::exception_ptr failure;  // of the first start-up
};

// Prepares the working folder, sets TEMP_XML_FILE and installs the operations. Errors: system when
// the working folder cannot be made, memory; the module then has nothing set or installed, and each
// later start-up fails for the same reason. Type when the module has been started before:
// TEMP_XML_FILE stays as it is, and so do the operations, the three of timecode being installed again.
void start_up(Module& module);

}  // namespace murmurase
