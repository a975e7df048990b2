#pragma once

#include <sys/types.h>

// A signal that ends a program ends this one too, once it has asked the XMP tool to end and ended its own
// processes. This holds for all but SIGKILL and the signals of a program's own faults, such as SIGSEGV.
namespace host {

// To be called once, at the start. A signal that whoever started the program has it ignore stays so.
void end_cleanly_when_interrupted();

// A process that must not outlive this one. The signals are to be held back from before it is started,
// and forgotten before it is waited for.
void remember_process(pid_t process);
void forget_process(pid_t process);

// For a new process: what its parent has started is not its own.
void forget_all_processes();

}  // namespace host
