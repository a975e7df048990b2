#include "library.h"

#include <exempi/xmp.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <new>
#include <utility>

#include "failure.h"

namespace {

constexpr rlim_t most_memory = rlim_t{512} << 20;  // bytes
constexpr rlim_t most_time = 60;                   // seconds

int standard_error = -1;  // a copy, while libexempi must not write there
std::string last_words;
bool out_of_memory = false;

void hush() {
  standard_error = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
  const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  if (null >= 0 && standard_error >= 0) dup2(null, STDERR_FILENO);
  if (null >= 0) close(null);
}

void unhush() {
  if (standard_error < 0) return;
  dup2(standard_error, STDERR_FILENO);
  close(std::exchange(standard_error, -1));
}

void give_up(int /*signal*/) {
  [[maybe_unused]] const ssize_t written =
      write(standard_error, last_words.data(), last_words.size());
  _exit(1);
}

void note_and_fail() {
  out_of_memory = true;
  throw std::bad_alloc();
}

// Lowers a limit, and gives what it was.
rlimit lower(int resource, rlim_t most) {
  rlimit before{};
  getrlimit(resource, &before);
  rlimit now = before;
  now.rlim_cur = std::min(before.rlim_cur, most);
  setrlimit(resource, &now);
  return before;
}

rlim_t seconds_so_far() {
  rusage used{};
  getrusage(RUSAGE_SELF, &used);
  return static_cast<rlim_t>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) + 1;
}

}  // namespace

Library::Library() {
  hush();
  if (xmp_init()) return;
  unhush();
  fail("libexempi cannot start; reinstall it, or close other programs");
}

Library::~Library() {
  xmp_terminate();
  unhush();
}

Bounds::Bounds(std::string failure) {
  last_words = std::move(failure);
  std::signal(SIGXCPU, give_up);
  out_of_memory = false;
  std::set_new_handler(note_and_fail);
#ifdef __SANITIZE_ADDRESS__  // It keeps terabytes for itself.
  memory_ = lower(RLIMIT_DATA, RLIM_INFINITY);
#else
  memory_ = lower(RLIMIT_DATA, most_memory);
#endif
  time_ = lower(RLIMIT_CPU, seconds_so_far() + most_time);
}

bool Bounds::memory_ran_out() { return out_of_memory; }

Bounds::~Bounds() {
  std::set_new_handler(nullptr);
  setrlimit(RLIMIT_DATA, &memory_);
  setrlimit(RLIMIT_CPU, &time_);
  std::signal(SIGXCPU, SIG_DFL);
}
