#include "OmbrixPlatform/Network/Caching/Detail/MemoryURLCache.hpp"

#include <algorithm>
#include <utility>

namespace ombrix::platform::detail {

CachedAnswerPointer MemoryURLCache::find(std::string_view key, const HTTPHeaders& request) {
  const LockGuard lock(mutex_);
  const auto variants = byKey_.find(key);
  if (variants == byKey_.end()) return nullptr;
  for (const auto entry : variants->second) {
    if (!selects(entry->answer->selecting, request)) continue;
    order_.splice(order_.begin(), order_, entry);
    return entry->answer;
  }
  return nullptr;
}

void MemoryURLCache::put(CachedAnswerPointer answer, const HTTPHeaders& request) {
  const LockGuard lock(mutex_);
  removeSelected(answer->key, request);
  insert(std::move(answer));
}

void MemoryURLCache::promote(CachedAnswerPointer answer, const HTTPHeaders& request,
                             std::uint64_t generation) {
  const LockGuard lock(mutex_);
  if (generation != generation_) return;
  if (const auto variants = byKey_.find(answer->key); variants != byKey_.end()) {
    for (const auto entry : variants->second) {
      if (selects(entry->answer->selecting, request)) return;
    }
  }
  insert(std::move(answer));
}

void MemoryURLCache::insert(CachedAnswerPointer answer) {
  const std::size_t bytes = answer->memoryBytes();
  if (static_cast<std::int64_t>(bytes) > capacity_ / kLargestShare) {
    ++generation_;
    return;
  }
  auto& variants = byKey_[answer->key];
  order_.push_front({std::move(answer), bytes});
  variants.insert(variants.begin(), order_.begin());
  bytes_ += static_cast<std::int64_t>(bytes);
  if (variants.size() > kMostVariants) drop(variants.back());
  while (bytes_ > capacity_) drop(std::prev(order_.end()));
}

void MemoryURLCache::remove(std::string_view key) {
  const LockGuard lock(mutex_);
  ++generation_;
  const auto found = byKey_.find(key);
  if (found == byKey_.end()) return;
  for (const auto entry : Variants(found->second)) drop(entry);
}

void MemoryURLCache::removeAll() {
  const LockGuard lock(mutex_);
  ++generation_;
  byKey_.clear();
  order_.clear();
  bytes_ = 0;
}

std::int64_t MemoryURLCache::usage() const {
  const LockGuard lock(mutex_);
  return bytes_;
}

std::vector<std::string> MemoryURLCache::keysInUse() const {
  const LockGuard lock(mutex_);
  std::vector<std::string> keys;
  keys.reserve(order_.size());
  for (auto entry = order_.rbegin(); entry != order_.rend(); ++entry) {
    keys.push_back(entry->answer->key);
  }
  return keys;
}

void MemoryURLCache::removeSelected(std::string_view key, const HTTPHeaders& request) {
  const auto found = byKey_.find(key);
  if (found == byKey_.end()) return;
  for (const auto entry : Variants(found->second)) {
    if (selects(entry->answer->selecting, request)) drop(entry);
  }
}

void MemoryURLCache::drop(Order::iterator entry) {
  const auto variants = byKey_.find(entry->answer->key);
  std::erase(variants->second, entry);
  if (variants->second.empty()) byKey_.erase(variants);
  bytes_ -= static_cast<std::int64_t>(entry->bytes);
  order_.erase(entry);
}

}  // namespace ombrix::platform::detail
