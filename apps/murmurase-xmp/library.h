#pragma once

#include <sys/resource.h>

#include <string>

// libexempi, and no word of its own on standard error while it lives: a failure is one line.
class Library {
 public:
  Library();
  ~Library();
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
};

// While it lives, this process may take a minute more of processor time, and 512 MiB of memory in all:
// libexempi visits as many parts of a movie as its bytes claim to be, some in memory that grows. Where
// memory runs out, libexempi fails; where time does, the process ends with `failure`, a line, on
// standard error and with status 1.
class Bounds {
 public:
  explicit Bounds(std::string failure);
  ~Bounds();
  Bounds(const Bounds&) = delete;
  Bounds& operator=(const Bounds&) = delete;

  // Whether an allocation has failed since the last Bounds began.
  static bool memory_ran_out();

 private:
  rlimit memory_{};
  rlimit time_{};
};
