#pragma once

#include <chrono>
#include <thread>

namespace ombrix::testing {

/// Whether a condition comes true within 30 s: for effects of other threads that are not signalled,
/// such as released memory.
template <class Condition>
[[nodiscard]] bool eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

}  // namespace ombrix::testing
