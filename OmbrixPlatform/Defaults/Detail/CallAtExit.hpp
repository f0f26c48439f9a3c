#pragma once

#include <unistd.h>

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/Process.hpp"

namespace ombrix::platform::detail {

/// Has the normal end of the calling process call a step of an object, if it is still there. Any
/// thread.
template <class T, void (T::*step)()>
void callAtExit(std::weak_ptr<T> object) {
  struct Registry {
    ForkSafe<std::mutex> mutex;
    std::vector<std::weak_ptr<T>> objects;
    int process = 0;  // whose end is registered
  };
  static Registry& registry = *new Registry;
  const std::lock_guard lock(registry.mutex);
  if (std::exchange(registry.process, ::getpid()) != ::getpid()) {
    atExit([] {
      std::unique_lock ending(registry.mutex);
      const auto objects = registry.objects;
      ending.unlock();
      for (const auto& weak : objects) {
        if (const auto alive = weak.lock()) (alive.get()->*step)();
      }
    });
  }
  std::erase_if(registry.objects, [](const auto& weak) { return weak.expired(); });
  registry.objects.push_back(std::move(object));
}

}  // namespace ombrix::platform::detail
