#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

// SIGHUP, SIGINT and SIGTERM end this program as they would any other, once nothing of it is left: not
// the XMP tool, not a process of its own, not a file for its own use.
namespace host {

// To be called once, at the start. A signal that whoever started the program has it ignore stays so.
void end_cleanly_when_interrupted();

// A process that must not outlive this one. The signals are to be held back from before it is started,
// and forgotten before it is waited for.
void remember_process(pid_t process);
void forget_process(pid_t process);

// For a new process: what its parent has started is not its own.
void forget_all_processes();

// The files and empty folders to be removed, in this order, in place of those named before. The signals
// are to be held back.
void remember_leftovers(std::vector<std::string> paths);

}  // namespace host
