#pragma once

#include <pthread.h>

#include "OmbrixCore/Concurrency/RawMutex.hpp"

namespace ombrix {

/// A POSIX mutex, normal or recursive. It stays where it was made. Any thread.
class OMBRIX_CAPABILITY("mutex") PThreadMutex final : public ScopedMutexOperations<PThreadMutex> {
 public:
  using MutexPrimitive = pthread_mutex_t;

  enum class PThreadMutexType { normal, recursive };

  /// Stops the program when the mutex cannot be set up.
  explicit PThreadMutex(PThreadMutexType type = PThreadMutexType::normal);
  ~PThreadMutex();
  PThreadMutex(const PThreadMutex&) = delete;
  PThreadMutex& operator=(const PThreadMutex&) = delete;

  MutexPrimitive& unsafeMutex() noexcept { return mutex_; }

  void unbalancedLock() noexcept OMBRIX_ACQUIRE() { pthread_mutex_lock(&mutex_); }
  [[nodiscard]] bool unbalancedTryLock() noexcept OMBRIX_TRY_ACQUIRE(true) {
    return pthread_mutex_trylock(&mutex_) == 0;
  }
  void unbalancedUnlock() noexcept OMBRIX_RELEASE() { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t mutex_;
};

static_assert(RawMutex<PThreadMutex> && ScopedMutex<PThreadMutex>);

}  // namespace ombrix
