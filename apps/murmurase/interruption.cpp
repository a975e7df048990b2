#include "interruption.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>

#include "module.h"

namespace host {
namespace {

std::array<std::atomic<pid_t>, 1024> processes{};  // as many as there can be jobs; 0 is none

// What does not end a program, and what its own faults raise.
constexpr std::array others = {SIGCHLD, SIGCONT, SIGTSTP, SIGTTIN, SIGTTOU, SIGURG, SIGWINCH,
#ifdef SIGINFO
                               SIGINFO,
#endif
                               SIGSEGV, SIGBUS,  SIGFPE,  SIGILL,  SIGTRAP, SIGSYS};

void replace_process(pid_t old, pid_t with) {
  for (auto& process : processes) {
    if (process != old) continue;
    process = with;
    return;
  }
}

// Calls nothing but what a signal handler may.
extern "C" void end_by_signal(int signal) {
  end_tool();
  for (const auto& process : processes) {
    if (process != 0) kill(process, SIGTERM);
  }
  for (const auto& process : processes) {
    if (process != 0) waitpid(process, nullptr, 0);
  }
  std::signal(signal, SIG_DFL);
  raise(signal);  // takes effect as the handler ends
}

}  // namespace

void end_cleanly_when_interrupted() {
  for (int signal = 1; signal < NSIG; ++signal) {
    struct sigaction action {};
    if (std::ranges::find(others, signal) != others.end()) continue;
    if (sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = end_by_signal;
    sigfillset(&action.sa_mask);
    sigaction(signal, &action, nullptr);
  }
}

void remember_process(pid_t process) { replace_process(0, process); }
void forget_process(pid_t process) { replace_process(process, 0); }
void forget_all_processes() {
  for (auto& process : processes) process = 0;
}

}  // namespace host
