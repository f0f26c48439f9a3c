#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "OmbrixPlatform/Network/Caching/Detail/HTTPCaching.hpp"
#include "OmbrixPlatform/Network/URLCache.hpp"

namespace ombrix::platform::detail {

/// An answer with the key that finds it and the facts that decide whether it may be served; never
/// changed once it is made.
struct CachedAnswer {
  std::string key;
  SelectingFields selecting;
  ExchangeTimes times;
  Freshness freshness;
  CachedURLResponse answer;

  /// Roughly how many bytes it takes in memory.
  [[nodiscard]] std::size_t memoryBytes() const noexcept {
    constexpr std::size_t kAround = 512;  // the objects themselves and the index
    constexpr std::size_t kAField = 2 * sizeof(std::string);
    std::size_t bytes = kAround + 2 * key.size() + answer.data->size();
    for (const auto& [name, value] : answer.response->headers()) {
      bytes += kAField + name.size() + value.size();
    }
    return bytes;
  }
};

using CachedAnswerPointer = std::shared_ptr<const CachedAnswer>;

}  // namespace ombrix::platform::detail
