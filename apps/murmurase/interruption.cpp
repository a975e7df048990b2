#include "interruption.h"

#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <utility>

#include "module.h"

namespace host {
namespace {

std::array<std::atomic<pid_t>, 1024> processes{};  // as many as there can be jobs; 0 is none
// Never destroyed, for a signal may come while the process is exiting.
std::vector<std::string>& leftovers = *new std::vector<std::string>;

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
  for (const std::string& path : leftovers) {
    if (unlink(path.c_str()) != 0) rmdir(path.c_str());
  }
  std::signal(signal, SIG_DFL);
  raise(signal);  // takes effect as the handler ends
}

}  // namespace

void end_cleanly_when_interrupted() {
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler == SIG_IGN) continue;
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

void remember_leftovers(std::vector<std::string> paths) { leftovers = std::move(paths); }

}  // namespace host
