#pragma once

#include <cstddef>
#include <set>
#include <string>
#include <string_view>

#include "OmbrixPlatform/Locks/Mutex.hpp"

namespace ombrix {

/// Remembers which texts were logged already, so that a mistake in a loop does not fill the log.
/// Any thread.
class ToldOnce {
 public:
  /// Whether a text comes for the first time; always false after very many texts.
  bool isNews(std::string_view text) {
    constexpr std::size_t kMaximum = 64;
    const platform::LockGuard lock(mutex_);
    return told_.size() < kMaximum && told_.emplace(text).second;
  }

 private:
  platform::Mutex mutex_;
  std::set<std::string, std::less<>> told_ OMBRIX_GUARDED_BY(mutex_);
};

}  // namespace ombrix
