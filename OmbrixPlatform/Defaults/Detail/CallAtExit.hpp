#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "OmbrixPlatform/Concurrency/AtExit.hpp"

namespace ombrix::platform::detail {

/// Has the normal end of the process call a step of an object, if it is still there. Any thread.
template <class T, void (T::*step)()>
void callAtExit(std::weak_ptr<T> object) {
  struct Registry {
    std::mutex mutex;
    std::vector<std::weak_ptr<T>> objects;
  };
  static Registry& registry = *new Registry;
  static const bool isRegistered = [] {
    atExit([] {
      std::unique_lock lock(registry.mutex);
      const auto objects = registry.objects;
      lock.unlock();
      for (const auto& weak : objects) {
        if (const auto alive = weak.lock()) (alive.get()->*step)();
      }
    });
    return true;
  }();
  static_cast<void>(isRegistered);
  const std::lock_guard lock(registry.mutex);
  std::erase_if(registry.objects, [](const auto& weak) { return weak.expired(); });
  registry.objects.push_back(std::move(object));
}

}  // namespace ombrix::platform::detail
