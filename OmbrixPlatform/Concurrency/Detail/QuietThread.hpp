#pragma once

#include <pthread.h>
#include <signal.h>

#include <system_error>
#include <thread>
#include <utility>

namespace ombrix::platform::detail {

/// A thread of the library's own that handles no signals of the host's; not joinable when the
/// system has none left.
/// @param name At most 15 characters, as debuggers show it.
template <class Run>
std::thread startQuietThread(const char* name, Run run) {
  sigset_t all;
  sigset_t previous;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &previous);
  std::thread thread;
  try {
    thread = std::thread(std::move(run));
  } catch (const std::system_error&) {
    // The caller goes on without.
  }
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  if (thread.joinable()) pthread_setname_np(thread.native_handle(), name);
  return thread;
}

}  // namespace ombrix::platform::detail
