#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <optional>

namespace ombrix::platform {

/// Sleeps as long as a word has a value, until `futexWakeOne` (futex(2), within this process); it
/// may also return for no reason. Any thread.
/// @return False when the limit has passed.
bool futexWait(const std::atomic<std::uint32_t>& word, std::uint32_t value,
               std::optional<std::chrono::seconds> limit = std::nullopt) noexcept;

/// Wakes one of the threads that sleep on a word. Any thread.
/// @param word Used as a number only: the word may be gone already.
void futexWakeOne(const std::atomic<std::uint32_t>* word) noexcept;

}  // namespace ombrix::platform
