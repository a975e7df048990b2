#include "child.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <new>
#include <system_error>
#ifdef __linux__
#include <sys/prctl.h>
#endif

#include "xmp/failure.h"

namespace murmurase::tool {
namespace {

constexpr rlim_t most_memory = rlim_t{512} << 20;  // bytes
constexpr rlim_t most_time = 60;                   // seconds

enum Outcome { result = 0, crash = 1, refusal = 2, out_of_memory = 3 };

void limit(int resource, rlim_t most) {
  rlimit now{};
  getrlimit(resource, &now);
  now.rlim_cur = std::min(now.rlim_cur, most);
  setrlimit(resource, &now);
}

void enter_child(pid_t parent) {
#ifdef __linux__
  prctl(PR_SET_PDEATHSIG, SIGKILL);
#endif
  if (getppid() != parent) _exit(crash);  // It has ended already.
  const int null = open("/dev/null", O_WRONLY | O_CLOEXEC);
  for (const int stream : {STDOUT_FILENO, STDERR_FILENO})
    if (null < 0 || dup2(null, stream) < 0) _exit(crash);
  limit(RLIMIT_CORE, 0);
  limit(RLIMIT_CPU, most_time);
#ifndef __SANITIZE_ADDRESS__  // It keeps terabytes for itself.
  limit(RLIMIT_DATA, most_memory);
#endif
  std::set_new_handler([] { _exit(out_of_memory); });
}

[[noreturn]] void run(const std::function<std::string()>& work, int output) {
  std::string text;
  Outcome outcome = result;
  try {
    text = work();
  } catch (const xmp::Failure& failure) {
    text = failure.what();
    outcome = refusal;
  }
  for (std::string_view rest = text; !rest.empty();) {
    const ssize_t count = write(output, rest.data(), rest.size());
    if (count < 0 && errno != EINTR) _exit(crash);
    if (count > 0) rest.remove_prefix(static_cast<std::size_t>(count));
  }
  _exit(outcome);
}

}  // namespace

std::string in_child(const media::InputFile& movie, const char* library,
                     const std::function<std::string()>& work) {
  const std::string name = xmp::in_quotes(movie.path().native());
  std::array<int, 2> ends{};
  const pid_t parent = getpid();
  const bool piped = pipe(ends.data()) == 0;
  FileDescriptor output(piped ? ends[0] : -1);
  FileDescriptor input(piped ? ends[1] : -1);
  const pid_t child = piped ? fork() : -1;
  if (child < 0) {
    xmp::fail("cannot read {}: no process for {}: {}; close other programs", name, library,
              std::generic_category().message(errno));
  }
  if (child == 0) {
    output.close();
    try {
      enter_child(parent);
      run(work, input.get());
    } catch (...) {
      _exit(crash);
    }
  }
  input.close();
  ByteBuffer text;
  const int error = read_all(output.get(), text);
  output.close();
  int status = 0;
  while (waitpid(child, &status, 0) < 0 && errno == EINTR) continue;
  if (error != 0)
    xmp::fail("cannot read {}: {} gives more than 512 MiB; have it written again", name, library);
  if (WIFEXITED(status) && WEXITSTATUS(status) == result) return std::string(text.view());
  if (WIFEXITED(status) && WEXITSTATUS(status) == refusal && text.size() > 0)
    throw xmp::Failure(std::string(text.view()));
  if (WIFEXITED(status) && WEXITSTATUS(status) == out_of_memory) {
    xmp::fail(
        "cannot read {}: {} would need more than the 512 MiB that it may take; check that it plays",
        name, library);
  }
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGXCPU)
    xmp::fail("cannot read {}: {} was still searching it after a minute; check that it plays", name,
              library);
  xmp::fail("cannot read {}: {} crashed on it; check that it plays, or name its .xmp file", name,
            library);
}

}  // namespace murmurase::tool
