#pragma once

#include <unistd.h>

#include <memory>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/Process.hpp"
#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix::platform::detail {

/// Makes the normal end of the calling process call a member function of an object, if the object
/// still exists. Any thread.
template <class T, void (T::*step)()>
void callAtExit(std::weak_ptr<T> object) {
  struct Registry {
    ForkSafe<Mutex> mutex;
    std::vector<std::weak_ptr<T>> objects OMBRIX_GUARDED_BY(mutex);
    int process OMBRIX_GUARDED_BY(mutex) = 0;  // for which the call is registered
  };
  static Registry& registry = *new Registry;
  const LockGuard lock(registry.mutex);
  if (std::exchange(registry.process, ::getpid()) != ::getpid()) {
    atExit([] {
      std::vector<std::weak_ptr<T>> objects;
      {
        const LockGuard ending(registry.mutex);
        objects = registry.objects;
      }
      for (const auto& weak : objects) {
        if (const auto alive = weak.lock()) (alive.get()->*step)();
      }
    });
  }
  std::erase_if(registry.objects, [](const auto& weak) { return weak.expired(); });
  registry.objects.push_back(std::move(object));
}

}  // namespace ombrix::platform::detail
