#include "OmbrixPlatform/Concurrency/QuietThread.hpp"

#include <pthread.h>
#include <signal.h>

#include <exception>
#include <utility>

namespace ombrix::platform {

std::thread startQuietThread(const char* name, std::move_only_function<void()> run) {
  sigset_t all;
  sigset_t previous;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &previous);
  std::thread thread;
  try {
    thread = std::thread(std::move(run));
  } catch (const std::exception&) {
    // The system has no thread or memory left: the caller goes on without it.
  }
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  if (thread.joinable()) pthread_setname_np(thread.native_handle(), name);
  return thread;
}

}  // namespace ombrix::platform
