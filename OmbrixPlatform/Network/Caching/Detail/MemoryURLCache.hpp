#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "OmbrixPlatform/Locks/Mutex.hpp"
#include "OmbrixPlatform/Network/Caching/Detail/CachedAnswer.hpp"

namespace ombrix::platform::detail {

/// Answers in memory within a budget of bytes; the least recently used one is evicted first. Every
/// operation takes constant time. Any thread.
class MemoryURLCache {
 public:
  explicit MemoryURLCache(std::int64_t capacity) : capacity_(capacity) {}

  /// The answer that the request selects; this counts as a use.
  CachedAnswerPointer find(std::string_view key, const HTTPHeaders& request);

  /// Keeps an answer, which replaces those that the request selects. An answer of more than an
  /// eighth of the budget is not kept.
  void put(CachedAnswerPointer answer, const HTTPHeaders& request);

  /// Keeps an answer that was read from the disk after `generation` was asked for. It is not kept
  /// when anything was dropped meanwhile, since it might bring that back, nor when a newer one is
  /// there.
  void promote(CachedAnswerPointer answer, const HTTPHeaders& request, std::uint64_t generation);
  [[nodiscard]] std::uint64_t generation() const noexcept { return generation_; }

  /// Drops all answers to a URL.
  void remove(std::string_view key);
  void removeAll();

  [[nodiscard]] std::int64_t usage() const;

  /// Keys in the order of their use, the least recently used one first.
  [[nodiscard]] std::vector<std::string> keysInUse() const;

 private:
  struct Entry {
    CachedAnswerPointer answer;
    std::size_t bytes;
  };
  struct TextHash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const noexcept {
      return std::hash<std::string_view>{}(text);
    }
  };
  using Order = std::list<Entry>;  // the most recently used one first
  using Variants = std::vector<Order::iterator>;

  static constexpr std::int64_t kLargestShare = 8;
  static constexpr std::size_t kMostVariants = 32;  // of one URL: they are searched one by one

  void removeSelected(std::string_view key, const HTTPHeaders& request) OMBRIX_REQUIRES(mutex_);
  void insert(CachedAnswerPointer answer) OMBRIX_REQUIRES(mutex_);
  void drop(Order::iterator entry) OMBRIX_REQUIRES(mutex_);

  const std::int64_t capacity_;
  mutable Mutex mutex_;
  Order order_ OMBRIX_GUARDED_BY(mutex_);
  std::unordered_map<std::string, Variants, TextHash, std::equal_to<>> byKey_
      OMBRIX_GUARDED_BY(mutex_);
  std::int64_t bytes_ OMBRIX_GUARDED_BY(mutex_) = 0;
  std::atomic<std::uint64_t> generation_{0};  // drops other than for their age
};

}  // namespace ombrix::platform::detail
