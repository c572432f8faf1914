// Threads of the platform itself, with all signals blocked: signals are the host's affair.
#pragma once

#include <pthread.h>
#include <signal.h>

#include <thread>
#include <utility>

namespace erps::linux_platform {

// Blocks all signals of the calling thread for its lifetime; threads started meanwhile inherit it.
class SignalBlock {
 public:
  SignalBlock() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &previous_);
  }
  ~SignalBlock() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  SignalBlock(const SignalBlock&) = delete;
  SignalBlock& operator=(const SignalBlock&) = delete;

 private:
  sigset_t previous_{};
};

// `name` has at most 15 characters.
template <typename Function>
std::thread start_background_thread(const char* name, Function function) {
  const SignalBlock block;
  std::thread thread(std::move(function));
  pthread_setname_np(thread.native_handle(), name);
  return thread;
}

}  // namespace erps::linux_platform
