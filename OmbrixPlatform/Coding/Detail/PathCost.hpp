#pragma once

#include <cstdint>

#include "OmbrixPlatform/Coding/CodingPath.hpp"
#include "OmbrixPlatform/Coding/Streams/BinaryPropertyListView.hpp"

namespace ombrix::platform::detail {

/// The charge for a decoder's operation on one value: it copies the path to the value several
/// times, and with it the document's keys on the way, which may be long.
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
