#pragma once

#include <csignal>

namespace murmurase {

// Holds back every signal to this thread for as long as it lives: what must not be left half done is
// done first.
class HeldSignals {
 public:
  HeldSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;
  ~HeldSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

  // Those that were held back before.
  const sigset_t& before() const { return before_; }

 private:
  sigset_t before_{};
};

}  // namespace murmurase
