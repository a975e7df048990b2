#pragma once

#include <sys/types.h>

#include <atomic>
#include <string>
#include <utility>
#include <vector>

#include "platform/posix/files.h"

namespace murmurase {

// A program that is run for the host, with a process of ours between the two: the watcher. So the host
// may ignore SIGCHLD or wait for all its children: the program is none of them, and the watcher reports
// its end through a socket. The watcher passes SIGTERM on to the program. It lives as long as this
// object, so its number cannot become another process's.
class Child {
 public:
  // The program is found in $PATH when its name has no slash. `output` becomes its standard output; -1
  // for none. `watcher` becomes the watcher's number, and 0 again before that one ends. A failure is
  // what wait() gives.
  Child(std::atomic<pid_t>& watcher, const char* program, std::vector<std::string> words,
        int output);
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;
  ~Child();  // waits for the program's end

  // Waits for the program's end. Gives 0, or errno when the program could not be run. To be called once.
  int wait(int& status);

 private:
  std::atomic<pid_t>& watcher_;
  std::vector<std::string> words_;
  std::vector<char*> arguments_;
  pid_t process_ = -1;
  int error_ = 0;
  FileDescriptor socket_{-1};
};

// The two ends of what `make` makes, a pipe or sockets, which no started program gets. -1, and errno, in
// place of one that there is not.
using Ends = std::pair<FileDescriptor, FileDescriptor>;
Ends open_ends(int (*make)(int*));

}  // namespace murmurase
