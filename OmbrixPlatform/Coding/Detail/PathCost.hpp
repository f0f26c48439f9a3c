#pragma once

#include <cstdint>

#include "OmbrixPlatform/Coding/CodingPath.hpp"
#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListView.hpp"

namespace ombrix::platform::detail {

/// What an operation of a decoder on one value is charged: it copies the path to the value some
/// times, and with it the keys of the document on that way, of any length.
constexpr std::uint64_t pathCost(std::uint64_t steps, std::uint64_t keyBytes) noexcept {
  constexpr std::uint64_t kCopiedBytes = 8;  // in the time of one unit of the allowance
  using Allowance = BinaryPropertyListView::Allowance;
  return Allowance::kVisitCost + Allowance::kPathCost * steps + keyBytes / kCopiedBytes;
}

inline std::uint64_t pathCost(const CodingPath& path) noexcept {
  std::uint64_t keyBytes = 0;
  for (const CodingKey& key : path) keyBytes += key.intValue ? 0 : key.stringValue.size();
  return pathCost(path.size(), keyBytes);
}

}  // namespace ombrix::platform::detail
